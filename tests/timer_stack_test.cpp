// The worker's stack in a program with many thread-local variables, which the C library takes from it.
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <cstddef>

#include "kelo_utils/timer.h"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::Calls;
using kelo::tests::milliseconds;

constexpr std::size_t kThreadLocalBytes = std::size_t{200} * 1024;
thread_local std::array<unsigned char, kThreadLocalBytes> thread_locals;

constexpr int kFilledBytes = 20480;
constexpr std::size_t kStackBytes = 32768;
// What is in use when the callback begins: the frames below it, those of a sanitizer among them.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kInUse = 8192;
#else
constexpr std::size_t kInUse = 2048;
#endif

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
