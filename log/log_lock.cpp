// SPDX-License-Identifier: MIT
// The lock around each log line. A fork() does not wait for it, and a child finds it free.
#include "log/log_lock.hpp"

#include <pthread.h>
#include <sched.h>
#include <sys/auxv.h>
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
// The thread that holds the lock, or zero. Only the thread itself stores its own id here, so the test for re-entry
// needs no memory ordering.
std::atomic<pthread_t> owner{};
int depth;     // guarded by log_mutex: how often its owner has entered
bool in_line;  // guarded by log_mutex
// The process that the lock and the sinks belong to. It is zero before the first message. While a thread of a child
// takes them over from the parent, it is the negative number of the child.
std::atomic<pid_t> process{};
// The flag that this points to is true when `process` is the calling process. It replaces the system call getpid(): the
// kernel clears its page in a forked child. The pointer is null before the first message, and where the kernel cannot
// clear a page.
std::atomic<std::atomic<bool>*> adopted{};

bool is_adopted() {
  const auto* const flag = adopted.load(std::memory_order_acquire);
  return flag != nullptr && flag->load(std::memory_order_acquire);
}

void set_adopted() {
  if (auto* const flag = adopted.load(std::memory_order_acquire))
    flag->store(true, std::memory_order_release);
}

void make_adopted_flag() {
  const base::ErrnoKeeper keep;  // the message may print errno
  const auto size = static_cast<std::size_t>(getauxval(AT_PAGESZ));
  void* const page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) return;
  // Some emulators accept every advice, even an invalid one, and ignore it.
  constexpr int kInvalidAdvice = -1;
  if (madvise(page, size, kInvalidAdvice) != 0 && madvise(page, size, MADV_WIPEONFORK) == 0) {
    adopted.store(new (page) std::atomic<bool>(true), std::memory_order_release);
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

void adopt_in_child() { adopt_log_state(getpid()); }

// The thread that called fork() is the first thread of the child. If it holds the lock, it keeps it. Any other owner
// does not exist in the child, although a new thread may have the same id.
void free_inherited_lock(pid_t this_process) {
  if (owner.load(std::memory_order_relaxed) == pthread_self() && get_tid() == this_process) return;
  pthread_mutex_init(&log_mutex, nullptr);
  owner.store(pthread_t{}, std::memory_order_relaxed);
  depth = 0;
  in_line = false;
}

}  // namespace

// The fork handler is registered with the first message and not on load, so that the library needs no constructor. Two
// threads that log their first messages at the same time may register it twice, which does no harm.
//
// In a child either that handler or the first message calls this function: a fork handler of the program may log
// earlier, and the handler does not run if fork() had begun before it was registered.
void adopt_log_state(pid_t this_process) {
  pid_t seen = process.load(std::memory_order_acquire);
  while (seen != this_process) {
    if (seen == 0) {
      pthread_atfork(nullptr, nullptr, adopt_in_child);
      if (!process.compare_exchange_strong(seen, this_process)) continue;
      make_adopted_flag();
      seen = this_process;
    } else if (seen == -this_process) {
      sched_yield();
      seen = process.load(std::memory_order_acquire);
    } else if (process.compare_exchange_strong(seen, -this_process)) {
      free_inherited_lock(this_process);
      detect_lost_sinks();
      process.store(this_process, std::memory_order_release);
      set_adopted();
      return;
    }
  }
}

LogLock::LogLock() {
  if (!is_adopted()) adopt_log_state(getpid());
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
