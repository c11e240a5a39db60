// SPDX-License-Identifier: MIT
// The verified read of an item and the read of one row.
#ifndef KELO_SQLITE3_ITEM_READ_HPP
#define KELO_SQLITE3_ITEM_READ_HPP

#include <cstdint>

#include "sqlite3/src/operation.hpp"

namespace kelo::store {

// A read of one key of a table. At most `size` bytes are stored in `buf`.
struct ItemRead {
  const char* table;
  const char* key;
  void* buf;
  int size;
};

// Reads the primary, which may repair it, and then the value of the backup. Returns the number of bytes or a code of
// dm_sqlite_result.
int read_item(Operation& operation, const ItemRead& item);

// Reads the value of one row and its stored checksum, and does not compare them. The primary may be repaired.
int read_row(Operation& operation, const char* path, const ItemRead& item, std::uint32_t* crc);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_ITEM_READ_HPP
