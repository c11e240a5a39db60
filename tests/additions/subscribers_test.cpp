// SPDX-License-Identifier: MIT
// Several subscribers to the changes of items: order, user pointers, subscriptions that end, threads and fork().
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/settings.h"
#include "tests/support/recording_backend.hpp"

namespace {

using kelo::tests::backend;
using kelo::tests::RecordingHandle;
using namespace std::chrono_literals;

kelo_dm_item items[] = {
    KELO_DM_TEXT_ITEM(1, "net", "apn", "internet"),
    KELO_DM_END,
};

std::string heard;  // a letter for each call

struct Letter {
  char letter;
  std::function<void()> action = [] {};
};

void hear(std::int32_t /*id*/, const void* /*data*/, std::int32_t /*len*/, void* user) {
  const auto& letter = *static_cast<const Letter*>(user);
  heard += letter.letter;
  letter.action();
}

std::int32_t subscribe(Letter& letter) { return kelo_dm_subscribe(hear, &letter); }

class Subscribers : public testing::Test {
 protected:
  Subscribers() {
    kelo_dm_reg_def_items(items);
    // Several threads write at once, which the list of recorded calls does not bear.
    handle_->write = [](std::uint32_t /*id*/, kelo_dm_item_desc* /*item*/, const void* /*data*/,
                        int /*len*/) { return backend().write_result; };
  }

  std::string heard_by_a_write() {
    heard.clear();
    EXPECT_EQ(kelo_dm_write(handle_.get(), 1, "lan", 3), 0);
    return heard;
  }

