// SPDX-License-Identifier: MIT
// Questions about the paths of the configuration databases. The paths themselves are exported.
#ifndef KELO_SQLITE3_DATABASE_PATHS_HPP
#define KELO_SQLITE3_DATABASE_PATHS_HPP

#include <cstring>

#include "kelo_utils/sqlite.h"

namespace kelo::store {

// The exported paths. A program may have an object of its own in their place, so the code asks a table of the loader for
// their addresses. That takes 16 bytes on the device, and a call of these functions 4. The addresses never change, but the
// paths at them may.
[[gnu::const]] const char* primary_path();
[[gnu::const]] const char* backup_path();
[[gnu::const]] const char* journal_path();
[[gnu::const]] const char* defaults_path();

inline bool is_primary(const char* path) { return std::strcmp(path, primary_path()) == 0; }
inline bool is_backup(const char* path) { return std::strcmp(path, backup_path()) == 0; }

// Returns whether both files are in the same directory.
bool same_directory(const char* path, const char* other);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_DATABASE_PATHS_HPP
