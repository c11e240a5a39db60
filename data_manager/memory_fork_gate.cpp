// SPDX-License-Identifier: MIT
// The fork gate of the data manager. A fork() waits for changes in memory, and changes wait for a fork().
#include "data_manager/memory_fork_gate.hpp"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

#include "base/deadline.hpp"
#include "data_manager/memory_items.hpp"
#include "data_manager/registry.hpp"

namespace kelo::dm {
namespace {

constexpr int kPatienceMilliseconds = 1000;
constexpr int kPauseMicroseconds = 200;

// A change and a fork that begin at the same time must not miss each other, so each side increments its own counter
// before it reads the other one.
std::atomic<int> running_changes{0};
std::atomic<int> running_forks{0};
// A program's fork handlers may make changes in the thread that forks. Such a change must not wait for its own fork.
thread_local int forks_of_this_thread = 0;
// The process in which the locks were initialised, or 0 before the first change.
std::atomic<pid_t> lock_owner{0};

// This is not inlined, since on the device an atomic addition is a loop between two barriers.
[[gnu::noinline]] void add_to(std::atomic<int>& counter, int change) { counter.fetch_add(change); }

void before_fork() {
  ++forks_of_this_thread;
  add_to(running_forks, 1);
  const base::Deadline deadline(kPatienceMilliseconds);
  while (running_changes.load() > 0 && deadline.pause(kPauseMicroseconds)) {
  }
}

void after_fork_in_parent() {
  --forks_of_this_thread;
  add_to(running_forks, -1);
}

// The first change registers the handlers, so that the library needs no constructor. Two threads may register them
// twice: each fork is counted twice then, when it begins and when it ends.
void register_fork_handlers() {
  if (lock_owner.load(std::memory_order_acquire) != 0) return;
  pthread_atfork(before_fork, after_fork_in_parent, initialise_inherited_locks);
  lock_owner.store(getpid(), std::memory_order_release);
}

bool another_thread_forks() { return running_forks.load() > forks_of_this_thread; }

}  // namespace

void initialise_inherited_locks() {
  const pid_t this_process = getpid();
  pid_t owner = lock_owner.load();
  if (owner == this_process || !lock_owner.compare_exchange_strong(owner, this_process)) return;
  running_changes.store(0);
  running_forks.store(0);
  forks_of_this_thread = 0;
  initialise_item_locks();
  initialise_item_list_lock();
}

MemoryChange::MemoryChange() {
  register_fork_handlers();
  add_to(running_changes, 1);
  if (!another_thread_forks()) return;
  const base::Deadline deadline(kPatienceMilliseconds);
  bool in_time = true;
  while (in_time && another_thread_forks()) {
    add_to(running_changes, -1);
    in_time = deadline.pause(kPauseMicroseconds);
    add_to(running_changes, 1);
  }
}

MemoryChange::~MemoryChange() { add_to(running_changes, -1); }

}  // namespace kelo::dm
