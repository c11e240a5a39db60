// SPDX-License-Identifier: MIT
// The journalled write of an item and the write of one row. Callers have exclusive access to the store.
#ifndef KELO_SQLITE3_ITEM_WRITE_HPP
#define KELO_SQLITE3_ITEM_WRITE_HPP

#include <cstdint>

#include "sqlite3/src/row.hpp"

namespace kelo::store {

// Writes the row into the primary and copies the primary over the backup. The journal records the steps. Returns 0,
// or -1 when the primary could not be opened or the item's table could not be made.
int write_item(std::uint32_t id, const Row& row);

enum class OnCorruption { repair, fail };

// Writes one row into a database file. Returns 0 when its table exists, -1 when the table could not be made, and -101
// when the file could not be opened.
int write_row(const char* path, const Row& row, OnCorruption on_corruption);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_ITEM_WRITE_HPP
