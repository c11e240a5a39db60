// Which database is good enough to replace which, and the replacing. Every function wants the store exclusively.
#ifndef KELO_SQLITE3_REPAIR_HPP
#define KELO_SQLITE3_REPAIR_HPP

namespace kelo::store {

// What a repair says before it names its two files; the wording tells writes and reads apart in the field.
struct RepairWords {
  const char* from_backup;
  const char* from_recovery;
};
inline constexpr RepairWords kWriteRepair = {"ERROR: cp", "ERROR: cp"};
inline constexpr RepairWords kReadRepair = {"error: DB_CONFIG is damaged cp",
                                            "error: DB_CONFIG is damaged so cp"};

// Replaces the primary database by the first good one of the backup and the recovery copy, after `damaged` was
// found corrupt; leaves it when neither is good. A good primary stays when it is the backup that was found corrupt,
// and the recovery copy never replaces one. Logs under `caller`.
void repair_primary(const char* caller, RepairWords words, const char* damaged);

// Replaces the primary by the backup, if that is good. Whether the primary is whole now.
bool take_primary_from_backup(const char* caller);

// Replaces a primary that is no SQLite database by the backup, if that is good.
void replace_useless_primary(const char* caller);

// Makes an empty or missing primary anew from a good backup before a row goes into it. False when that failed, or when
// it could not be found out whether the backup is good: a row must not go in then, since the next copy would put it in
// the place of all others.
[[nodiscard]] bool fill_empty_primary(const char* caller);

// Copies the primary over the backup and syncs the copy. False, which is logged, when the backup is as it was.
[[nodiscard]] bool copy_primary_over_backup(const char* caller);

// Makes a damaged, empty or missing backup anew from the primary, if that is good.
void refresh_backup(const char* caller);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_REPAIR_HPP
