// SPDX-License-Identifier: MIT
// Looks at a queue from outside.
#ifndef KELO_TESTS_QUEUE_PROBE_HPP
#define KELO_TESTS_QUEUE_PROBE_HPP

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "kelo_utils/queue.h"

namespace kelo::tests {

using Links = std::vector<q_link_type*>;

inline constexpr const char* kQueueAssertion = "...in file queue/queue.cAssertion failed...";

// The links from the head on, or from the tail on, up to the header, a null or `limit` links.
inline Links links_forward(const q_type& q, std::size_t limit = 1000) {
  Links links;
  for (q_link_type* link = q.link.next_ptr; link != &q.link && link != nullptr && links.size() < limit;
       link = link->next_ptr)
    links.push_back(link);
  return links;
}

inline Links links_backward(const q_type& q, std::size_t limit = 1000) {
  Links links;
  for (q_link_type* link = q.link.prev_ptr; link != &q.link && link != nullptr && links.size() < limit;
       link = link->prev_ptr)
    links.push_back(link);
  return links;
}

// The queue holds exactly these links, in both directions, and counts them right.
inline void expect_sound(const q_type& q, Links links) {
  EXPECT_EQ(static_cast<int>(links.size()), q_cnt(&q));
  EXPECT_EQ(links, links_forward(q, links.size() + 1));
  std::reverse(links.begin(), links.end());
  EXPECT_EQ(links, links_backward(q, links.size() + 1));
}

// Makes `q` a queue of these links, which were in none.
inline void init_with(q_type& q, const Links& links) {
  q_init(&q);
  for (q_link_type* link : links) q_put(&q, q_link(nullptr, link));
}

// A queue of three links, and two links outside it.
class QueueOfThree : public testing::Test {
 protected:
  QueueOfThree() {
    init_with(q, {&a, &b, &c});
    for (q_link_type* link : {&x, &y}) q_link(nullptr, link);
  }

  q_type q;
  q_link_type a, b, c, x, y;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_QUEUE_PROBE_HPP
