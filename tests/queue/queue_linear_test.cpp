// SPDX-License-Identifier: MIT
// Searches and walks along a queue, with the lock held.
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/queue.h"
#include "tests/support/lock_probe.hpp"
#include "tests/support/queue_probe.hpp"
#include "tests/support/stdout_capture.hpp"

namespace {

using kelo::tests::expect_sound;
using kelo::tests::kQueueAssertion;
using kelo::tests::Links;
using kelo::tests::links_backward;
using kelo::tests::links_forward;
using kelo::tests::QueueOfThree;
using kelo::tests::shut_to_others;
using kelo::tests::StdoutCapture;
using kelo::tests::waits_for_lock;

struct Compared {
  q_link_type* link;
  const void* param;
  bool operator==(const Compared&) const = default;
};

struct Acted {
  q_link_type* link;
  void* param;
  bool operator==(const Acted&) const = default;
};

// What the callbacks below saw, and the links that they answer to. Callbacks have no other way to know.
std::vector<Compared> compared;
std::vector<Acted> acted;
Links wanted;
q_type* callback_queue;
int callbacks_with_lock_held;

int is_wanted(q_link_type* link, const void* param) {
  compared.push_back({link, param});
  if (shut_to_others(callback_queue->lock)) ++callbacks_with_lock_held;
  for (const q_link_type* const one : wanted)
    if (one == link) return -3;  // any value but 0 is a match
  return 0;
}

void note(q_link_type* link, void* param) {
  acted.push_back({link, param});
  if (shut_to_others(callback_queue->lock)) ++callbacks_with_lock_held;
}

void put_back(q_link_type* link, void* q) { q_put(static_cast<q_type*>(q), link); }

class QueueLinear : public QueueOfThree {
 protected:
  QueueLinear() {
    compared.clear();
    acted.clear();
    callback_queue = &q;
    callbacks_with_lock_held = 0;
  }

  void delete_wanted(const Links& links) {
    wanted = links;
    q_linear_delete(&q, is_wanted, &param, note);
  }
  q_link_type* delete_new_wanted(const Links& links) {
    wanted = links;
    return q_linear_delete_new(&q, is_wanted, &param, note, &action_param);
  }

