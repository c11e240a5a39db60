// Keeps fork() and the work with SQLite apart, and frees in the child what only the parent's threads hold.
#include "sqlite3/src/fork_gate.hpp"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <utility>

#include "base/deadline.hpp"
#include "base/file.hpp"
#include "base/lock.hpp"
#include "sqlite3/src/mutex.hpp"
#include "sqlite3/src/parameters/mutexes.hpp"

namespace kelo::store {
namespace {

constexpr int kPatienceMilliseconds = 5000;
constexpr int kPauseMicroseconds = 200;

pthread_mutex_t gate = PTHREAD_MUTEX_INITIALIZER;
int threads_in_use;           // threads that use SQLite; guarded by gate
int forks_waiting;            // guarded by gate
LockDescriptor* descriptors;  // those that a child closes; guarded by gate
bool handlers_there;          // guarded by gate
std::atomic<bool> usable{true};
thread_local int uses;  // of the calling thread, one in another

int own_share() { return uses > 0 ? 1 : 0; }

void before_fork() {
  const base::Deadline deadline(kPatienceMilliseconds);
  pthread_mutex_lock(&gate);
  ++forks_waiting;
  while (threads_in_use > own_share()) {
    pthread_mutex_unlock(&gate);
    const bool in_time = deadline.pause(kPauseMicroseconds);
    pthread_mutex_lock(&gate);
    if (!in_time) break;
  }
}

void after_fork_in_parent() {
  --forks_waiting;
  pthread_mutex_unlock(&gate);
}

void after_fork_in_child() {
  if (threads_in_use > own_share()) usable.store(false, std::memory_order_relaxed);
  threads_in_use = own_share();
  forks_waiting = 0;
  while (descriptors != nullptr) {
    ::close(std::exchange(descriptors->fd, -1));
    descriptors = descriptors->next;
  }
  pthread_mutex_unlock(&gate);
  // A thread that forks in the middle of its own operation goes on with that in the child.
  if (uses > 0) return;
  for (pthread_mutex_t* const mutex : {&sqlite_mutex, &params::parameter_mutex, &params::cache_mutex})
    pthread_mutex_init(mutex, nullptr);
  params::forget_connections_of_parent();
}

// Registered with the first use and not on load, so that the library has no constructor. The gate is held.
void register_handlers() {
  if (std::exchange(handlers_there, true)) return;
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

void enter() {
  pthread_mutex_lock(&gate);
  register_handlers();
  // Lets a fork() that waits go first; that one gives up after a while.
  while (forks_waiting > 0) {
    pthread_mutex_unlock(&gate);
    static_cast<void>(base::Deadline(1).pause(kPauseMicroseconds));
    pthread_mutex_lock(&gate);
  }
  ++threads_in_use;
  pthread_mutex_unlock(&gate);
}

void leave() {
  const base::LockGuard lock(gate);
  --threads_in_use;
}

}  // namespace

SqliteUse::SqliteUse() {
  if (uses++ == 0) enter();
}

SqliteUse::~SqliteUse() {
  if (--uses == 0) leave();
}

SqlitePause::SqlitePause() : uses_(std::exchange(uses, 0)) {
  if (uses_ > 0) leave();
}

SqlitePause::~SqlitePause() {
  if (uses_ > 0) enter();
  uses = uses_;
}

bool sqlite_usable() { return usable.load(std::memory_order_relaxed); }

int open_closed_in_child(LockDescriptor& entry, const char* path, int flags, unsigned int mode) {
  const base::LockGuard lock(gate);
  register_handlers();
  entry.fd = base::retry_interrupted([=] { return ::open(path, flags, mode); });
  if (entry.fd >= 0) entry.next = std::exchange(descriptors, &entry);
  return entry.fd;
}

void close_lock_descriptor(LockDescriptor& entry) {
  const base::LockGuard lock(gate);
  if (entry.fd < 0) return;
  LockDescriptor** link = &descriptors;
  while (*link != &entry) link = &(*link)->next;
  *link = entry.next;
  ::close(std::exchange(entry.fd, -1));
}

}  // namespace kelo::store
