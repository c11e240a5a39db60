// SPDX-License-Identifier: MIT
// Runs the statements that read and write parameters.
#ifndef KELO_SQLITE3_PARAMETERS_STATEMENTS_HPP
#define KELO_SQLITE3_PARAMETERS_STATEMENTS_HPP

#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/parameters/connection.hpp"
#include "sqlite3/src/parameters/mutexes.hpp"
#include "sqlite3/src/parameters/types.hpp"

namespace kelo::params {

// These log failures. After a success they close the user connection.
store::Rows search_by_table(Database database, const StatementText& select);
bool update_item_to_db(const StatementText& update);

// Stores a variable. Every failure is logged, also under `caller`.
bool store_variable(const char* caller, UpdateSpacing spacing, Column column, std::uint32_t type,
                    const void* variable, std::uint32_t size);

// Runs the update of one column. A failure is logged, also under `caller`.
bool store_column(const char* caller, Column column, const StatementText& update);

}  // namespace kelo::params

#endif  // KELO_SQLITE3_PARAMETERS_STATEMENTS_HPP