  int param = 0;
  int action_param = 0;
};

TEST_F(QueueLinear, SearchFindsTheFirstMatchFromTheHead) {
  wanted = {&c, &b};
  EXPECT_EQ(&b, q_linear_search(&q, is_wanted, &param));
  EXPECT_EQ(compared, (std::vector<Compared>{{&a, &param}, {&b, &param}}));
  expect_sound(q, {&a, &b, &c});
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(QueueLinear, SearchFindsHeadAndTail) {
  wanted = {&a};
  EXPECT_EQ(&a, q_linear_search(&q, is_wanted, nullptr));
  wanted = {&c};
  EXPECT_EQ(&c, q_linear_search(&q, is_wanted, nullptr));
}

TEST_F(QueueLinear, SearchWithoutAMatchComparesEachLinkOnce) {
  wanted = {&x};
  EXPECT_EQ(q_linear_search(&q, is_wanted, &param), nullptr);
  EXPECT_EQ(compared, (std::vector<Compared>{{&a, &param}, {&b, &param}, {&c, &param}}));
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(QueueLinear, SearchOfAnEmptyQueueComparesNothing) {
  q_init(&q);
  EXPECT_EQ(q_linear_search(&q, is_wanted, &param), nullptr);
  EXPECT_TRUE(compared.empty());
}

TEST_F(QueueLinear, SearchNeverComparesTheHeaderHoweverHighTheCount) {
  q_init(&q);
  q.cnt = 2;
  EXPECT_EQ(q_linear_search(&q, is_wanted, &param), nullptr);
  EXPECT_TRUE(compared.empty());
}

TEST_F(QueueLinear, SearchComparesWithTheLockHeld) {
  wanted = {};
  EXPECT_EQ(q_linear_search(&q, is_wanted, &param), nullptr);
  EXPECT_EQ(callbacks_with_lock_held, 3);
  EXPECT_TRUE(waits_for_lock(q.lock, [&] { q_linear_search(&q, is_wanted, &param); }));
}

int delete_itself(q_link_type* link, const void* /*param*/) {
  q_delete(callback_queue, link);
  return 0;
}

TEST_F(QueueLinear, SearchEndsWhereTheLinkThatWasComparedLastHasLeft) {
  EXPECT_EQ(q_linear_search(&q, delete_itself, nullptr), nullptr);
  expect_sound(q, {&b, &c});
}

std::thread other_thread;
std::atomic<bool> other_thread_had_the_lock;
int comparisons;
constexpr int kComparisonLimit = 50'000'000;

// Starts a thread that waits for the lock, and lets the walk end only when that thread has had it: after the
// tail comes the old head again.
int walk_until_other_thread_had_the_lock(q_link_type* link, const void* /*param*/) {
  if (comparisons++ == 0)
    other_thread = std::thread([] {
      q_check(callback_queue);
      other_thread_had_the_lock = true;
    });
  if (link == q_last_check(callback_queue)) q_put(callback_queue, q_get(callback_queue));
  return other_thread_had_the_lock || comparisons == kComparisonLimit ? 1 : 0;
}

TEST_F(QueueLinear, SearchReleasesTheLockBetweenSteps) {
  EXPECT_NE(q_linear_search(&q, walk_until_other_thread_had_the_lock, nullptr), nullptr);
  EXPECT_LT(comparisons, kComparisonLimit);
  other_thread.join();
}

TEST_F(QueueLinear, DeletePassesNullToCompareAndTheParameterToAction) {
  delete_wanted({&b});
  EXPECT_EQ(compared, (std::vector<Compared>{{&a, nullptr}, {&b, nullptr}}));
  EXPECT_EQ(acted, (std::vector<Acted>{{&b, &param}}));
}

TEST_F(QueueLinear, DeleteRemovesOnlyTheFirstMatch) {
  delete_wanted({&a, &b, &c});
  EXPECT_EQ(acted, (std::vector<Acted>{{&a, &param}}));
  expect_sound(q, {&b, &c});
}

TEST_F(QueueLinear, DeleteAtTheHeadLeavesASoundCircle) {
  delete_wanted({&a});
  EXPECT_EQ(a.next_ptr, nullptr);
  EXPECT_EQ(&q.link, b.prev_ptr);
  expect_sound(q, {&b, &c});
}

TEST_F(QueueLinear, DeleteOfTheOnlyElementEmptiesTheQueue) {
  q_get(&q);
  q_get(&q);
  delete_wanted({&c});
  expect_sound(q, {});
}

TEST_F(QueueLinear, DeleteInTheMiddleMendsOnlyTheForwardChain) {
  delete_wanted({&b});
  EXPECT_EQ(b.next_ptr, nullptr);
  EXPECT_EQ(&a, b.prev_ptr);
  EXPECT_EQ(links_forward(q), (Links{&a, &c}));
  EXPECT_EQ(&b, c.prev_ptr);
  EXPECT_EQ(&c, q_last_check(&q));
  EXPECT_EQ(q_cnt(&q), 2);
}

TEST_F(QueueLinear, DeleteOfTheTailLeavesItTheTailWhileTwoRemain) {
  delete_wanted({&c});
  EXPECT_EQ(c.next_ptr, nullptr);
  EXPECT_EQ(links_forward(q), (Links{&a, &b}));
  EXPECT_EQ(&c, q_last_check(&q));
  EXPECT_EQ(q_cnt(&q), 2);
}

TEST_F(QueueLinear, DeleteOfTheSecondOfTwoMakesTheHeadTheTail) {
  q_last_get(&q);
  delete_wanted({&b});
  EXPECT_EQ(q_cnt(&q), 1);
  EXPECT_EQ(&a, q_last_check(&q));
  expect_sound(q, {&a});
  q_put(&q, &x);
  expect_sound(q, {&a, &x});
}

TEST_F(QueueLinear, DeleteDownToOneMakesTheHeadTheTailAgain) {
  delete_wanted({&c});
  delete_wanted({&b});
  expect_sound(q, {&a});
}

TEST_F(QueueLinear, PutAfterAStaleTailIsCountedButNotReachableFromTheHead) {
  delete_wanted({&c});
  q_put(&q, &x);
  EXPECT_EQ(&x, c.next_ptr);
  EXPECT_EQ(&x, q_last_check(&q));
  EXPECT_EQ(q_cnt(&q), 3);
  EXPECT_EQ(links_forward(q), (Links{&a, &b}));
  EXPECT_EQ(&a, q_get(&q));
  EXPECT_EQ(&b, q_get(&q));
  EXPECT_EQ(q_get(&q), nullptr);
  expect_sound(q, {});
}

TEST_F(QueueLinear, DeleteWithoutAMatchChangesNothing) {
  delete_wanted({&x});
  EXPECT_EQ(compared.size(), 3U);
  EXPECT_TRUE(acted.empty());
  expect_sound(q, {&a, &b, &c});
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(QueueLinear, DeleteWithoutAnActionJustRemoves) {
  wanted = {&a};
  q_linear_delete(&q, is_wanted, &param, nullptr);
  expect_sound(q, {&b, &c});
}

TEST_F(QueueLinear, DeleteHoldsTheLockForCompareAndAction) {
  delete_wanted({&b});
  EXPECT_EQ(callbacks_with_lock_held, 3);
  EXPECT_FALSE(shut_to_others(q.lock));
  EXPECT_TRUE(waits_for_lock(q.lock, [&] { q_linear_delete(&q, is_wanted, nullptr, nullptr); }));
}

TEST_F(QueueLinear, ActionOfDeleteMayPutTheLinkBack) {
  wanted = {&a};
  q_linear_delete(&q, is_wanted, &q, put_back);
  expect_sound(q, {&b, &c, &a});
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(QueueLinear, DeleteNewPassesBothParametersAndReturnsTheLink) {
  EXPECT_EQ(&b, delete_new_wanted({&b, &c}));
  EXPECT_EQ(compared, (std::vector<Compared>{{&a, &param}, {&b, &param}}));
  EXPECT_EQ(acted, (std::vector<Acted>{{&b, &action_param}}));
}

TEST_F(QueueLinear, DeleteNewAtTheHeadLeavesASoundCircle) {
  EXPECT_EQ(&a, delete_new_wanted({&a}));
  EXPECT_EQ(a.next_ptr, nullptr);
  expect_sound(q, {&b, &c});
}

TEST_F(QueueLinear, DeleteNewOfTheOnlyElementEmptiesTheQueue) {
  q_get(&q);
  q_get(&q);
  EXPECT_EQ(&c, delete_new_wanted({&c}));
  expect_sound(q, {});
}

TEST_F(QueueLinear, DeleteNewInTheMiddleMendsOnlyTheForwardChain) {
  EXPECT_EQ(&b, delete_new_wanted({&b}));
  EXPECT_EQ(b.next_ptr, nullptr);
  EXPECT_EQ(links_forward(q), (Links{&a, &c}));
  EXPECT_EQ(&b, c.prev_ptr);
  EXPECT_EQ(links_backward(q), (Links{&c, &b, &a}));
  EXPECT_EQ(q_cnt(&q), 2);
}

TEST_F(QueueLinear, DeleteNewNeverAdjustsTheTail) {
  EXPECT_EQ(&c, delete_new_wanted({&c}));
  EXPECT_EQ(&c, q_last_check(&q));
  EXPECT_EQ(&b, delete_new_wanted({&b}));
  EXPECT_EQ(links_forward(q), (Links{&a}));
  EXPECT_EQ(q_cnt(&q), 1);
  EXPECT_EQ(&c, q_last_check(&q));
}

TEST_F(QueueLinear, DeleteNewOfTheSecondOfTwoLeavesItTheTail) {
  q_last_get(&q);
  EXPECT_EQ(&b, delete_new_wanted({&b}));
  EXPECT_EQ(q_cnt(&q), 1);
  EXPECT_EQ(&b, q_last_check(&q));
}

TEST_F(QueueLinear, DeleteNewWithoutAMatchAnswersNullAndChangesNothing) {
  EXPECT_EQ(delete_new_wanted({&x}), nullptr);
  EXPECT_EQ(compared.size(), 3U);
  EXPECT_TRUE(acted.empty());
  expect_sound(q, {&a, &b, &c});
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(QueueLinear, DeleteNewWithoutAnActionJustRemoves) {
  wanted = {&a};
  EXPECT_EQ(&a, q_linear_delete_new(&q, is_wanted, &param, nullptr, &action_param));
  expect_sound(q, {&b, &c});
}

TEST_F(QueueLinear, DeleteNewHoldsTheLockForCompareAndAction) {
  EXPECT_EQ(&b, delete_new_wanted({&b}));
  EXPECT_EQ(callbacks_with_lock_held, 3);
  EXPECT_FALSE(shut_to_others(q.lock));
  EXPECT_TRUE(waits_for_lock(q.lock, [&] { q_linear_delete_new(&q, is_wanted, nullptr, nullptr, nullptr); }));
}

TEST_F(QueueLinear, ActionOfDeleteNewMayPutTheLinkBack) {
  wanted = {&a};
  EXPECT_EQ(&a, q_linear_delete_new(&q, is_wanted, nullptr, put_back, &q));
  expect_sound(q, {&b, &c, &a});
}

TEST_F(QueueLinear, NullComparisonIsAnsweredSilentlyWithoutLocking) {
  const auto call_all = [&] {
    EXPECT_EQ(q_linear_search(&q, nullptr, &param), nullptr);
    q_linear_delete(&q, nullptr, &param, note);
    q_linear_delete(nullptr, nullptr, &param, note);
    EXPECT_EQ(q_linear_delete_new(&q, nullptr, &param, note, &action_param), nullptr);
  };
  StdoutCapture output;
  EXPECT_FALSE(waits_for_lock(q.lock, call_all));
  EXPECT_EQ(output.take(), "");
  EXPECT_TRUE(acted.empty());
  expect_sound(q, {&a, &b, &c});
}

TEST_F(QueueLinear, NullQueueIsReportedAndAnsweredNeutrally) {
  StdoutCapture output;
  EXPECT_EQ(q_linear_search(nullptr, is_wanted, &param), nullptr);
  q_linear_delete(nullptr, is_wanted, &param, note);
  EXPECT_EQ(q_linear_delete_new(nullptr, is_wanted, &param, note, &action_param), nullptr);
  EXPECT_EQ(output.take(), std::string(kQueueAssertion) + kQueueAssertion + kQueueAssertion);
  EXPECT_TRUE(compared.empty());
  EXPECT_TRUE(acted.empty());
}

TEST_F(QueueLinear, TornDownQueueHasNoMatch) {
  q.link = {};
  q.cnt = 0;
  wanted = {&a};
  EXPECT_EQ(q_linear_search(&q, is_wanted, &param), nullptr);
  delete_wanted({&a});
  EXPECT_EQ(delete_new_wanted({&a}), nullptr);
  EXPECT_TRUE(compared.empty());
  EXPECT_FALSE(shut_to_others(q.lock));
}

struct Item {
  q_link_type link;
  int id;
};

int has_id(q_link_type* link, const void* id) {
  return reinterpret_cast<const Item*>(link)->id == *static_cast<const int*>(id) ? 1 : 0;
}

TEST(QueueLinearThreads, EveryItemIsDeletedByExactlyOneThread) {
  constexpr int kItems = 400;
  std::vector<Item> items(kItems + 1);
  q_type q;
  q_init(&q);
  for (int id = 0; id <= kItems; ++id) {
    Item& item = items[static_cast<std::size_t>(id)];
    item.id = id;
    q_put(&q, q_link(&item, &item.link));
  }
  std::atomic<int> deleted = 0;
  std::array<std::thread, 4> threads;
  for (std::size_t thread = 0; thread < threads.size(); ++thread)
    threads[thread] = std::thread([&, thread] {
      for (int step = 0; step < kItems; ++step) {
        // Two threads go up and two go down, so that each id is asked for by all four; the last item stays.
        const int id = thread % 2 == 0 ? step : kItems - 1 - step;
        q_linear_search(&q, has_id, &id);
        q_link_type* const link = q_linear_delete_new(&q, has_id, &id, nullptr, nullptr);
        if (link == nullptr) continue;
        ++deleted;
        EXPECT_EQ(id, reinterpret_cast<Item*>(link)->id);
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(deleted, kItems);
  EXPECT_EQ(q_cnt(&q), 1);
  EXPECT_EQ(links_forward(q), (Links{&items.back().link}));
}

}  // namespace
