// SPDX-License-Identifier: MIT
// Reads the parameters: the row of each table of the user database, and beside each cell the one of the factory.
#include "tools/keloctl/parameters.hpp"

#include <cstring>
#include <utility>

#include "kelo_utils/sqlite.h"
#include "tools/keloctl/items.hpp"

namespace kelo::ctl {
namespace {

constexpr char kSelectRow[] = "select * from \"%w\" limit 1";

Cell cell_of(sqlite3_stmt* row, int column) {
  static constexpr const char* kTypes[] = {"", "integer", "real", "text", "blob", "null"};
  Cell cell;
  cell.there = true;
  const int type = sqlite3_column_type(row, column);
  cell.null = type == SQLITE_NULL;
  cell.type = kTypes[type];
  cell.text =
      type == SQLITE_BLOB ? shown_value(0, column_bytes(row, column)) : Bytes(column_text(row, column));
  return cell;
}

int column_named(sqlite3_stmt* row, const char* name) {
  for (int i = 0; i < sqlite3_column_count(row); ++i) {
    if (std::strcmp(sqlite3_column_name(row, i), name) == 0) return i;
  }
  return -1;
}

// A column that is declared as an integer holds numbers, and one without a type holds what is in it.
bool holds_number(sqlite3_stmt* row, int column) {
  const char* const declared = sqlite3_column_decltype(row, column);
  if (declared != nullptr) return sqlite3_strlike("%int%", declared, 0) == 0;
  return sqlite3_column_type(row, column) == SQLITE_INTEGER;
}

// Steps to the only row. Returns SQLite's code.
int step(const Statement& row) {
  const int code = sqlite3_step(row.get());
  return code == SQLITE_ROW || code == SQLITE_DONE ? SQLITE_OK : code;
}

bool is_usable(const Database& database, const char* path, Output& out) {
  if (database.db || database.health == Health::missing || database.health == Health::empty) return true;
  out.error("%s is %s: %s", path, words_of(database.health), database.text());
  return false;
}

}  // namespace

int find_parameter(const char* given, bool will_write, ParameterName& name, FoundParameter& found,
                   Output& out) {
  const char* const point = std::strchr(given, '.');
  const std::string_view table(given, point != nullptr ? static_cast<std::size_t>(point - given) : 0);
  const std::string_view column(point != nullptr ? point + 1 : "");
  name.table.append(table);
  name.name.append(column);
  if (!is_plain_identifier(table) || !is_plain_identifier(column) || name.table.cut() || name.name.cut()) {
    out.error("%s is not TABLE.NAME, two plain names of at most 63 characters", given);
    return kUsage;
  }
  Parameters parameters;
  int result = parameters.open(will_write, out);
  if (result != kDone) return result;
  bool there = false;
  result = parameters.each(name.table.c_str(), out, [&](Parameter& parameter) {
    if (column != parameter.name) return true;
    there = true;
    found = {parameter.is_number, parameter.state(), std::move(parameter.value),
             std::move(parameter.factory)};
    return false;
  });
  if (result != kDone || there) return result;
  out.error("there is no parameter %s", given);
  return kNo;
}

int Parameters::open(bool will_write, Output& out) {
  int result = look_.begin(out, kUserParameters);
  if (result != kDone) return result;
  result = open_databases(out);
  if (user_.health != Health::cut_off || !will_write) return result;
  look_.end();
  out.forget_error();
  kelo_db_exec_cmd("select 1 from sqlite_master", nullptr, nullptr, 0);
  result = look_.begin(out, kUserParameters);
  return result == kDone ? open_databases(out) : result;
}

int Parameters::open_databases(Output& out) {
  const Path user = effective(kUserParameters);
  user_ = open_for_look(user.c_str());
  factory_ = open_for_look(kFactoryParameters);
  if (!is_usable(user_, user.c_str(), out) || !is_usable(factory_, kFactoryParameters, out)) return kStorage;
  if (user_.db || factory_.db) return kDone;
  out.error("there are no parameters: neither %s nor %s has tables", kUserParameters, kFactoryParameters);
  return kNo;
}

int Parameters::visit(const char* table, Visitor visitor, void* context, Output& out) const {
  sqlite3* const db = user_.db ? user_.db.get() : factory_.db.get();
  const Statement tables = prepare(db, kSelectTables);
  bool ended = false;
  int code = tables ? SQLITE_ROW : sqlite3_errcode(db);
  while (!ended && tables && (code = sqlite3_step(tables.get())) == SQLITE_ROW) {
    const char* const name = column_text(tables.get(), 0);
    if (table != nullptr && std::strcmp(table, name) != 0) continue;
    const Statement row = prepare(db, kSelectRow, name);
    const Statement factory = factory_.db ? prepare(factory_.db.get(), kSelectRow, name) : Statement();
    if (!row || (code = step(row)) != SQLITE_OK || (factory && (code = step(factory)) != SQLITE_OK)) break;
    // A table without a row has no parameters.
    for (int i = 0; !ended && i < sqlite3_data_count(row.get()); ++i) {
      Parameter parameter{
          name, sqlite3_column_name(row.get(), i), holds_number(row.get(), i), cell_of(row.get(), i), {}};
      const bool has_factory = factory && sqlite3_data_count(factory.get()) > 0;
      const int column = has_factory ? column_named(factory.get(), parameter.name) : -1;
      if (column >= 0) parameter.factory = cell_of(factory.get(), column);
      ended = !visitor(parameter, context);
    }
  }
  if (ended || code == SQLITE_DONE) return kDone;
  out.error("a parameter could not be read: %s", sqlite3_errmsg(db));
  return kStorage;
}

}  // namespace kelo::ctl
