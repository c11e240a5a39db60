// SPDX-License-Identifier: MIT
// Queues that are torn down or zeroed, and links that are in no queue.
#include "kelo_utils/queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "tests/support/child_process.hpp"
#include "tests/support/lock_probe.hpp"
#include "tests/support/queue_probe.hpp"
#include "tests/support/stdout_capture.hpp"

namespace {

using kelo::tests::ChildResult;
using kelo::tests::expect_sound;
using kelo::tests::init_with;
using kelo::tests::kQueueAssertion;
using kelo::tests::Links;
using kelo::tests::links_forward;
using kelo::tests::QueueOfThree;
using kelo::tests::run_in_child;
using kelo::tests::shut_to_others;
using kelo::tests::StdoutCapture;

class QueueBroken : public QueueOfThree {};

TEST_F(QueueBroken, DeletingALinkThatIsInNoQueueIsReportedAndChangesNothing) {
  q_delete(&q, &b);
  for (q_link_type* const outside : {&b, &x}) {
    StdoutCapture output;
    q_delete(&q, outside);
    EXPECT_EQ(q_delete_ext(&q, outside), 0);
    EXPECT_EQ(output.take(), std::string(kQueueAssertion) + kQueueAssertion);
  }
  expect_sound(q, {&a, &c});
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(QueueBroken, InsertingBeforeALinkThatIsInNoQueueIsReportedAndChangesNothing) {
  StdoutCapture output;
  q_insert(&q, &x, &y);
  EXPECT_EQ(output.take(), kQueueAssertion);
  expect_sound(q, {&a, &b, &c});
  EXPECT_EQ(x.next_ptr, nullptr);
  EXPECT_EQ(x.prev_ptr, nullptr);
  EXPECT_FALSE(shut_to_others(q.lock));
}

// A header as q_destroy() leaves it, with a lock that still works so that it can be looked at.
class TornDownQueue : public QueueOfThree {
 protected:
  TornDownQueue() {
    q.link = {};
    q.cnt = 0;
  }
};

TEST_F(TornDownQueue, GetAnswersNullAndKeepsTheLock) {
  EXPECT_EQ(q_get(&q), nullptr);
  EXPECT_TRUE(shut_to_others(q.lock));
  EXPECT_EQ(pthread_mutex_unlock(&q.lock), 0);
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(TornDownQueue, GetExtAnswersNullAndKeepsTheLock) {
  EXPECT_EQ(q_get_ext(&q), nullptr);
  EXPECT_TRUE(shut_to_others(q.lock));
  EXPECT_EQ(pthread_mutex_unlock(&q.lock), 0);
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(TornDownQueue, GetKeepsTheLockWhateverTheCount) {
  q.cnt = 2;
  EXPECT_EQ(q_get(&q), nullptr);
  EXPECT_TRUE(shut_to_others(q.lock));
  EXPECT_EQ(q_get_ext(&q), nullptr);
  EXPECT_EQ(q.cnt, 2);
  EXPECT_EQ(pthread_mutex_unlock(&q.lock), 0);
  EXPECT_EQ(pthread_mutex_unlock(&q.lock), 0);
}

TEST_F(TornDownQueue, OtherRemovalsAndLooksAnswerNullAndReleaseTheLock) {
  EXPECT_EQ(q_last_get(&q), nullptr);
  EXPECT_EQ(q_check(&q), nullptr);
  EXPECT_EQ(q_last_check(&q), nullptr);
  EXPECT_EQ(q_next(&q, &q.link), nullptr);
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(TornDownQueue, PutIsReportedAndChangesNothing) {
  StdoutCapture output;
  q_put(&q, &x);
  EXPECT_EQ(output.take(), kQueueAssertion);
  EXPECT_EQ(x.next_ptr, nullptr);
  EXPECT_EQ(q.link.next_ptr, nullptr);
  EXPECT_EQ(q.link.prev_ptr, nullptr);
  EXPECT_EQ(q_cnt(&q), 0);
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST(QueueZeroed, GetOnAHeaderNeverInitialisedKeepsItsLock) {
  static q_type zeroed;
  EXPECT_EQ(q_get(&zeroed), nullptr);
  EXPECT_TRUE(shut_to_others(zeroed.lock));
  EXPECT_EQ(pthread_mutex_unlock(&zeroed.lock), 0);
  EXPECT_EQ(q_get_ext(&zeroed), nullptr);
  EXPECT_TRUE(shut_to_others(zeroed.lock));
  EXPECT_EQ(pthread_mutex_unlock(&zeroed.lock), 0);
}

TEST_F(TornDownQueue, MoveIntoItIsReportedAndMovesNothing) {
  q_type source;
  init_with(source, {&x, &y});
  StdoutCapture output;
  q_m_put(&q, &source);
  EXPECT_EQ(output.take(), kQueueAssertion);
  expect_sound(source, {&x, &y});
  EXPECT_EQ(q.link.prev_ptr, nullptr);
  EXPECT_EQ(q_cnt(&q), 0);
  EXPECT_FALSE(shut_to_others(q.lock));
  EXPECT_FALSE(shut_to_others(source.lock));
}

TEST_F(QueueBroken, GetOnABrokenCircleIsReportedAndChangesNothing) {
  a.next_ptr = nullptr;
  StdoutCapture output;
  EXPECT_EQ(q_get(&q), nullptr);
  EXPECT_EQ(output.take(), kQueueAssertion);
  EXPECT_EQ(q_cnt(&q), 3);
  EXPECT_EQ(&a, q_check(&q));
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(QueueBroken, LastGetOnABrokenCircleIsReportedAndChangesNothing) {
  c.prev_ptr = nullptr;
  {
    StdoutCapture output;
    EXPECT_EQ(q_last_get(&q), nullptr);
    EXPECT_EQ(output.take(), kQueueAssertion);
  }
  EXPECT_EQ(q_cnt(&q), 3);
  EXPECT_EQ(&c, q_last_check(&q));
  q.link.prev_ptr = nullptr;
  StdoutCapture output;
  EXPECT_EQ(q_last_get(&q), nullptr);
  EXPECT_EQ(output.take(), kQueueAssertion);
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(QueueBroken, GetExtOnABrokenCircleEndsTheProcess) {
  a.next_ptr = nullptr;
  const ChildResult child = run_in_child([&] { q_get_ext(&q); });
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_EQ(child.standard_output, "link_ptr->next_ptr is NULL");
}

TEST_F(QueueBroken, GetExtOnABrokenCircleThatCountsNothingAnswersNull) {
  a.next_ptr = nullptr;
  q.cnt = 0;
  EXPECT_EQ(q_get_ext(&q), nullptr);
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(QueueBroken, CountBelowOneHidesTheElements) {
  for (const int count : {0, -1}) {
    q.cnt = count;
    EXPECT_EQ(q_get(&q), nullptr);
    EXPECT_EQ(q_get_ext(&q), nullptr);
    EXPECT_EQ(q_last_get(&q), nullptr);
    EXPECT_EQ(q_check(&q), nullptr);
    EXPECT_EQ(q_last_check(&q), nullptr);
    EXPECT_EQ(count, q_cnt(&q));
    EXPECT_EQ(links_forward(q), (Links{&a, &b, &c}));
    EXPECT_FALSE(shut_to_others(q.lock));
  }
}

TEST(QueueCount, HeaderIsNeverHandedOutHoweverHighTheCount) {
  q_type q;
  q_init(&q);
  q.cnt = 3;
  EXPECT_EQ(q_check(&q), nullptr);
  EXPECT_EQ(q_last_check(&q), nullptr);
  EXPECT_EQ(q_get(&q), nullptr);
  EXPECT_EQ(q_get_ext(&q), nullptr);
  EXPECT_EQ(q_last_get(&q), nullptr);
  expect_sound(q, {});
}

}  // namespace
