// Whole-file copies of a database that neither a power cut nor a full disk leaves half-made.
#ifndef KELO_SQLITE3_SAFE_COPY_HPP
#define KELO_SQLITE3_SAFE_COPY_HPP

#include "sqlite3/src/store_lock.hpp"

namespace kelo::store {

// Runs a shell command, and tells whether it may have done its work. The command is to inherit `under_way`, which may
// be left to it as soon as it has started.
using RunCommand = bool (*)(const char* command, ByteLock& under_way);

// How a copy is made, and under which lock. The caller holds the lock of `store` exclusively.
struct CopyOrder {
  const char* store;  // primary file of the store, which names the lock
  const char* source;
  const char* target;
  RunCommand run;
};

// Copies a database over another with the shell's `cp`, and syncs the copy. The target keeps its mode, its
// owner and, where it is a symbolic link, that. While the copy is made, "<target>-previous" holds what the
// target held before; an empty one says that there was nothing.
//
// False when the copy did not come out whole: the target holds then what it held before. The caller syncs the
// directory when it needs the end of the copy to survive a power cut.
[[nodiscard]] bool copy_database(const CopyOrder& order);

// Whether a copy to `target` was interrupted by a crash.
bool copy_was_interrupted(const char* target);

// Puts back what `target` held before a copy that was interrupted. The caller holds the store's lock exclusively,
// and no command works on the file any more.
void undo_interrupted_copy(const char* target);

// The new file of a copy that a crash cut off before it had begun: whether it is there, and its removal. The caller
// of the second holds the store's lock exclusively.
bool unused_copy_is_there(const char* target);
void remove_unused_copy(const char* target);

// Has SQLite roll back a transaction that a crash cut off, if one lies beside `path`.
void roll_back_cut_transaction(const char* path);

// Bytes of the file; 0 when it is missing, -1 when that cannot be told.
long long size_of(const char* path);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_SAFE_COPY_HPP
