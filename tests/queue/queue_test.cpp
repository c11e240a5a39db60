// SPDX-License-Identifier: MIT
// Each operation of the queue.
#include "kelo_utils/queue.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/lock_probe.hpp"
#include "tests/support/queue_probe.hpp"
#include "tests/support/stdout_capture.hpp"

namespace {

using kelo::tests::expect_sound;
using kelo::tests::init_with;
using kelo::tests::kQueueAssertion;
using kelo::tests::QueueOfThree;
using kelo::tests::shut_to_others;
using kelo::tests::StdoutCapture;
using kelo::tests::waits_for_lock;

class Queue : public QueueOfThree {};

TEST(QueueInit, MakesAnEmptyQueueOfAnyMemory) {
  q_type q;
  std::memset(&q, 0xa5, sizeof q);
  EXPECT_EQ(&q, q_init(&q));
  EXPECT_EQ(&q.link, q.link.next_ptr);
  EXPECT_EQ(&q.link, q.link.prev_ptr);
  EXPECT_EQ(q.cnt, 0);
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST(QueueInit, LockMayBeTakenAgainByItsHolder) {
  q_type q;
  q_init(&q);
  EXPECT_EQ(pthread_mutex_lock(&q.lock), 0);
  EXPECT_EQ(pthread_mutex_trylock(&q.lock), 0);
  EXPECT_EQ(pthread_mutex_unlock(&q.lock), 0);
  EXPECT_TRUE(shut_to_others(q.lock));
  EXPECT_EQ(pthread_mutex_unlock(&q.lock), 0);
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST(QueueInit, FreshQueueHasNothingToGive) {
  q_type q;
  q_init(&q);
  EXPECT_EQ(q_check(&q), nullptr);
  EXPECT_EQ(q_last_check(&q), nullptr);
  EXPECT_EQ(q_get(&q), nullptr);
  EXPECT_EQ(q_get_ext(&q), nullptr);
  EXPECT_EQ(q_last_get(&q), nullptr);
  EXPECT_EQ(q_next(&q, &q.link), nullptr);
  EXPECT_EQ(q_cnt(&q), 0);
  expect_sound(q, {});
  EXPECT_FALSE(shut_to_others(q.lock));
}

TEST(QueueLink, ClearsBothPointersAndIgnoresTheElement) {
  q_link_type other;
  q_link_type link = {&other, &other};
  int element = 7;
  EXPECT_EQ(&link, q_link(&element, &link));
  EXPECT_EQ(link.next_ptr, nullptr);
  EXPECT_EQ(link.prev_ptr, nullptr);
  EXPECT_EQ(element, 7);
}

TEST(QueueLink, LeadsBackToItsRecord) {
  struct Record {
    int number;
    q_link_type link;
  } record = {12, {}};
  q_type q;
  q_init(&q);
  q_put(&q, q_link(&record, &record.link));
  auto* const found = reinterpret_cast<char*>(q_get(&q)) - offsetof(Record, link);
  EXPECT_EQ(reinterpret_cast<Record*>(found)->number, 12);
}

TEST_F(Queue, PutAppendsAtTheTail) {
  expect_sound(q, {&a, &b, &c});
  q_put(&q, &x);
  expect_sound(q, {&a, &b, &c, &x});
}

TEST_F(Queue, GetTakesTheHeadAndClearsItsNext) {
  EXPECT_EQ(&a, q_get(&q));
  EXPECT_EQ(a.next_ptr, nullptr);
  expect_sound(q, {&b, &c});
  EXPECT_EQ(&b, q_get(&q));
  EXPECT_EQ(&c, q_get(&q));
  EXPECT_EQ(q_get(&q), nullptr);
  expect_sound(q, {});
}

TEST_F(Queue, GetLeavesThePreviousPointerAsItWas) {
  EXPECT_EQ(&a, q_get(&q));
  EXPECT_EQ(&q.link, a.prev_ptr);
  b.prev_ptr = &y;
  EXPECT_EQ(&b, q_get(&q));
  EXPECT_EQ(&y, b.prev_ptr);
}

TEST_F(Queue, GetExtTakesTheHeadAndKeepsItsNext) {
  EXPECT_EQ(&a, q_get_ext(&q));
  EXPECT_EQ(&b, a.next_ptr);
  expect_sound(q, {&b, &c});
  EXPECT_EQ(&b, q_get_ext(&q));
  EXPECT_EQ(&c, q_get_ext(&q));
  EXPECT_EQ(&q.link, c.next_ptr);
  EXPECT_EQ(q_get_ext(&q), nullptr);
  expect_sound(q, {});
}

TEST_F(Queue, LastGetTakesTheTailAndClearsItsNext) {
  EXPECT_EQ(&c, q_last_get(&q));
  EXPECT_EQ(c.next_ptr, nullptr);
  EXPECT_EQ(&b, c.prev_ptr);
  expect_sound(q, {&a, &b});
  EXPECT_EQ(&b, q_last_get(&q));
  EXPECT_EQ(&a, q_last_get(&q));
  EXPECT_EQ(q_last_get(&q), nullptr);
  expect_sound(q, {});
}

TEST_F(Queue, CheckAndLastCheckLeaveTheEndsInPlace) {
  EXPECT_EQ(&a, q_check(&q));
  EXPECT_EQ(&c, q_last_check(&q));
  expect_sound(q, {&a, &b, &c});
}

TEST_F(Queue, NextWalksToTheEnd) {
  EXPECT_EQ(&b, q_next(&q, &a));
  EXPECT_EQ(&c, q_next(&q, &b));
  EXPECT_EQ(q_next(&q, &c), nullptr);
  EXPECT_EQ(&a, q_next(&q, &q.link));
  EXPECT_EQ(q_next(&q, &x), nullptr);
}

TEST_F(Queue, NextOfTheOnlyElementIsNull) {
  q_delete(&q, &b);
  q_delete(&q, &c);
  EXPECT_EQ(q_next(&q, q_check(&q)), nullptr);
}

TEST_F(Queue, InsertPutsBeforeTheGivenLink) {
  q_insert(&q, &x, &b);
  expect_sound(q, {&a, &x, &b, &c});
  EXPECT_EQ(q_cnt(&q), 4);
  q_insert(&q, &y, &a);
  expect_sound(q, {&y, &a, &x, &b, &c});
}

TEST_F(Queue, InsertBeforeTheHeaderAppends) {
  q_insert(&q, &x, &q.link);
  expect_sound(q, {&a, &b, &c, &x});
}

TEST_F(Queue, DeleteTakesALinkFromAnyPlace) {
  q_delete(&q, &b);
  EXPECT_EQ(b.next_ptr, nullptr);
  EXPECT_EQ(&a, b.prev_ptr);
  expect_sound(q, {&a, &c});
  q_delete(&q, &c);
  expect_sound(q, {&a});
  q_delete(&q, &a);
  expect_sound(q, {});
}

TEST_F(Queue, DeleteExtSaysThatItDid) {
  EXPECT_EQ(q_delete_ext(&q, &a), 1);
  EXPECT_EQ(a.next_ptr, nullptr);
  expect_sound(q, {&b, &c});
}

TEST_F(Queue, RemovedLinksCanBePutAgain) {
  for (int round = 0; round < 3; ++round) q_put(&q, q_get(&q));
  expect_sound(q, {&a, &b, &c});
  q_put(&q, q_get_ext(&q));
  q_delete(&q, &b);
  q_put(&q, &b);
  q_insert(&q, q_last_get(&q), q_check(&q));
  expect_sound(q, {&b, &c, &a});
}

TEST_F(Queue, DestroyClearsTheHeaderAndLeavesTheElements) {
  q_destroy(&q);
  EXPECT_EQ(q.link.next_ptr, nullptr);
  EXPECT_EQ(q.link.prev_ptr, nullptr);
  EXPECT_EQ(q.cnt, 0);
  EXPECT_EQ(q_cnt(&q), 0);
  EXPECT_EQ(&b, a.next_ptr);
  EXPECT_EQ(&a, b.prev_ptr);
}

TEST_F(Queue, DestroyedQueueCanBeMadeAnew) {
  q_destroy(&q);
  q_init(&q);
  q_put(&q, q_link(nullptr, &x));
  expect_sound(q, {&x});
}

TEST_F(Queue, EveryOperationButTheCountWaitsForTheLock) {
  const std::vector<std::function<void()>> operations = {
      [&] { q_put(&q, &x); },    [&] { q_insert(&q, &y, &x); },
      [&] { q_delete(&q, &y); }, [&] { q_delete_ext(&q, &x); },
      [&] { q_check(&q); },      [&] { q_last_check(&q); },
      [&] { q_next(&q, &a); },   [&] { q_get(&q); },
      [&] { q_get_ext(&q); },    [&] { q_last_get(&q); },
      [&] { q_get(&q); },        [&] { q_get_ext(&q); },
      [&] { q_last_get(&q); },   [&] { q_destroy(&q); },
  };
  for (std::size_t i = 0; i < operations.size(); ++i) {
    EXPECT_TRUE(waits_for_lock(q.lock, operations[i])) << "operation " << i;
  }
  EXPECT_EQ(q.link.next_ptr, nullptr);
}

TEST_F(Queue, CountAndLinkDoNotTakeTheLock) {
  EXPECT_FALSE(waits_for_lock(q.lock, [&] { EXPECT_EQ(q_cnt(&q), 3); }));
  EXPECT_FALSE(waits_for_lock(q.lock, [&] { q_link(&q, &x); }));
}

TEST_F(Queue, HolderOfTheLockMayUseTheQueue) {
  pthread_mutex_lock(&q.lock);
  q_put(&q, &x);
  EXPECT_EQ(&a, q_get(&q));
  EXPECT_EQ(&b, q_get_ext(&q));
  q_insert(&q, &y, &x);
  q_delete(&q, &c);
  EXPECT_EQ(&x, q_last_get(&q));
  EXPECT_EQ(&y, q_check(&q));
  EXPECT_EQ(&y, q_last_check(&q));
  EXPECT_EQ(q_next(&q, &y), nullptr);
  EXPECT_TRUE(shut_to_others(q.lock));
  pthread_mutex_unlock(&q.lock);
  EXPECT_FALSE(shut_to_others(q.lock));
}

struct NullCall {
  const char* name;
  int null_arguments;
  std::function<bool(q_type&, q_link_type&)> is_neutral;
};

TEST_F(Queue, NullArgumentsAreReportedOneByOneAndAnsweredNeutrally) {
  q_type* const no_q = nullptr;
  q_link_type* const no_link = nullptr;
  q_type source;
  init_with(source, {&y});
  const std::vector<NullCall> calls = {
      {"init", 1, [=](q_type&, q_link_type&) { return q_init(no_q) == nullptr; }},
      {"destroy", 1, [=](q_type&, q_link_type&) { return q_destroy(no_q), true; }},
      {"link", 1, [=](q_type& some, q_link_type&) { return q_link(&some, no_link) == nullptr; }},
      {"put queue", 1, [=](q_type&, q_link_type& link) { return q_put(no_q, &link), true; }},
      {"put link", 1, [=](q_type& some, q_link_type&) { return q_put(&some, no_link), true; }},
      {"put both", 2, [=](q_type&, q_link_type&) { return q_put(no_q, no_link), true; }},
      {"get", 1, [=](q_type&, q_link_type&) { return q_get(no_q) == nullptr; }},
      {"get_ext", 1, [=](q_type&, q_link_type&) { return q_get_ext(no_q) == nullptr; }},
      {"last_get", 1, [=](q_type&, q_link_type&) { return q_last_get(no_q) == nullptr; }},
      {"check", 1, [=](q_type&, q_link_type&) { return q_check(no_q) == nullptr; }},
      {"last_check", 1, [=](q_type&, q_link_type&) { return q_last_check(no_q) == nullptr; }},
      {"next queue", 1, [&](q_type&, q_link_type&) { return q_next(no_q, &a) == nullptr; }},
      {"next link", 1, [=](q_type& some, q_link_type&) { return q_next(&some, no_link) == nullptr; }},
      {"next both", 2, [=](q_type&, q_link_type&) { return q_next(no_q, no_link) == nullptr; }},
      {"insert queue", 1, [&](q_type&, q_link_type& link) { return q_insert(no_q, &link, &a), true; }},
      {"insert link", 1, [&](q_type& some, q_link_type&) { return q_insert(&some, no_link, &a), true; }},
      {"insert before", 1,
       [=](q_type& some, q_link_type& link) { return q_insert(&some, &link, no_link), true; }},
      {"insert all", 3, [=](q_type&, q_link_type&) { return q_insert(no_q, no_link, no_link), true; }},
      {"delete queue", 1, [&](q_type&, q_link_type&) { return q_delete(no_q, &a), true; }},
      {"delete link", 1, [=](q_type& some, q_link_type&) { return q_delete(&some, no_link), true; }},
      {"delete both", 2, [=](q_type&, q_link_type&) { return q_delete(no_q, no_link), true; }},
      {"delete_ext queue", 1, [&](q_type&, q_link_type&) { return q_delete_ext(no_q, &a) == 0; }},
      {"delete_ext link", 1, [=](q_type& some, q_link_type&) { return q_delete_ext(&some, no_link) == 0; }},
      {"cnt", 1, [=](q_type&, q_link_type&) { return q_cnt(no_q) == 0; }},
      {"m_put dst", 1, [&](q_type&, q_link_type&) { return q_m_put(no_q, &source), true; }},
      {"m_put src", 1, [=](q_type& some, q_link_type&) { return q_m_put(&some, no_q), true; }},
      {"m_put both", 2, [=](q_type&, q_link_type&) { return q_m_put(no_q, no_q), true; }},
  };
  for (const NullCall& call : calls) {
    StdoutCapture output;
    errno = EXDEV;
    const bool neutral = call.is_neutral(q, x);
    EXPECT_EQ(errno, EXDEV) << call.name;
    std::string expected;
    for (int i = 0; i < call.null_arguments; ++i) expected += kQueueAssertion;
    EXPECT_EQ(output.take(), expected) << call.name;
    EXPECT_TRUE(neutral) << call.name;
    EXPECT_FALSE(shut_to_others(q.lock)) << call.name;
  }
  expect_sound(q, {&a, &b, &c});
  expect_sound(source, {&y});
  EXPECT_EQ(x.next_ptr, nullptr);
  EXPECT_EQ(x.prev_ptr, nullptr);
}

TEST_F(Queue, GoodCallsPrintNothing) {
  StdoutCapture output;
  q_put(&q, &x);
  q_insert(&q, &y, &b);
  q_delete(&q, &y);
  q_link(nullptr, &y);
  while (q_get(&q) != nullptr) continue;
  q_last_get(&q);
  q_destroy(&q);
  EXPECT_EQ(output.take(), "");
}

}  // namespace
