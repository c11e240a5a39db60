// SPDX-License-Identifier: MIT
// Random operations on linked lists agree with a model.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <deque>
#include <iterator>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "kelo_utils/list.h"
#include "tests/support/list_probe.hpp"
#include "tests/support/list_threads.hpp"
#include "tests/support/sanitized.hpp"

namespace {

using kelo::tests::consume;
using kelo::tests::expect_sound;
using kelo::tests::kAllParcels;
using kelo::tests::kProducers;
using kelo::tests::ListLinks;
using kelo::tests::make_parcels;

constexpr int kOperations = kelo::tests::kSanitized ? 100000 : 500000;

using Model = std::deque<list_link_type*>;

int is_param(list_link_type* element, const void* param) { return static_cast<int>(element == param); }

// Two lists, each beside a deque that must hold the same, and the links that are in neither.
class Pair {
 public:
  explicit Pair(unsigned seed) : random_(seed) {
    for (list_link_type& link : links_) spare_.push_back(&link);
  }
  ~Pair() {
    for (list_type& list : lists_) list_destroy(&list);
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;

  void step() {
    const std::size_t which = below(2);
    list_type& list = lists_[which];
    Model& model = models_[which];
    const std::size_t place = model.empty() ? 0 : below(model.size());
    switch (below(12)) {
      case 0:
      case 1:
        push_at_an_end(list, model);
        break;
      case 2:
      case 3:
        push_beside(list, model, place);
        break;
      case 4:
      case 5:
        pop_from_an_end(list, model);
        break;
      case 6:
        pop_item(list, model, place);
        break;
      case 7:
        look(list, model, place);
        break;
      case 8:
        search(list, model, place);
        break;
      case 9:
        merge();
        break;
      case 10:
        split();
        break;
      default:
        EXPECT_EQ(model.size(), list_size(&list));
    }
    if (lists_[0].initialised == 1) expect_sound(lists_[0], ListLinks(models_[0].begin(), models_[0].end()));
    if (lists_[1].initialised == 1) expect_sound(lists_[1], ListLinks(models_[1].begin(), models_[1].end()));
  }

 private:
  static Model::iterator at(Model& model, std::size_t place) {
    return model.begin() + static_cast<std::ptrdiff_t>(place);
  }

  std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
  }

  list_link_type* take_spare() {
    const std::size_t place = below(spare_.size());
    std::swap(spare_[place], spare_.back());
    list_link_type* const link = spare_.back();
    spare_.pop_back();
    return link;
  }

  void push_at_an_end(list_type& list, Model& model) {
    if (spare_.empty()) return;
    list_link_type* const link = take_spare();
    if (below(2) == 0) {
      list_push_front(&list, link);
      model.push_front(link);
    } else {
      list_push_back(&list, link);
      model.push_back(link);
    }
  }

  void push_beside(list_type& list, Model& model, std::size_t place) {
    if (spare_.empty() || model.empty()) return;
    list_link_type* const link = take_spare();
    if (below(2) == 0) {
      list_push_before(&list, link, model[place]);
      model.insert(at(model, place), link);
    } else {
      list_push_after(&list, link, model[place]);
      model.insert(at(model, place + 1), link);
    }
  }

  void pop_from_an_end(list_type& list, Model& model) {
    const bool front = below(2) == 0;
    list_link_type* const got = front ? list_pop_front(&list) : list_pop_back(&list);
    if (model.empty()) {
      EXPECT_EQ(got, nullptr);
      return;
    }
    EXPECT_EQ(front ? model.front() : model.back(), got);
    spare_.push_back(front ? model.front() : model.back());
    if (front) {
      model.pop_front();
    } else {
      model.pop_back();
    }
  }

  void pop_item(list_type& list, Model& model, std::size_t place) {
    if (model.empty()) return;
    list_pop_item(&list, model[place]);
    spare_.push_back(model[place]);
    model.erase(at(model, place));
  }

