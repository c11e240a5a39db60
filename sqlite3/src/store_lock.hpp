// The lock of a store of databases, which all processes of the device share.
#ifndef KELO_SQLITE3_STORE_LOCK_HPP
#define KELO_SQLITE3_STORE_LOCK_HPP

#include "sqlite3/src/fork_gate.hpp"

namespace kelo::store {

enum class Access { shared, exclusive };

// Holds the lock of the store whose primary file is `database`, in the file "<database>-lock". Operations that
// only read share it. The kernel releases it when the process dies, and a child made by fork() does not have
// it. It is waited for during five seconds of monotonic time.
//
// A process that may not write the lock file reads without it: it may not write the databases either.
class [[nodiscard]] StoreLock {
 public:
  // What could not be had within the time is logged under `caller`.
  StoreLock(const char* caller, const char* database, Access access);
  ~StoreLock();
  StoreLock(const StoreLock&) = delete;
  StoreLock& operator=(const StoreLock&) = delete;

  // Whether the operation may begin; otherwise it must not touch a file.
  explicit operator bool() const { return held_; }
  [[nodiscard]] bool exclusive() const { return access_ == Access::exclusive; }
  // Whether there is a lock file: without one the store can only be read.
  [[nodiscard]] bool locked() const { return file_.fd >= 0; }

  // Gives up the shared lock and takes the exclusive one: others may have changed anything in between. False,
  // with nothing held, when that cannot be had in time.
  [[nodiscard]] bool make_exclusive();

 private:
  bool take();
  void give_up();

  const char* caller_;
  const char* database_;
  Access access_;
  bool held_ = false;
  LockDescriptor file_;
  SqliteUse use_;
};

// A lock on bytes of a file that is not the lock of an operation. A child made by fork() does not have it.
class [[nodiscard]] ByteLock {
 public:
  ByteLock() = default;
  ~ByteLock();
  ByteLock(const ByteLock&) = delete;
  ByteLock& operator=(const ByteLock&) = delete;

  // Takes a lock for a command to inherit that says that a copy is under way: while one is held, the copy of a
  // process that died may still be made.
  void announce_copy(const char* store);
  // The descriptor that the command is to inherit; -1 where there is none.
  [[nodiscard]] int descriptor() const { return file_.fd; }
  // Leaves the lock to the command alone, once that has started.
  void leave_to_command();

  // Waits until no command holds that lock. False when one did for all of the store's patience.
  [[nodiscard]] bool wait_for_copies(const char* store);

  // Keeps other programs from writing a database through SQLite. False when one of them held it for all of the
  // patience; a database that cannot be opened needs no lock.
  [[nodiscard]] bool keep_writers_out(const char* database);

 private:
  LockDescriptor file_;
  long long start_ = 0;
  long long length_ = 0;
};

}  // namespace kelo::store

#endif  // KELO_SQLITE3_STORE_LOCK_HPP
