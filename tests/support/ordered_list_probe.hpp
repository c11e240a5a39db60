// SPDX-License-Identifier: MIT
// Looks at an ordered list from outside.
#ifndef KELO_TESTS_ORDERED_LIST_PROBE_HPP
#define KELO_TESTS_ORDERED_LIST_PROBE_HPP

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "kelo_utils/list.h"
#include "tests/support/list_probe.hpp"

namespace kelo::tests {

using OrderedLinks = std::vector<ordered_list_link_type*>;

// The links from `back` on towards the front, put in the order from the front, up to a null or `limit` links.
inline OrderedLinks backward_chain(ordered_list_link_type* back, std::size_t limit = 1000) {
  OrderedLinks links;
  for (auto* link = back; link != nullptr && links.size() < limit; link = link->prev) links.push_back(link);
  std::reverse(links.begin(), links.end());
  return links;
}

// The list holds exactly these links in both directions, and counts them right.
inline void expect_sound(const ordered_list_type& list, const OrderedLinks& links) {
  EXPECT_EQ(links, chain(list.front, links.size() + 1));
  EXPECT_EQ(links, backward_chain(list.back, links.size() + 1));
  EXPECT_EQ(links.size(), list.size);
  EXPECT_EQ(list.initialised, 1);
}

// A list of four links, weighing 10, 20, 30 and 40, an empty one, and two links that are in none.
class OrderedListOfFour : public testing::Test {
 protected:
  OrderedListOfFour() {
    ordered_list_push(&list, &a, 10);
    ordered_list_push(&list, &b, 20);
    ordered_list_push(&list, &c, 30);
    ordered_list_push(&list, &d, 40);
  }
  void TearDown() override {
    ordered_list_destroy(&list);
    ordered_list_destroy(&other);
  }

  ordered_list_type list = {};
  ordered_list_type other = {};
  ordered_list_link_type a = {}, b = {}, c = {}, d = {}, x = {}, y = {};
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_ORDERED_LIST_PROBE_HPP
