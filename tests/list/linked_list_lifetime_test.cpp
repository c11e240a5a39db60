// SPDX-License-Identifier: MIT
// How a linked list is made, by its own call or on its first use, and how it ends.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <vector>

#include "kelo_utils/list.h"
#include "tests/support/list_probe.hpp"
#include "tests/support/lock_probe.hpp"

namespace {

using kelo::tests::expect_sound;
using kelo::tests::ListLinks;
using kelo::tests::ListOfFour;
using kelo::tests::shut_to_others;

class LinkedListLifetime : public ListOfFour {};

TEST(LinkedListInit, MakesAnEmptyListOfAnyMemory) {
  list_type list;
  std::memset(&list, 0xa5, sizeof list);
  list_init(&list);
  expect_sound(list, {});
  EXPECT_FALSE(shut_to_others(list.lock));
  list_destroy(&list);
}

TEST(LinkedListInit, LockIsNotRecursive) {
  list_type list;
  list_init(&list);
  EXPECT_EQ(pthread_mutex_lock(&list.lock), 0);
  EXPECT_EQ(pthread_mutex_trylock(&list.lock), EBUSY);
  EXPECT_EQ(pthread_mutex_unlock(&list.lock), 0);
  list_destroy(&list);
}

struct FirstUse {
  const char* name;
  std::function<void(list_type&, list_type&)> use;
};

TEST(LinkedListInit, EveryOperationInitialisesWhatIsNotFlagged) {
  list_link_type item = {};
  list_link_type stranger = {};
  const auto none = [](list_link_type*, const void*) { return 0; };
  const std::vector<FirstUse> uses = {
      {"push_front", [&](list_type& l, list_type&) { list_push_front(&l, &item); }},
      {"push_back", [&](list_type& l, list_type&) { list_push_back(&l, &item); }},
      {"pop_front", [&](list_type& l, list_type&) { EXPECT_EQ(list_pop_front(&l), nullptr); }},
      {"pop_back", [&](list_type& l, list_type&) { EXPECT_EQ(list_pop_back(&l), nullptr); }},
      {"size", [&](list_type& l, list_type&) { EXPECT_EQ(list_size(&l), 0U); }},
      {"peek_front", [&](list_type& l, list_type&) { EXPECT_EQ(list_peek_front(&l), nullptr); }},
      {"peek_back", [&](list_type& l, list_type&) { EXPECT_EQ(list_peek_back(&l), nullptr); }},
      {"peek_next", [&](list_type& l, list_type&) { EXPECT_EQ(list_peek_next(&l, &stranger), nullptr); }},
      {"peek_prev", [&](list_type& l, list_type&) { EXPECT_EQ(list_peek_prev(&l, &stranger), nullptr); }},
      {"push_before", [&](list_type& l, list_type&) { list_push_before(&l, &item, &stranger); }},
      {"pop_item", [&](list_type& l, list_type&) { list_pop_item(&l, &stranger); }},
      {"search", [&](list_type& l, list_type&) { list_linear_search(&l, none, nullptr); }},
      {"merge dst", [&](list_type& l, list_type& ready) { list_merge(&l, &ready); }},
      {"merge src", [&](list_type& l, list_type& ready) { list_merge(&ready, &l); }},
      {"split list", [&](list_type& l, list_type& ready) { list_split(&l, &stranger, &ready); }},
      {"split dst", [&](list_type& l, list_type& ready) { list_split(&ready, &stranger, &l); }},
  };
  for (const FirstUse& first : uses) {
    for (const int flag : {0, 2, -1}) {
      list_type list;
      std::memset(&list, 0x5a, sizeof list);
      list.initialised = flag;
      list_type ready;
      list_init(&ready);
      first.use(list, ready);
      const bool pushed =
          std::strcmp(first.name, "push_front") == 0 || std::strcmp(first.name, "push_back") == 0;
      SCOPED_TRACE(first.name);
      expect_sound(list, pushed ? ListLinks{&item} : ListLinks{});
      EXPECT_FALSE(shut_to_others(list.lock));
      list_destroy(&list);
      list_destroy(&ready);
    }
  }
}

TEST(LinkedListInit, PushAfterInitialisesToo) {
  static list_type list;
  list_link_type item = {};
  list_link_type stranger = {};
  list_push_after(&list, &item, &stranger);
  EXPECT_EQ(list.initialised, 1);
  EXPECT_EQ(list.size, 1U);
  EXPECT_EQ(&item, stranger.next);
  EXPECT_EQ(list.front, nullptr);
  list_destroy(&list);
}

TEST_F(LinkedListLifetime, InitialisedListKeepsItsElements) {
  list_init(&other);
  list_push_back(&other, &x);
  list_push_back(&other, &y);
  expect_sound(other, {&x, &y});
}

TEST_F(LinkedListLifetime, DestroyZeroesTheHeaderAndLeavesTheElements) {
  list_destroy(&list);
  EXPECT_EQ(list.front, nullptr);
  EXPECT_EQ(list.back, nullptr);
  EXPECT_EQ(list.size, 0U);
  EXPECT_EQ(list.initialised, 0);
  EXPECT_EQ(&b, a.next);
  EXPECT_EQ(&d, c.next);
}

TEST_F(LinkedListLifetime, DestroyedListIsMadeAnewByItsNextUse) {
  list_destroy(&list);
  list_push_back(&list, &x);
  expect_sound(list, {&x});
}

TEST(LinkedListDestroy, ZeroesAHeaderThatWasNeverUsed) {
  list_type list;
  std::memset(&list, 0x5a, sizeof list);
  list_destroy(&list);
  EXPECT_EQ(list.front, nullptr);
  EXPECT_EQ(list.back, nullptr);
  EXPECT_EQ(list.size, 0U);
  EXPECT_EQ(list.initialised, 0);
  list_destroy(&list);
  EXPECT_EQ(list_size(&list), 0U);
  list_destroy(&list);
}

}  // namespace
