// SPDX-License-Identifier: MIT
// Each operation of the linked list.
#include "kelo_utils/list.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/list_probe.hpp"
#include "tests/support/lock_probe.hpp"
#include "tests/support/null_calls.hpp"

namespace {

using kelo::tests::append;
using kelo::tests::expect_neutral;
using kelo::tests::expect_sound;
using kelo::tests::ListLinks;
using kelo::tests::ListOfFour;
using kelo::tests::NullCall;
using kelo::tests::shut_to_others;
using kelo::tests::waits_for_lock;

class LinkedList : public ListOfFour {};

TEST_F(LinkedList, PushFrontPutsBeforeAll) {
  list_push_front(&list, &x);
  expect_sound(list, {&x, &a, &b, &c, &d});
  list_push_front(&other, &y);
  expect_sound(other, {&y});
}

TEST_F(LinkedList, PushBackPutsAfterAll) {
  x.next = &y;
  list_push_back(&list, &x);
  expect_sound(list, {&a, &b, &c, &d, &x});
  list_push_back(&other, &y);
  expect_sound(other, {&y});
}

TEST_F(LinkedList, PopFrontTakesTheElementsInTheirOrder) {
  EXPECT_EQ(&a, list_pop_front(&list));
  EXPECT_EQ(&b, a.next);
  expect_sound(list, {&b, &c, &d});
  EXPECT_EQ(&b, list_pop_front(&list));
  EXPECT_EQ(&c, list_pop_front(&list));
  EXPECT_EQ(&d, list_pop_front(&list));
  expect_sound(list, {});
}

TEST_F(LinkedList, PopBackTakesTheElementsInReverse) {
  EXPECT_EQ(&d, list_pop_back(&list));
  expect_sound(list, {&a, &b, &c});
  EXPECT_EQ(&c, list_pop_back(&list));
  EXPECT_EQ(&b, list_pop_back(&list));
  EXPECT_EQ(&a, list_pop_back(&list));
  expect_sound(list, {});
}

TEST_F(LinkedList, EmptyListHasNothingToGive) {
  EXPECT_EQ(list_pop_front(&other), nullptr);
  EXPECT_EQ(list_pop_back(&other), nullptr);
  EXPECT_EQ(list_peek_front(&other), nullptr);
  EXPECT_EQ(list_peek_back(&other), nullptr);
  EXPECT_EQ(list_peek_prev(&other, &x), nullptr);
  EXPECT_EQ(list_size(&other), 0U);
  expect_sound(other, {});
}

TEST_F(LinkedList, SizeAndPeeksLeaveTheListAsItIs) {
  EXPECT_EQ(list_size(&list), 4U);
  EXPECT_EQ(&a, list_peek_front(&list));
  EXPECT_EQ(&d, list_peek_back(&list));
  expect_sound(list, {&a, &b, &c, &d});
}

TEST_F(LinkedList, PeekNextWalksToTheEnd) {
  EXPECT_EQ(&b, list_peek_next(&list, &a));
  EXPECT_EQ(&c, list_peek_next(&list, &b));
  EXPECT_EQ(list_peek_next(&list, &d), nullptr);
}

TEST_F(LinkedList, PeekPrevWalksToTheFront) {
  EXPECT_EQ(&c, list_peek_prev(&list, &d));
  EXPECT_EQ(&a, list_peek_prev(&list, &b));
  EXPECT_EQ(list_peek_prev(&list, &a), nullptr);
}

TEST_F(LinkedList, PushBeforePutsInFrontOfTheGivenElement) {
  list_push_before(&list, &x, &a);
  expect_sound(list, {&x, &a, &b, &c, &d});
  list_push_before(&list, &y, &d);
  expect_sound(list, {&x, &a, &b, &c, &y, &d});
}

TEST_F(LinkedList, PushAfterPutsAfterTheGivenElement) {
  list_push_after(&list, &x, &a);
  expect_sound(list, {&a, &x, &b, &c, &d});
  list_push_after(&list, &y, &d);
  expect_sound(list, {&a, &x, &b, &c, &d, &y});
}

TEST_F(LinkedList, PopItemTakesAnElementFromAnyPlace) {
  list_pop_item(&list, &b);
  EXPECT_EQ(&c, b.next);
  expect_sound(list, {&a, &c, &d});
  list_pop_item(&list, &d);
  expect_sound(list, {&a, &c});
  list_pop_item(&list, &a);
  expect_sound(list, {&c});
  list_pop_item(&list, &c);
  expect_sound(list, {});
}

struct Search {
  const list_link_type* wanted;
  ListLinks seen;
};

int is_wanted(list_link_type* element, const void* param) {
  auto* const search = static_cast<Search*>(const_cast<void*>(param));
  search->seen.push_back(element);
  return element == search->wanted ? -3 : 0;
}

TEST_F(LinkedList, SearchStopsAtTheFirstMatch) {
  Search search = {&c, {}};
  EXPECT_EQ(&c, list_linear_search(&list, is_wanted, &search));
  EXPECT_EQ(search.seen, (ListLinks{&a, &b, &c}));
  expect_sound(list, {&a, &b, &c, &d});
}

TEST_F(LinkedList, SearchWithoutAMatchSeesAll) {
  Search search = {&x, {}};
  EXPECT_EQ(list_linear_search(&list, is_wanted, &search), nullptr);
  EXPECT_EQ(search.seen, (ListLinks{&a, &b, &c, &d}));
  search.seen.clear();
  EXPECT_EQ(list_linear_search(&other, is_wanted, &search), nullptr);
  EXPECT_EQ(ListLinks{}, search.seen);
}

TEST_F(LinkedList, SearchHoldsTheLockAcrossTheWalk) {
  const auto is_last = [](list_link_type* element, const void* param) {
    auto* const searched = static_cast<list_type*>(const_cast<void*>(param));
    EXPECT_TRUE(shut_to_others(searched->lock));
    return static_cast<int>(element->next == nullptr);
  };
  EXPECT_EQ(&d, list_linear_search(&list, is_last, &list));
  EXPECT_FALSE(shut_to_others(list.lock));
}

TEST_F(LinkedList, MergeAppendsAndEmptiesTheSource) {
  append(other, {&x, &y});
  list_merge(&list, &other);
  expect_sound(list, {&a, &b, &c, &d, &x, &y});
  expect_sound(other, {});
}

TEST_F(LinkedList, MergeIntoAnEmptyListMovesAll) {
  list_merge(&other, &list);
  expect_sound(other, {&a, &b, &c, &d});
  expect_sound(list, {});
}

TEST_F(LinkedList, MergeOfTwoEmptyListsLeavesThemEmpty) {
  list_type third = {};
  list_merge(&other, &third);
  expect_sound(other, {});
  expect_sound(third, {});
  list_destroy(&third);
}

TEST_F(LinkedList, SplitMovesTheElementAndAllAfterIt) {
  list_split(&list, &c, &other);
  expect_sound(list, {&a, &b});
  expect_sound(other, {&c, &d});
}

TEST_F(LinkedList, SplitAtTheBackMovesOneElement) {
  list_split(&list, &d, &other);
  expect_sound(list, {&a, &b, &c});
  expect_sound(other, {&d});
}

TEST_F(LinkedList, SplitAfterTheFrontKeepsOneElement) {
  list_split(&list, &b, &other);
  expect_sound(list, {&a});
  expect_sound(other, {&b, &c, &d});
}

TEST_F(LinkedList, SplitAtTheFrontMovesAll) {
  list_split(&list, &a, &other);
  expect_sound(list, {});
  expect_sound(other, {&a, &b, &c, &d});
}

TEST_F(LinkedList, SplitOverwritesWhatTheDestinationHeld) {
  append(other, {&x, &y});
  list_split(&list, &c, &other);
  expect_sound(list, {&a, &b});
  expect_sound(other, {&c, &d});
  EXPECT_EQ(&y, x.next);
}

TEST_F(LinkedList, EveryOperationWaitsForTheLock) {
  list_type third = {};
  const std::vector<std::function<void()>> operations = {
      [&] { list_push_front(&list, &x); },
      [&] { list_push_back(&list, &y); },
      [&] { list_peek_front(&list); },
      [&] { list_peek_back(&list); },
      [&] { list_peek_next(&list, &a); },
      [&] { list_peek_prev(&list, &b); },
      [&] { list_size(&list); },
      [&] { list_pop_item(&list, &b); },
      [&] { list_push_before(&list, &b, &c); },
      [&] { list_pop_item(&list, &b); },
      [&] { list_push_after(&list, &b, &c); },
      [&] { list_pop_front(&list); },
      [&] { list_pop_back(&list); },
      [&] {
        list_linear_search(
            &list, [](list_link_type*, const void*) { return 1; }, nullptr);
      },
      [&] { list_merge(&third, &list); },
      [&] { list_split(&third, list_peek_front(&third), &list); },
      [&] { list_split(&list, list_peek_front(&list), &other); },
      [&] { list_merge(&list, &other); },
  };
  for (std::size_t i = 0; i < operations.size(); ++i) {
    EXPECT_TRUE(waits_for_lock(list.lock, operations[i])) << "operation " << i;
  }
  expect_sound(list, {&a, &c, &b, &d});
  list_destroy(&third);
}

TEST_F(LinkedList, MergeTakesTheDestinationFirst) {
  list_init(&other);
  const bool waited = waits_for_lock(
      list.lock, [&] { list_merge(&list, &other); }, [&] { EXPECT_FALSE(shut_to_others(other.lock)); });
  EXPECT_TRUE(waited);
  EXPECT_TRUE(waits_for_lock(
      other.lock, [&] { list_merge(&list, &other); }, [&] { EXPECT_TRUE(shut_to_others(list.lock)); }));
}

TEST_F(LinkedList, SplitTakesTheSourceFirst) {
  list_init(&other);
  const bool waited = waits_for_lock(
      list.lock, [&] { list_split(&list, &c, &other); }, [&] { EXPECT_FALSE(shut_to_others(other.lock)); });
  EXPECT_TRUE(waited);
  EXPECT_TRUE(waits_for_lock(
      other.lock, [&] { list_split(&list, &b, &other); }, [&] { EXPECT_TRUE(shut_to_others(list.lock)); }));
}

TEST_F(LinkedList, NullArgumentsAreAnsweredNeutrallyInSilence) {
  list_type* const no_list = nullptr;
  list_link_type* const no_link = nullptr;
  append(other, {&y});
  const std::vector<NullCall> calls = {
      {"init", [=] { return list_init(no_list), true; }},
      {"destroy", [=] { return list_destroy(no_list), true; }},
      {"push_front list", [=, this] { return list_push_front(no_list, &x), true; }},
      {"push_front item", [=, this] { return list_push_front(&list, no_link), true; }},
      {"push_back list", [=, this] { return list_push_back(no_list, &x), true; }},
      {"push_back item", [=, this] { return list_push_back(&list, no_link), true; }},
      {"pop_front", [=] { return list_pop_front(no_list) == nullptr; }},
      {"pop_back", [=] { return list_pop_back(no_list) == nullptr; }},
      {"size", [=] { return list_size(no_list) == 0; }},
      {"peek_front", [=] { return list_peek_front(no_list) == nullptr; }},
      {"peek_back", [=] { return list_peek_back(no_list) == nullptr; }},
      {"peek_next list", [=, this] { return list_peek_next(no_list, &a) == nullptr; }},
      {"peek_next item", [=, this] { return list_peek_next(&list, no_link) == nullptr; }},
      {"peek_prev list", [=, this] { return list_peek_prev(no_list, &b) == nullptr; }},
      {"peek_prev item", [=, this] { return list_peek_prev(&list, no_link) == nullptr; }},
      {"push_before list", [=, this] { return list_push_before(no_list, &x, &b), true; }},
      {"push_before item", [=, this] { return list_push_before(&list, no_link, &b), true; }},
      {"push_before before", [=, this] { return list_push_before(&list, &x, no_link), true; }},
      {"push_after list", [=, this] { return list_push_after(no_list, &x, &b), true; }},
      {"push_after item", [=, this] { return list_push_after(&list, no_link, &b), true; }},
      {"push_after after", [=, this] { return list_push_after(&list, &x, no_link), true; }},
      {"pop_item list", [=, this] { return list_pop_item(no_list, &a), true; }},
      {"pop_item item", [=, this] { return list_pop_item(&list, no_link), true; }},
      {"search list", [=] { return list_linear_search(no_list, is_wanted, nullptr) == nullptr; }},
      {"search compare", [=, this] { return list_linear_search(&list, nullptr, nullptr) == nullptr; }},
      {"merge dst", [=, this] { return list_merge(no_list, &other), true; }},
      {"merge src", [=, this] { return list_merge(&list, no_list), true; }},
      {"split list", [=, this] { return list_split(no_list, &b, &other), true; }},
      {"split item", [=, this] { return list_split(&list, no_link, &other), true; }},
      {"split dst", [=, this] { return list_split(&list, &b, no_list), true; }},
  };
  expect_neutral(calls, [&] { return shut_to_others(list.lock) || shut_to_others(other.lock); });
  expect_sound(list, {&a, &b, &c, &d});
  expect_sound(other, {&y});
  EXPECT_EQ(x.next, nullptr);
}

}  // namespace
