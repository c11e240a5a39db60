// SPDX-License-Identifier: MIT
// The fork gate of the store: fork() waits for calls of SQLite, and the child releases the locks of the parent.
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

pthread_mutex_t gate_mutex = PTHREAD_MUTEX_INITIALIZER;
int threads_using_sqlite;          // guarded by gate_mutex
int forks_waiting;                 // guarded by gate_mutex
LockDescriptor* lock_descriptors;  // a child closes them; guarded by gate_mutex
bool handlers_registered;          // guarded by gate_mutex
std::atomic<bool> process_may_use{true};
thread_local int nesting;  // nested uses of the calling thread

int own_count() { return nesting > 0 ? 1 : 0; }

void before_fork() {
  const base::Deadline deadline(kPatienceMilliseconds);
  pthread_mutex_lock(&gate_mutex);
  ++forks_waiting;
  while (threads_using_sqlite > own_count()) {
    pthread_mutex_unlock(&gate_mutex);
    const bool in_time = deadline.pause(kPauseMicroseconds);
    pthread_mutex_lock(&gate_mutex);
    if (!in_time) break;
  }
}

void after_fork_in_parent() {
  --forks_waiting;
  pthread_mutex_unlock(&gate_mutex);
}

void after_fork_in_child() {
  if (threads_using_sqlite > own_count()) process_may_use.store(false, std::memory_order_relaxed);
  threads_using_sqlite = own_count();
  forks_waiting = 0;
  while (lock_descriptors != nullptr) {
    ::close(std::exchange(lock_descriptors->fd, -1));
    lock_descriptors = lock_descriptors->next;
  }
  pthread_mutex_unlock(&gate_mutex);
  // A thread that forks during its own operation continues that operation in the child, with its locks.
  if (nesting > 0) return;
  for (pthread_mutex_t* const mutex : {&sqlite_mutex, &params::parameter_mutex, &params::cache_mutex})
    pthread_mutex_init(mutex, nullptr);
  params::forget_connections_of_parent();
}

// The first use registers the handlers, so that the library needs no constructor. The caller holds gate_mutex.
void register_handlers() {
  if (std::exchange(handlers_registered, true)) return;
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

void begin_use() {
  pthread_mutex_lock(&gate_mutex);
  register_handlers();
  // A waiting fork() goes first. This loop ends, since a fork() waits for a limited time.
  while (forks_waiting > 0) {
    pthread_mutex_unlock(&gate_mutex);
    static_cast<void>(base::Deadline(1).pause(kPauseMicroseconds));
    pthread_mutex_lock(&gate_mutex);
  }
  ++threads_using_sqlite;
  pthread_mutex_unlock(&gate_mutex);
}

void end_use() {
  const base::LockGuard lock(gate_mutex);
  --threads_using_sqlite;
}

}  // namespace

SqliteUse::SqliteUse() {
  if (nesting++ == 0) begin_use();
}

SqliteUse::~SqliteUse() {
  if (--nesting == 0) end_use();
}

SqlitePause::SqlitePause() : nesting_(std::exchange(nesting, 0)) {
  if (nesting_ > 0) end_use();
}

SqlitePause::~SqlitePause() {
  if (nesting_ > 0) begin_use();
  nesting = nesting_;
}

bool process_may_use_sqlite() { return process_may_use.load(std::memory_order_relaxed); }

int open_lock_descriptor(LockDescriptor& entry, const char* path, int flags, unsigned int mode) {
  const base::LockGuard lock(gate_mutex);
  register_handlers();
  entry.fd = base::retry_interrupted([=] { return ::open(path, flags, mode); });
  if (entry.fd >= 0) entry.next = std::exchange(lock_descriptors, &entry);
  return entry.fd;
}

void close_lock_descriptor(LockDescriptor& entry) {
  const base::LockGuard lock(gate_mutex);
  if (entry.fd < 0) return;
  LockDescriptor** link = &lock_descriptors;
  while (*link != &entry) link = &(*link)->next;
  *link = entry.next;
  ::close(std::exchange(entry.fd, -1));
}

}  // namespace kelo::store
