// SPDX-License-Identifier: MIT
// Replaces damaged databases by good copies.
#include "sqlite3/src/repair.hpp"

#include "base/file.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/database_paths.hpp"
#include "sqlite3/src/health.hpp"
#include "sqlite3/src/safe_copy.hpp"
#include "sqlite3/src/shell.hpp"

namespace kelo::store {
namespace {

// Other software of the device provides this file. It is the last source for a repair and is never written here.
constexpr char kRecoveryCopy[] = "/kelonvbak/data/config.db";

// An empty file passes SQLite's check, but it has no data to restore. The recovery copy belongs to other software, so
// no interrupted transaction is rolled back in it.
bool is_good_source(const char* path) {
  if (path != kRecoveryCopy) roll_back_cut_transaction(path);
  return health_of(path) == Health::healthy && size_of(path) > 0;
}

bool replace(const char* caller, const char* message, const char* source, const char* target) {
  KELO_LOG_AS(caller, LOG_LVL_ERR, "%s %s %s", message, source, target);
  if (copy_database({primary_path(), source, target, run_copy_command})) return true;
  KELO_LOG_AS(caller, LOG_LVL_ERR, "%s was not copied, %s is as it was\n", source, target);
  return false;
}

bool replace_primary(const char* caller, const char* message, const char* source) {
  return replace(caller, message, source, primary_path()) && base::sync_directory_of(primary_path());
}

constexpr const char* kPlainMessage = "ERROR: cp";

}  // namespace

void repair_primary(const char* caller, RepairMessages messages, const char* damaged) {
  if (is_good_source(backup_path())) {
    // The backup may pass the check although a read has found corruption in it. It must not replace a good primary
    // then.
    if (!is_backup(damaged) || !is_good_source(primary_path()))
      replace_primary(caller, messages.from_backup, backup_path());
    return;
  }
  if (!is_primary(damaged) && is_good_source(primary_path())) return;
  if (is_good_source(kRecoveryCopy)) replace_primary(caller, messages.from_recovery, kRecoveryCopy);
}

bool take_primary_from_backup(const char* caller) {
  return is_good_source(backup_path()) && replace_primary(caller, kPlainMessage, backup_path());
}

void replace_invalid_primary(const char* caller) {
  if (size_of(primary_path()) > 0 && !is_database(primary_path())) take_primary_from_backup(caller);
}

bool fill_empty_primary(const char* caller) {
  if (size_of(primary_path()) > 0 || size_of(backup_path()) == 0) return true;
  roll_back_cut_transaction(backup_path());
  Health health = health_of(backup_path());
  // SQLite's check reports damage also when a single read of a page has failed, so the check is repeated.
  if (health == Health::corrupt) health = health_of(backup_path());
  if (health == Health::healthy) return replace_primary(caller, kPlainMessage, backup_path());
  // A check that failed, for example for lack of memory, does not mean that the backup is useless.
  return health == Health::corrupt || !is_database(backup_path());
}

bool copy_primary_over_backup(const char* caller) {
  // Tools in the field search for this line, so it is logged although nothing is wrong.
  return replace(caller, kPlainMessage, primary_path(), backup_path());
}

void refresh_backup(const char* caller) {
  if (is_good_source(backup_path()) || !is_good_source(primary_path())) return;
  if (copy_primary_over_backup(caller)) static_cast<void>(base::sync_directory_of(backup_path()));
}

}  // namespace kelo::store
