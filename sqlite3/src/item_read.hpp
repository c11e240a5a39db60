// The verified read of an item.
#ifndef KELO_SQLITE3_ITEM_READ_HPP
#define KELO_SQLITE3_ITEM_READ_HPP

#include <cstdint>

#include "sqlite3/src/operation.hpp"

namespace kelo::store {

// What is read: a key of a table, into at most `size` bytes.
struct ItemRead {
  const char* table;
  const char* key;
  void* buf;
  int size;
};

// Reads the primary, which may be repaired, and returns the backup's value: the number of bytes, or a code of
// dm_sqlite_result.
int read_item(Operation& operation, const ItemRead& item);

// Reads one row's value and its stored checksum from a file, which may have the primary repaired, without verifying
// it.
int read_row(Operation& operation, const char* path, const ItemRead& item, std::uint32_t* crc);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_ITEM_READ_HPP
