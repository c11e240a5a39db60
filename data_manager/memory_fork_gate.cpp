// Keeps fork() and changes of what the data manager holds in memory apart.
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

// Each side first counts itself and then looks for the other, so that at least one of two sees the other.
std::atomic<int> changes{0};
std::atomic<int> forks{0};
// Forks of the calling thread, whose own fork handlers may change what is held here.
thread_local int own_forks = 0;
// The process to which the locks belong, 0 before the first change.
std::atomic<pid_t> process{0};

// One function, since each count is a loop between two barriers.
[[gnu::noinline]] void count(std::atomic<int>& counter, int by) { counter.fetch_add(by); }

void before_fork() {
  ++own_forks;
  count(forks, 1);
  const base::Deadline deadline(kPatienceMilliseconds);
  while (changes.load() > 0 && deadline.pause(kPauseMicroseconds)) {
  }
}

void after_fork_in_parent() {
  --own_forks;
  count(forks, -1);
}

// Registered with the first change and not on load, so that the library has no constructor. Threads that
// begin at once register them twice, which the counts allow for.
void register_fork_handlers() {
  if (process.load(std::memory_order_acquire) != 0) return;
  pthread_atfork(before_fork, after_fork_in_parent, renew_inherited_locks);
  process.store(getpid(), std::memory_order_release);
}

bool another_thread_forks() { return forks.load() > own_forks; }

}  // namespace

void renew_inherited_locks() {
  const pid_t this_process = getpid();
  pid_t owner = process.load();
  if (owner == this_process || !process.compare_exchange_strong(owner, this_process)) return;
  changes.store(0);
  forks.store(0);
  own_forks = 0;
  renew_item_locks();
  renew_item_list_lock();
}

MemoryChange::MemoryChange() {
  register_fork_handlers();
  count(changes, 1);
  if (!another_thread_forks()) return;
  const base::Deadline deadline(kPatienceMilliseconds);
  bool in_time = true;
  while (in_time && another_thread_forks()) {
    count(changes, -1);
    in_time = deadline.pause(kPauseMicroseconds);
    count(changes, 1);
  }
}

MemoryChange::~MemoryChange() { count(changes, -1); }

}  // namespace kelo::dm
