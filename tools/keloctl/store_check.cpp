// SPDX-License-Identifier: MIT
// store check: SQLite's check of every database, and every row of each.
#include "tools/keloctl/store.hpp"

#include <cstdarg>
#include <cstring>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/sqlite.h"
#include "tools/keloctl/items.hpp"

namespace kelo::ctl {
namespace {

constexpr Column kColumns[] = {{"file", 9}, {"table", 12}, {"key", 20}, {"problem", 0}};

struct Check {
  Output& out;
  const StoreFile* file = nullptr;
  long long rows = 0;
  long long findings = 0;
  long long bad_checksums = 0;

  KELO_PRINTF(4, 5) void report(const char* table, const char* key, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    base::FixedText<160> problem;
    problem.vprint(format, arguments);
    va_end(arguments);
    ++findings;
    out.begin_record();
    out.text(file->name);
    out.text(table);
    out.text(key);
    out.text(problem.view(), Tone::bad);
    out.end_record();
  }
};

bool is_type(int type) { return type >= KELO_DM_TYPE_SCALAR1 && type <= KELO_DM_TYPE_BUFFER; }

// `before` is the key of the row before, to which rows of the same key come next.
void check_item(sqlite3_stmt* row, const char* table, base::TextBuilder& before, Check& check) {
  const char* const key = column_text(row, 0);
  const std::string_view value = column_bytes(row, 5);
  const int len = sqlite3_column_int(row, 3);
  ++check.rows;
  if (!is_plain_identifier(key)) check.report(table, key, "the key is no plain name");
  if (before.size() != 0 && before.view() == key) check.report(table, key, "the key has another row");
  if (sqlite3_column_type(row, 2) != SQLITE_NULL && !is_type(sqlite3_column_int(row, 2)))
    check.report(table, key, "the type is %d", sqlite3_column_int(row, 2));
  if (static_cast<std::size_t>(len) != value.size())
    check.report(table, key, "the length is %d, and the value has %zu bytes", len, value.size());
  if (value.empty() || matches_checksum(value, sqlite3_column_int(row, 4))) return;
  ++check.bad_checksums;
  check.report(table, key, "the value does not match its checksum");
}

int check_items(sqlite3* db, const char* table, Check& check) {
  const Statement rows = select_items(db, table);
  if (!rows) return sqlite3_errcode(db);
  char key[128] = "";
  int code = SQLITE_ROW;
  while ((code = sqlite3_step(rows.get())) == SQLITE_ROW) {
    base::FixedText<sizeof key> before("%s", key);
    check_item(rows.get(), table, before, check);
    base::TextBuilder(std::span<char>(key)).append(column_text(rows.get(), 0));
  }
  return code;
}

int check_defaults(sqlite3* db, const char* table, Check& check) {
  const Statement rows = prepare(db, "select key,type,len,value from \"%w\" order by key", table);
  if (!rows) return sqlite3_errcode(db);
  int code = SQLITE_ROW;
  while ((code = sqlite3_step(rows.get())) == SQLITE_ROW) {
    const char* const key = column_text(rows.get(), 0);
    const std::size_t size = column_bytes(rows.get(), 3).size();
    const int len = sqlite3_column_int(rows.get(), 2);
    ++check.rows;
    if (!is_plain_identifier(key)) check.report(table, key, "the key is no plain name");
    if (!is_type(sqlite3_column_int(rows.get(), 1)))
      check.report(table, key, "the type is %d", sqlite3_column_int(rows.get(), 1));
    if (static_cast<std::size_t>(len) != size)
      check.report(table, key, "the length is %d, and the value has %zu bytes", len, size);
  }
  return code;
}

int check_journal(sqlite3* db, const char* table, Check& check) {
  const Statement rows = prepare(db, "select key,item_table,item_key,state from \"%w\"", table);
  if (!rows) return sqlite3_errcode(db);
  int code = SQLITE_ROW;
  long long count = 0;
  while ((code = sqlite3_step(rows.get())) == SQLITE_ROW) {
    ++check.rows;
    const int state = sqlite3_column_int(rows.get(), 3);
    if (++count > 1) check.report(table, column_text(rows.get(), 0), "the journal has another row");
    if (state < WS_READY || state > WS_BACKUP_DONE)
      check.report(table, column_text(rows.get(), 0), "the state is %d", state);
  }
  return code;
}

int check_table(sqlite3* db, const char* table, Check& check) {
  if (check.file->rows == Rows::journal) return check_journal(db, table, check);
  return check.file->rows == Rows::defaults ? check_defaults(db, table, check)
                                            : check_items(db, table, check);
}

void check_tables(sqlite3* db, Check& check) {
  const Statement tables = prepare(db, kSelectTables);
  while (tables && sqlite3_step(tables.get()) == SQLITE_ROW) {
    const char* const table = column_text(tables.get(), 0);
    check.out.progress(base::FixedText<128>("%s %s", check.file->name, table).c_str());
    const int code = check_table(db, table, check);
    if (code != SQLITE_DONE) check.report(table, "", "the table cannot be read: %s", sqlite3_errstr(code));
  }
}

void check_one(const StoreFile& file, Check& check) {
  check.file = &file;
  check.out.progress(file.name);
  const Path path = file.is_copied ? effective(file.path) : Path("%s", file.path);
  const Database database = open_for_look(path.c_str());
  const Health health = check_database(database);
  if (health == Health::missing || health == Health::empty) {
    if (file.is_needed) check.report("", "", "%s is %s", path.c_str(), words_of(health));
  } else if (health != Health::healthy) {
    check.report("", "", "%s is %s: %s", path.c_str(), words_of(health),
                 database.db ? "SQLite's quick check" : database.text());
  }
  if (database.db) check_tables(database.db.get(), check);
}

int run_store_check(const Words& /*words*/, Output& out) {
  Look look;
  const int result = look.begin(out);
  if (result != kDone) return result;
  Check check{out};
  out.begin_list("problems", "problem", kColumns);
  for (const StoreFile& file : store_files()) check_one(file, check);
  out.progress("");
  out.end_list();
  out.number("rows", check.rows);
  out.number("findings", check.findings);
  if (check.findings == 0) {
    out.say("all is well");
    return kDone;
  }
  out.say("not all is well");
  out.error("the store has %lld findings", check.findings);
  return check.findings == check.bad_checksums ? kBadChecksum : kNo;
}

constexpr Command kCommands[] = {
    {"store", "status", "", "the journal, the files and the lock of the store", "", 0, 0, store_status},
    {"store", "check", "", "check every row of every database", "", 0, 0, run_store_check},
    {"store", "repair", "[--yes]", "say what can be repaired, and with --yes repair it", "yes", 0, 0,
     store_repair},
#ifndef KELO_NO_ADDITIONS
    {"store", "watch", "[--count N] [--timeout S]", "print what daemons change, as it happens",
     "count= timeout=", 0, 0, store_watch},
#endif
};

}  // namespace

std::span<const Command> store_commands() { return kCommands; }

std::span<const StoreFile> store_files() {
  static constexpr StoreFile kFiles[] = {
      {"primary", DB_CONFIG, Rows::items, true, true},
      {"backup", DB_CONFIGBAK, Rows::items, true, true},
      {"journal", DB_STATE, Rows::journal, false, false},
      {"defaults", DB_DEF_ITEMS, Rows::defaults, false, false},
      {"recovery", kRecoveryCopy, Rows::items, false, false},
  };
  return kFiles;
}

Health check_database(const Database& database) {
  if (!database.db) return database.health;
  const Statement check = prepare(database.db.get(), "pragma quick_check(1)");
  if (!check || sqlite3_step(check.get()) != SQLITE_ROW) return health_of(sqlite3_errcode(database.db.get()));
  return std::strcmp(column_text(check.get(), 0), "ok") == 0 ? Health::healthy : Health::damaged;
}

Health check_file(const char* path) { return check_database(open_for_look(path)); }

}  // namespace kelo::ctl
