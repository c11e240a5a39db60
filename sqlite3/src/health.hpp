// Whether a database file is whole.
#ifndef KELO_SQLITE3_HEALTH_HPP
#define KELO_SQLITE3_HEALTH_HPP

namespace kelo::store {

enum class Health { healthy = 0, corrupt = 1, not_opened = -1, not_checked = -2 };

// Runs SQLite's quick check.
Health health_of(const char* path);

// Whether the file can be read as a database at all. Nothing is logged.
bool is_database(const char* path);

// Takes one row of the check's answer: the flag speaks of the last row afterwards. Returns 0.
int take_check_row(int* is_corrupted, int ncols, char** values);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_HEALTH_HPP
