// SPDX-License-Identifier: MIT
// Makes chosen calls under the timers of the whole test program fail, the library's included. Include it in
// exactly one source file of a test program.
//
// The calls are: timer_create, timer_settime, timer_gettime and timer_delete, which return minus the error;
// pthread_attr_init, pthread_attr_setstacksize, pthread_attr_setdetachstate, pthread_attr_destroy and
// pthread_create, which return the error; and sigaction.
#ifndef KELO_TESTS_SUPPORT_TIMER_FAULTS_HPP
#define KELO_TESTS_SUPPORT_TIMER_FAULTS_HPP

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <functional>

#include "tests/support/fault.hpp"

namespace kelo::tests {

// What the calls were given that went through.
struct TimerCalls {
  clockid_t clock = -1;
  sigevent notification{};
  std::atomic<int> settime_flags{-1};     // by any thread: a signal handler wakes the worker with it
  std::atomic<int> deletes{0};            // by any thread
  std::atomic<int> threads{0};            // started by any thread
  std::function<void()> after_settime{};  // before the library learns the result
};
inline TimerCalls timer_calls;

// Looked up before there are threads.
inline const auto real_attr_init = next_call("pthread_attr_init", pthread_attr_init);
inline const auto real_attr_destroy = next_call("pthread_attr_destroy", pthread_attr_destroy);

}  // namespace kelo::tests

// Defined here and not in a source of the support library, which every test program links. The C library's
// own declarations have reserved parameter names.
// NOLINTBEGIN(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
extern "C" {

int timer_create(clockid_t clock, sigevent* notification, timer_t* timer) noexcept {
  static const auto real = kelo::tests::next_call("timer_create", timer_create);
  if (kelo::tests::Fault::meets("timer_create")) return -errno;
  kelo::tests::timer_calls.clock = clock;
  kelo::tests::timer_calls.notification = *notification;
  return real(clock, notification, timer);
}

int timer_settime(timer_t timer, int flags, const itimerspec* times, itimerspec* before) noexcept {
  static const auto real = kelo::tests::next_call("timer_settime", timer_settime);
  if (kelo::tests::Fault::meets("timer_settime")) return -errno;
  kelo::tests::timer_calls.settime_flags = flags;
  const int result = real(timer, flags, times, before);
  if (kelo::tests::timer_calls.after_settime) kelo::tests::timer_calls.after_settime();
  return result;
}

int timer_gettime(timer_t timer, itimerspec* times) noexcept {
  static const auto real = kelo::tests::next_call("timer_gettime", timer_gettime);
  return kelo::tests::Fault::meets("timer_gettime") ? -errno : real(timer, times);
}

int timer_delete(timer_t timer) noexcept {
  static const auto real = kelo::tests::next_call("timer_delete", timer_delete);
  if (kelo::tests::Fault::meets("timer_delete")) return -errno;
  ++kelo::tests::timer_calls.deletes;
  return real(timer);
}

KELO_BEFORE_SANITIZER int pthread_attr_init(pthread_attr_t* attributes) noexcept {
  const bool fails = kelo::tests::Fault::is_set() && kelo::tests::Fault::meets("pthread_attr_init");
  return fails ? errno : kelo::tests::real_attr_init(attributes);
}

int pthread_attr_setstacksize(pthread_attr_t* attributes, size_t size) noexcept {
  static const auto real = kelo::tests::next_call("pthread_attr_setstacksize", pthread_attr_setstacksize);
  return kelo::tests::Fault::meets("pthread_attr_setstacksize") ? errno : real(attributes, size);
}

int pthread_attr_setdetachstate(pthread_attr_t* attributes, int state) noexcept {
  static const auto real = kelo::tests::next_call("pthread_attr_setdetachstate", pthread_attr_setdetachstate);
  return kelo::tests::Fault::meets("pthread_attr_setdetachstate") ? errno : real(attributes, state);
}

KELO_BEFORE_SANITIZER int pthread_attr_destroy(pthread_attr_t* attributes) noexcept {
  const bool fails = kelo::tests::Fault::is_set() && kelo::tests::Fault::meets("pthread_attr_destroy");
  return fails ? errno : kelo::tests::real_attr_destroy(attributes);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
  static const auto real = kelo::tests::next_call("pthread_create", pthread_create);
  if (kelo::tests::Fault::meets("pthread_create")) return errno;
  ++kelo::tests::timer_calls.threads;
  return real(thread, attributes, body, argument);
}

int sigaction(int number, const struct sigaction* action, struct sigaction* before) noexcept {
  static const auto real = kelo::tests::next_call("sigaction", sigaction);
  return kelo::tests::Fault::meets("sigaction") ? -1 : real(number, action, before);
}

}  // extern "C"
// NOLINTEND(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)

#endif  // KELO_TESTS_SUPPORT_TIMER_FAULTS_HPP
