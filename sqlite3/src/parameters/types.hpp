// How a parameter's variable and the text of its cell turn into each other.
#ifndef KELO_SQLITE3_PARAMETERS_TYPES_HPP
#define KELO_SQLITE3_PARAMETERS_TYPES_HPP

#include <cstddef>
#include <cstdint>

#include "sqlite3/src/sql.hpp"

namespace kelo::params {

inline constexpr std::size_t kStatementSize = 256;
using StatementText = store::FixedText<kStatementSize>;

// Names one column of one table.
struct Column {
  const char* table;
  const char* name;
};

// Converts a cell's text, null for SQL's NULL, into a variable of `size` bytes. False, logged under `caller`,
// when the type is not one of the table or has no room in the variable, which is then left alone.
bool read_variable(const char* caller, std::uint32_t type, void* variable, std::uint32_t size,
                   const char* text);

enum class UpdateSpacing { table, cell };

// Writes the statement that stores a variable into `update`, which is empty. False, logged under `caller`, when there
// is no such statement.
bool write_update_of_variable(StatementText& update, const char* caller, UpdateSpacing form, Column column,
                              std::uint32_t type, const void* variable, std::uint32_t size);

// The same with the statement that stores a factory text, whatever the type.
bool write_update_of_factory_text(StatementText& update, const char* caller, Column column, const char* text);

// Logs that a column kept its value.
void log_failed_update(const char* caller, Column column);

}  // namespace kelo::params

#endif  // KELO_SQLITE3_PARAMETERS_TYPES_HPP
