// Storing one row: the steps that items and defaults, updates and inserts share.
#ifndef KELO_SQLITE3_ROWS_HPP
#define KELO_SQLITE3_ROWS_HPP

#include <cstdint>

#include "sqlite3/src/handles.hpp"

namespace kelo::store {

// One item as a row: the item tables hold all of it, the defaults tables all but id and crc.
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

// Who stores a row, for the log lines.
struct RowStep {
  const char* function;
  const char* code_label;  // stands before the result code: "rc: " or nothing
};

// Prepares `statement`, adds the columns that the table lacks when that fails and prepares once more, then
// binds the row's value and steps. Failures are logged, not reported: the journal goes on and the next write
// mends the row.
void store_row(const RowStep& step, sqlite3* db, const Row& row, const char* statement);

// Copies at most `size` bytes of the value in column 0 of the one row that `select` yields, and column 1 into
// `*second` when `second` is not null. Returns the bytes copied, or -1 when there is no row or its value is
// empty.
int fetch_value(const char* caller, sqlite3_stmt* select, void* buf, int size, std::uint32_t* second);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_ROWS_HPP
