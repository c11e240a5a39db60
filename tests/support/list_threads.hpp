// SPDX-License-Identifier: MIT
// Threads that hand elements on through a list, and threads that race to be its first user.
#ifndef KELO_TESTS_LIST_THREADS_HPP
#define KELO_TESTS_LIST_THREADS_HPP

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/list_probe.hpp"

namespace kelo::tests {

template <typename Link>
struct Parcel {
  Link link;
  std::size_t producer;
  int number;
};

inline constexpr std::size_t kProducers = 3;
inline constexpr int kParcels = 3000;
inline constexpr int kAllParcels = static_cast<int>(kProducers) * kParcels;

template <typename Link>
using Parcels = std::array<std::vector<Parcel<Link>>, kProducers>;

template <typename Link>
Parcels<Link> make_parcels() {
  Parcels<Link> parcels;
  for (std::size_t producer = 0; producer < kProducers; ++producer)
    for (int number = 0; number < kParcels; ++number) parcels[producer].push_back({{}, producer, number});
  return parcels;
}

// Takes parcels with `pop` until all were taken; each producer's must arrive in the order they were put.
template <typename Pop>
void consume(Pop pop, std::atomic<int>& taken) {
  std::array<int, kProducers> last;
  last.fill(-1);
  while (taken < kAllParcels) {
    auto* const link = pop();
    if (link == nullptr) {
      std::this_thread::yield();
      continue;
    }
    const auto* const parcel = reinterpret_cast<Parcel<std::remove_pointer_t<decltype(pop())>>*>(link);
    ++taken;
    EXPECT_LT(std::exchange(last[parcel->producer], parcel->number), parcel->number);
  }
}

// Several threads `push` a link each to a zeroed list, all at once and as its first use: none may undo what
// another has done.
template <typename List, typename Link>
void race_for_the_first_use(void (*push)(List*, Link*), void (*destroy)(List*)) {
  constexpr std::size_t kThreads = 4;
  constexpr std::size_t kRounds = 300;
  std::vector<List> lists(kRounds);
  std::vector<std::array<Link, kThreads>> links(kRounds);
  std::vector<std::atomic<std::size_t>> arrived(kRounds);
  std::vector<std::thread> threads;
  for (std::size_t own = 0; own < kThreads; ++own)
    threads.emplace_back([&, own] {
      for (std::size_t round = 0; round < kRounds; ++round) {
        ++arrived[round];
        while (arrived[round] < kThreads) std::this_thread::yield();
        push(&lists[round], &links[round][own]);
      }
    });
  for (std::thread& thread : threads) thread.join();
  for (List& list : lists) {
    EXPECT_EQ(list.size, kThreads);
    EXPECT_EQ(chain(list.front).size(), kThreads);
    destroy(&list);
  }
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_LIST_THREADS_HPP
