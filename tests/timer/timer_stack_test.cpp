// SPDX-License-Identifier: MIT
// The worker's stack in a program with many thread-local variables, which the C library takes from it.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iostream>
#include <span>
#include <string>

#include "kelo_utils/log.h"
#include "kelo_utils/timer.h"
#include "tests/support/log_capture.hpp"
#include "tests/support/sanitized.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::Calls;
using kelo::tests::milliseconds;

constexpr std::size_t kThreadLocalBytes = std::size_t{200} * 1024;
thread_local std::array<unsigned char, kThreadLocalBytes> thread_locals;

constexpr int kFilledBytes = 20480;
constexpr std::size_t kStackBytes = 32768;
// What is in use when the callback begins: the frames below it, those of a sanitizer among them.
constexpr std::size_t kInUse = kelo::tests::kSanitized ? 8192 : 2048;

// A callback that logs has the rest for itself.
constexpr int kMostOfLogging = 10240;

struct Stack {
  Calls filled;
  std::size_t room = 0;
  int detach_state = -1;
};

__attribute__((noinline)) unsigned fill_stack() {
  std::array<volatile unsigned char, kFilledBytes> bytes;
  unsigned sum = 0;
  for (volatile unsigned char& byte : bytes) byte = 1;
  for (const volatile unsigned char& byte : bytes) sum += byte;
  return sum;
}

void look_at_stack(void* argument) {
  Stack& stack = *static_cast<Stack*>(argument);
  thread_locals.fill(1);
  pthread_attr_t attributes;
  void* lowest = nullptr;
  std::size_t size = 0;
  EXPECT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
  EXPECT_EQ(pthread_attr_getstack(&attributes, &lowest, &size), 0);
  EXPECT_EQ(pthread_attr_getdetachstate(&attributes, &stack.detach_state), 0);
  pthread_attr_destroy(&attributes);
  stack.room =
      static_cast<std::size_t>(static_cast<char*>(__builtin_frame_address(0)) - static_cast<char*>(lowest));
  stack.filled.add(static_cast<int>(fill_stack()));
}

#if !KELO_SANITIZED
constexpr unsigned char kUntouched = 0xA5;
// What the functions here that look at the stack may take of it themselves.
constexpr std::ptrdiff_t kFramesHere = 2048;

// What is free below, down to the end of the stack.
std::span<volatile unsigned char> free_stack(void* frame) {
  pthread_attr_t attributes;
  void* lowest = nullptr;
  std::size_t size = 0;
  pthread_getattr_np(pthread_self(), &attributes);
  pthread_attr_getstack(&attributes, &lowest, &size);
  pthread_attr_destroy(&attributes);
  auto* const begin = static_cast<volatile unsigned char*>(lowest);
  return {begin, static_cast<volatile unsigned char*>(frame) - kFramesHere};
}

// How much of the stack logging takes: the longest message of a daemon, and one of the library.
void log_from_callback(void* argument) {
  const std::string text(KELO_LOG_LINE_SIZE, 'x');
  const auto below = free_stack(__builtin_frame_address(0));
  for (volatile unsigned char& byte : below) byte = kUntouched;
  KELO_LOG(LOG_LVL_ERR, "%s\n", text.c_str());
  kelo_timer_stop(nullptr);
  const auto deepest =
      std::find_if(below.begin(), below.end(), [](unsigned char byte) { return byte != kUntouched; });
  static_cast<Calls*>(argument)->add(static_cast<int>(below.end() - deepest + kFramesHere));
}

TEST(TimerStack, LeavesRoomBesideLogging) {
  kelo_timer_init();
  const kelo::tests::LogCapture log;
  Calls taken;
  kelo_timer_info info{};
  info.value = milliseconds(1);
  info.cb = {log_from_callback, &taken};
  ASSERT_EQ(kelo_timer_create(&info), 0);
  ASSERT_EQ(kelo_timer_start(&info), 0);
  ASSERT_TRUE(taken.wait_for(1));
  ASSERT_EQ(kelo_timer_delete(&info), 0);
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, std::string(3000, 'x')), 1) << log.dump();
  std::cout << "logging takes " << taken.names()[0] << " bytes of the stack\n";
  EXPECT_LT(taken.names()[0], kMostOfLogging);
}
#endif

TEST(TimerStack, IsThirtyTwoKibibytesBesideThreadLocals) {
  kelo_timer_init();
  Stack stack;
  kelo_timer_info info{};
  info.value = milliseconds(1);
  info.cb = {look_at_stack, &stack};
  ASSERT_EQ(kelo_timer_create(&info), 0);
  ASSERT_EQ(kelo_timer_start(&info), 0);
  ASSERT_TRUE(stack.filled.wait_for(1));
  EXPECT_EQ(stack.filled.names()[0], kFilledBytes);
  EXPECT_GE(stack.room, kStackBytes - kInUse);
  EXPECT_EQ(stack.detach_state, PTHREAD_CREATE_DETACHED);
  EXPECT_EQ(thread_locals[0], 0) << "the test's own thread has others";
  ASSERT_EQ(kelo_timer_delete(&info), 0);
}

}  // namespace
