// SPDX-License-Identifier: MIT
// Forecasts what the store makes of damaged files: its rules, played through on where the content of each
// file stems from.
#ifndef KELO_TESTS_REPAIR_FORECAST_HPP
#define KELO_TESTS_REPAIR_FORECAST_HPP

#include <sqlite3.h>

#include <optional>

namespace kelo::tests {

// Where the content of a file stems from.
enum class Origin { current, older, fresh, damaged };

struct File {
  Origin origin;
  int item_query = SQLITE_OK;     // result of preparing a statement on the items' table
  int version_query = SQLITE_OK;  // and on the version's
  bool table_made = true;         // the items' table is there or can be created
  bool healthy = true;            // passes the quick check
  bool empty = false;             // has 0 bytes

  [[nodiscard]] bool corrupt() const { return item_query == SQLITE_CORRUPT; }
  [[nodiscard]] bool no_database() const { return item_query == SQLITE_NOTADB; }
  // May take the place of another file.
  [[nodiscard]] bool good() const { return healthy && !empty; }
};

class Forecast {
 public:
  Forecast(File primary, File backup, std::optional<File> recovery)
      : primary_(primary), backup_(backup), recovery_(recovery) {}

  // The start-up reads the version, and stores it when the backup's table cannot be asked. Otherwise a primary that
  // is no database is replaced.
  void start_up() {
    const bool version_lost = backup_.version_query != SQLITE_OK;
    read();
    if (version_lost) {
      write();
    } else if (primary_.no_database() && backup_.good()) {
      primary_ = backup_;
    }
  }
  // Any read: the primary first, then the backup, which is made anew from a good primary when it is lost.
  void read() {
    if (primary_.corrupt()) repair();
    if (backup_.corrupt() && !primary_.good()) repair();
    if ((backup_.corrupt() || backup_.no_database() || backup_.empty) && primary_.good()) backup_ = primary_;
  }
  // Whether the write reports success.
  bool write() {
    // A primary that takes no rows is replaced as an empty one is.
    if ((primary_.empty || primary_.item_query == SQLITE_ERROR) && backup_.good()) primary_ = backup_;
    if (primary_.corrupt()) repair();
    if (!primary_.table_made) return false;
    // Damage that the quick check misses is copied; damage that it sees keeps the backup as it is.
    if (primary_.origin == Origin::damaged) {
      backup_may_be_damaged_ = true;
    } else {
      backup_ = {primary_.origin};
      backup_may_be_damaged_ = false;
    }
    return true;
  }
  // Which values the reads return; nothing when the backup is damaged, so that they may fail.
  [[nodiscard]] std::optional<Origin> served() const {
    if (backup_.origin == Origin::damaged || backup_may_be_damaged_) return {};
    return backup_.origin;
  }

 private:
  void repair() {
    if (backup_.good()) {
      primary_ = backup_;
    } else if (recovery_) {
      primary_ = *recovery_;
    }
  }

  File primary_;
  File backup_;
  std::optional<File> recovery_;
  bool backup_may_be_damaged_ = false;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_REPAIR_FORECAST_HPP
