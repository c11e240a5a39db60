// SPDX-License-Identifier: MIT
// Lists whose ends do not agree with their chain, and elements that are not where the caller says.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "kelo_utils/list.h"
#include "tests/support/list_probe.hpp"
#include "tests/support/lock_probe.hpp"

namespace {

using kelo::tests::append;
using kelo::tests::chain;
using kelo::tests::expect_sound;
using kelo::tests::ListLinks;
using kelo::tests::ListOfFour;
using kelo::tests::shut_to_others;

// A list of two, its back pointer lost to the merge of an empty list.
class ListWithoutBack : public testing::Test {
 protected:
  ListWithoutBack() {
    append(list, {&a, &b});
    list_merge(&list, &empty);
  }
  void TearDown() override {
    EXPECT_FALSE(shut_to_others(list.lock));
    list_destroy(&list);
    list_destroy(&empty);
  }

  list_type list = {};
  list_type empty = {};
  list_link_type a = {}, b = {}, x = {}, y = {};
};

TEST_F(ListWithoutBack, KeepsSizeAndElements) {
  EXPECT_EQ(list_peek_back(&list), nullptr);
  EXPECT_EQ(list_size(&list), 2U);
  EXPECT_EQ(chain(list.front), (ListLinks{&a, &b}));
  expect_sound(empty, {});
}

TEST_F(ListWithoutBack, PushBackFindsTheLastElement) {
  list_push_back(&list, &x);
  expect_sound(list, {&a, &b, &x});
}

TEST_F(ListWithoutBack, MergeOfElementsFindsTheLastElement) {
  append(empty, {&x, &y});
  list_merge(&list, &empty);
  expect_sound(list, {&a, &b, &x, &y});
}

TEST_F(ListWithoutBack, MergeOfAnEmptyListChangesNothingMore) {
  list_merge(&list, &empty);
  EXPECT_EQ(chain(list.front), (ListLinks{&a, &b}));
  EXPECT_EQ(list.size, 2U);
  EXPECT_EQ(list.back, nullptr);
}

TEST_F(ListWithoutBack, CanBeMergedIntoAnother) {
  list_type third = {};
  append(third, {&x});
  list_merge(&third, &list);
  EXPECT_EQ(chain(third.front), (ListLinks{&x, &a, &b}));
  EXPECT_EQ(third.back, nullptr);
  EXPECT_EQ(third.size, 3U);
  expect_sound(list, {});
  list_destroy(&third);
}

TEST_F(ListWithoutBack, PopFrontRunsItEmpty) {
  EXPECT_EQ(&a, list_pop_front(&list));
  EXPECT_EQ(&b, list_pop_front(&list));
  expect_sound(list, {});
}

TEST_F(ListWithoutBack, PopBackGivesNothingMendsTheBackAndCountsDown) {
  EXPECT_EQ(list_pop_back(&list), nullptr);
  EXPECT_EQ(chain(list.front), (ListLinks{&a, &b}));
  EXPECT_EQ(&b, list.back);
  EXPECT_EQ(list.size, 1U);
}

TEST_F(ListWithoutBack, PushFrontTakesItsItemForTheBack) {
  list_push_front(&list, &x);
  EXPECT_EQ(chain(list.front), (ListLinks{&x, &a, &b}));
  EXPECT_EQ(&x, list.back);
  EXPECT_EQ(list.size, 3U);
  list_push_back(&list, &y);
  EXPECT_EQ(chain(list.front), (ListLinks{&x, &y}));
  EXPECT_EQ(&y, list.back);
  EXPECT_EQ(list.size, 4U);
}

TEST_F(ListWithoutBack, HiddenElementsLeaveACountThatIsTooHigh) {
  list_push_front(&list, &x);
  list_push_back(&list, &y);
  EXPECT_EQ(&x, list_pop_front(&list));
  EXPECT_EQ(&y, list_pop_front(&list));
  EXPECT_EQ(list_pop_front(&list), nullptr);
  EXPECT_EQ(list_size(&list), 2U);
  list_push_back(&list, &x);
  EXPECT_EQ(chain(list.front), (ListLinks{&x}));
  EXPECT_EQ(&x, list.back);
  EXPECT_EQ(list.size, 3U);
  EXPECT_EQ(&x, list_pop_front(&list));
  EXPECT_EQ(list_pop_back(&list), nullptr);
  EXPECT_EQ(list_size(&list), 1U);
}

TEST_F(ListWithoutBack, PopBackAfterPushFrontEmptiesTheListButForItsCount) {
  list_push_front(&list, &x);
  EXPECT_EQ(&x, list_pop_back(&list));
  EXPECT_EQ(list.front, nullptr);
  EXPECT_EQ(list.back, nullptr);
  EXPECT_EQ(list.size, 2U);
}

TEST_F(ListWithoutBack, ElementsCanBeInsertedTakenOutAndLookedAt) {
  list_push_after(&list, &x, &b);
  EXPECT_EQ(&b, list_peek_prev(&list, &x));
  list_push_before(&list, &y, &b);
  EXPECT_EQ(chain(list.front), (ListLinks{&a, &y, &b, &x}));
  list_pop_item(&list, &x);
  list_pop_item(&list, &a);
  EXPECT_EQ(chain(list.front), (ListLinks{&y, &b}));
  EXPECT_EQ(list.back, nullptr);
  EXPECT_EQ(list.size, 2U);
}

TEST_F(ListWithoutBack, SplitHandsTheMissingBackOn) {
  list_split(&list, &b, &empty);
  expect_sound(list, {&a});
  EXPECT_EQ(chain(empty.front), (ListLinks{&b}));
  EXPECT_EQ(empty.back, nullptr);
  EXPECT_EQ(empty.size, 1U);
}

class LinkedListMisuse : public ListOfFour {};

TEST_F(LinkedListMisuse, ElementsThatAreNotInTheListChangeNothing) {
  append(other, {&x});
  const std::vector<std::function<void()>> calls = {
      [&] { list_push_before(&list, &y, &x); }, [&] { list_pop_item(&list, &x); },
      [&] { list_split(&list, &x, &other); },   [&] { EXPECT_EQ(list_peek_prev(&list, &x), nullptr); },
      [&] { list_pop_item(&other, &y); },       [&] { list_push_before(&other, &y, &a); },
  };
  for (const auto& call : calls) {
    call();
    expect_sound(list, {&a, &b, &c, &d});
    expect_sound(other, {&x});
    EXPECT_EQ(y.next, nullptr);
    EXPECT_FALSE(shut_to_others(list.lock));
    EXPECT_FALSE(shut_to_others(other.lock));
  }
}

TEST_F(LinkedListMisuse, ElementTakenOutTwiceIsGoneOnce) {
  list_pop_item(&list, &b);
  list_pop_item(&list, &b);
  expect_sound(list, {&a, &c, &d});
}

TEST_F(LinkedListMisuse, EmptyListHasNoPlaceToInsertOrCut) {
  list_push_before(&other, &x, &y);
  list_pop_item(&other, &y);
  list_split(&other, &y, &list);
  expect_sound(other, {});
  expect_sound(list, {&a, &b, &c, &d});
}

TEST_F(LinkedListMisuse, ListMergedWithItselfOrSplitIntoItselfStays) {
  list_merge(&list, &list);
  expect_sound(list, {&a, &b, &c, &d});
  list_split(&list, &b, &list);
  expect_sound(list, {&a, &b, &c, &d});
}

TEST_F(LinkedListMisuse, BackThatIsNotInTheChainIsNotTakenOut) {
  list.back = &x;
  EXPECT_EQ(list_pop_back(&list), nullptr);
  EXPECT_EQ(chain(list.front), (ListLinks{&a, &b, &c, &d}));
  EXPECT_EQ(&x, list.back);
  EXPECT_EQ(list.size, 4U);
}

TEST_F(LinkedListMisuse, SizeZeroHidesTheElementsFromRemoval) {
  list.size = 0;
  EXPECT_EQ(list_pop_front(&list), nullptr);
  EXPECT_EQ(list_pop_back(&list), nullptr);
  EXPECT_EQ(&a, list_peek_front(&list));
  list_push_back(&list, &x);
  expect_sound(list, {&x});
}

}  // namespace
