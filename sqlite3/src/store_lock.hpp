// The lock of a store of databases, which all processes of the device share.
#ifndef KELO_SQLITE3_STORE_LOCK_HPP
#define KELO_SQLITE3_STORE_LOCK_HPP

#include <optional>

#include "base/file.hpp"
#include "sqlite3/src/fork_gate.hpp"

namespace kelo::store {

enum class Access { kShared, kExclusive };

// The bytes of the lock file that are locked, each for itself.
enum class LockByte { kGate, kStore, kCopy };

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
  [[nodiscard]] bool exclusive() const { return access_ == Access::kExclusive; }
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

// A lock on the byte kCopy that a command inherits: while it is held, a copy of a process that died may still
// be under way. Empty when it cannot be had. Its holder closes it as soon as the command has started.
base::Descriptor lock_for_command(const char* database);

// Waits until no command holds that byte. False when one did for all of the store's patience.
[[nodiscard]] bool wait_for_commands(const char* database);

// Keeps other programs from writing a database through SQLite while the descriptor lives. Nothing when one of them
// held it for all of the patience. A database that cannot be opened has an empty descriptor.
std::optional<base::Descriptor> keep_writers_out(const char* database);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_STORE_LOCK_HPP
