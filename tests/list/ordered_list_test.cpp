// SPDX-License-Identifier: MIT
// The order of elements, and the operations on lists of one thread.
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "kelo_utils/list.h"
#include "tests/support/lock_probe.hpp"
#include "tests/support/ordered_list_probe.hpp"

namespace {

using kelo::tests::expect_sound;
using kelo::tests::OrderedLinks;
using kelo::tests::OrderedListOfFour;
using kelo::tests::shut_to_others;

class OrderedList : public OrderedListOfFour {};

TEST(OrderedListConstants, AreTheCodesThatProgramsStore) {
  EXPECT_EQ(1, ORDERED_LIST_ASCENDING);
  EXPECT_EQ(2, ORDERED_LIST_DESCENDING);
  EXPECT_EQ(4096, ORDERED_LIST_BEFORE_EQUALS);
  EXPECT_EQ(8192, ORDERED_LIST_BEHIND_EQUALS);
}

TEST(OrderedListInit, MakesAnEmptyListOfAnyMemory) {
  ordered_list_type list;
  std::memset(&list, 0xa5, sizeof list);
  ordered_list_init(&list, 2, 8192);
  expect_sound(list, {});
  EXPECT_EQ(list.order, 8194);
  EXPECT_FALSE(shut_to_others(list.lock));
  EXPECT_EQ(pthread_mutex_lock(&list.lock), 0);
  EXPECT_EQ(pthread_mutex_trylock(&list.lock), EBUSY);
  EXPECT_EQ(pthread_mutex_unlock(&list.lock), 0);
  ordered_list_destroy(&list);
}

TEST_F(OrderedList, DestroyZeroesFrontSizeAndFlagOnly) {
  ordered_list_init(&other, 2, 8192);
  ordered_list_push(&other, &x, 1);
  ordered_list_destroy(&other);
  EXPECT_EQ(other.front, nullptr);
  EXPECT_EQ(&x, other.back);
  EXPECT_EQ(other.size, 0U);
  EXPECT_EQ(other.order, 8194);
  EXPECT_EQ(other.initialised, 0);
}

TEST_F(OrderedList, DestroyedListIsMadeAnewWithTheOrderOfAZeroedOne) {
  ordered_list_init(&other, 2, 8192);
  ordered_list_push(&other, &a, 1);
  ordered_list_destroy(&other);
  ordered_list_push(&other, &x, 7);
  expect_sound(other, {&x});
  EXPECT_EQ(other.order, 4097);
}

TEST(OrderedListDestroy, ZeroesAHeaderThatWasNeverUsed) {
  ordered_list_type list;
  std::memset(&list, 0x5a, sizeof list);
  ordered_list_destroy(&list);
  EXPECT_EQ(list.front, nullptr);
  EXPECT_EQ(list.size, 0U);
  EXPECT_EQ(list.initialised, 0);
  EXPECT_EQ(ordered_list_size(&list), 0U);
  ordered_list_destroy(&list);
}

struct Ordering {
  std::int32_t direction;
  std::int32_t placement;
  std::vector<std::uint32_t> weights;  // pushed in this order
  std::vector<std::size_t> places;     // the pushes, from front to back
};

constexpr std::uint32_t kMost = UINT32_MAX;

const std::vector<Ordering> kOrderings = {
    {1, 4096, {5, 3, 5, 1}, {3, 1, 2, 0}},
    {1, 8192, {5, 3, 5, 1}, {3, 1, 0, 2}},
    {2, 4096, {5, 3, 5, 1}, {2, 0, 1, 3}},
    {2, 8192, {5, 3, 5, 1}, {0, 2, 1, 3}},
    // All of one weight.
    {1, 4096, {7, 7, 7}, {2, 1, 0}},
    {1, 8192, {7, 7, 7}, {0, 1, 2}},
    {2, 4096, {7, 7, 7}, {2, 1, 0}},
    {2, 8192, {7, 7, 7}, {0, 1, 2}},
    // Ties at the front, inside and at the back.
    {1, 4096, {1, 2, 3, 1, 2, 3}, {3, 0, 4, 1, 5, 2}},
    {1, 8192, {1, 2, 3, 1, 2, 3}, {0, 3, 1, 4, 2, 5}},
    {2, 4096, {1, 2, 3, 1, 2, 3}, {5, 2, 4, 1, 3, 0}},
    {2, 8192, {1, 2, 3, 1, 2, 3}, {2, 5, 1, 4, 0, 3}},
    // The least and the greatest weight, with ties; bit 31 is no sign.
    {1, 4096, {0, kMost, 0, kMost, 0x80000000U, 0x7fffffffU}, {2, 0, 5, 4, 3, 1}},
    {1, 8192, {0, kMost, 0, kMost, 0x80000000U, 0x7fffffffU}, {0, 2, 5, 4, 1, 3}},
    {2, 4096, {0, kMost, 0, kMost, 0x80000000U, 0x7fffffffU}, {3, 1, 4, 5, 2, 0}},
    {2, 8192, {0, kMost, 0, kMost, 0x80000000U, 0x7fffffffU}, {1, 3, 4, 5, 0, 2}},
};

TEST(OrderedListPush, FollowsDirectionAndPlacement) {
  for (const Ordering& ordering : kOrderings) {
    ordered_list_type list;
    ordered_list_init(&list, ordering.direction, ordering.placement);
    std::array<ordered_list_link_type, 6> links;
    std::memset(&links, 0xa5, sizeof links);
    for (std::size_t i = 0; i < ordering.weights.size(); ++i)
      ordered_list_push(&list, &links[i], ordering.weights[i]);
    OrderedLinks expected;
    for (const std::size_t place : ordering.places) {
      expected.push_back(&links[place]);
      EXPECT_EQ(ordering.weights[place], links[place].weight);
    }
    SCOPED_TRACE(list.order);
    expect_sound(list, expected);
    ordered_list_destroy(&list);
  }
}

TEST(OrderedListPush, ZeroedListIsAscendingWithNewBeforeEquals) {
  ordered_list_type list = {};
  std::array<ordered_list_link_type, 4> links = {};
  ordered_list_push(&list, &links[0], 5);
  ordered_list_push(&list, &links[1], 3);
  ordered_list_push(&list, &links[2], 5);
  ordered_list_push(&list, &links[3], 1);
  expect_sound(list, {&links[3], &links[1], &links[2], &links[0]});
  EXPECT_EQ(list.order, 4097);
  ordered_list_destroy(&list);
}

TEST(OrderedListPush, ListOfAnotherOrderTakesNothing) {
  const std::vector<std::pair<int, int>> orders = {
      {3, 4096}, {0, 4096},   {4, 8192}, {1, 0},          {2, 0},
      {1, 1},    {1, 16384},  {1, 2048}, {0, 0},          {3, 8192},
      {3, 0},    {1, 0x3000}, {-1, -1},  {2, 0x3000},     {5, 4096},
      {6, 8192}, {9, 4096},   {0, 1},    {INT_MIN, 4097}, {1, INT_MIN | 4096}};
  for (const auto& [direction, placement] : orders) {
    ordered_list_type list;
    ordered_list_init(&list, direction, placement);
    EXPECT_EQ(direction | placement, list.order);
    ordered_list_link_type item = {&item, &item, 0};
    ordered_list_push(&list, &item, 9);
    SCOPED_TRACE(list.order);
    expect_sound(list, {});
    EXPECT_EQ(item.weight, 9U);
    EXPECT_EQ(&item, item.next);
    EXPECT_EQ(&item, item.prev);
    EXPECT_FALSE(shut_to_others(list.lock));
    ordered_list_destroy(&list);
  }
}

TEST_F(OrderedList, OrderThatTurnsWrongRefusesBesideElementsToo) {
  list.order = 4099;
  ordered_list_push(&list, &x, 15);
  expect_sound(list, {&a, &b, &c, &d});
}

// Both parts of the code may be given in one argument: only their union counts.
TEST(OrderedListInit, OrderIsTheUnionOfBothArguments) {
  ordered_list_type list;
  ordered_list_init(&list, 8194, 0);
  ordered_list_link_type low = {};
  ordered_list_link_type high = {};
  ordered_list_push(&list, &low, 1);
  ordered_list_push(&list, &high, 2);
  expect_sound(list, {&high, &low});
  ordered_list_destroy(&list);
}

// Elements put beside others by hand need not be sorted: the back decides whether to append, and the first
// element from the front that follows gives the place.
TEST_F(OrderedList, PushAmongUnsortedElementsLooksAtTheBackFirst) {
  x.weight = 5;
  ordered_list_push_after(&list, &x, &d);
  ordered_list_push(&list, &y, 25);
  expect_sound(list, {&a, &b, &c, &d, &x, &y});
  ordered_list_type descending;
  ordered_list_init(&descending, 2, 4096);
  ordered_list_split(&list, &b, &descending);
  ordered_list_link_type z = {};
  ordered_list_push(&descending, &z, 27);
  expect_sound(descending, {&z, &b, &c, &d, &x, &y});
  ordered_list_destroy(&descending);
}

TEST_F(OrderedList, PushAfterPutsAfterTheGivenElement) {
  x.weight = 99;
  ordered_list_push_after(&list, &x, &a);
  expect_sound(list, {&a, &x, &b, &c, &d});
  ordered_list_push_after(&list, &y, &d);
  expect_sound(list, {&a, &x, &b, &c, &d, &y});
  EXPECT_EQ(x.weight, 99U);
}

TEST_F(OrderedList, PushBeforePutsInFrontOfTheGivenElement) {
  x.weight = 99;
  ordered_list_push_before(&list, &x, &a);
  expect_sound(list, {&x, &a, &b, &c, &d});
  ordered_list_push_before(&list, &y, &d);
  expect_sound(list, {&x, &a, &b, &c, &y, &d});
  EXPECT_EQ(x.weight, 99U);
}

TEST_F(OrderedList, PopFrontTakesTheElementsInTheirOrder) {
  EXPECT_EQ(&a, ordered_list_pop_front(&list));
  EXPECT_EQ(&b, a.next);
  expect_sound(list, {&b, &c, &d});
  EXPECT_EQ(&b, ordered_list_pop_front(&list));
  EXPECT_EQ(&c, ordered_list_pop_front(&list));
  EXPECT_EQ(&d, ordered_list_pop_front(&list));
  expect_sound(list, {});
  EXPECT_EQ(ordered_list_pop_front(&list), nullptr);
  expect_sound(list, {});
}

TEST_F(OrderedList, PopBackTakesTheElementsInReverse) {
  EXPECT_EQ(&d, ordered_list_pop_back(&list));
  EXPECT_EQ(&c, d.prev);
  expect_sound(list, {&a, &b, &c});
  EXPECT_EQ(&c, ordered_list_pop_back(&list));
  EXPECT_EQ(&b, ordered_list_pop_back(&list));
  EXPECT_EQ(&a, ordered_list_pop_back(&list));
  expect_sound(list, {});
  EXPECT_EQ(ordered_list_pop_back(&list), nullptr);
  expect_sound(list, {});
}

TEST_F(OrderedList, PopItemTakesAnElementFromAnyPlace) {
  ordered_list_pop_item(&list, &b);
  EXPECT_EQ(&c, b.next);
  EXPECT_EQ(&a, b.prev);
  expect_sound(list, {&a, &c, &d});
  ordered_list_pop_item(&list, &d);
  expect_sound(list, {&a, &c});
  ordered_list_pop_item(&list, &a);
  expect_sound(list, {&c});
  ordered_list_pop_item(&list, &c);
  expect_sound(list, {});
}

TEST_F(OrderedList, SizeAndPeeksLeaveTheListAsItIs) {
  EXPECT_EQ(ordered_list_size(&list), 4U);
  EXPECT_EQ(&a, ordered_list_peek_front(&list));
  EXPECT_EQ(&d, ordered_list_peek_back(&list));
  EXPECT_EQ(&b, ordered_list_peek_next(&list, &a));
  EXPECT_EQ(ordered_list_peek_next(&list, &d), nullptr);
  EXPECT_EQ(&c, ordered_list_peek_prev(&list, &d));
  EXPECT_EQ(ordered_list_peek_prev(&list, &a), nullptr);
  expect_sound(list, {&a, &b, &c, &d});
}

TEST_F(OrderedList, EmptyListHasNothingToShow) {
  EXPECT_EQ(ordered_list_size(&other), 0U);
  EXPECT_EQ(ordered_list_peek_front(&other), nullptr);
  EXPECT_EQ(ordered_list_peek_back(&other), nullptr);
  expect_sound(other, {});
}

struct Search {
  const ordered_list_link_type* wanted;
  OrderedLinks seen;
};

int is_wanted(ordered_list_link_type* element, const void* param) {
  auto* const search = static_cast<Search*>(const_cast<void*>(param));
  search->seen.push_back(element);
  return element == search->wanted ? -3 : 0;
}

TEST_F(OrderedList, SearchStopsAtTheFirstMatch) {
  Search search = {&c, {}};
  EXPECT_EQ(&c, ordered_list_linear_search(&list, is_wanted, &search));
  EXPECT_EQ(search.seen, (OrderedLinks{&a, &b, &c}));
  expect_sound(list, {&a, &b, &c, &d});
}

TEST_F(OrderedList, SearchWithoutAMatchSeesAll) {
  Search search = {&x, {}};
  EXPECT_EQ(ordered_list_linear_search(&list, is_wanted, &search), nullptr);
  EXPECT_EQ(search.seen, (OrderedLinks{&a, &b, &c, &d}));
  search.seen.clear();
  EXPECT_EQ(ordered_list_linear_search(&other, is_wanted, &search), nullptr);
  EXPECT_EQ(OrderedLinks{}, search.seen);
}

TEST_F(OrderedList, SearchHoldsTheLockAcrossTheWalk) {
  const auto is_last = [](ordered_list_link_type* element, const void* param) {
    auto* const searched = static_cast<ordered_list_type*>(const_cast<void*>(param));
    EXPECT_TRUE(shut_to_others(searched->lock));
    return static_cast<int>(element->next == nullptr);
  };
  EXPECT_EQ(&d, ordered_list_linear_search(&list, is_last, &list));
  EXPECT_FALSE(shut_to_others(list.lock));
}

TEST_F(OrderedList, SplitMovesTheElementAndAllAfterIt) {
  ordered_list_split(&list, &c, &other);
  expect_sound(list, {&a, &b});
  expect_sound(other, {&c, &d});
  EXPECT_EQ(c.prev, nullptr);
}

TEST_F(OrderedList, SplitAtTheEnds) {
  ordered_list_split(&list, &d, &other);
  expect_sound(list, {&a, &b, &c});
  expect_sound(other, {&d});
  ordered_list_split(&list, &a, &other);
  expect_sound(list, {});
  expect_sound(other, {&a, &b, &c});
}

TEST_F(OrderedList, SplitOverwritesTheElementsOfTheDestinationAndKeepsItsOrder) {
  ordered_list_init(&other, 2, 8192);
  ordered_list_push(&other, &x, 1);
  ordered_list_push(&other, &y, 2);
  ordered_list_split(&list, &c, &other);
  expect_sound(other, {&c, &d});
  EXPECT_EQ(other.order, 8194);
  EXPECT_EQ(list.order, 4097);
  EXPECT_EQ(&x, y.next);
}

}  // namespace
