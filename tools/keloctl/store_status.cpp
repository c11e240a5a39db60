// SPDX-License-Identifier: MIT
// store status: the state of the journal, of the files and of the lock, in words.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "kelo_utils/sqlite.h"
#include "tools/keloctl/items.hpp"
#include "tools/keloctl/lock_holder.hpp"
#include "tools/keloctl/store.hpp"

namespace kelo::ctl {
namespace {

constexpr Column kFileColumns[] = {{"file", 9}, {"health", 11}, {"size", 8}, {"path", 0}};
constexpr Column kLeftOverColumns[] = {{"path", 36}, {"meaning", 0}};

// Counts what is wrong while it is printed.
struct Report {
  Output& out;
  int findings = 0;

  void finding(bool wrong) { findings += wrong ? 1 : 0; }
};

long long size_of(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0 ? static_cast<long long>(status.st_size) : -1;
}

Health print_file(const StoreFile& file, Report& report) {
  const Path path = file.is_copied ? effective(file.path) : Path("%s", file.path);
  const Health health = check_file(path.c_str());
  const bool wrong =
      health == Health::missing || health == Health::empty ? file.is_needed : health != Health::healthy;
  report.finding(wrong);
  const long long size = size_of(path.c_str());
  report.out.begin_record();
  report.out.text(file.name);
  report.out.text(words_of(health), wrong ? Tone::bad : health == Health::healthy ? Tone::good : Tone::plain);
  if (size >= 0)
    report.out.number(size);
  else
    report.out.nothing();
  report.out.text(path.view());
  report.out.end_record();
  return health;
}

void print_journal_row(sqlite3_stmt* row, Report& report) {
  const base::FixedText<96> item("%s.%s", column_text(row, 0), column_text(row, 1));
  const int id = sqlite3_column_int(row, 2);
  const int state = sqlite3_column_int(row, 3);
  const char* words = "is in a state that no write has";
  if (state == WS_BACKUP_DONE) words = "is complete";
  if (state == WS_WRITE_DONE) words = "is in the primary: the next start of a daemon completes the backup";
  if (state == WS_READY) words = "was begun: its value may be in the primary, and reads give the old one";
  report.finding(state != WS_BACKUP_DONE);
  if (report.out.human()) {
    report.out.text("journal",
                    base::FixedText<256>("the last write, of %s (id %d), %s", item.c_str(), id, words).view(),
                    state == WS_BACKUP_DONE ? Tone::plain : Tone::bad);
    return;
  }
  report.out.text("journal", words);
  report.out.number("journal_state", state);
  report.out.text("journal_item", item.view());
  report.out.number("journal_id", id);
}

Statement select_journal(sqlite3* db) {
  return prepare(db, "select item_table,item_key,id,state from state where key='write_state'");
}

void print_journal(Report& report) {
  const Database journal = open_for_look(DB_STATE);
  if (!journal.db) {
    const bool there = journal.health != Health::missing && journal.health != Health::empty;
    report.out.text("journal", there ? "cannot be read" : "no write was recorded",
                    there ? Tone::bad : Tone::plain);
    return;  // the list of files counts it
  }
  const Statement row = select_journal(journal.db.get());
  if (row && sqlite3_step(row.get()) == SQLITE_ROW)
    print_journal_row(row.get(), report);
  else
    report.out.text("journal", "no write was recorded");
}

void print_version(Report& report) {
  const Database database = open_for_look(effective(DB_CONFIGBAK).c_str());
  const Statement row = database.db ? prepare(database.db.get(),
                                              "select value from " SQL_VER_TAB " where key='" SQL_VER_KEY "'")
                                    : Statement();
  std::uint32_t version = 0;
  std::string_view value;
  if (row && sqlite3_step(row.get()) == SQLITE_ROW) value = column_bytes(row.get(), 0);
  if (value.size() != sizeof version) {
    report.out.nothing("version");
    return;
  }
  std::memcpy(&version, value.data(), sizeof version);
  const bool other = version != SQL_VER;
  report.finding(other);
  report.out.text("version",
                  base::FixedText<64>("0x%08x%s", version, other ? ", not that of this library" : "").view(),
                  other ? Tone::bad : Tone::plain);
}

struct LeftOver {
  const char* suffix;
  const char* meaning;
};
constexpr LeftOver kLeftOvers[] = {
    {"-journal", "a change was cut off: SQLite undoes it when the file is next written"},
    {"-previous", "a copy was interrupted: the next operation puts this old content back"},
    {"-new", "a copy was cut off before it began: the next one deletes this file"},
};

// Calls `visit` with each file that is left, and what it means.
template <typename Visit>
void each_left_over(Visit visit) {
  for (const char* const file : {DB_CONFIG, DB_CONFIGBAK, DB_STATE, DB_DEF_ITEMS}) {
    for (const LeftOver& known : kLeftOvers) {
      const Path path("%s%s", file, known.suffix);
      if (size_of(path.c_str()) >= 0) visit(path, known.meaning);
    }
  }
}

void print_left_overs(Report& report) {
  report.out.begin_list("left_overs", "left_over", kLeftOverColumns);
  each_left_over([&](const Path& path, const char* meaning) {
    report.finding(true);
    report.out.begin_record();
    report.out.text(path.view(), Tone::bad);
    report.out.text(meaning);
    report.out.end_record();
  });
  report.out.end_list();
}

void print_agreement(bool comparable, Report& report) {
  if (!comparable) {
    report.out.nothing("agree");
    return;
  }
  const bool agree = same_bytes(effective(DB_CONFIG).c_str(), effective(DB_CONFIGBAK).c_str());
  report.finding(!agree);
  report.out.flag("agree", agree);
}

}  // namespace

bool same_bytes(const char* one, const char* other) {
  const base::Descriptor first = base::open_file(one, O_RDONLY);
  const base::Descriptor second = base::open_file(other, O_RDONLY);
  if (!first || !second) return false;
  std::array<char, 4096> left;
  std::array<char, 4096> right;
  for (;;) {
    const std::size_t length = base::read_all(first.get(), left);
    if (base::read_all(second.get(), right) != length || std::memcmp(left.data(), right.data(), length) != 0)
      return false;
    if (length == 0) return true;
  }
}

bool has_left_overs() {
  bool found = false;
  each_left_over([&](const Path&, const char*) { found = true; });
  return found;
}

bool journal_is_complete() {
  const Database journal = open_for_look(DB_STATE);
  if (!journal.db) return journal.health == Health::missing || journal.health == Health::empty;
  const Statement row = select_journal(journal.db.get());
  const int code = row ? sqlite3_step(row.get()) : SQLITE_DONE;
  return code == SQLITE_ROW ? sqlite3_column_int(row.get(), 3) == WS_BACKUP_DONE : code == SQLITE_DONE;
}

int store_status(const Words& /*words*/, Output& out) {
  Report report{out};
  const Holder holder = find_holder();
  out.text("lock", holder.description.view(), holder.state == LockState::exclusive ? Tone::bad : Tone::plain);
  Look look;
  const int result = look.begin(out);
  if (result != kDone) return result;
  print_journal(report);
  print_version(report);
  Health first_two[2] = {};
  out.begin_list("files", "file", kFileColumns);
  for (std::size_t i = 0; i < store_files().size(); ++i) {
    const Health health = print_file(store_files()[i], report);
    if (i < 2) first_two[i] = health;
  }
  out.end_list();
  print_agreement(first_two[0] == Health::healthy && first_two[1] == Health::healthy, report);
  print_left_overs(report);
  out.number("findings", report.findings);
  if (report.findings == 0) {
    out.say("all is well");
    return kDone;
  }
  out.say("not all is well");
  out.error("the store has %d findings", report.findings);
  return kNo;
}

}  // namespace kelo::ctl
