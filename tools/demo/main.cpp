// SPDX-License-Identifier: MIT
// The library's main job on real files: a daemon at work, whose settings survive a power cut. Runs in a
// sandbox (run.sh).
#include <sqlite3.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <string>

#include "kelo_utils/sqlite.h"
#include "tools/demo/at_work.hpp"
#include "tools/demo/claims.hpp"
#include "tools/demo/example_daemon.hpp"
#include "tools/demo/network.hpp"
#include "tools/demo/other_files.hpp"
#include "tools/demo/store_files.hpp"
#include "tools/power_cut/power_cut.hpp"

namespace kelo::demo {
namespace {

namespace fs = std::filesystem;

using Values = std::map<ItemId, std::string>;

// The values that every later chapter compares with.
const Values kSet = {
    {kWifiEnabled, std::string(1, '\0')}, {kWifiChannel, std::string("\x0B\0", 2)},
    {kWanMtu, number_bytes(1420)},        {kWanMetric, number_bytes(100)},
    {kWanApn, "fixed.wireless"},          {kWanKey, std::string("\x01\x02\x03\x04")},
};

void claim_values(ExampleDaemon& daemon, const Values& expected, const char* when) {
  int right = 0;
  for (const auto& [id, bytes] : expected) right += daemon.read(id) == bytes ? 1 : 0;
  claim(right == static_cast<int>(expected.size()), "%d of %zu items hold their value %s", right,
        expected.size(), when);
}

void first_start() {
  chapter("First start on empty flash: defaults");
  life([] {
    show_store_log();
    ExampleDaemon daemon;
    hide_log();
    claim(kelo_dm_construct_def_database(0) == 0, "the defaults database is built: %s", DB_DEF_ITEMS);
    for (const kelo_dm_item& item : items()) {
      const auto id = static_cast<ItemId>(item.id);
      tell("default of item %d (type %d) %s.%s = %s", id, item.desc.def_type, item.desc.item_table,
           item.desc.item_key, shown(id, daemon.read_default(id)).c_str());
    }
    std::uint32_t version = 0;
    const int length = dm_sqlite_read_DefItemsDB_version(&version);
    claim(length == 4 && version == SQL_VER, "it carries version 0x%x", version);
    claim(fs::exists(DB_CONFIG) && fs::exists(DB_CONFIGBAK) && fs::exists(DB_STATE),
          "%s, %s and %s exist, journal at %s", DB_CONFIG, DB_CONFIGBAK, DB_STATE, journal_state().c_str());
  });
}

void settings() {
  chapter("Settings are written, announced and read back");
  life([] {
    hide_log();
    ExampleDaemon daemon;
    for (const auto& [id, bytes] : kSet) daemon.write(id, bytes);
    claim(events_seen() == static_cast<int>(kSet.size()), "%d change events for %zu writes", events_seen(),
          kSet.size());
    claim_values(daemon, kSet, "in the same process");
  });
  life([] {
    hide_log();
    ExampleDaemon daemon;
    claim_values(daemon, kSet, "after a restart");
  });
}

// A moment of the write at which the power fails.
struct Moment {
  const char* title;
  power_cut::CutHere cut_here;
  const char* journal;  // what the journal must say afterwards
};

power_cut::CutHere before(const char* call, const char* file) {
  return
      [=](std::size_t, const power_cut::StorageCall& made) { return made.name == call && made.file == file; };
}

// Before the journal is touched again once it has recorded `steps` states.
power_cut::CutHere after_journal_steps(int steps) {
  return [steps, recorded = 0](std::size_t, const power_cut::StorageCall& made) mutable {
    if (made.name == "unlink" && made.file == std::string(DB_STATE) + "-journal") {
      ++recorded;
      return false;
    }
    return recorded == steps && made.file.starts_with(DB_STATE);
  };
}

void cut_power(const Moment& moment) {
  tell("--- %s", moment.title);
  const std::string old_value = peek(DB_CONFIGBAK, "select value from wan where key='apn'");
  const std::string new_value = old_value == "roaming.carrier" ? "home.carrier" : "roaming.carrier";

  const auto write = [&] {
    hide_log();
    ExampleDaemon().write(kWanApn, new_value);
  };
  const power_cut::Run run = power_cut::run("/data", write, moment.cut_here);
  const power_cut::StorageCall last = run.calls.empty() ? power_cut::StorageCall{} : run.calls.back();
  claim(run.cut, "killed before %s of %s, storage call %zu of the write", last.name.c_str(),
        last.file.c_str(), run.calls.size());
  claim(journal_state() == moment.journal, "the journal says %s", journal_state().c_str());
  const auto left_over = [](const char* file, const char* suffix) {
    return fs::exists(std::string(file) + suffix);
  };
  if (left_over(DB_CONFIG, "-journal")) tell("%s-journal is left: SQLite takes the row back", DB_CONFIG);
  if (left_over(DB_CONFIGBAK, "-previous"))
    tell("%s-previous is left: the next start takes the copy back", DB_CONFIGBAK);

  life([&] {
    show_store_log();
    ExampleDaemon daemon;  // recovery happens here
    hide_log();
    const std::string found = daemon.read(kWanApn);
    tell("at the restart item %d reads %s", kWanApn, shown(kWanApn, found).c_str());
    daemon.write(kWanMtu, number_bytes(1420));
    const std::string held = daemon.read(kWanApn);
    claim(held == old_value || held == new_value, "after the next write it holds its %s value %s",
          held == new_value ? "new" : "old", shown(kWanApn, held).c_str());
    Values others = kSet;
    others.erase(kWanApn);
    claim_values(daemon, others, "beside it");
  });
}

void power_cuts() {
  chapter("The power fails in the middle of a write");
  if (!power_cut::can_trace()) {
    tell("left out: the daemon is cut off by tracing it, which this machine does not allow");
    return;
  }
  const Moment moments[] = {
      {"while the row goes into the primary", before("fdatasync", DB_CONFIG), "WS_READY (100)"},
      {"while the primary is copied over the backup", before("fsync", DB_CONFIGBAK), "WS_READY (100)"},
      {"after the copy, before the journal is closed", after_journal_steps(2), "WS_WRITE_DONE (101)"},
  };
  for (const Moment& moment : moments) cut_power(moment);
}

void corruption() {
  chapter("The primary file is damaged");
  damage(DB_CONFIG, 100);
  hide_log();
  claim(check_database_health(DB_CONFIG) == 1, "%s fails its health check", DB_CONFIG);
  life([] {
    show_store_log();
    ExampleDaemon daemon;
    hide_log();
    Values others = kSet;
    others.erase(kWanApn);
    claim_values(daemon, others, "after the repair");
    claim(check_database_health(DB_CONFIG) == 0, "%s is healthy again", DB_CONFIG);
    claim(file_text(DB_CONFIG) == file_text(DB_CONFIGBAK), "it equals the backup byte for byte");
  });
}

void csv_export() {
  chapter("Export");
  hide_log();
  std::fflush(stdout);
  claim(dm_read_all_tabs_from_db(DB_CONFIG) == 0, "%s is written", DB_EXPORT_CSV);
  std::string line;
  int lines = 0;
  for (const char c : file_text(DB_EXPORT_CSV)) {
    if (c == '\0') {
      tell("%s", line.c_str());
      line.clear();
      ++lines;
    } else if (c != '\r' && c != '\n') {
      line += c;
    }
  }
  claim(lines == 8, "%d lines: the header, the version record and 6 items", lines);
}

int run() {
  std::printf("kelo_utils: an example daemon on real files under /data\n");
  first_start();
  settings();
  at_work();
  network();
  files();
  power_cuts();
  corruption();
  csv_export();
  std::printf("\n%d claims checked, %d failed\n", claims_made(), claims_failed());
  return claims_made() > 0 && claims_failed() == 0 ? 0 : 1;
}

}  // namespace
}  // namespace kelo::demo

int main() { return kelo::demo::run(); }
