// One row of an item: its checksum, and how it is stored, looked for and read.
#ifndef KELO_SQLITE3_ROW_HPP
#define KELO_SQLITE3_ROW_HPP

#include <cstdint>

#include "sqlite3/src/handles.hpp"

namespace kelo::store {

// The item tables hold all of it, the defaults tables all but id and crc.
struct Row {
  const char* table;
  std::int32_t id;
  const char* key;
  std::int32_t type;
  const void* value;
  int len;
};

// The checksum kept with an item's value. Its length counts bits, so it covers about an eighth of the bytes;
// every stored checksum was made that way.
std::int32_t value_crc(const void* value, int len);

enum class Presence { absent, present, unknown };

// Whether a row with this key is in the table. A failure to find out is logged.
Presence look_for_row(sqlite3* db, const char* table, const char* key);

// Store an item's row, and that of a default. What keeps a row from being stored is logged and not reported:
// the journal goes on, and the next write mends the row.
void store_item(sqlite3* db, const Row& row);
void store_default(sqlite3* db, const Row& row);

// Copies at most `size` bytes of the value in column 0 of the one row that `select` yields, and column 1 into
// `*second` when `second` is not null. Returns the bytes copied, or -1 when there is no row or its value is
// empty.
int fetch_value(const char* caller, sqlite3_stmt* select, void* buf, int size, std::uint32_t* second);

// Adds the columns `id` and `type` to a table of an older release. False, which is logged, when the table does not
// answer a select of both afterwards.
bool add_missing_columns(sqlite3* db, const char* table, const char* key);

// Leaves of the rows that share their key in a table of the file only the newest.
void remove_duplicate_rows(const char* path);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_ROW_HPP
