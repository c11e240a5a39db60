#include "kelo_utils/queue.h"

#include <gtest/gtest.h>

namespace {

TEST(Queue, FirstInFirstOut) {
  q_type q;
  q_init(&q);
  q_link_type links[3];
  for (q_link_type& link : links) q_put(&q, q_link(nullptr, &link));
  EXPECT_EQ(3, q_cnt(&q));
  for (q_link_type& link : links) EXPECT_EQ(&link, q_get(&q));
  EXPECT_EQ(nullptr, q_get(&q));
  q_destroy(&q);
}

}  // namespace
