// SPDX-License-Identifier: MIT
// Looks at a linked list from outside.
#ifndef KELO_TESTS_LIST_PROBE_HPP
#define KELO_TESTS_LIST_PROBE_HPP

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kelo_utils/list.h"

namespace kelo::tests {

// The links from `front` on, up to a null or `limit` links.
template <typename Link>
std::vector<Link*> chain(Link* front, std::size_t limit = 1000) {
  std::vector<Link*> links;
  for (Link* link = front; link != nullptr && links.size() < limit; link = link->next) links.push_back(link);
  return links;
}

using ListLinks = std::vector<list_link_type*>;

// The list holds exactly these links, counts them right and knows its ends.
inline void expect_sound(const list_type& list, const ListLinks& links) {
  EXPECT_EQ(links, chain(list.front, links.size() + 1));
  EXPECT_EQ(links.empty() ? nullptr : links.back(), list.back);
  EXPECT_EQ(links.size(), list.size);
  EXPECT_EQ(list.initialised, 1);
}

// Appends these links, which were in no list.
inline void append(list_type& list, const ListLinks& links) {
  for (list_link_type* link : links) list_push_back(&list, link);
}

// A list of four links, an empty one, and two links that are in none.
class ListOfFour : public testing::Test {
 protected:
  ListOfFour() { append(list, {&a, &b, &c, &d}); }
  void TearDown() override {
    list_destroy(&list);
    list_destroy(&other);
  }

  list_type list = {};
  list_type other = {};
  list_link_type a = {}, b = {}, c = {}, d = {}, x = {}, y = {};
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_LIST_PROBE_HPP