  static void look(list_type& list, Model& model, std::size_t place) {
    EXPECT_EQ(model.empty() ? nullptr : model.front(), list_peek_front(&list));
    EXPECT_EQ(model.empty() ? nullptr : model.back(), list_peek_back(&list));
    if (model.empty()) return;
    EXPECT_EQ(place + 1 < model.size() ? model[place + 1] : nullptr, list_peek_next(&list, model[place]));
    EXPECT_EQ(place > 0 ? model[place - 1] : nullptr, list_peek_prev(&list, model[place]));
  }

  void search(list_type& list, Model& model, std::size_t place) {
    for (list_link_type* const absent : spare_)
      EXPECT_EQ(list_linear_search(&list, is_param, absent), nullptr);
    if (model.empty()) return;
    EXPECT_EQ(model[place], list_linear_search(&list, is_param, model[place]));
  }

  // Merge and split run in opposite directions and so take the locks in one order. An empty source would cost
  // the destination its back.
  void merge() {
    auto& [destination, source] = models_;
    if (source.empty()) return;
    list_merge(&lists_[0], &lists_[1]);
    destination.insert(destination.end(), source.begin(), source.end());
    source.clear();
  }

  void split() {
    auto& [model, destination] = models_;
    if (model.empty()) return;
    const std::size_t place = below(model.size());
    list_split(&lists_[0], model[place], &lists_[1]);
    spare_.insert(spare_.end(), destination.begin(), destination.end());
    destination.assign(at(model, place), model.end());
    model.erase(at(model, place), model.end());
  }

  std::mt19937 random_;
  std::array<list_link_type, 24> links_ = {};
  ListLinks spare_;
  std::array<list_type, 2> lists_ = {};
  std::array<Model, 2> models_;
};

TEST(LinkedListModel, AgreesWithADeque) {
  Pair pair(20261121);
  for (int i = 0; i < kOperations && !testing::Test::HasFailure(); ++i) pair.step();
}

TEST(LinkedListThreads, EveryParcelArrivesOnceAndInOrder) {
  auto parcels = make_parcels<list_link_type>();
  list_type list = {};
  std::atomic<int> taken = 0;
  std::vector<std::thread> threads;
  for (auto& own : parcels)
    threads.emplace_back([&list, &own] {
      for (auto& parcel : own) list_push_back(&list, &parcel.link);
    });
  for (int consumer = 0; consumer < 2; ++consumer)
    threads.emplace_back([&] { consume([&] { return list_pop_front(&list); }, taken); });
  threads.emplace_back([&] {
    while (taken < kAllParcels) {
      EXPECT_LE(list_size(&list), static_cast<unsigned>(kAllParcels));
      list_peek_front(&list);
      list_peek_back(&list);
      EXPECT_EQ(list_linear_search(&list, is_param, nullptr), nullptr);
    }
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(taken, kAllParcels);
  expect_sound(list, {});
  list_destroy(&list);
}

TEST(LinkedListThreads, BatchesMergedFromOwnListsArriveInOrder) {
  auto parcels = make_parcels<list_link_type>();
  std::array<list_type, kProducers> batches = {};
  list_type list = {};
  std::atomic<int> taken = 0;
  std::vector<std::thread> threads;
  for (std::size_t producer = 0; producer < kProducers; ++producer)
    threads.emplace_back([&, producer] {
      for (auto& parcel : parcels[producer]) {
        list_push_back(&batches[producer], &parcel.link);
        if (parcel.number % 6 == 5) list_merge(&list, &batches[producer]);
      }
    });
  threads.emplace_back([&] { consume([&] { return list_pop_front(&list); }, taken); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(taken, kAllParcels);
  expect_sound(list, {});
  for (list_type& batch : batches) list_destroy(&batch);
  list_destroy(&list);
}

TEST(LinkedListThreads, RaceForTheFirstUseLosesNothing) {
  kelo::tests::race_for_the_first_use(list_push_front, list_destroy);
}

}  // namespace