  const RecordingHandle handle_;
};

struct Change {
  std::int32_t id = 0;
  std::string bytes;
  int count = 0;
};

void keep(std::int32_t id, const void* data, std::int32_t len, void* user) {
  auto& change = *static_cast<Change*>(user);
  change.id = id;
  change.bytes.assign(static_cast<const char*>(data), static_cast<std::size_t>(len));
  ++change.count;
}

TEST_F(Subscribers, GetTheChangeAndTheirPointer) {
  Change one;
  Change two;
  EXPECT_EQ(kelo_dm_subscribe(keep, &one), 1);
  EXPECT_EQ(kelo_dm_subscribe(keep, &two), 2);
  backend().stored = "lan";
  EXPECT_EQ(kelo_dm_write(handle_.get(), 1, "lan", 3), 0);
  EXPECT_EQ(kelo_dm_write_verified(handle_.get(), 1, "lan", 3), 0);
  for (const Change& change : {one, two}) {
    EXPECT_EQ(change.id, 1);
    EXPECT_EQ(change.bytes, "lan");
    EXPECT_EQ(change.count, 2);
  }
  EXPECT_EQ(kelo_dm_empty(handle_.get(), 1), 0);
  EXPECT_EQ(one.bytes, "");
  EXPECT_EQ(one.count, 3);
}

TEST_F(Subscribers, HearNothingOfAFailedWrite) {
  Letter a{'a'};
  EXPECT_EQ(subscribe(a), 1);
  backend().write_result = -1;
  EXPECT_EQ(kelo_dm_write(handle_.get(), 1, "lan", 3), -1);
  EXPECT_EQ(heard, "");
}

TEST_F(Subscribers, AreCalledInOrderAfterTheOnlyCallback) {
  kelo_dm_reg_event_callback([](std::int32_t, const void*, std::int32_t) {
    heard += '!';
    return 5;
  });
  Letter a{'a'};
  Letter b{'b'};
  Letter c{'c'};
  const std::int32_t first = subscribe(a);
  subscribe(b);
  EXPECT_EQ(heard_by_a_write(), "!ab");
  EXPECT_EQ(kelo_dm_unsubscribe(first), 0);
  subscribe(c);
  subscribe(a);
  EXPECT_EQ(heard_by_a_write(), "!bca") << "a place that was free again does not change the order";
}

TEST_F(Subscribers, SameOneMaySubscribeTwice) {
  Letter a{'a'};
  const std::int32_t first = subscribe(a);
  subscribe(a);
  EXPECT_EQ(heard_by_a_write(), "aa");
  EXPECT_EQ(kelo_dm_unsubscribe(first), 0);
  EXPECT_EQ(heard_by_a_write(), "a");
}

TEST_F(Subscribers, PlacesAreLimited) {
  Letter a{'a'};
  std::vector<std::int32_t> numbers;
  for (int i = 0; i < KELO_DM_MOST_SUBSCRIPTIONS; ++i) {
    numbers.push_back(subscribe(a));
    EXPECT_EQ(numbers.back(), i + 1);
  }
  EXPECT_EQ(subscribe(a), -1);
  EXPECT_EQ(heard_by_a_write(), std::string(KELO_DM_MOST_SUBSCRIPTIONS, 'a'));
  EXPECT_EQ(kelo_dm_unsubscribe(numbers[3]), 0);
  EXPECT_EQ(subscribe(a), KELO_DM_MOST_SUBSCRIPTIONS + 1);
  EXPECT_EQ(subscribe(a), -1);
}

TEST_F(Subscribers, BadArgumentsAreRefused) {
  EXPECT_EQ(kelo_dm_subscribe(nullptr, nullptr), -3);
  Letter a{'a'};
  const std::int32_t number = subscribe(a);
  for (const std::int32_t unknown : {INT32_MIN, -1, 0, number - 1, number + 1, INT32_MAX})
    EXPECT_EQ(kelo_dm_unsubscribe(unknown), -1) << unknown;
  EXPECT_EQ(kelo_dm_unsubscribe(number), 0);
  EXPECT_EQ(kelo_dm_unsubscribe(number), -1);
  EXPECT_EQ(heard_by_a_write(), "");
}

TEST_F(Subscribers, MayUnsubscribeWithinTheCallback) {
  std::array<std::int32_t, 3> numbers{};
  Letter a{'a'};
  Letter b{'b'};
  Letter c{'c'};
  b.action = [&] {
    for (const std::int32_t number : numbers) EXPECT_EQ(kelo_dm_unsubscribe(number), 0);
  };
  numbers = {subscribe(a), subscribe(b), subscribe(c)};
  EXPECT_EQ(heard_by_a_write(), "ab") << "the third was ended before its turn";
  EXPECT_EQ(heard_by_a_write(), "");
}

TEST_F(Subscribers, MaySubscribeWithinTheCallback) {
  Letter a{'a'};
  Letter b{'b'};
  a.action = [&] { subscribe(b); };
  subscribe(a);
  EXPECT_EQ(heard_by_a_write(), "a");
  EXPECT_EQ(heard_by_a_write(), "ab");
}

TEST_F(Subscribers, PlaceOfARunningCallbackIsNotUsedAgain) {
  Letter a{'a'};
  Letter b{'b'};
  std::vector<std::int32_t> numbers;
  a.action = [&] {
    for (const std::int32_t number : numbers) kelo_dm_unsubscribe(number);
    for (int i = 0; i < KELO_DM_MOST_SUBSCRIPTIONS - 1; ++i) EXPECT_GT(subscribe(b), 0) << i;
    EXPECT_EQ(subscribe(b), -1);
  };
  numbers.push_back(subscribe(a));
  EXPECT_EQ(heard_by_a_write(), "a");
  EXPECT_GT(subscribe(b), 0);
}

TEST_F(Subscribers, MayWriteWithinTheCallback) {
  Letter a{'a'};
  Letter b{'b'};
  int depth = 0;
  a.action = [&] {
    if (++depth == 1) kelo_dm_write(handle_.get(), 1, "wan", 3);
  };
  subscribe(a);
  subscribe(b);
  EXPECT_EQ(heard_by_a_write(), "aabb");
}

// One thread is in the callback, and another one ends the subscription.
TEST_F(Subscribers, UnsubscribingWaitsForACallInAnotherThread) {
  std::latch inside(1);
  std::atomic<bool> returned{false};
  Letter a{'a'};
  a.action = [&] {
    inside.count_down();
    std::this_thread::sleep_for(100ms);
    returned = true;
  };
  const std::int32_t number = subscribe(a);
  std::thread writer([&] { heard_by_a_write(); });
  inside.wait();
  EXPECT_EQ(kelo_dm_unsubscribe(number), 0);
  EXPECT_TRUE(returned);
  writer.join();
}

TEST_F(Subscribers, CallbacksThatEndEachOtherDoNotWait) {
  std::latch both(2);
  std::array<std::int32_t, 2> numbers{};
  struct Side {
    std::latch* both;
    std::int32_t* other;
    std::atomic<int> calls{0};
  };
  Side left{&both, &numbers[1]};
  Side right{&both, &numbers[0]};
  const auto end_other = [](std::int32_t, const void* data, std::int32_t, void* user) {
    auto& side = *static_cast<Side*>(user);
    const bool is_mine = (*static_cast<const char*>(data) == 'l') == (side.other[0] == 2);
    if (!is_mine) return;
    side.both->arrive_and_wait();
    EXPECT_EQ(kelo_dm_unsubscribe(*side.other), 0);
    ++side.calls;
  };
  numbers = {kelo_dm_subscribe(end_other, &left), kelo_dm_subscribe(end_other, &right)};
  std::thread other([&] { kelo_dm_write(handle_.get(), 1, "l", 1); });
  kelo_dm_write(handle_.get(), 1, "r", 1);
  other.join();
  EXPECT_EQ(left.calls + right.calls, 2);
}

TEST_F(Subscribers, ThreadsMaySubscribeAndWriteAtOnce) {
  std::atomic<int> calls{0};
  std::atomic<bool> done{false};
  const auto count = [](std::int32_t, const void*, std::int32_t, void* user) {
    ++*static_cast<std::atomic<int>*>(user);
  };
  std::vector<std::thread> threads;
  threads.reserve(3);
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!done) {
        const std::int32_t number = kelo_dm_subscribe(count, &calls);
        EXPECT_GT(number, 0);
        EXPECT_EQ(kelo_dm_write(handle_.get(), 1, "lan", 3), 0);
        EXPECT_EQ(kelo_dm_unsubscribe(number), 0);
      }
    });
  }
  std::this_thread::sleep_for(200ms);
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_GT(calls, 0);
}

