// SPDX-License-Identifier: MIT
// Conversions between the variable of a parameter and the text of its cell.
#ifndef KELO_SQLITE3_PARAMETERS_TYPES_HPP
#define KELO_SQLITE3_PARAMETERS_TYPES_HPP

#include <cstddef>
#include <cstdint>

#include "sqlite3/src/sql.hpp"

namespace kelo::params {

inline constexpr std::size_t kStatementSize = 256;
using StatementText = store::FixedText<kStatementSize>;

// A column of a table.
struct Column {
  const char* table;
  const char* name;
};

// Converts the text of a cell, which is null for SQL's NULL, into a variable of `size` bytes. Returns false, and logs
// it under `caller`, when the type is unknown or the variable is too small. The variable is unchanged then.
bool read_variable(const char* caller, std::uint32_t type, void* variable, std::uint32_t size,
                   const char* text);

// The functions for tables and for single cells write update statements with different blanks.
enum class UpdateSpacing { table, cell };

// Writes the statement that stores a variable into the empty text `update`. Returns false, and logs it under
// `caller`, when there is no such statement.
bool write_update_of_variable(StatementText& update, const char* caller, UpdateSpacing spacing, Column column,
                              std::uint32_t type, const void* variable, std::uint32_t size);

// Does the same for a text from the factory database, with a parameter of any type.
bool write_update_of_factory_text(StatementText& update, const char* caller, Column column, const char* text);

// Logs that a column was not updated.
void log_failed_update(const char* caller, Column column);

}  // namespace kelo::params

#endif  // KELO_SQLITE3_PARAMETERS_TYPES_HPP
