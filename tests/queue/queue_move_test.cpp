// SPDX-License-Identifier: MIT
// Links move from one queue to another.
#include "kelo_utils/queue.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include "tests/support/lock_probe.hpp"
#include "tests/support/queue_probe.hpp"
#include "tests/support/stdout_capture.hpp"

namespace {

using kelo::tests::expect_sound;
using kelo::tests::init_with;
using kelo::tests::kQueueAssertion;
using kelo::tests::Links;
using kelo::tests::links_backward;
using kelo::tests::links_forward;
using kelo::tests::QueueOfThree;
using kelo::tests::shut_to_others;
using kelo::tests::StdoutCapture;
using kelo::tests::waits_for_lock;

class QueueMove : public QueueOfThree {};

TEST_F(QueueMove, MovePutsAllElementsAfterTheOthers) {
  q_type source;
  q_link_type d;
  init_with(source, {&x, &y, &d});
  q_m_put(&q, &source);
  EXPECT_EQ(q_cnt(&q), 6);
  EXPECT_EQ(links_forward(q), (Links{&a, &b, &c, &x, &y, &d}));
  EXPECT_EQ(&d, q_last_check(&q));
  EXPECT_EQ(&q.link, d.next_ptr);
  for (q_link_type* link : {&a, &b, &c, &x, &y, &d}) EXPECT_EQ(link, q_get(&q));
  expect_sound(q, {});
}

TEST_F(QueueMove, MoveLeavesTheSourceEmptyUnlockedAndUsable) {
  q_type source;
  init_with(source, {&x});
  q_m_put(&q, &source);
  expect_sound(source, {});
  EXPECT_FALSE(shut_to_others(source.lock));
  EXPECT_FALSE(shut_to_others(q.lock));
  EXPECT_EQ(pthread_mutex_lock(&source.lock), 0);
  q_put(&source, q_link(nullptr, &y));
  EXPECT_EQ(pthread_mutex_unlock(&source.lock), 0);
  expect_sound(source, {&y});
  EXPECT_EQ(q_cnt(&q), 4);
}

TEST_F(QueueMove, MoveDoesNotMakeTheHeldLockAnew) {
  q_type source;
  init_with(source, {&x});
  pthread_mutex_lock(&source.lock);
  q_m_put(&q, &source);
  EXPECT_TRUE(shut_to_others(source.lock));
  EXPECT_EQ(pthread_mutex_unlock(&source.lock), 0);
  EXPECT_FALSE(shut_to_others(source.lock));
}

TEST_F(QueueMove, MoveOfAnEmptyQueueChangesNothing) {
  q_type source;
  q_init(&source);
  q_m_put(&q, &source);
  expect_sound(q, {&a, &b, &c});
  expect_sound(source, {});
  EXPECT_FALSE(shut_to_others(source.lock));
}

TEST_F(QueueMove, MoveOfAnEmptyQueueDoesNotTakeTheLockOfTheOther) {
  q_type source;
  q_init(&source);
  EXPECT_FALSE(waits_for_lock(q.lock, [&] { q_m_put(&q, &source); }));
}

TEST_F(QueueMove, MoveToAnEmptyQueue) {
  q_type destination;
  q_init(&destination);
  q_m_put(&destination, &q);
  EXPECT_EQ(links_forward(destination), (Links{&a, &b, &c}));
  EXPECT_EQ(q_cnt(&destination), 3);
  expect_sound(q, {});
  EXPECT_EQ(&q.link, a.prev_ptr);
}

TEST_F(QueueMove, FirstMovedLinkGoesOnPointingBackAtItsOldQueue) {
  q_type source;
  init_with(source, {&x, &y});
  q_m_put(&q, &source);
  EXPECT_EQ(&source.link, x.prev_ptr);
  EXPECT_EQ(&x, y.prev_ptr);
  EXPECT_EQ(links_backward(q, 3), (Links{&y, &x, &source.link}));
}

TEST_F(QueueMove, MoveOntoItselfEmptiesTheQueue) {
  q_m_put(&q, &q);
  expect_sound(q, {});
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST_F(QueueMove, MoveGoesOnWithANullTail) {
  q_type source;
  init_with(source, {&x, &y});
  source.link.prev_ptr = nullptr;
  StdoutCapture output;
  q_m_put(&q, &source);
  EXPECT_EQ(output.take(), kQueueAssertion);
  EXPECT_EQ(q_cnt(&q), 5);
  EXPECT_EQ(q.link.prev_ptr, nullptr);
  EXPECT_EQ(&x, c.next_ptr);
  EXPECT_EQ(&source.link, y.next_ptr);
  expect_sound(source, {});
  EXPECT_FALSE(shut_to_others(q.lock));
  EXPECT_FALSE(shut_to_others(source.lock));
}

TEST_F(QueueMove, MoveTakesTheSourceLockFirst) {
  q_type source;
  init_with(source, {&x});
  EXPECT_TRUE(waits_for_lock(
      q.lock, [&] { q_m_put(&q, &source); }, [&] { EXPECT_TRUE(shut_to_others(source.lock)); }));
  q_put(&source, &y);
  EXPECT_TRUE(waits_for_lock(
      source.lock, [&] { q_m_put(&q, &source); }, [&] { EXPECT_FALSE(shut_to_others(q.lock)); }));
  EXPECT_EQ(links_forward(q), (Links{&a, &b, &c, &x, &y}));
}

}  // namespace
