// The CSV export of a database.
#ifndef KELO_SQLITE3_CSV_EXPORT_HPP
#define KELO_SQLITE3_CSV_EXPORT_HPP

#include <sqlite3.h>

#include <cstdio>

namespace kelo::store {

// Writes the rows of one table to `out` and returns SQLite's result of preparing the select, which is 0: a table that
// cannot be read is a fatal programming error.
int export_table(sqlite3* db, const char* table, std::FILE* out);

// Appends the tables that one row of the list of tables names to the CSV file.
void export_listed_tables(sqlite3* db, int count, char** names);

// Exports every table of a database into a new CSV file. Returns 0, -101 when the database and 4 when the CSV file
// cannot be opened.
int export_database(const char* path);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_CSV_EXPORT_HPP
