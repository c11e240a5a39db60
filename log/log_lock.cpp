#include "log/log_lock.hpp"

#include <pthread.h>

#include <atomic>

namespace kelo::log {
namespace {

pthread_mutex_t log_mutex = PTHREAD_MUTEX_INITIALIZER;
// The thread inside the lock, zero while there is none. A thread finds its own id here only if it put it
// there, so the test for re-entry needs no ordering.
std::atomic<pthread_t> owner{};
bool held_for_fork;  // guarded by log_mutex

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

// A fork from the print callback finds the lock held by its own thread; the callback's line releases it then,
// in the parent and in the child.
void before_fork() { held_for_fork = acquire(); }

void after_fork() {
  if (held_for_fork) release();
}

// On load, so that fork handlers which a program registers run outside this pair and may log.
[[gnu::constructor]] void register_fork_handlers() { pthread_atfork(before_fork, after_fork, after_fork); }

}  // namespace

LogLock::LogLock() : acquired_(acquire()) {
  if (acquired_) pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state_);
}

LogLock::~LogLock() {
  if (!acquired_) return;
  release();
  pthread_setcancelstate(cancel_state_, nullptr);
}

}  // namespace kelo::log
