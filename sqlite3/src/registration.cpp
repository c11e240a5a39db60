#include "base/lock.hpp"
#include "kelo_utils/sqlite.h"
#include "log/library_log.hpp"
#include "sqlite3/src/clean.hpp"
#include "sqlite3/src/mutex.hpp"
#include "sqlite3/src/version.hpp"

pthread_mutex_t kelo::store::sqlite_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

using namespace kelo::store;

constexpr kelo_dm_operations kOperations = {dm_sqlite_write,
                                            dm_sqlite_read,
                                            clean_slot,
                                            dm_sqlite_def_db_const,
                                            dm_sqlite_def_db_read,
                                            dm_sqlite_read_CfgDB_version,
                                            dm_sqlite_read_DefItemsDB_version};

bool registered;  // guarded by sqlite_mutex

// Writable: reading the defaults row stores the row's type in it. Guarded by sqlite_mutex.
kelo_dm_item_desc version_descriptor = {SQL_VER_TAB, SQL_VER_KEY, 0, 0, 0, 0};

int read_stored_version(std::uint32_t* version) {
  return dm_pal_read(SQL_VER_TAB, SQL_VER_KEY, version, kVersionLength);
}

int read_defaults_version(std::uint32_t* version) {
  return dm_sqlite_def_db_read(0, &version_descriptor, version, kVersionLength);
}

void compare_versions(const char* caller, std::uint32_t stored) {
  const auto library = static_cast<std::int32_t>(kVersion);
  const auto database = static_cast<std::int32_t>(stored);
  if (library == database) {
    KELO_LOG_AS(caller, LOG_LVL_DBUG, "sqlite_ver & database_ver is same\n");
    dm_sqlite_check_database();
  } else if (library < database) {
    KELO_LOG_AS(caller, LOG_LVL_DBUG, "sqlite_ver rollback to old,database is new\n");
  } else {
    KELO_LOG_AS(caller, LOG_LVL_DBUG, "sqlite_ver update to new,database is old\n");
    if (database == 0) KELO_LOG_AS(caller, LOG_LVL_DBUG, "database no update_cb ,clean db\n");
  }
}

void store_first_version(const char* caller) {
  KELO_LOG_AS(caller, LOG_LVL_DBUG, "database no ver_num\n");
  if (dm_pal_write(SQL_VER_TAB, SQL_VER_ID, SQL_VER_KEY, kVersionType, &kVersion, kVersionLength) != 0) {
    KELO_LOG_AS(caller, LOG_LVL_DBUG, "database wr ver_num fail\n");
  }
}

}  // namespace

void sqlite_reg(kelo_dm_operations* ops) {
  KELO_LOG(LOG_LVL_DBUG, "sqlite_reg\n");
  if (ops == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return;
  }
  *ops = kOperations;
  const kelo::base::LockGuard lock(sqlite_mutex);
  if (registered) {
    KELO_LOG(LOG_LVL_DBUG, "sqlite_already reg\n");
    return;
  }
  registered = true;

  std::uint32_t stored = 0;
  const int result = read_stored_version(&stored);
  if (result >= 1) {
    compare_versions(__func__, stored);
  } else if (result == DM_SQLITE_NOT_PREPARED) {
    store_first_version(__func__);
  } else if (result == DM_SQLITE_BAD_CRC || result == DM_SQLITE_NOT_OPENED) {
    KELO_LOG(LOG_LVL_DBUG, "database bad err,clean db\n");
  } else {
    KELO_LOG(LOG_LVL_DBUG, "database other err\n");
  }
}

int dm_sqlite_read_CfgDB_version(uint32_t* ver) {
  if (ver == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  const kelo::base::LockGuard lock(sqlite_mutex);
  return read_stored_version(ver);
}

int dm_sqlite_read_DefItemsDB_version(uint32_t* ver) {
  if (ver == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return DM_SQLITE_FAILED;
  }
  const kelo::base::LockGuard lock(sqlite_mutex);
  return read_defaults_version(ver);
}

void sqlite_chk_db_ver_match(int* matched) {
  if (matched == nullptr) return;
  const kelo::base::LockGuard lock(sqlite_mutex);
  std::uint32_t cfg_ver = 0;
  if (read_stored_version(&cfg_ver) < 0) {
    KELO_LOG(LOG_LVL_ERR, "tmp_sqlite_ver read fail\n");
    return;
  }
  KELO_LOG(LOG_LVL_DBUG, "tmp_sqlite_ver %x\n", cfg_ver);
  std::uint32_t def_ver = 0;
  if (read_defaults_version(&def_ver) < 0) {
    KELO_LOG(LOG_LVL_ERR, "tmp_DefItems_db_ver read fail\n");
    return;
  }
  KELO_LOG(LOG_LVL_DBUG, "tmp_DefItems_db_ver %x\n", def_ver);
  *matched = def_ver == kVersion && cfg_ver == def_ver ? 1 : 0;
  if (*matched == 0) {
    KELO_LOG(LOG_LVL_ERR, " sqlite_chk_db_ver_not_matched \n");
  } else {
    KELO_LOG(LOG_LVL_ERR, " sqlite_chk_db_ver_matched \n");
  }
}
