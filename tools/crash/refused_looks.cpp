// SPDX-License-Identifier: MIT
// Replaces sqlite3_get_table() in a program that is linked so that the library calls this.
#include "tools/crash/refused_looks.hpp"

#include <sqlite3.h>

#include <string_view>

namespace {

bool refused = false;

}  // namespace

void kelo::crash::refuse_looks(bool refuse) { refused = refuse; }

extern "C" {
int real_get_table(sqlite3* db, const char* sql, char*** cells, int* rows, int* columns,
                   char** error) __asm__("__real_sqlite3_get_table");
int refusing_get_table(sqlite3* db, const char* sql, char*** cells, int* rows, int* columns,
                       char** error) __asm__("__wrap_sqlite3_get_table");

int refusing_get_table(sqlite3* db, const char* sql, char*** cells, int* rows, int* columns, char** error) {
  if (refused && std::string_view(sql).starts_with("select 1 from")) {
    *cells = nullptr;
    *rows = *columns = 0;
    *error = nullptr;
    return SQLITE_NOMEM;
  }
  return real_get_table(db, sql, cells, rows, columns, error);
}
}
