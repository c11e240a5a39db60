// The defaults database.
#ifndef KELO_SQLITE3_DEFAULTS_HPP
#define KELO_SQLITE3_DEFAULTS_HPP

#include <cstdint>

#include "kelo_utils/data_manager.h"
#include "sqlite3/src/item_read.hpp"
#include "sqlite3/src/row.hpp"

namespace kelo::store {

// A default in the form in which it is stored; a length of -1 for a type that there is not.
Row default_row(const kelo_dm_item_desc& item, const void* value, int len);

// Writes one row. Returns 0 once its table is there, -1 for a negative length, a null part or a table that could
// not be made, -101.
int write_default(const Row& row);

// Reads one row and its type.
int read_default(const ItemRead& item, std::uint32_t* type);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_DEFAULTS_HPP
