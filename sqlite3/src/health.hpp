// SPDX-License-Identifier: MIT
// Checks whether a database file is damaged.
#ifndef KELO_SQLITE3_HEALTH_HPP
#define KELO_SQLITE3_HEALTH_HPP

namespace kelo::store {

enum class Health { healthy = 0, corrupt = 1, not_opened = -1, not_checked = -2 };

// Runs SQLite's quick check.
Health health_of(const char* path);

// Returns false when SQLite says that the file is not a database. It logs nothing.
bool is_database(const char* path);

// Sets the flag from one row of the check's result. Returns 0, so that SQLite continues.
int apply_check_row(int* is_corrupted, int ncols, char** values);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_HEALTH_HPP
