// SPDX-License-Identifier: MIT
// The lock of a store, which all processes of the device share, and locks on ranges of bytes of its files.
#ifndef KELO_SQLITE3_STORE_LOCK_HPP
#define KELO_SQLITE3_STORE_LOCK_HPP

#include "sqlite3/src/fork_gate.hpp"

namespace kelo::store {

enum class Access { shared, exclusive };

// Holds the lock of the store whose primary file is `database`. The lock is on the file "<database>-lock". Operations
// that only read share it. The kernel releases it when the process dies, and a child made by fork() does not have it.
// The wait for it ends after five seconds of monotonic time.
//
// A process that may not write the lock file reads without the lock. It may not write the databases either.
class [[nodiscard]] StoreLock {
 public:
  // A failure is logged under `caller`.
  StoreLock(const char* caller, const char* database, Access access);
  ~StoreLock();
  StoreLock(const StoreLock&) = delete;
  StoreLock& operator=(const StoreLock&) = delete;

  // Returns whether the operation may begin. Otherwise it must not touch a file.
  explicit operator bool() const { return held_; }
  [[nodiscard]] bool exclusive() const { return access_ == Access::exclusive; }
  // Returns whether there is a lock file. Without one the store can only be read.
  [[nodiscard]] bool locked() const { return file_.fd >= 0; }

  // Releases the shared lock and then takes the exclusive one. Other processes may change the files in between.
  // Returns false and holds no lock when the exclusive lock is not available in time.
  [[nodiscard]] bool make_exclusive();

 private:
  bool take();
  void release();

  const char* caller_;
  const char* database_;
  Access access_;
  bool held_ = false;
  LockDescriptor file_;
  SqliteUse use_;
};

// A lock on a range of bytes of a file. It is not the lock of an operation. A child made by fork() does not have it.
class [[nodiscard]] ByteRangeLock {
 public:
  ByteRangeLock() = default;
  ~ByteRangeLock();
  ByteRangeLock(const ByteRangeLock&) = delete;
  ByteRangeLock& operator=(const ByteRangeLock&) = delete;

  // Takes the lock that a copy command inherits. While it is held, the command of a process that has died may still
  // be writing.
  void announce_copy(const char* store);
  // Returns the descriptor that the command inherits, or -1 when there is none.
  [[nodiscard]] int descriptor() const { return file_.fd; }
  // Closes the descriptor of this process when the command has started. The command still holds the lock.
  void leave_to_command();

  // Waits until no command holds that lock. Returns false when the time for waiting is over.
  [[nodiscard]] bool wait_for_copies(const char* store);

  // Keeps other programs from writing a database through SQLite. Returns false when the time for waiting is over. A
  // database that cannot be opened needs no lock.
  [[nodiscard]] bool keep_writers_out(const char* database);

 private:
  LockDescriptor file_;
  long long start_ = 0;
  long long length_ = 0;
};

}  // namespace kelo::store

#endif  // KELO_SQLITE3_STORE_LOCK_HPP
