#include "log/log_lock.hpp"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace kelo::log {
namespace {

pthread_mutex_t log_mutex = PTHREAD_MUTEX_INITIALIZER;
// The thread inside the lock, zero while there is none. A thread finds its own id here only if it put it
// there, so the test for re-entry needs no ordering.
std::atomic<pthread_t> owner{};
int depth;     // guarded by log_mutex: how often its thread entered
bool in_line;  // guarded by log_mutex
// The process whose forks wait for the lock, zero before it was first entered.
std::atomic<pid_t> process{};

void begin_in(pid_t this_process);

void enter(pid_t this_process) {
  if (owner.load(std::memory_order_relaxed) != pthread_self()) {
    if (process.load(std::memory_order_acquire) != this_process) begin_in(this_process);
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

void enter_for_fork() { enter(getpid()); }

void leave_in_child() {
  process.store(getpid(), std::memory_order_release);
  leave();
}

// Registers the fork handlers with the first line and not on load, so that the library has no constructor.
// Threads that begin at once register them twice, which the depth allows for.
//
// A child that has a parent's number here comes from a fork that had begun before the handlers were there, and
// may have inherited the lock from a thread it does not have.
void begin_in(pid_t this_process) {
  if (process.load(std::memory_order_acquire) == 0) {
    pthread_atfork(enter_for_fork, leave, leave_in_child);
  } else {
    pthread_mutex_init(&log_mutex, nullptr);
    owner.store(pthread_t{}, std::memory_order_relaxed);
    depth = 0;
    in_line = false;
  }
  process.store(this_process, std::memory_order_release);
}

}  // namespace

LogLock::LogLock() : process_(getpid()) {
  enter(process_);
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
