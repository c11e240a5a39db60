// SPDX-License-Identifier: MIT
// The paths of the configuration databases, and the function that changes their directories.
#include "sqlite3/src/database_paths.hpp"

#include <cstring>
#include <string_view>

#include "base/text_builder.hpp"

char DB_CONFIG[DM_SQLITE_PATH_SIZE] = "/data/config.db";
char DB_CONFIGBAK[DM_SQLITE_PATH_SIZE] = "/data/configbak.db";
char DB_STATE[DM_SQLITE_PATH_SIZE] = "/data/state.db";
char DB_DEF_ITEMS[DM_SQLITE_PATH_SIZE] = "/data/DefItems.db";
char DB_EXPORT_CSV[DM_SQLITE_PATH_SIZE] = "/data/ExportCSV.csv";
char db_area[DM_SQLITE_AREA_SIZE] = "/data/";
char db_rst_bak[DM_SQLITE_PATH_SIZE] = "/mnt/vendor/nvdata/";

namespace {

using kelo::base::TextBuilder;

// substr() would link the C++ run time.
std::string_view directory_of(std::string_view path) { return {path.data(), path.rfind('/') + 1}; }

}  // namespace

const char* kelo::store::primary_path() { return DB_CONFIG; }
const char* kelo::store::backup_path() { return DB_CONFIGBAK; }
const char* kelo::store::journal_path() { return DB_STATE; }
const char* kelo::store::defaults_path() { return DB_DEF_ITEMS; }

bool kelo::store::same_directory(const char* path, const char* other) {
  return directory_of(path) == directory_of(other);
}

void sqlite_reg_store_area(const char* primary_dir, const char* backup_dir) {
  constexpr std::size_t kLongestDirectory = 50;
  if (primary_dir != nullptr) {
    if (std::strlen(primary_dir) > kLongestDirectory) return;
    TextBuilder(DB_CONFIG).print("%sconfig.db", primary_dir);
    TextBuilder(DB_STATE).print("%sstate.db", primary_dir);
  }
  if (backup_dir != nullptr && std::strlen(backup_dir) <= kLongestDirectory) {
    TextBuilder(DB_CONFIGBAK).print("%sconfigbak.db", backup_dir);
  }
}
