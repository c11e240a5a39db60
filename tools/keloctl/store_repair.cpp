// SPDX-License-Identifier: MIT
// store repair: lets the library repair what it can, as the start of a daemon and its next write do.
#include <cstdint>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/sqlite.h"
#include "tools/keloctl/channel.hpp"
#include "tools/keloctl/items.hpp"
#include "tools/keloctl/store.hpp"

namespace kelo::ctl {
namespace {

constexpr Column kColumns[] = {{"step", 0}};

struct Faults {
  bool left_overs = false;
  bool journal = false;
  bool differ = false;
  long long bad_rows = 0;
  Health primary = Health::healthy;
  Health backup = Health::healthy;
  Health recovery = Health::healthy;

  [[nodiscard]] bool any() const {
    return left_overs || journal || differ || bad_rows != 0 || primary != Health::healthy ||
           backup != Health::healthy;
  }
};

// A file that was cut off is good again when SQLite has rolled it back.
bool is_usable(Health health) { return health == Health::healthy || health == Health::cut_off; }

long long count_bad_rows(const char* path) {
  const Database database = open_for_look(path);
  const Statement tables = database.db ? prepare(database.db.get(), kSelectTables) : Statement();
  long long bad = 0;
  while (tables && sqlite3_step(tables.get()) == SQLITE_ROW) {
    const Statement rows = select_items(database.db.get(), column_text(tables.get(), 0));
    while (rows && sqlite3_step(rows.get()) == SQLITE_ROW) {
      const std::string_view value = column_bytes(rows.get(), 5);
      if (!value.empty() && !matches_checksum(value, sqlite3_column_int(rows.get(), 4))) ++bad;
    }
  }
  return bad;
}

int find_faults(Faults& faults, Output& out) {
  Look look;
  const int result = look.begin(out);
  if (result != kDone) return result;
  const Path primary = effective(DB_CONFIG);
  const Path backup = effective(DB_CONFIGBAK);
  faults.left_overs = has_left_overs();
  faults.journal = !journal_is_complete();
  faults.primary = check_file(primary.c_str());
  faults.backup = check_file(backup.c_str());
  faults.recovery = check_file(kRecoveryCopy);
  faults.bad_rows = count_bad_rows(primary.c_str()) + count_bad_rows(backup.c_str());
  faults.differ = faults.primary == Health::healthy && faults.backup == Health::healthy &&
                  !same_bytes(primary.c_str(), backup.c_str());
  return kDone;
}

void print_step(bool needed, const char* text, Output& out) {
  if (!needed) return;
  out.begin_record();
  out.text(text);
  out.end_record();
}

void print_steps(const Faults& faults, Output& out) {
  const bool primary_good = is_usable(faults.primary);
  const bool backup_good = is_usable(faults.backup);
  out.begin_list("steps", "step", kColumns);
  print_step(faults.left_overs, "undo what an interrupted change has left", out);
  print_step(faults.journal, "end the write that the journal says was not completed", out);
  print_step(!primary_good && backup_good, "make the primary anew from the backup", out);
  print_step(!primary_good && !backup_good, "make the primary anew from the recovery copy", out);
  print_step(!backup_good, "make the backup anew from the primary", out);
  print_step(faults.bad_rows != 0, "take rows that do not match their checksums from the other file", out);
  print_step(faults.any(), "store the version record again, and copy the primary over the backup", out);
  out.end_list();
}

// The start of a daemon undoes and completes, the reads make damaged files anew, and the write mends rows, copies the
// primary over the backup and completes the journal.
void repair() {
  kelo_dm_unreg(kelo_dm_reg(0));
  std::uint32_t version = 0;
  for (int i = 0; i < 2; ++i) {
    if (dm_sqlite_read_CfgDB_version(&version) != static_cast<int>(sizeof version)) continue;
    // A database of another release keeps its version.
    if (version == SQL_VER)
      dm_pal_write(SQL_VER_TAB, SQL_VER_ID, SQL_VER_KEY, KELO_DM_TYPE_SCALAR3, &version, sizeof version);
    return;
  }
}

bool has_a_source(const Faults& faults) {
  return is_usable(faults.primary) || is_usable(faults.backup) || faults.recovery == Health::healthy;
}

int report_left(const Faults& faults, Output& out) {
  out.flag("repaired", !faults.any());
  if (!faults.any()) return kDone;
  const bool only_rows = faults.bad_rows != 0 && !faults.left_overs && !faults.journal && !faults.differ &&
                         faults.primary == Health::healthy && faults.backup == Health::healthy;
  if (waited_in_vain())
    out.error("the store was not repaired: %s", reason_of_failure());
  else
    out.error("not all could be repaired: store check says what is left");
  if (waited_in_vain()) return kTimeOut;
  return only_rows ? kBadChecksum : kStorage;
}

}  // namespace

int store_repair(const Words& words, Output& out) {
  Faults faults;
  int result = find_faults(faults, out);
  if (result != kDone) return result;
  if (!faults.any()) {
    out.begin_list("steps", "step", kColumns);
    out.end_list();
    out.say("all is well");
    return kDone;
  }
  if (!has_a_source(faults)) {
    out.error("neither the primary nor the backup nor the recovery copy is good: nothing can be repaired");
    return kStorage;
  }
  print_steps(faults, out);
  if (words.option("yes") == nullptr) {
    out.error("nothing was changed: --yes takes these steps");
    return kNo;
  }
  repair();
  Faults left;
  result = find_faults(left, out);
  return result == kDone ? report_left(left, out) : result;
}

}  // namespace kelo::ctl
