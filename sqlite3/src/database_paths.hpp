// SPDX-License-Identifier: MIT
// Questions about the paths of the configuration databases. The paths themselves are exported.
#ifndef KELO_SQLITE3_DATABASE_PATHS_HPP
#define KELO_SQLITE3_DATABASE_PATHS_HPP

#include <cstring>

#include "kelo_utils/sqlite.h"

namespace kelo::store {

inline bool is_primary(const char* path) { return std::strcmp(path, DB_CONFIG) == 0; }
inline bool is_backup(const char* path) { return std::strcmp(path, DB_CONFIGBAK) == 0; }

// Returns whether both files are in the same directory.
bool same_directory(const char* path, const char* other);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_DATABASE_PATHS_HPP
