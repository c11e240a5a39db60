// SPDX-License-Identifier: MIT
// The first use of a list in a child whose parent had another thread in a first use.
#include <gtest/gtest.h>
#include <unistd.h>

#include "kelo_utils/list.h"
#include "list/list_core.hpp"
#include "tests/support/bounded_fork.hpp"

namespace {

using kelo::list::first_use_holder;
using kelo::tests::ChildEnd;
using kelo::tests::fork_bounded;

// Forks as if another thread of this process was in the first use of some list.
template <typename Body>
ChildEnd fork_during_a_first_use(Body body) {
  first_use_holder = getpid();
  const ChildEnd end = fork_bounded([&] {
    alarm(10);
    return body();
  });
  first_use_holder = 0;
  return end;
}

TEST(FirstUse, OfALinkedListDoesNotWaitForAThreadOfTheParent) {
  EXPECT_EQ(fork_during_a_first_use([] {
              list_type list{};
              list_link_type link{};
              list_push_back(&list, &link);
              return list_size(&list) == 1;
            }),
            ChildEnd::good);
}

TEST(FirstUse, OfAnOrderedListDoesNotWaitForAThreadOfTheParent) {
  EXPECT_EQ(fork_during_a_first_use([] {
              ordered_list_type list{};
              ordered_list_link_type link{};
              ordered_list_push(&list, &link, 1);
              return ordered_list_size(&list) == 1;
            }),
            ChildEnd::good);
}

}  // namespace
