// SPDX-License-Identifier: MIT
// Repairs that replace a whole database file by another. Callers have exclusive access to the store.
#ifndef KELO_SQLITE3_REPAIR_HPP
#define KELO_SQLITE3_REPAIR_HPP

namespace kelo::store {

// The texts that a repair logs before the names of its two files. In the field they tell writes from reads.
struct RepairMessages {
  const char* from_backup;
  const char* from_recovery;
};
inline constexpr RepairMessages kWriteRepair = {"ERROR: cp", "ERROR: cp"};
inline constexpr RepairMessages kReadRepair = {"error: DB_CONFIG is damaged cp",
                                               "error: DB_CONFIG is damaged so cp"};

// Repairs the primary after `damaged` was found corrupt. The primary is replaced by the backup or, when that is not
// good, by the recovery copy. It stays when neither is good. A good primary stays when the backup was found corrupt,
// and the recovery copy never replaces a good primary. Lines are logged under `caller`.
void repair_primary(const char* caller, RepairMessages messages, const char* damaged);

// Replaces the primary by a good backup. Returns whether this was done.
bool take_primary_from_backup(const char* caller);

// Replaces a primary that is not an SQLite database by a good backup.
void replace_invalid_primary(const char* caller);

// Fills an empty or missing primary from a good backup before a row is written into it. Returns false when this
// failed or when the backup could not be checked. The row must not be written then: the next copy over the backup
// would delete all other rows.
[[nodiscard]] bool fill_empty_primary(const char* caller);

// Copies the primary over the backup and syncs the copy. A failure is logged, and the backup is unchanged then.
[[nodiscard]] bool copy_primary_over_backup(const char* caller);

// Replaces a damaged, empty or missing backup by a good primary.
void refresh_backup(const char* caller);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_REPAIR_HPP
