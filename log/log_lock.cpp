#include "log/log_lock.hpp"

#include <pthread.h>

#include <atomic>

namespace kelo::log {
namespace {

pthread_mutex_t log_mutex = PTHREAD_MUTEX_INITIALIZER;
// The thread inside the lock, zero while there is none. A thread finds its own id here only if it put it
// there, so the test for re-entry needs no ordering.
std::atomic<pthread_t> owner{};
bool held_for_fork;  // guarded by log_mutex, from before the fork until after it

bool acquire() {
  if (owner.load(std::memory_order_relaxed) == pthread_self()) return false;
  pthread_mutex_lock(&log_mutex);
  owner.store(pthread_self(), std::memory_order_relaxed);
  return true;
}

void release() {
  owner.store(pthread_t{}, std::memory_order_relaxed);
  pthread_mutex_unlock(&log_mutex);
}

void before_fork() {
  const bool acquired = acquire();
  held_for_fork = acquired;
}

void after_fork() {
  if (held_for_fork) release();
}

void register_fork_handlers() { pthread_atfork(before_fork, after_fork, after_fork); }

}  // namespace

LogLock::LogLock() {
  static pthread_once_t registered = PTHREAD_ONCE_INIT;
  pthread_once(&registered, register_fork_handlers);
  acquired_ = acquire();
}

LogLock::~LogLock() {
  if (acquired_) release();
}

}  // namespace kelo::log
