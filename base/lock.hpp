// SPDX-License-Identifier: MIT
// Scoped ownership of a pthread mutex.
#ifndef KELO_BASE_LOCK_HPP
#define KELO_BASE_LOCK_HPP

#include <pthread.h>

namespace kelo::base {

// Tells the constructor that the calling thread already holds the mutex.
struct AdoptLock {};

class [[nodiscard]] LockGuard {
 public:
  explicit LockGuard(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
  LockGuard(pthread_mutex_t& mutex, AdoptLock /*held*/) : mutex_(mutex) {}
  ~LockGuard() { pthread_mutex_unlock(&mutex_); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  pthread_mutex_t& mutex_;
};

}  // namespace kelo::base

#endif  // KELO_BASE_LOCK_HPP