// Returns the exit status of a child that runs `action`. It is killed when it does not end.
int status_of_child(const std::function<void()>& action) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(10);
    action();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

// Another thread is within a callback when the process forks: its call does not exist in the child.
TEST_F(Subscribers, ChildDoesNotWaitForThreadsOfItsParent) {
  std::latch inside(1);
  std::latch forked(1);
  Letter a{'a'};
  bool first = true;
  a.action = [&] {
    if (!std::exchange(first, false)) return;
    inside.count_down();
    forked.wait();
  };
  const std::int32_t number = subscribe(a);
  std::thread writer([&] { heard_by_a_write(); });
  inside.wait();
  const int status = status_of_child([&] {
    EXPECT_EQ(heard_by_a_write(), "a");
    EXPECT_EQ(kelo_dm_unsubscribe(number), 0);
    EXPECT_EQ(heard_by_a_write(), "");
  });
  EXPECT_EQ(status, 0);
  forked.count_down();
  writer.join();
  EXPECT_EQ(heard_by_a_write(), "a") << "the child has ended only its own subscription";
}

TEST_F(Subscribers, ChildMadeWithinACallbackGoesOn) {
  Letter a{'a'};
  Letter b{'b'};
  int status = -1;
  a.action = [&] {
    status = status_of_child([&] {
      a.action = [] {};
      EXPECT_EQ(heard_by_a_write(), "ab");
    });
  };
  subscribe(a);
  subscribe(b);
  EXPECT_EQ(heard_by_a_write(), "ab");
  EXPECT_EQ(status, 0);
}

}  // namespace
