// SPDX-License-Identifier: MIT
// Completes a write that a crash interrupted.
#include "sqlite3/src/start_up.hpp"

#include <optional>

#include "base/fatal.hpp"
#include "base/file.hpp"
#include "base/heap.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/item_read.hpp"
#include "sqlite3/src/item_write.hpp"
#include "sqlite3/src/journal.hpp"

namespace kelo::store {
namespace {

constexpr const char* kCaller = "dm_sqlite_check_database";

// Copies the journalled item from the primary to the backup when the primary has it undamaged.
int complete_backup(Operation& operation, const JournalRow& journal) {
  const JournalItem item = journal.item();
  const auto value = base::zeroed_array<char>(static_cast<std::size_t>(item.len));
  if (!value) base::fatal(base::kStoreCode);
  KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "dm_sqlite_check_database read primary\n");
  std::uint32_t crc = 0;
  const int len = read_row(operation, primary_path(), {item.table, item.key, value.get(), item.len}, &crc);
  if (len < 1 || value_crc(value.get(), len) != static_cast<std::int32_t>(crc)) return DM_SQLITE_FAILED;
  const Row row = {item.table,  static_cast<std::int32_t>(item.id),
                   item.key,    static_cast<std::int32_t>(item.type),
                   value.get(), len};
  const int written = write_row(backup_path(), row, OnCorruption::repair);
  static_cast<void>(base::sync_directory_of(backup_path()));
  return written;
}

}  // namespace

int complete_interrupted_write(Operation& operation) {
  const std::optional<JournalRow> row = read_journal();
  if (!row) return DM_SQLITE_FAILED;
  if (row->state == WS_BACKUP_DONE) {
    KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "dm_sqlite_check_database len: %d\n", row->len);
    KELO_LOG_AS(kCaller, LOG_LVL_DBUG, "dm_sqlite_check_database suc, no need sync\n");
    return 0;
  }
  // A write that stopped before its row was complete is neither repeated nor undone. The next write replaces it.
  if (row->len < 1 || row->state != WS_WRITE_DONE) return 0;
  return complete_backup(operation, *row);
}

}  // namespace kelo::store
