// The lock around each log line, which forks neither wait for nor inherit held.
#include "log/log_lock.hpp"

#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <new>

#include "base/file.hpp"
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
// Says that the calling process is that one, without a system call: it lies in a page that the kernel empties in a child.
// Null before the first message, and where there is no such page.
std::atomic<std::atomic<bool>*> settled{};

bool is_settled() {
  const auto* const mark = settled.load(std::memory_order_acquire);
  return mark != nullptr && mark->load(std::memory_order_acquire);
}

void mark_as_settled() {
  if (auto* const mark = settled.load(std::memory_order_acquire))
    mark->store(true, std::memory_order_release);
}

void make_mark() {
  const base::ErrnoKeeper keep;  // the message may show errno
  const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* const page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) return;
  // Some emulators take every advice, one that does not exist too, and follow none.
  constexpr int kNoAdvice = -1;
  if (madvise(page, size, kNoAdvice) != 0 && madvise(page, size, MADV_WIPEONFORK) == 0) {
    settled.store(new (page) std::atomic<bool>(true), std::memory_order_release);
  } else {
    munmap(page, size);
  }
}

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
      if (!process.compare_exchange_strong(seen, this_process)) continue;
      make_mark();
      seen = this_process;
    } else if (seen == -this_process) {
      sched_yield();
      seen = process.load(std::memory_order_acquire);
    } else if (process.compare_exchange_strong(seen, -this_process)) {
      free_inherited_lock(this_process);
      settle_sinks();
      process.store(this_process, std::memory_order_release);
      mark_as_settled();
      return;
    }
  }
}

LogLock::LogLock() {
  if (!is_settled()) settle_in(getpid());
  enter();
  acquired_ = !in_line;
  if (!acquired_) return;
  in_line = true;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state_);
}

int LogLock::process() { return log::process.load(std::memory_order_relaxed); }

LogLock::~LogLock() {
  if (acquired_) in_line = false;
  leave();
  if (acquired_) pthread_setcancelstate(cancel_state_, nullptr);
}

}  // namespace kelo::log
