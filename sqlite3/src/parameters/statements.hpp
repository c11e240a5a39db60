// The statements that read and write parameters, and the lock that serialises the operations made of them.
#ifndef KELO_SQLITE3_PARAMETER_STATEMENTS_HPP
#define KELO_SQLITE3_PARAMETER_STATEMENTS_HPP

#include <pthread.h>

#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/parameter_connection.hpp"
#include "sqlite3/src/parameter_types.hpp"

namespace kelo::params {

// Held for the whole of an operation on parameters.
extern pthread_mutex_t parameter_mutex;

// Failures are logged. After a success no user connection is kept.
store::Rows search_by_table(Which which, const StatementText& select);
bool update_item_to_db(const StatementText& update);

// Runs the update of one column; its failure is logged under `caller` too.
bool store_column(const char* caller, Column column, const StatementText& update);

}  // namespace kelo::params

#endif  // KELO_SQLITE3_PARAMETER_STATEMENTS_HPP
