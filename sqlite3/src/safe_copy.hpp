// SPDX-License-Identifier: MIT
// The safe copy of a database file, which is complete or undone after a power cut or on a full disk.
#ifndef KELO_SQLITE3_SAFE_COPY_HPP
#define KELO_SQLITE3_SAFE_COPY_HPP

#include "sqlite3/src/store_lock.hpp"

namespace kelo::store {

// Runs a shell command and returns whether it may have succeeded. The command inherits `copy_lock`. The function may
// close its own descriptor of the lock when the command has started.
using RunCommand = bool (*)(const char* command, ByteRangeLock& copy_lock);

// The parameters of a copy. The caller holds the lock of `store` exclusively.
struct CopyRequest {
  const char* store;  // primary file of the store, from which the lock file has its name
  const char* source;
  const char* target;
  RunCommand run;
};

// Copies a database over another with the shell's `cp` and syncs the copy. The target keeps its mode and its owner,
// and it stays a symbolic link when it is one. During the copy "<target>-previous" has the old content of the target.
// An empty "<target>-previous" means that the target did not exist.
//
// Returns false when the copy is not complete: the target has its old content then. The caller syncs the directory
// when the end of the copy must survive a power cut.
[[nodiscard]] bool copy_database(const CopyRequest& request);

// Returns whether a crash interrupted a copy to `target`.
bool copy_was_interrupted(const char* target);

// Restores the content that `target` had before an interrupted copy. The caller holds the store's lock exclusively,
// and no command may be writing the file.
void undo_interrupted_copy(const char* target);

// These find and delete the new file that a crash left before its copy began. The caller of remove_unused_copy()
// holds the store's lock exclusively.
bool unused_copy_exists(const char* target);
void remove_unused_copy(const char* target);

// Makes SQLite roll back a transaction that a crash interrupted, when its journal exists.
void roll_back_cut_transaction(const char* path);

// Returns the size of the file in bytes, 0 when it is missing, or -1 when that is unknown.
long long size_of(const char* path);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_SAFE_COPY_HPP
