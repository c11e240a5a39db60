// SPDX-License-Identifier: MIT
// Reads items and verifies them. Damaged databases are repaired during the read.
#include "sqlite3/src/item_read.hpp"

#include <sys/stat.h>

#include "base/heap.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/repair.hpp"
#include "sqlite3/src/row.hpp"
#include "sqlite3/src/safe_copy.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::store {
namespace {

constexpr const char* kRowCaller = "dm_read_db";

// A value must match its checksum. Callers get only three of the failures, and all others become a bad checksum.
int verified_result(int result, const void* value, std::uint32_t crc) {
  switch (result) {
    case DM_SQLITE_FAILED:
    case DM_SQLITE_NOT_PREPARED:
    case DM_SQLITE_NOT_OPENED:
      return result;
    default:
      return result > 0 && value_crc(value, result) == static_cast<std::int32_t>(crc) ? result
                                                                                      : DM_SQLITE_BAD_CRC;
  }
}

int read_verified(Operation& operation, const char* path, const ItemRead& item) {
  std::uint32_t crc = 0;
  const int result = read_row(operation, path, item, &crc);
  return verified_result(result, item.buf, crc);
}

// Every repair of a file changes at least one of these.
struct FileStamp {
  std::uint64_t inode;
  std::int64_t seconds;
  std::int64_t nanoseconds;
  bool operator==(const FileStamp&) const = default;
};

FileStamp stamp_of(const char* path) {
  struct stat status;
  if (stat(path, &status) != 0) return {};
  return {status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

// Returns whether a failed read means that the backup must be made again from the primary.
bool backup_is_unusable(const char* path, int code) {
  if (!is_backup(path)) return false;
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB ||
         (size_of(path) == 0 && size_of(primary_path()) > 0);
}

}  // namespace

int read_item(Operation& operation, const ItemRead& item) {
  // The primary is read only to find and repair its corruption. The value comes from the backup. The primary's value
  // has a buffer of its own: the end of a longer value must not follow the backup's value in `buf`, since callers of
  // the data manager do not learn the length.
  const auto primary_value = base::zeroed_array<char>(static_cast<std::size_t>(item.size));
  const int primary =
      read_verified(operation, primary_path(),
                    {item.table, item.key, primary_value ? primary_value.get() : item.buf, item.size});
  KELO_LOG_AS("dm_pal_read", LOG_LVL_DBUG, "rd ret  %d \n", primary);
  const int backup = read_verified(operation, backup_path(), item);
  if (backup > 0 || backup == DM_SQLITE_NOT_PREPARED || backup == DM_SQLITE_FAILED) return backup;
  return read_verified(operation, backup_path(), item);
}

int read_row(Operation& operation, const char* path, const ItemRead& item, std::uint32_t* crc) {
  const SqlText select(sql::kSelectItem, item.table, item.key);
  for (bool repaired = false;;) {
    if (!operation) return DM_SQLITE_NOT_OPENED;
    Connection db = open_database(kRowCaller, path);
    if (!db) return DM_SQLITE_NOT_OPENED;
    const PreparedStatement selected = prepare_to_read(db.get(), select.c_str());
    if (selected.ok()) return fetch_value(kRowCaller, selected.statement.get(), item.buf, item.size, crc);
    // Another process may repair the file before this one gets exclusive access. The repaired file is read again.
    if (selected.code == SQLITE_CORRUPT && !operation.exclusive()) {
      const FileStamp seen = stamp_of(path);
      db.reset();
      if (!operation.make_exclusive()) return DM_SQLITE_NOT_OPENED;
      if (!(stamp_of(path) == seen)) continue;
    }
    KELO_LOG_AS(kRowCaller, LOG_LVL_ERR, "[%d] sqlite3_prepare error, %d \n", __LINE__, selected.code);
    db.reset();
    if (selected.code == SQLITE_CORRUPT && !repaired) {
      repair_primary(kRowCaller, kReadRepair, path);
      repaired = true;
      continue;
    }
    if (backup_is_unusable(path, selected.code) && operation.make_exclusive()) refresh_backup(kRowCaller);
    return DM_SQLITE_NOT_PREPARED;
  }
}

}  // namespace kelo::store
