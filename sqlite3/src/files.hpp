// The database files: the fixed recovery copy and the repair of the primary from one of
// them.
#ifndef KELO_SQLITE3_FILES_HPP
#define KELO_SQLITE3_FILES_HPP

namespace kelo::store {

// Provisioned by other software of the device; the last source of recovery, never written here.
inline constexpr char kRecoveryCopy[] = "/kelonvbak/data/config.db";

// What a repair says before it names its two files; the wording tells writes and reads apart in the field.
struct RepairWords {
  const char* from_backup;
  const char* from_recovery;
};
inline constexpr RepairWords kWriteRepair = {"ERROR: cp", "ERROR: cp"};
inline constexpr RepairWords kReadRepair = {"error: DB_CONFIG is damaged cp",
                                            "error: DB_CONFIG is damaged so cp"};

// Replaces the primary database by the first healthy one of the backup and the recovery copy; leaves it when
// neither is. Logs under `caller`.
void repair_primary(const char* caller, const RepairWords& words);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_FILES_HPP
