// The journalled write of an item. Every function wants the store exclusively.
#ifndef KELO_SQLITE3_ITEM_WRITE_HPP
#define KELO_SQLITE3_ITEM_WRITE_HPP

#include <cstdint>

#include "sqlite3/src/row.hpp"

namespace kelo::store {

// Writes the row into the primary and copies that over the backup, with the journal's steps around both. Returns 0,
// or -1 when the primary could not be opened or given the item's table.
int write_item(std::uint32_t id, const Row& row);

enum class OnCorruption { repair, fail };

// Writes one row into a database file. Returns 0 once its table is there, -1 when that could not be made, -101 when
// the file could not be opened.
int write_row(const char* path, const Row& row, OnCorruption on_corruption);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_ITEM_WRITE_HPP
