// SPDX-License-Identifier: MIT
// Reads the settings: the rows of the backup, and beside each the row of its default.
#include "tools/keloctl/items.hpp"

#include <cstring>
#include <utility>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/sqlite.h"
#include "tools/keloctl/command.hpp"

namespace kelo::ctl {
namespace {

constexpr char kSelectDefault[] = "select type,value from \"%w\" where key=?1 limit 1";
constexpr char kSelectDefaults[] = "select key,type,value from \"%w\" order by key";
constexpr char kSelectStored[] = "select 1 from \"%w\" where key=?1";

struct Visit {
  sqlite3* stored;    // may be null
  sqlite3* defaults;  // may be null
  Settings::Visitor visitor;
  void* context;
  bool ended = false;
};

State state_of(std::string_view value, int crc) {
  if (value.empty()) return State::empty;
  return matches_checksum(value, crc) ? State::set : State::bad_checksum;
}

// Runs a statement that has a key as its parameter. Returns whether it has a row.
bool find(const Statement& statement, const char* key) {
  if (!statement) return false;
  sqlite3_reset(statement.get());
  sqlite3_bind_text(statement.get(), 1, key, -1, SQLITE_STATIC);
  return sqlite3_step(statement.get()) == SQLITE_ROW;
}

int visit_stored(Visit& visit, const char* table) {
  const Statement rows = select_items(visit.stored, table);
  if (!rows) return sqlite3_errcode(visit.stored);
  const Statement fallback =
      visit.defaults != nullptr ? prepare(visit.defaults, kSelectDefault, table) : Statement();
  int code = SQLITE_ROW;
  while (!visit.ended && (code = sqlite3_step(rows.get())) == SQLITE_ROW) {
    Item item{};
    item.table = table;
    item.key = column_text(rows.get(), 0);
    item.has_id = sqlite3_column_type(rows.get(), 1) != SQLITE_NULL;
    item.id = sqlite3_column_int(rows.get(), 1);
    item.type = sqlite3_column_int(rows.get(), 2);
    item.stored = true;
    item.value = column_bytes(rows.get(), 5);
    item.state = state_of(item.value, sqlite3_column_int(rows.get(), 4));
    item.has_default = find(fallback, item.key);
    if (item.has_default) {
      if (item.type == 0) item.type = sqlite3_column_int(fallback.get(), 0);
      item.default_value = column_bytes(fallback.get(), 1);
    }
    visit.ended = !visit.visitor(item, visit.context);
  }
  return visit.ended ? SQLITE_DONE : code;
}

int visit_unset(Visit& visit, const char* table) {
  if (visit.defaults == nullptr) return SQLITE_DONE;
  const Statement rows = prepare(visit.defaults, kSelectDefaults, table);
  if (!rows) return SQLITE_DONE;  // the table has no defaults
  const Statement stored =
      visit.stored != nullptr ? prepare(visit.stored, kSelectStored, table) : Statement();
  int code = SQLITE_ROW;
  while (!visit.ended && (code = sqlite3_step(rows.get())) == SQLITE_ROW) {
    Item item{};
    item.table = table;
    item.key = column_text(rows.get(), 0);
    if (find(stored, item.key)) continue;
    item.state = State::unset;
    item.type = sqlite3_column_int(rows.get(), 1);
    item.has_default = true;
    item.default_value = column_bytes(rows.get(), 2);
    visit.ended = !visit.visitor(item, visit.context);
  }
  return visit.ended ? SQLITE_DONE : code;
}

bool has_table(sqlite3* db, const char* table) {
  const Statement found =
      db != nullptr ? prepare(db, "select 1 from sqlite_master where type='table' and name=?1") : Statement();
  return find(found, table);
}

int visit_table(Visit& visit, const char* table) {
  if (has_table(visit.stored, table)) {
    const int code = visit_stored(visit, table);
    if (code != SQLITE_DONE) return code;
  }
  return visit_unset(visit, table);
}

// The tables of `db`, without those of `other`.
int visit_tables(Visit& visit, sqlite3* db, sqlite3* other) {
  if (db == nullptr) return SQLITE_DONE;
  const Statement tables = prepare(db, kSelectTables);
  if (!tables) return sqlite3_errcode(db);
  int code = SQLITE_ROW;
  while (!visit.ended && (code = sqlite3_step(tables.get())) == SQLITE_ROW) {
    const char* const table = column_text(tables.get(), 0);
    if (std::strcmp(table, SQL_VER_TAB) == 0 || has_table(other, table)) continue;
    code = visit_table(visit, table);
    if (code != SQLITE_DONE) return code;
  }
  return visit.ended ? SQLITE_DONE : code;
}

}  // namespace

const char* words_of(State state) {
  static constexpr const char* kWords[] = {"set", "default", "empty", "bad checksum"};
  return kWords[static_cast<int>(state)];
}

bool is_plain_identifier(std::string_view name) {
  if (name.empty() || (name.front() >= '0' && name.front() <= '9')) return false;
  for (const char character : name) {
    const bool letter = (character | 0x20) >= 'a' && (character | 0x20) <= 'z';
    if (!letter && (character < '0' || character > '9') && character != '_') return false;
  }
  return true;
}

bool matches_checksum(std::string_view value, int crc) {
  const auto counted_bits = static_cast<std::uint16_t>(value.size() & 0xFFFFU);
  return kelo_dm_Crc32Calc(value.data(), counted_bits, 0) == crc;
}

std::string_view column_bytes(sqlite3_stmt* row, int column) {
  const void* const bytes = sqlite3_column_blob(row, column);
  const int length = sqlite3_column_bytes(row, column);
  if (bytes == nullptr) return {};
  return {static_cast<const char*>(bytes), static_cast<std::size_t>(length)};
}

const char* column_text(sqlite3_stmt* row, int column) {
  const unsigned char* const text = sqlite3_column_text(row, column);
  return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

Statement select_items(sqlite3* db, const char* table) {
  for (const char* const columns : {"id,type", "id,null", "null,type", "null,null"}) {
    const base::FixedText<96> sql("select key,%s,len,crc,value from \"%%w\" order by key,rowid", columns);
    Statement rows = prepare(db, sql.c_str(), table);
    if (rows || sqlite3_errcode(db) != SQLITE_ERROR) return rows;
  }
  return {};
}

int Settings::open(Output& out) {
  const int result = look_.begin(out);
  return result == kDone ? open_databases(out) : result;
}

int Settings::open_databases(Output& out) {
  const Path backup = effective(DB_CONFIGBAK);
  const Path primary = effective(DB_CONFIG);
  stored_ = open_for_look(backup.c_str());
  if (!stored_.db) {
    Database second = open_for_look(primary.c_str());
    if (second.db) {
      stored_ = std::move(second);
    } else if (stored_.health != Health::missing && stored_.health != Health::empty) {
      out.error("%s is %s: %s", backup.c_str(), words_of(stored_.health), stored_.text());
      return kStorage;
    } else if (second.health != Health::missing && second.health != Health::empty) {
      out.error("%s is %s: %s", primary.c_str(), words_of(second.health), second.text());
      return kStorage;
    }
  }
  defaults_ = open_for_look(DB_DEF_ITEMS);
  if (!defaults_.db && defaults_.health != Health::missing && defaults_.health != Health::empty) {
    out.error("%s is %s: %s", DB_DEF_ITEMS, words_of(defaults_.health), defaults_.text());
    return kStorage;
  }
  if (!stored_.db && !defaults_.db) {
    out.error("there is no store: neither %s nor %s has settings", primary.c_str(), DB_DEF_ITEMS);
    return kNo;
  }
  return kDone;
}

int Settings::visit(const char* table, Visitor visitor, void* context, Output& out) const {
  Visit visit{stored_.db.get(), defaults_.db.get(), visitor, context};
  int code = SQLITE_DONE;
  if (table != nullptr) {
    code = visit_table(visit, table);
  } else {
    code = visit_tables(visit, visit.stored, nullptr);
    if (code == SQLITE_DONE && !visit.ended) code = visit_tables(visit, visit.defaults, visit.stored);
  }
  if (code == SQLITE_DONE) return kDone;
  out.error("a setting could not be read: %s", sqlite3_errstr(code));
  return kStorage;
}

}  // namespace kelo::ctl
