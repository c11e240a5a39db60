// SPDX-License-Identifier: MIT
// Random operations on queues agree with a model.
#include "kelo_utils/queue.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <deque>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/queue_probe.hpp"

namespace {

using kelo::tests::expect_sound;
using kelo::tests::Links;

TEST(QueueModel, AgreesWithADeque) {
  constexpr int kRounds = 100000;
  std::mt19937 random(20260301);
  const auto below = [&](std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
  };
  std::vector<q_link_type> links(24);
  Links spare;
  for (q_link_type& link : links) spare.push_back(q_link(nullptr, &link));
  q_type q;
  q_init(&q);
  std::deque<q_link_type*> model;
  const auto take_spare = [&] {
    q_link_type* const link = spare.back();
    spare.pop_back();
    return link;
  };
  const auto expect_end = [&](q_link_type* got, bool front) {
    q_link_type* const end = model.empty() ? nullptr : front ? model.front() : model.back();
    EXPECT_EQ(end, got);
  };

  for (int round = 0; round < kRounds && !testing::Test::HasFailure(); ++round) {
    const std::size_t place = model.empty() ? 0 : below(model.size());
    const auto at_place = model.begin() + static_cast<std::ptrdiff_t>(place);
    switch (below(10)) {
      case 0:
      case 1:
        if (spare.empty()) break;
        model.push_back(take_spare());
        q_put(&q, model.back());
        break;
      case 2:
      case 3:
        if (spare.empty() || model.empty()) break;
        q_insert(&q, spare.back(), *at_place);
        model.insert(at_place, take_spare());
        break;
      case 4:
      case 5: {
        q_link_type* const got = round % 2 == 0 ? q_get(&q) : q_get_ext(&q);
        expect_end(got, true);
        if (got == nullptr) break;
        model.pop_front();
        spare.push_back(got);
        break;
      }
      case 6: {
        q_link_type* const got = q_last_get(&q);
        expect_end(got, false);
        if (got == nullptr) break;
        model.pop_back();
        spare.push_back(got);
        break;
      }
      case 7:
        if (model.empty()) break;
        spare.push_back(*at_place);
        EXPECT_EQ(q_delete_ext(&q, *at_place), 1);
        model.erase(at_place);
        break;
      case 8:
        expect_end(q_check(&q), true);
        expect_end(q_last_check(&q), false);
        break;
      default:
        if (model.empty()) break;
        EXPECT_EQ(place + 1 < model.size() ? model[place + 1] : nullptr, q_next(&q, model[place]));
    }
    expect_sound(q, Links(model.begin(), model.end()));
  }
}

struct Parcel {
  int producer;
  int number;
  q_link_type link;
};

Parcel& parcel_of(q_link_type* link) {
  return *reinterpret_cast<Parcel*>(reinterpret_cast<char*>(link) - offsetof(Parcel, link));
}

constexpr int kProducers = 3;
constexpr int kParcels = 3000;

using Parcels = std::array<std::vector<Parcel>, kProducers>;

Parcels make_parcels() {
  Parcels parcels;
  for (int producer = 0; producer < kProducers; ++producer)
    for (int number = 0; number < kParcels; ++number)
      parcels[static_cast<std::size_t>(producer)].push_back({producer, number, {}});
  return parcels;
}

// Takes parcels until all were taken; each producer's must arrive in the order they were put.
void consume(q_type& q, std::atomic<int>& taken) {
  std::array<int, kProducers> last;
  last.fill(-1);
  while (taken < kProducers * kParcels) {
    q_link_type* const link = q_get(&q);
    if (link == nullptr) {
      std::this_thread::yield();
      continue;
    }
    ++taken;
    const Parcel& parcel = parcel_of(link);
    int& previous = last[static_cast<std::size_t>(parcel.producer)];
    EXPECT_LT(previous, parcel.number);
    previous = parcel.number;
  }
}

TEST(QueueThreads, EveryParcelArrivesOnceAndInOrder) {
  Parcels parcels = make_parcels();
  q_type q;
  q_init(&q);
  std::atomic<int> taken = 0;
  std::vector<std::thread> threads;
  for (std::vector<Parcel>& own : parcels)
    threads.emplace_back([&q, &own] {
      for (Parcel& parcel : own) q_put(&q, q_link(&parcel, &parcel.link));
    });
  for (int consumer = 0; consumer < 2; ++consumer) threads.emplace_back([&] { consume(q, taken); });
  threads.emplace_back([&] {
    while (taken < kProducers * kParcels) {
      EXPECT_GE(q_cnt(&q), 0);
      q_check(&q);
      q_last_check(&q);
    }
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(taken, kProducers * kParcels);
  expect_sound(q, {});
}

TEST(QueueThreads, BatchesMovedFromOwnQueuesArriveInOrder) {
  Parcels parcels = make_parcels();
  std::array<q_type, kProducers> batches;
  for (q_type& batch : batches) q_init(&batch);
  q_type q;
  q_init(&q);
  std::atomic<int> taken = 0;
  std::vector<std::thread> threads;
  for (std::size_t producer = 0; producer < kProducers; ++producer)
    threads.emplace_back([&, producer] {
      for (Parcel& parcel : parcels[producer]) {
        q_put(&batches[producer], q_link(&parcel, &parcel.link));
        if (parcel.number % 7 == 6) q_m_put(&q, &batches[producer]);
      }
      q_m_put(&q, &batches[producer]);
    });
  threads.emplace_back([&] { consume(q, taken); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(taken, kProducers * kParcels);
  expect_sound(q, {});
}

}  // namespace
