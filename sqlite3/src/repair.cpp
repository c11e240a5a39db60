// Replaces damaged databases by good ones.
#include "sqlite3/src/repair.hpp"

#include "base/file.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/health.hpp"
#include "sqlite3/src/safe_copy.hpp"
#include "sqlite3/src/shell.hpp"

namespace kelo::store {
namespace {

// Provisioned by other software of the device; the last source of recovery, never written here.
constexpr char kRecoveryCopy[] = "/kelonvbak/data/config.db";

// An empty file passes SQLite's check, but has nothing to give. A transaction that a crash cut off is rolled
// back first; the recovery copy belongs to others and is judged as it is.
bool good_source(const char* path) {
  if (path != kRecoveryCopy) roll_back_cut_transaction(path);
  return health_of(path) == Health::healthy && size_of(path) > 0;
}

bool replace(const char* caller, const char* words, const char* source, const char* target) {
  KELO_LOG_AS(caller, LOG_LVL_ERR, "%s %s %s", words, source, target);
  if (copy_database({DB_CONFIG, source, target, run_copy_command})) return true;
  KELO_LOG_AS(caller, LOG_LVL_ERR, "%s was not copied, %s is as it was\n", source, target);
  return false;
}

bool replace_primary(const char* caller, const char* words, const char* source) {
  return replace(caller, words, source, DB_CONFIG) && base::sync_directory_of(DB_CONFIG);
}

constexpr const char* kPlainWords = "ERROR: cp";

}  // namespace

void repair_primary(const char* caller, RepairWords words, const char* damaged) {
  if (good_source(DB_CONFIGBAK)) {
    // A backup in which a read met corruption replaces no good primary, whatever the check says of it.
    if (!is_backup(damaged) || !good_source(DB_CONFIG))
      replace_primary(caller, words.from_backup, DB_CONFIGBAK);
    return;
  }
  if (!is_primary(damaged) && good_source(DB_CONFIG)) return;
  if (good_source(kRecoveryCopy)) replace_primary(caller, words.from_recovery, kRecoveryCopy);
}

bool take_primary_from_backup(const char* caller) {
  return good_source(DB_CONFIGBAK) && replace_primary(caller, kPlainWords, DB_CONFIGBAK);
}

void replace_useless_primary(const char* caller) {
  if (size_of(DB_CONFIG) > 0 && !is_database(DB_CONFIG)) take_primary_from_backup(caller);
}

bool fill_empty_primary(const char* caller) {
  if (size_of(DB_CONFIG) > 0 || size_of(DB_CONFIGBAK) == 0) return true;
  roll_back_cut_transaction(DB_CONFIGBAK);
  Health health = health_of(DB_CONFIGBAK);
  // SQLite's check calls a page damaged whose read failed, if only once.
  if (health == Health::corrupt) health = health_of(DB_CONFIGBAK);
  if (health == Health::healthy) return replace_primary(caller, kPlainWords, DB_CONFIGBAK);
  // A backup that could not be looked at, for want of memory perhaps, may hold everything.
  return health == Health::corrupt || !is_database(DB_CONFIGBAK);
}

bool copy_primary_over_backup(const char* caller) {
  // Logged on the normal path, too: tools in the field look for this line.
  return replace(caller, kPlainWords, DB_CONFIG, DB_CONFIGBAK);
}

void refresh_backup(const char* caller) {
  if (good_source(DB_CONFIGBAK) || !good_source(DB_CONFIG)) return;
  if (copy_primary_over_backup(caller)) static_cast<void>(base::sync_directory_of(DB_CONFIGBAK));
}

}  // namespace kelo::store
