// SPDX-License-Identifier: MIT
// Looks at a mutex from outside: who holds it, and who waits for it.
#ifndef KELO_TESTS_LOCK_PROBE_HPP
#define KELO_TESTS_LOCK_PROBE_HPP

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "tests/support/c_library.hpp"

namespace kelo::tests {

// Whether a thread other than the caller would have to wait for the lock.
inline bool shut_to_others(pthread_mutex_t& lock) {
  int result = 0;
  std::thread([&] {
    result = pthread_mutex_trylock(&lock);
    if (result == 0) pthread_mutex_unlock(&lock);
  }).join();
  return result == EBUSY;
}

// Whether a thread waits for the lock. The GNU C library keeps 2 in the first word of such a mutex, musl the number of those
// who wait in the third.
inline bool is_waited_for(const pthread_mutex_t& lock) {
  const auto* const words = reinterpret_cast<const int*>(&lock);
  if (kGnuLibrary) return __atomic_load_n(words, __ATOMIC_RELAXED) == 2;
  return __atomic_load_n(words + 2, __ATOMIC_RELAXED) != 0;
}

// Runs `operation` in a thread of its own while the caller holds `lock`, then `meanwhile` in the calling
// thread as soon as the operation waits for the lock or has ended. Returns whether it had to wait.
template <typename Operation, typename Meanwhile>
bool waits_for_lock(pthread_mutex_t& lock, Operation operation, Meanwhile meanwhile) {
  std::atomic<bool> ended = false;
  pthread_mutex_lock(&lock);
  std::thread other([&] {
    operation();
    ended = true;
  });
  while (!ended && !is_waited_for(lock)) std::this_thread::yield();
  const bool waited = !ended;
  meanwhile();
  pthread_mutex_unlock(&lock);
  other.join();
  return waited;
}

template <typename Operation>
bool waits_for_lock(pthread_mutex_t& lock, Operation operation) {
  return waits_for_lock(lock, operation, [] {});
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_LOCK_PROBE_HPP
