// SPDX-License-Identifier: MIT
// Writes and reads of single defaults.
#ifndef KELO_SQLITE3_DEFAULTS_HPP
#define KELO_SQLITE3_DEFAULTS_HPP

#include <cstdint>

#include "kelo_utils/data_manager.h"
#include "sqlite3/src/item_read.hpp"
#include "sqlite3/src/row.hpp"

namespace kelo::store {

// Returns the row that is stored for a default. Its length is -1 when the type is unknown.
Row default_row(const kelo_dm_item_desc& item, const void* value, int len);

// Writes one row. Returns 0 when its table exists, -1 for a negative length, a null member or a table that could not
// be made, and -101 when the database could not be opened.
int write_default(const Row& row);

// Reads the value and the type of one row. Returns the number of bytes or a code of dm_sqlite_result.
int read_default(const ItemRead& item, std::uint32_t* type);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_DEFAULTS_HPP
