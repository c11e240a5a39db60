// SPDX-License-Identifier: MIT
// The fork gate of the store: guards for calls of SQLite, and descriptors that a child must close.
#ifndef KELO_SQLITE3_FORK_GATE_HPP
#define KELO_SQLITE3_FORK_GATE_HPP

namespace kelo::store {

// A thread holds this guard while it calls SQLite. A fork() in another thread waits until no guard exists, for five
// seconds at most: otherwise the child could find SQLite's own locks held by threads that it does not have. Guards
// may be nested.
class [[nodiscard]] SqliteUse {
 public:
  SqliteUse();
  ~SqliteUse();
  SqliteUse(const SqliteUse&) = delete;
  SqliteUse& operator=(const SqliteUse&) = delete;
};

// Suspends the guards of this thread while it waits for a command, so that a fork() does not wait for the command.
class [[nodiscard]] SqlitePause {
 public:
  SqlitePause();
  ~SqlitePause();
  SqlitePause(const SqlitePause&) = delete;
  SqlitePause& operator=(const SqlitePause&) = delete;

 private:
  int nesting_;
};

// Returns whether this process may use SQLite through the library. The result is false in a child whose fork() did
// not wait until all calls of SQLite had ended.
bool process_may_use_sqlite();

// The descriptor of a lock. A child made by fork() must close it, since the lock would otherwise outlive the parent.
struct LockDescriptor {
  int fd = -1;
  LockDescriptor* next = nullptr;
};

// Opens a file and stores its descriptor in `entry`. A child closes it and sets it to -1. Returns the descriptor, or
// -1 with errno set.
int open_lock_descriptor(LockDescriptor& entry, const char* path, int flags, unsigned int mode);

void close_lock_descriptor(LockDescriptor& entry);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_FORK_GATE_HPP
