// SPDX-License-Identifier: MIT
// Single rows of items and defaults: their checksum, and functions that find, store and read them.
#ifndef KELO_SQLITE3_ROW_HPP
#define KELO_SQLITE3_ROW_HPP

#include <cstdint>

#include "sqlite3/src/handles.hpp"

namespace kelo::store {

// A row of an item. A row of a default has no id and no checksum.
struct Row {
  const char* table;
  std::int32_t id;
  const char* key;
  std::int32_t type;
  const void* value;
  int len;
};

// Returns the checksum that is stored with an item's value. The length is passed as a number of bits, so the checksum
// covers about an eighth of the bytes. This must stay, since all stored checksums were made like this.
std::int32_t value_crc(const void* value, int len);

enum class Presence { absent, present, unknown };

// Searches the table for a row with this key. A failed search is logged.
Presence look_for_row(sqlite3* db, const char* table, const char* key);

// These store the row of an item and of a default. Failures are logged but not returned: the write continues with the
// journal, and the next write of the item stores the row.
void store_item(sqlite3* db, const Row& row);
void store_default(sqlite3* db, const Row& row);

// Runs `select`, copies at most `size` bytes of the value in column 0, and stores column 1 in `*second` unless
// `second` is null. Returns the number of bytes, or -1 when there is no row or its value is empty.
int fetch_value(const char* caller, sqlite3_stmt* select, void* buf, int size, std::uint32_t* second);

// Adds the columns `id` and `type` to a table of an older release. Returns false, and logs it, when a select of both
// columns still fails.
bool add_missing_columns(sqlite3* db, const char* table, const char* key);

// Deletes all rows but the newest of each key, in every table of the file.
void remove_duplicate_rows(const char* path);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_ROW_HPP
