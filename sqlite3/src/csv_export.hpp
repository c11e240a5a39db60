// SPDX-License-Identifier: MIT
// The CSV export of one table and of a whole database.
#ifndef KELO_SQLITE3_CSV_EXPORT_HPP
#define KELO_SQLITE3_CSV_EXPORT_HPP

#include <sqlite3.h>

#include <cstdio>

namespace kelo::store {

// Writes the rows of one table to `out` and returns 0. The process ends when the table cannot be read, since that is
// an error of the program.
int export_table(sqlite3* db, const char* table, std::FILE* out);

// Appends to the CSV file the tables whose names are in one row of the list of tables.
void export_listed_tables(sqlite3* db, int count, char** names);

// Exports every table of a database into a new CSV file. Returns 0, or -101 when the database cannot be opened, or 4
// when the CSV file cannot be opened.
int export_database(const char* path);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_CSV_EXPORT_HPP
