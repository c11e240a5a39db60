// SPDX-License-Identifier: MIT
// The data manager's hooks, which call the SQLite back-end.
// This object is not part of the library. A daemon gets it by linking kelo_utils_sqlite.
#include <cstdint>

#include "kelo_utils/sqlite.h"

// A link option of kelo_utils_sqlite asks for this symbol. So the linker takes this object from its archive before it
// finds the library's default hooks.
extern "C" const char kelo_utils_sqlite_hooks = 1;

void dm_pal_reg(std::int32_t /*id*/, kelo_dm_operations* operations) { sqlite_reg(operations); }

int dm_pal_reg_store_area(const char* primary_dir, const char* backup_dir) {
  sqlite_reg_store_area(primary_dir, backup_dir);
  return 0;
}

int dm_pal_check_db_version_match(int* matched) {
  sqlite_chk_db_ver_match(matched);
  return 0;
}

int dm_pal_check_db_health() { return check_database_health(DB_CONFIG); }
