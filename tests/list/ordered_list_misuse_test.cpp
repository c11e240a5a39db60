// SPDX-License-Identifier: MIT
// First uses, locks, null arguments, and elements that are not where the caller says.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "kelo_utils/list.h"
#include "tests/support/lock_probe.hpp"
#include "tests/support/null_calls.hpp"
#include "tests/support/ordered_list_probe.hpp"

namespace {

using kelo::tests::expect_neutral;
using kelo::tests::expect_sound;
using kelo::tests::NullCall;
using kelo::tests::OrderedLinks;
using kelo::tests::OrderedListOfFour;
using kelo::tests::shut_to_others;
using kelo::tests::waits_for_lock;

using List = ordered_list_type;
using Link = ordered_list_link_type;

class OrderedListMisuse : public OrderedListOfFour {};
class OrderedListLock : public OrderedListOfFour {};

int is_any(Link* /*element*/, const void* /*param*/) { return 1; }

struct FirstUse {
  const char* name;
  std::function<void(List&, List&)> use;
};

TEST(OrderedListInit, EveryLockedOperationInitialisesWhatIsNotFlagged) {
  Link item = {};
  const std::vector<FirstUse> uses = {
      {"push", [&](List& l, List&) { ordered_list_push(&l, &item, 1); }},
      {"pop_front", [](List& l, List&) { EXPECT_EQ(ordered_list_pop_front(&l), nullptr); }},
      {"pop_back", [](List& l, List&) { EXPECT_EQ(ordered_list_pop_back(&l), nullptr); }},
      {"size", [](List& l, List&) { EXPECT_EQ(ordered_list_size(&l), 0U); }},
      {"peek_front", [](List& l, List&) { EXPECT_EQ(ordered_list_peek_front(&l), nullptr); }},
      {"peek_back", [](List& l, List&) { EXPECT_EQ(ordered_list_peek_back(&l), nullptr); }},
      {"peek_next", [&](List& l, List&) { EXPECT_EQ(ordered_list_peek_next(&l, &item), nullptr); }},
      {"peek_prev", [&](List& l, List&) { EXPECT_EQ(ordered_list_peek_prev(&l, &item), nullptr); }},
      {"pop_item", [&](List& l, List&) { ordered_list_pop_item(&l, &item); }},
      {"search", [](List& l, List&) { EXPECT_EQ(ordered_list_linear_search(&l, is_any, nullptr), nullptr); }},
      {"split list", [&](List& l, List& ready) { ordered_list_split(&l, &item, &ready); }},
      {"split dst", [&](List& l, List& ready) { ordered_list_split(&ready, &item, &l); }},
  };
  for (const FirstUse& first : uses) {
    for (const int flag : {0, 2, -1}) {
      List list;
      std::memset(&list, 0x5a, sizeof list);
      list.initialised = flag;
      List ready;
      ordered_list_init(&ready, 1, 4096);
      item = {};
      first.use(list, ready);
      SCOPED_TRACE(first.name);
      expect_sound(list, std::strcmp(first.name, "push") == 0 ? OrderedLinks{&item} : OrderedLinks{});
      EXPECT_EQ(list.order, 4097);
      EXPECT_FALSE(shut_to_others(list.lock));
      ordered_list_destroy(&list);
      ordered_list_destroy(&ready);
    }
  }
}

TEST(OrderedListInit, InitialisedListKeepsItsOrder) {
  List list;
  ordered_list_init(&list, 2, 8192);
  EXPECT_EQ(ordered_list_size(&list), 0U);
  EXPECT_EQ(list.order, 8194);
  ordered_list_destroy(&list);
}

TEST_F(OrderedListLock, InsertionsBesideAnElementNeitherInitialiseNorLock) {
  EXPECT_EQ(pthread_mutex_lock(&list.lock), 0);
  ordered_list_push_after(&list, &x, &b);
  ordered_list_push_before(&list, &y, &b);
  EXPECT_EQ(pthread_mutex_unlock(&list.lock), 0);
  expect_sound(list, {&a, &y, &b, &x, &c, &d});
  Link item = {};
  ordered_list_push_after(&other, &item, &x);
  ordered_list_push_before(&other, &item, &x);
  EXPECT_EQ(other.initialised, 0);
  EXPECT_EQ(other.front, nullptr);
}

TEST_F(OrderedListLock, EveryOtherOperationWaitsForIt) {
  List third = {};
  ordered_list_push(&third, &y, 1);
  const std::vector<std::function<void()>> operations = {
      [&] { ordered_list_push(&list, &x, 5); },
      [&] { ordered_list_peek_front(&list); },
      [&] { ordered_list_peek_back(&list); },
      [&] { ordered_list_peek_next(&list, &a); },
      [&] { ordered_list_peek_prev(&list, &b); },
      [&] { ordered_list_size(&list); },
      [&] { ordered_list_pop_item(&list, &b); },
      [&] { ordered_list_pop_front(&list); },
      [&] { ordered_list_pop_back(&list); },
      [&] { ordered_list_linear_search(&list, is_any, nullptr); },
      [&] { ordered_list_split(&list, &c, &other); },
      [&] { ordered_list_split(&third, &y, &list); },
  };
  for (std::size_t i = 0; i < operations.size(); ++i)
    EXPECT_TRUE(waits_for_lock(list.lock, operations[i])) << "operation " << i;
  expect_sound(other, {&c});
  expect_sound(list, {&y});
  ordered_list_destroy(&third);
}

TEST_F(OrderedListLock, SplitTakesTheSourceFirst) {
  ordered_list_init(&other, 1, 4096);
  EXPECT_TRUE(waits_for_lock(
      list.lock, [&] { ordered_list_split(&list, &c, &other); },
      [&] { EXPECT_FALSE(shut_to_others(other.lock)); }));
  EXPECT_TRUE(waits_for_lock(
      other.lock, [&] { ordered_list_split(&list, &b, &other); },
      [&] { EXPECT_TRUE(shut_to_others(list.lock)); }));
}

TEST_F(OrderedListMisuse, ElementsThatAreNotInTheListChangeNothing) {
  ordered_list_push(&other, &x, 1);
  Link stranger = {};
  const std::vector<std::function<void()>> calls = {
      [&] { ordered_list_push_before(&list, &y, &x); },
      [&] { ordered_list_push_after(&list, &y, &x); },
      [&] { ordered_list_push_before(&list, &y, &stranger); },
      [&] { ordered_list_push_after(&list, &y, &stranger); },
      [&] { ordered_list_pop_item(&list, &x); },
      [&] { ordered_list_pop_item(&list, &stranger); },
      [&] { ordered_list_split(&list, &x, &other); },
      [&] { ordered_list_pop_item(&other, &a); },
      [&] { ordered_list_pop_item(&other, &d); },
  };
  for (std::size_t i = 0; i < calls.size(); ++i) {
    calls[i]();
    SCOPED_TRACE(i);
    expect_sound(list, {&a, &b, &c, &d});
    expect_sound(other, {&x});
    EXPECT_EQ(y.next, nullptr);
    EXPECT_EQ(y.prev, nullptr);
    EXPECT_FALSE(shut_to_others(list.lock));
    EXPECT_FALSE(shut_to_others(other.lock));
  }
}

TEST_F(OrderedListMisuse, ElementTakenOutTwiceIsGoneOnce) {
  for (Link* const item : {&b, &a, &d}) {
    ordered_list_pop_item(&list, item);
    ordered_list_pop_item(&list, item);
    ordered_list_push_after(&list, &x, item);
    ordered_list_push_before(&list, &x, item);
  }
  expect_sound(list, {&c});
}

TEST_F(OrderedListMisuse, EmptyListHasNoPlaceToInsertOrCut) {
  ordered_list_init(&other, 1, 4096);
  ordered_list_push_before(&other, &x, &y);
  ordered_list_push_after(&other, &x, &y);
  ordered_list_pop_item(&other, &y);
  ordered_list_split(&other, &y, &list);
  expect_sound(other, {});
  expect_sound(list, {&a, &b, &c, &d});
}

TEST_F(OrderedListMisuse, ListSplitIntoItselfStays) {
  ordered_list_split(&list, &b, &list);
  expect_sound(list, {&a, &b, &c, &d});
}

TEST_F(OrderedListMisuse, NullArgumentsChangeNothingInSilence) {
  ordered_list_push(&other, &y, 1);
  x = {&a, &b, 77};
  List* const no_list = nullptr;
  Link* const no_link = nullptr;
  const std::vector<NullCall> calls = {
      {"init", [=] { return ordered_list_init(no_list, 1, 4096), true; }},
      {"destroy", [=] { return ordered_list_destroy(no_list), true; }},
      {"push list", [=, this] { return ordered_list_push(no_list, &x, 5), true; }},
      {"push item", [=, this] { return ordered_list_push(&list, no_link, 5), true; }},
      {"push_after list", [=, this] { return ordered_list_push_after(no_list, &x, &b), true; }},
      {"push_after item", [=, this] { return ordered_list_push_after(&list, no_link, &b), true; }},
      {"push_after after", [=, this] { return ordered_list_push_after(&list, &x, no_link), true; }},
      {"push_before list", [=, this] { return ordered_list_push_before(no_list, &x, &b), true; }},
      {"push_before item", [=, this] { return ordered_list_push_before(&list, no_link, &b), true; }},
      {"push_before before", [=, this] { return ordered_list_push_before(&list, &x, no_link), true; }},
      {"pop_front", [=] { return ordered_list_pop_front(no_list) == nullptr; }},
      {"pop_back", [=] { return ordered_list_pop_back(no_list) == nullptr; }},
      {"size", [=] { return ordered_list_size(no_list) == 0; }},
      {"peek_front", [=] { return ordered_list_peek_front(no_list) == nullptr; }},
      {"peek_back", [=] { return ordered_list_peek_back(no_list) == nullptr; }},
      {"peek_next list", [=, this] { return ordered_list_peek_next(no_list, &a) == nullptr; }},
      {"peek_next item", [=, this] { return ordered_list_peek_next(&list, no_link) == nullptr; }},
      {"peek_prev list", [=, this] { return ordered_list_peek_prev(no_list, &b) == nullptr; }},
      {"peek_prev item", [=, this] { return ordered_list_peek_prev(&list, no_link) == nullptr; }},
      {"pop_item list", [=, this] { return ordered_list_pop_item(no_list, &a), true; }},
      {"pop_item item", [=, this] { return ordered_list_pop_item(&list, no_link), true; }},
      {"search list", [=] { return ordered_list_linear_search(no_list, is_any, nullptr) == nullptr; }},
      {"search compare",
       [=, this] { return ordered_list_linear_search(&list, nullptr, nullptr) == nullptr; }},
      {"split list", [=, this] { return ordered_list_split(no_list, &b, &other), true; }},
      {"split item", [=, this] { return ordered_list_split(&list, no_link, &other), true; }},
      {"split dst", [=, this] { return ordered_list_split(&list, &b, no_list), true; }},
  };
  expect_neutral(calls, [&] { return shut_to_others(list.lock) || shut_to_others(other.lock); });
  expect_sound(list, {&a, &b, &c, &d});
  expect_sound(other, {&y});
  EXPECT_EQ(x.weight, 77U);
}

}  // namespace
