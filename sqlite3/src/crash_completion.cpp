#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "base/fatal.hpp"
#include "base/heap.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/fatal_path.hpp"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/rows.hpp"
#include "sqlite3/src/sql.hpp"

namespace {

using namespace kelo::store;

constexpr char kCaller[] = "dm_sqlite_check_database";

// A table name or a key as the journal holds it; a longer one than an item can have reads as empty.
class JournalledName {
 public:
  explicit JournalledName(const char* text) {
    const std::size_t length = std::strlen(text);
    if (length < name_.size()) std::memcpy(name_.data(), text, length);
  }
  [[nodiscard]] const char* c_str() const { return name_.data(); }

 private:
  std::array<char, 33> name_{};
};

struct JournalRow {
  JournalledName item_table;
  JournalledName item_key;
  std::uint32_t id;
  std::uint32_t type;
  int len;
  int state;
};

int number(const char* text) { return static_cast<int>(std::strtol(text, nullptr, 10)); }

// Selects the journal row, adding columns that an older release left out.
std::optional<Rows> select_journal(sqlite3* db) {
  const SqlText select(sql::kSelectJournal, sql::kJournalTable, sql::kJournalKey);
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "szSql %s\n", select.c_str());
  Rows first = select_rows(db, select.c_str());
  if (first.outcome.ok()) return first;
  KELO_LOG_AS(kCaller, LOG_LVL_WRN, "errmsg %s\n", first.outcome.text());
  if (std::strstr(first.outcome.text(), "no such column") == nullptr) return {};
  if (alter_table_add_column(db, sql::kJournalTable, sql::kJournalKey) != 0) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "alter_table_add_column failed\n");
    return {};
  }
  Rows second = select_rows(db, select.c_str());
  if (!second.outcome.ok()) return {};
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "szSql select success, nRow, %d, nColumn: %d\n", second.rows,
              second.columns);
  return second;
}

// The journal's row; nothing when there is none, or when it lacks a value as after a column was added to it.
std::optional<JournalRow> first_row(const Rows& found) {
  constexpr int kColumns = 6;
  if (found.rows < 1 || found.columns < kColumns) return {};
  for (int column = 0; column < kColumns; ++column) {
    if (found.cell(0, column) == nullptr) return {};
  }
  return JournalRow{JournalledName(found.cell(0, 0)),
                    JournalledName(found.cell(0, 1)),
                    static_cast<std::uint32_t>(number(found.cell(0, 2))),
                    static_cast<std::uint32_t>(number(found.cell(0, 3))),
                    number(found.cell(0, 4)),
                    number(found.cell(0, 5))};
}

void log_row(const JournalRow& row) {
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "read item_table %s\n", row.item_table.c_str());
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "read item_key %s\n", row.item_key.c_str());
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "read id %d\n", static_cast<int>(row.id));
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "read type %d\n", static_cast<int>(row.type));
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "read len %d\n", row.len);
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "read state %d\n", row.state);
}

std::optional<JournalRow> read_journal() {
  const Database db = open_database(kCaller, DB_STATE);
  if (!db) return {};
  const std::optional<Rows> found = select_journal(db.get());
  if (!found) return {};
  const std::optional<JournalRow> row = first_row(*found);
  if (row) log_row(*row);
  return row;
}

// Carries the journalled item from the primary over to the backup, if the primary holds it undamaged.
int complete_backup(const JournalRow& row) {
  const char* const table = row.item_table.c_str();
  const char* const key = row.item_key.c_str();
  const auto value = kelo::base::zeroed_array<char>(static_cast<std::size_t>(row.len));
  if (!value) kelo::base::fatal(kFatalPath, __LINE__);
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "dm_sqlite_check_database read primary\n");
  std::uint32_t crc = 0;
  const int len = dm_read_db(DB_CONFIG, table, key, value.get(), &crc, row.len);
  if (len < 1 || value_crc(value.get(), len) != static_cast<std::int32_t>(crc)) return DM_SQLITE_FAILED;
  return dm_write_db(DB_CONFIGBAK, table, row.id, key, row.type, value.get(), len);
}

}  // namespace

int dm_sqlite_check_database() {
  const std::optional<JournalRow> row = read_journal();
  if (!row) return DM_SQLITE_FAILED;
  if (row->state == WS_BACKUP_DONE) {
    KELO_LOG(LOG_LVL_DBUG, "dm_sqlite_check_database len: %d\n", row->len);
    KELO_LOG(LOG_LVL_DBUG, "dm_sqlite_check_database suc, no need sync\n");
    return 0;
  }
  // A write that stopped before its row was complete is neither redone nor undone: the next write takes its
  // place.
  if (row->len < 1 || row->state != WS_WRITE_DONE) return 0;
  return complete_backup(*row);
}
