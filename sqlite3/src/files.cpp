#include "sqlite3/src/files.hpp"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/copy.hpp"

char DB_CONFIG[DM_SQLITE_PATH_SIZE] = "/data/config.db";
char DB_CONFIGBAK[DM_SQLITE_PATH_SIZE] = "/data/configbak.db";
char DB_STATE[DM_SQLITE_PATH_SIZE] = "/data/state.db";
char DB_DEF_ITEMS[DM_SQLITE_PATH_SIZE] = "/data/DefItems.db";
char DB_EXPORT_CSV[DM_SQLITE_PATH_SIZE] = "/data/ExportCSV.csv";
char db_area[DM_SQLITE_AREA_SIZE] = "/data/";
char db_rst_bak[DM_SQLITE_PATH_SIZE] = "/mnt/vendor/nvdata/";

namespace kelo::store {
namespace {

constexpr std::size_t kLongestDirectory = 50;

}  // namespace

void repair_primary(const char* caller, const RepairWords& words) {
  const struct {
    const char* path;
    const char* words;
  } sources[] = {{DB_CONFIGBAK, words.from_backup}, {kRecoveryCopy, words.from_recovery}};
  for (const auto& source : sources) {
    if (check_database_health(source.path) != 0) continue;
    KELO_LOG_AS(caller, LOG_LVL_ERR, "%s %s %s", source.words, source.path, DB_CONFIG);
    copy_database(source.path, DB_CONFIG);
    sync_directory_of(DB_CONFIG);
    return;
  }
}

}  // namespace kelo::store

void sqlite_reg_store_area(const char* primary_dir, const char* backup_dir) {
  using kelo::store::kLongestDirectory;
  if (primary_dir != nullptr) {
    if (std::strlen(primary_dir) > kLongestDirectory) return;
    std::snprintf(DB_CONFIG, sizeof DB_CONFIG, "%sconfig.db", primary_dir);
    std::snprintf(DB_STATE, sizeof DB_STATE, "%sstate.db", primary_dir);
  }
  if (backup_dir != nullptr && std::strlen(backup_dir) <= kLongestDirectory) {
    std::snprintf(DB_CONFIGBAK, sizeof DB_CONFIGBAK, "%sconfigbak.db", backup_dir);
  }
}

int dm_pal_check_db_exist() {
  // A file that a crash left under its second name is there all the same.
  kelo::store::undo_interrupted_copy(DB_CONFIG);
  kelo::store::undo_interrupted_copy(DB_CONFIGBAK);
  if (access(DB_CONFIG, F_OK) != 0 || access(DB_CONFIGBAK, F_OK) != 0) return -1;
  KELO_LOG(LOG_LVL_WRN, "config && configbak all exist\n");
  return 0;
}
