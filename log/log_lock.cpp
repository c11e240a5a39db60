// The lock around each log line, which forks neither wait for nor inherit held.
#include "log/log_lock.hpp"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>

#include "kelo_utils/log.h"
#include "log/sinks.hpp"

namespace kelo::log {
namespace {

pthread_mutex_t log_mutex = PTHREAD_MUTEX_INITIALIZER;
// The thread inside the lock, zero while there is none. A thread finds its own id here only if it put it
// there, so the test for re-entry needs no ordering.
std::atomic<pthread_t> owner{};
int depth;     // guarded by log_mutex: how often its thread entered
bool in_line;  // guarded by log_mutex
// The process that lock and sinks belong to; the negative of its number while one of its threads takes them over from
// a parent; zero before the first message.
std::atomic<pid_t> process{};

void enter() {
  if (owner.load(std::memory_order_relaxed) != pthread_self()) {
    pthread_mutex_lock(&log_mutex);
    owner.store(pthread_self(), std::memory_order_relaxed);
  }
  ++depth;
}

void leave() {
  if (--depth > 0) return;
  owner.store(pthread_t{}, std::memory_order_relaxed);
  pthread_mutex_unlock(&log_mutex);
}

void settle_in_child() { settle_in(getpid()); }

// The thread that forked is the first of the child. It may be inside the lock, and goes on there. Another owner does
// not exist any more, though a new thread may have its number.
void free_inherited_lock(pid_t this_process) {
  if (owner.load(std::memory_order_relaxed) == pthread_self() && get_tid() == this_process) return;
  pthread_mutex_init(&log_mutex, nullptr);
  owner.store(pthread_t{}, std::memory_order_relaxed);
  depth = 0;
  in_line = false;
}

}  // namespace

// The fork handler is registered with the first message and not on load, so that the library has no constructor.
// Threads that begin at once register it twice, which does no harm.
//
// A child is settled by that handler, or by its first message: a handler of the program may log before ours runs, and
// ours does not run when the fork had begun before it was registered.
void settle_in(pid_t this_process) {
  pid_t seen = process.load(std::memory_order_acquire);
  while (seen != this_process) {
    if (seen == 0) {
      pthread_atfork(nullptr, nullptr, settle_in_child);
      if (process.compare_exchange_strong(seen, this_process)) return;
    } else if (seen == -this_process) {
      sched_yield();
      seen = process.load(std::memory_order_acquire);
    } else if (process.compare_exchange_strong(seen, -this_process)) {
      free_inherited_lock(this_process);
      settle_sinks();
      process.store(this_process, std::memory_order_release);
      return;
    }
  }
}

LogLock::LogLock() : process_(getpid()) {
  settle_in(process_);
  enter();
  acquired_ = !in_line;
  if (!acquired_) return;
  in_line = true;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state_);
}

LogLock::~LogLock() {
  if (acquired_) in_line = false;
  leave();
  if (acquired_) pthread_setcancelstate(cancel_state_, nullptr);
}

}  // namespace kelo::log
