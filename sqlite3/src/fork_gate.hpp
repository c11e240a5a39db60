// What keeps a fork() of the program and the work with SQLite apart.
#ifndef KELO_SQLITE3_FORK_GATE_HPP
#define KELO_SQLITE3_FORK_GATE_HPP

namespace kelo::store {

// While one lives, its thread may call SQLite. A fork() of another thread waits until none lives, for five
// seconds at most: a child that was made in the middle of SQLite's work would find SQLite's own locks held.
// They may be nested.
class [[nodiscard]] SqliteUse {
 public:
  SqliteUse();
  ~SqliteUse();
  SqliteUse(const SqliteUse&) = delete;
  SqliteUse& operator=(const SqliteUse&) = delete;
};

// Suspends the thread's use of SQLite while it waits for a command, so that a fork() need not wait for that.
class [[nodiscard]] SqlitePause {
 public:
  SqlitePause();
  ~SqlitePause();
  SqlitePause(const SqlitePause&) = delete;
  SqlitePause& operator=(const SqlitePause&) = delete;

 private:
  int uses_;
};

// Whether this process may use SQLite through the library. It may not when it was forked although SQLite's
// work had not come to an end in time.
bool sqlite_usable();

// A descriptor that a child made by fork() must not keep, since the lock on its file would outlive the parent.
struct LockDescriptor {
  int fd = -1;
  LockDescriptor* next = nullptr;
};

// Opens a file for `entry`, which a child closes and sets to -1. Returns the descriptor, or -1 with errno set.
int open_closed_in_child(LockDescriptor& entry, const char* path, int flags, unsigned int mode);

void close_lock_descriptor(LockDescriptor& entry);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_FORK_GATE_HPP
