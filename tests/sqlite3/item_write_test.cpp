// SPDX-License-Identifier: MIT
// Writes of an item: journal, primary, backup and lines.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/file_holder.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/reference_crc.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

namespace fs = std::filesystem;
using kelo::tests::CallTrace;
using kelo::tests::execute_sql;
using kelo::tests::Fault;
using kelo::tests::file_exists;
using kelo::tests::FileHolder;
using kelo::tests::item_rows;
using kelo::tests::ItemRow;
using kelo::tests::journal_row;
using kelo::tests::journal_state;
using kelo::tests::JournalRow;
using kelo::tests::kEveryTime;
using kelo::tests::LogCapture;
using kelo::tests::open_descriptors;
using kelo::tests::read_file;
using kelo::tests::reference_crc;
using kelo::tests::scalar;
using kelo::tests::ShortBusyTimeout;

constexpr char kRecovery[] = "/kelonvbak/data/config.db";
constexpr char kCreateItems[] =
    "create table if not exists net (id integer not null,key text not null,type integer not null,len integer "
    "not null,crc integer not null,value blob)";
constexpr char kCopyToBackup[] = "cp /data/config.db /data/configbak.db";
constexpr char kCopyFromBackup[] = "cp /data/configbak.db /data/config.db";
constexpr char kCopyFromRecovery[] = "cp /kelonvbak/data/config.db /data/config.db";

using Items = std::vector<ItemRow>;

int write_item(const std::string& key, const std::string& value) {
  return dm_pal_write("net", 7, key.c_str(), 5, value.data(), static_cast<int>(value.size()));
}

ItemRow row_of(const std::string& key, const std::string& value) {
  return {7, key, 5, static_cast<std::int64_t>(value.size()), reference_crc(value), value};
}

// The names of everything in a directory but the switch file of the log.
std::vector<std::string> files_in(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.path().filename() != "log_enable") names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

class ItemWrite : public testing::Test {
 protected:
  // The texts of one level logged under one function.
  std::vector<std::string> texts(int level, const std::string& function) const {
    std::vector<std::string> found;
    for (const auto& line : log_.lines()) {
      if (line.level == level && line.function == function) found.push_back(line.text);
    }
    return found;
  }
  using Texts = std::vector<std::string>;

  LogCapture log_;
};

// --- The whole write ---------------------------------------------------------------------------------------

TEST_F(ItemWrite, FirstWriteMakesThreeFilesAndTheLock) {
  EXPECT_EQ(write_item("ssid", "home"), 0);
  EXPECT_EQ(files_in("/data"), (Texts{"config.db", "config.db-lock", "configbak.db", "state.db"}));
  EXPECT_EQ(Items{row_of("ssid", "home")}, item_rows(DB_CONFIG, "net"));
  EXPECT_EQ(read_file(DB_CONFIG), read_file(DB_CONFIGBAK));
  EXPECT_EQ(journal_row(DB_STATE), (JournalRow{"write_state", "net", 7, "ssid", 5, 4, 102}));
  EXPECT_EQ(
      kelo::tests::table_schema(DB_CONFIG, "net"),
      "CREATE TABLE net (id integer not null,key text not null,type integer not null,len integer not null,"
      "crc integer not null,value blob)");
}

TEST_F(ItemWrite, SecondWriteUpdatesTheRow) {
  EXPECT_EQ(write_item("ssid", "home"), 0);
  EXPECT_EQ(write_item("ssid", "cabin"), 0);
  EXPECT_EQ(Items{row_of("ssid", "cabin")}, item_rows(DB_CONFIG, "net"));
  EXPECT_EQ(Items{row_of("ssid", "cabin")}, item_rows(DB_CONFIGBAK, "net"));
}

TEST_F(ItemWrite, EachItemTableIsItsOwn) {
  EXPECT_EQ(dm_pal_write("net", 7, "name", 5, "home", 4), 0);
  EXPECT_EQ(dm_pal_write("lan", 8, "name", 6, "bridge", 6), 0);
  EXPECT_EQ(Items{row_of("name", "home")}, item_rows(DB_CONFIGBAK, "net"));
  EXPECT_EQ(item_rows(DB_CONFIGBAK, "lan"), (Items{{8, "name", 6, 6, reference_crc("bridge"), "bridge"}}));
}

TEST_F(ItemWrite, EmptyValueIsStored) {
  EXPECT_EQ(dm_pal_write("net", 7, "ssid", 5, "unused", 0), 0);
  EXPECT_EQ(item_rows(DB_CONFIGBAK, "net"), (Items{{7, "ssid", 5, 0, 0, ""}}));
  EXPECT_EQ(journal_row(DB_STATE), (JournalRow{"write_state", "net", 7, "ssid", 5, 0, 102}));
}

TEST_F(ItemWrite, LongValueIsStoredWholeInBothFiles) {
  const std::string value(70000, 'v');
  EXPECT_EQ(write_item("blob", value), 0);
  EXPECT_EQ(Items{row_of("blob", value)}, item_rows(DB_CONFIG, "net"));
  EXPECT_EQ(Items{row_of("blob", value)}, item_rows(DB_CONFIGBAK, "net"));
}

TEST_F(ItemWrite, LogOfANormalWrite) {
  EXPECT_EQ(write_item("ssid", "home"), 0);
  // This line is an error's only in name.
  EXPECT_EQ(texts(LOG_LVL_ERR, "dm_pal_write"), Texts{std::string("ERROR: ") + kCopyToBackup});
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, ""), 1) << log_.dump();
  EXPECT_EQ(log_.count(LOG_LVL_DBUG, "check_database_health", "is_corrupted=0\n"), 1) << log_.dump();
  EXPECT_EQ(log_.count(LOG_LVL_DBUG, "dm_sqlite_system_cmd", "read_len=0\n"), 1) << log_.dump();
}

TEST_F(ItemWrite, NullArgumentsAndNegativeLength) {
  EXPECT_EQ(dm_pal_write(nullptr, 7, "ssid", 5, "home", 4), -1);
  EXPECT_EQ(dm_pal_write("net", 7, nullptr, 5, "home", 4), -1);
  EXPECT_EQ(dm_pal_write("net", 7, "ssid", 5, nullptr, 4), -1);
  EXPECT_EQ(dm_pal_write("net", 7, "ssid", 5, nullptr, 0), -1);
  EXPECT_EQ(dm_pal_write("net", 7, "ssid", 5, "home", -1), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_pal_write", "dm_pal_write NULL\n"), 5) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 5U);
  EXPECT_TRUE(files_in("/data").empty()) << "a refused write left a file";
}

TEST_F(ItemWrite, PrimaryThatCannotBeOpened) {
  write_item("ssid", "home");
  log_.clear();
  fs::remove(DB_CONFIG);
  fs::create_directory(DB_CONFIG);
  EXPECT_EQ(write_item("ssid", "cabin"), -1);
  EXPECT_EQ(texts(LOG_LVL_ERR, "dm_pal_write"), Texts{"dm_update_db: \n"}) << log_.dump();
  EXPECT_EQ(texts(LOG_LVL_ERR, "dm_write_db"), Texts{"sqlite3_open failed: unable to open database file\n"});
  EXPECT_EQ(journal_state(DB_STATE), WS_READY);
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select value from net"), "home");
}

TEST_F(ItemWrite, JournalFailuresDoNotStopIt) {
  fs::create_directory(DB_STATE);
  EXPECT_EQ(write_item("ssid", "home"), 0);
  EXPECT_EQ(texts(LOG_LVL_ERR, "dm_pal_write"),
            (Texts{"dm_write_state_db  WS_READY failed: -1\n", std::string("ERROR: ") + kCopyToBackup,
                   "dm_write_state_db  WS_WRITE_DONE failed: -1\n",
                   "dm_write_state_db  WS_BACKUP_DONE failed: -1\n"}));
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select value from net"), "home");
}

TEST_F(ItemWrite, OneFailingJournalStepIsNamed) {
  constexpr const char* kSteps[] = {"state=100", "state=101", "state=102"};
  constexpr const char* kNames[] = {"WS_READY", "WS_WRITE_DONE", "WS_BACKUP_DONE"};
  write_item("ssid", "home");
  for (std::size_t i = 0; i < std::size(kSteps); ++i) {
    log_.clear();
    const Fault fault({.call = "sqlite3_exec", .code = SQLITE_BUSY, .text = kSteps[i]});
    EXPECT_EQ(write_item("ssid", "cabin"), 0);
    EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_pal_write",
                         "dm_write_state_db  " + std::string(kNames[i]) + " failed: -1\n"),
              1)
        << log_.dump();
    EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, " failed: -1\n"), 1) << log_.dump();
  }
}

TEST_F(ItemWrite, RowFailuresAreReportedAsSuccess) {
  write_item("ssid", "home");
  const Fault fault({.call = "sqlite3_step", .code = SQLITE_FULL, .text = "update net"});
  EXPECT_EQ(write_item("ssid", "cabin"), 0);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\d+ step failed rc: 13\n)"), 1) << log_.dump();
  EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE) << "the journal advances all the same";
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select value from net"), "home");
}

// --- The backup --------------------------------------------------------------------------------------------

// The backup takes the primary's place, and the row goes in there again: the next write copies it.
TEST_F(ItemWrite, UnhealthyPrimaryIsNotCopiedButReplaced) {
  write_item("ssid", "home");
  execute_sql(DB_CONFIG, "create table ballast (text); insert into ballast values (zeroblob(3000))");
  const std::size_t page =
      std::stoul(scalar(DB_CONFIG, "select rootpage from sqlite_master where name='ballast'"));
  const std::size_t page_size = std::stoul(scalar(DB_CONFIG, "pragma page_size"));
  const std::string backup = read_file(DB_CONFIGBAK);
  kelo::tests::overwrite_file(DB_CONFIG, (page - 1) * page_size, "\xA5\xA5\xA5\xA5");
  log_.clear();
  const CallTrace trace;
  EXPECT_EQ(write_item("ssid", "cabin"), 0);
  EXPECT_EQ(scalar(DB_CONFIG, "select value from net"), "cabin");
  EXPECT_EQ(trace.count("popen"), 1) << trace.dump();
  EXPECT_LT(trace.position("sqlite3_exec", "state=102"),
            trace.position("popen", "cp /data/configbak.db /data/config.db"))
      << trace.dump();
  EXPECT_EQ(backup, read_file(DB_CONFIGBAK));
  EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE);
  EXPECT_EQ(texts(LOG_LVL_ERR, "dm_pal_write"), Texts{"ERROR: cp /data/configbak.db /data/config.db"});
  EXPECT_EQ(write_item("mask", "/24"), 0);
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select value from net where key='ssid'"), "cabin");
}

TEST_F(ItemWrite, PrimaryThatCannotBeCheckedIsNotCopied) {
  write_item("ssid", "home");
  const Fault fault({.call = "sqlite3_exec", .code = SQLITE_IOERR, .text = "PRAGMA quick_check;"});
  const CallTrace trace;
  EXPECT_EQ(write_item("ssid", "cabin"), 0);
  EXPECT_EQ(trace.count("popen"), 0);
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select value from net"), "home");
  EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE);
}

TEST_F(ItemWrite, CopyThatCannotBeStartedCarriesTheRowAlone) {
  write_item("ssid", "home");
  execute_sql(DB_CONFIGBAK, "create table witness (text)");
  log_.clear();
  const Fault fault({.call = "popen", .code = EAGAIN});
  EXPECT_EQ(write_item("ssid", "cabin"), 0);
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select count(*) from witness"), "0") << "the backup was replaced";
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select value from net"), "cabin");
  EXPECT_EQ(files_in("/data"), (Texts{"config.db", "config.db-lock", "configbak.db", "state.db"}));
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_pal_write",
                       "/data/config.db was not copied, /data/configbak.db is as it was\n"),
            1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_pal_write",
                       "only the row of net ssid was written to /data/configbak.db: 0\n"),
            1);
  EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE);
}

// Puts a program of this name before the system's.
void put_in_path(const std::string& name, const std::string& script) {
  fs::create_directory("/tmp/bin");
  std::ofstream("/tmp/bin/" + name) << "#!/bin/sh\n" << script << '\n';
  fs::permissions("/tmp/bin/" + name, fs::perms::owner_all);
  ASSERT_EQ(setenv("PATH", (std::string("/tmp/bin:") + getenv("PATH")).c_str(), 1), 0);
}

TEST_F(ItemWrite, CopyThatFailsHalfWayCarriesTheRowAlone) {
  write_item("ssid", "home");
  execute_sql(DB_CONFIGBAK, "create table witness (text)");
  put_in_path("cp", R"(head -c 1000 "$1" > "$2"; exit 1)");
  EXPECT_EQ(write_item("ssid", "cabin"), 0);
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select count(*) from witness"), "0") << "the backup was replaced";
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select value from net"), "cabin");
  EXPECT_EQ(files_in("/data"), (Texts{"config.db", "config.db-lock", "configbak.db", "state.db"}));
}

// That of the lock tells other processes that the copy is still under way when its parent has died.
TEST_F(ItemWrite, TheCopyHoldsNoDescriptorButThatOfTheLock) {
  write_item("ssid", "home");
  put_in_path("cp", R"(ls -l /proc/self/fd > /tmp/descriptors; exec /bin/cp "$@")");
  const auto before = open_descriptors();
  EXPECT_EQ(write_item("ssid", "cabin"), 0);
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select value from net"), "cabin");
  int locks = 0;
  for (const std::string& held : kelo::tests::listed_descriptors("/tmp/descriptors")) {
    if (held.ends_with(" /data/config.db-lock") && ++locks == 1) continue;
    EXPECT_EQ(std::string::npos, held.find("/data/")) << held;
    EXPECT_TRUE(held[0] <= '2' || before.count(held) == 1) << held;
  }
  EXPECT_EQ(locks, 1);
}

// Whether a program that is started now would get a descriptor of the lock.
bool lock_is_inheritable() {
  for (const std::string& open : open_descriptors()) {
    if (open.ends_with(" /data/config.db-lock") && (fcntl(std::stoi(open), F_GETFD) & FD_CLOEXEC) == 0)
      return true;
  }
  return false;
}

// It would keep the lock for as long as it lives.
TEST_F(ItemWrite, TheCopyLeavesNoDescriptorToTheChildrenOfOtherThreads) {
  std::atomic<bool> seen{false};
  {
    const std::jthread other([&](const std::stop_token& stop) {
      while (!stop.stop_requested()) seen = seen || lock_is_inheritable();
    });
    for (int i = 0; i < 20; ++i) EXPECT_EQ(write_item("ssid", "home" + std::to_string(i)), 0);
  }
  EXPECT_FALSE(seen);
}

// Arrays that a daemon filled to their last byte: the command is cut to the size of its buffer and hits another file.
TEST_F(ItemWrite, CommandIsCutAtItsRoom) {
  const std::string primary = "/data/" + std::string(57, 'p');
  const std::string backup = "/data/" + std::string(57, 'b');
  primary.copy(DB_CONFIG, 63);
  backup.copy(DB_CONFIGBAK, 63);
  ASSERT_EQ(primary, DB_CONFIG);
  const CallTrace trace;
  EXPECT_EQ(write_item("ssid", "home"), 0);
  const std::string command = "cp " + primary + " " + backup;
  ASSERT_EQ(command.size(), 130U);
  EXPECT_EQ(command.substr(0, 127),
            trace.calls().at(static_cast<std::size_t>(trace.position("popen", "cp"))).text);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_pal_write", "ERROR: " + command), 1)
      << "the line has room for all of it";
  EXPECT_EQ(scalar(primary, "select value from net"), "home");
}

TEST_F(ItemWrite, LongestCommandThatFits) {
  const std::string primary = "/data/" + std::string(57, 'p');
  const std::string backup = "/data/" + std::string(54, 'b');
  primary.copy(DB_CONFIG, 63);
  std::fill(std::begin(DB_CONFIGBAK), std::end(DB_CONFIGBAK), '\0');
  backup.copy(DB_CONFIGBAK, 63);
  const CallTrace trace;
  EXPECT_EQ(write_item("ssid", "home"), 0);
  EXPECT_EQ(trace.calls().at(static_cast<std::size_t>(trace.position("popen", "cp"))).text.size(), 127U);
  EXPECT_EQ(read_file(primary), read_file(backup));
}

// --- The order of a write ----------------------------------------------------------------------------------

class WriteOrder : public ItemWrite {
 protected:
  void expect_in_order(const CallTrace& trace, const std::vector<kelo::tests::TracedCall>& calls) {
    int last = -1;
    for (const auto& call : calls) {
      const auto all = trace.calls();
      int at = last + 1;
      while (at < static_cast<int>(all.size()) &&
             (all[static_cast<std::size_t>(at)].function != call.function ||
              all[static_cast<std::size_t>(at)].text.find(call.text) == std::string::npos)) {
        ++at;
      }
      ASSERT_LT(at, static_cast<int>(all.size())) << call << " does not follow\n" << trace.dump();
      last = at;
    }
  }
};

TEST_F(WriteOrder, OfTheFirstWrite) {
  const CallTrace trace;
  EXPECT_EQ(write_item("ssid", "home"), 0);
  expect_in_order(trace,
                  {{"sqlite3_open", "/data/state.db"},
                   {"sqlite3_exec", "insert into state"},
                   {"fdatasync", "/data/state.db"},
                   {"sqlite3_open", "/data/config.db"},
                   {"sqlite3_exec", "create table if not exists net"},
                   {"sqlite3_step", "insert into net"},
                   {"fdatasync", "/data/config.db"},
                   {"sqlite3_open_v2", "/data/config.db"},
                   {"sqlite3_exec", "PRAGMA quick_check;"},
                   {"popen", kCopyToBackup},
                   {"pclose", ""},
                   {"fsync", "/data/configbak.db"},
                   {"sqlite3_exec", "state=101"},
                   {"fdatasync", "/data"},  // the new name of the backup, before the state is on storage
                   {"fdatasync", "/data/state.db"},
                   {"sqlite3_exec", "state=102"},
                   {"fdatasync", "/data/state.db"}});
  EXPECT_EQ(trace.count("popen"), 1);
  EXPECT_EQ(trace.count("system"), 0);
}

TEST_F(WriteOrder, OfALaterWrite) {
  write_item("ssid", "home");
  const CallTrace trace;
  EXPECT_EQ(write_item("ssid", "cabin"), 0);
  expect_in_order(trace, {{"sqlite3_exec", "state=100"},
                          {"fdatasync", "/data/state.db"},
                          {"sqlite3_step", "update net"},
                          {"fdatasync", "/data/config.db"},
                          {"sqlite3_exec", "PRAGMA quick_check;"},
                          {"popen", kCopyToBackup},
                          {"fsync", "/data/configbak.db"},
                          {"sqlite3_exec", "state=101"},
                          {"sqlite3_exec", "state=102"}});
  EXPECT_EQ(trace.count("sqlite3_open", "/data/state.db"), 3);
  EXPECT_EQ(trace.count("popen"), 1);
}

// Elsewhere, nothing else syncs the directory of a new backup.
TEST_F(WriteOrder, OfABackupInAnotherDirectory) {
  fs::create_directory("/data/backup");
  sqlite_reg_store_area(nullptr, "/data/backup/");
  const CallTrace trace;
  EXPECT_EQ(write_item("ssid", "home"), 0);
  const auto calls = trace.calls();
  const int synced = trace.position("fsync", "/data/backup/configbak.db");
  ASSERT_GE(synced, 0) << trace.dump();
  const kelo::tests::TracedCall directory{"fsync", "/data/backup"};
  const auto found = std::find(calls.begin() + synced, calls.end(), directory);
  ASSERT_NE(calls.end(), found) << trace.dump();
  EXPECT_LT(found - calls.begin(), trace.position("sqlite3_exec", "state=101")) << trace.dump();
}

// --- Syncs -------------------------------------------------------------------------------------------------

// The statements of one write, on plain connections.
void bare_write(const std::string& directory, const std::string& value) {
  const std::string state = directory + "state.db";
  const std::string create_state =
      "create table if not exists state (key text not null,item_table text not null,id integer not "
      "null,item_key text not null,type integer,len integer,state integer)";
  for (const char* const step : {"100", "101", "102"}) {
    execute_sql(state, create_state);
    const bool exists = scalar(state, "select count(*) from state") != "0";
    execute_sql(state, exists
                           ? "update state set item_table='net',id=7,item_key='ssid',type=5,len=" +
                                 std::to_string(value.size()) + ",state=" + step + " where key='write_state'"
                           : "insert into state values ('write_state','net',7,'ssid',5," +
                                 std::to_string(value.size()) + "," + step + ")");
    if (std::string(step) != "100") continue;
    const std::string config = directory + "config.db";
    execute_sql(config, kCreateItems);
    execute_sql(config, scalar(config, "select count(*) from net") != "0"
                            ? "update net set id=7,type=5,len=1,crc=1,value='" + value + "' where key='ssid'"
                            : "insert into net values (7,'ssid',5,1,1,'" + value + "')");
  }
}

int syncs(const CallTrace& trace) { return trace.count("fsync") + trace.count("fdatasync"); }

// Once the directory when the old backup has its second name, and once the copy.
TEST_F(ItemWrite, SyncsTwiceMoreThanItsStatements) {
  fs::create_directory("/data/bare");
  for (const char* const value : {"home", "cabin", "harbour"}) {
    int bare = 0;
    {
      const CallTrace trace;
      bare_write("/data/bare/", value);
      bare = syncs(trace);
      ASSERT_GT(bare, 6) << "syncs do not reach the interposer";
    }
    const CallTrace trace;
    EXPECT_EQ(write_item("ssid", value), 0);
    EXPECT_EQ(bare + 2, syncs(trace)) << trace.dump();
  }
}

// --- One row into one file ---------------------------------------------------------------------------------

TEST_F(ItemWrite, RowWriteNullArgumentsAndNegativeLength) {
  EXPECT_EQ(dm_write_db(nullptr, "net", 7, "ssid", 5, "home", 4), -1);
  EXPECT_EQ(dm_write_db(DB_CONFIG, nullptr, 7, "ssid", 5, "home", 4), -1);
  EXPECT_EQ(dm_write_db(DB_CONFIG, "net", 7, nullptr, 5, "home", 4), -1);
  EXPECT_EQ(dm_write_db(DB_CONFIG, "net", 7, "ssid", 5, nullptr, 4), -1);
  EXPECT_EQ(dm_write_db(DB_CONFIG, "net", 7, "ssid", 5, "home", -1), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_write_db", "dm_write_db NULL\n"), 5) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 5U);
  EXPECT_FALSE(file_exists(DB_CONFIG));
}

TEST_F(ItemWrite, RowWriteTouchesOneFile) {
  EXPECT_EQ(dm_write_db("/data/one.db", "net", 7, "ssid", 5, "home", 4), 0);
  EXPECT_EQ(files_in("/data"), (Texts{"config.db-lock", "one.db"}));
}

TEST_F(ItemWrite, RowWriteIntoAFileThatCannotBeOpened) {
  EXPECT_EQ(dm_write_db("/nowhere/one.db", "net", 7, "ssid", 5, "home", 4), -101);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_write_db", "sqlite3_open failed: unable to open database file\n"), 1);
  // Once in a process, a line names the file.
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "/nowhere/one.db: No such file or directory"), 1)
      << log_.dump();
  EXPECT_EQ(log_.lines().size(), 2U) << log_.dump();
}

TEST_F(ItemWrite, RowWriteWithoutMemoryForTheHandle) {
  const Fault fault({.call = "sqlite3_open", .code = SQLITE_NOMEM, .null_handle = true});
  EXPECT_EQ(dm_write_db(DB_CONFIG, "net", 7, "ssid", 5, "home", 4), -101);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_write_db", "sqlite3_open failed: out of memory\n"), 1) << log_.dump();
}

// Every failure to make the table but a corrupt file ends the write without a repair.
TEST_F(ItemWrite, TableThatCannotBeMade) {
  write_item("ssid", "home");
  for (const int code : {SQLITE_FULL, SQLITE_IOERR, SQLITE_BUSY, SQLITE_READONLY, SQLITE_NOTADB}) {
    log_.clear();
    const Fault fault({.call = "sqlite3_exec", .code = code, .text = "create table if not exists net"});
    const CallTrace trace;
    EXPECT_EQ(dm_write_db(DB_CONFIG, "net", 7, "ssid", 5, "cabin", 5), -1);
    EXPECT_EQ(fault.seen(), 1) << "tried again after " << code;
    EXPECT_EQ(trace.count("sqlite3_open_v2"), 0) << "looked for a source";
    EXPECT_EQ(trace.count("popen"), 0);
    ASSERT_EQ(log_.lines().size(), code == SQLITE_NOTADB ? 2U : 1U) << log_.dump();
    EXPECT_EQ(log_.lines()[0].function, "dm_write_db");
    EXPECT_EQ("[" + std::to_string(log_.lines()[0].source_line) + "] create table error rc=" +
                  std::to_string(code) + ", " + sqlite3_errstr(code) + ", szSql: " + kCreateItems + "\n",
              log_.lines()[0].text);
  }
}

TEST_F(ItemWrite, TableNameThatIsNone) {
  EXPECT_EQ(dm_write_db(DB_CONFIG, "no name", 7, "ssid", 5, "home", 4), -1);
  EXPECT_EQ(
      log_.count_containing(LOG_LVL_ERR, "create table error rc=1, near \"name\": syntax error, szSql: "), 1)
      << log_.dump();
}

TEST_F(ItemWrite, TableNameLongerThanEveryStatement) {
  const CallTrace trace;
  EXPECT_EQ(dm_write_db(DB_CONFIG, std::string(600, 't').c_str(), 7, "ssid", 5, "home", 4), -1);
  EXPECT_EQ(trace.calls().at(static_cast<std::size_t>(trace.position("sqlite3_exec", "create"))).text.size(),
            511U);
}

TEST_F(ItemWrite, OlderPrimaryIsGivenItsColumnsInTheSameWrite) {
  execute_sql(DB_CONFIG,
              "create table net (key text not null,type integer not null,len integer not null,crc "
              "integer not null,value blob)");
  EXPECT_EQ(write_item("ssid", "home"), 0);
  EXPECT_EQ(Items{row_of("ssid", "home")}, item_rows(DB_CONFIG, "net"));
  EXPECT_EQ(Items{row_of("ssid", "home")}, item_rows(DB_CONFIGBAK, "net"));
  EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE);
}

// --- Repair ------------------------------------------------------------------------------------------------

class Repair : public ItemWrite {
 protected:
  void SetUp() override {
    ASSERT_EQ(write_item("ssid", "home"), 0);
    log_.clear();
  }
  // A recovery copy that knows another value.
  void provision_recovery_copy() {
    fs::copy_file(DB_CONFIG, kRecovery);
    execute_sql(kRecovery, "update net set value=x'6f6c64'");
  }
  int create_errors() {
    return log_.count_matching(LOG_LVL_ERR, R"(\[\d+\] create table error rc=11, [\s\S]*)");
  }
};

TEST_F(Repair, FromTheBackup) {
  provision_recovery_copy();
  kelo::tests::corrupt_schema(DB_CONFIG);
  const CallTrace trace;
  EXPECT_EQ(write_item("mask", "/24"), 0);
  EXPECT_EQ(item_rows(DB_CONFIG, "net"), (Items{row_of("ssid", "home"), row_of("mask", "/24")}));
  EXPECT_EQ(read_file(DB_CONFIG), read_file(DB_CONFIGBAK));
  ASSERT_EQ(texts(LOG_LVL_ERR, "dm_write_db").size(), 2U) << log_.dump();
  EXPECT_EQ(create_errors(), 1);
  EXPECT_NE(std::string::npos,
            texts(LOG_LVL_ERR, "dm_write_db")[0].find(
                std::string("rc=11, database disk image is malformed, szSql: ") + kCreateItems));
  EXPECT_EQ(texts(LOG_LVL_ERR, "dm_write_db")[1], std::string("ERROR: ") + kCopyFromBackup);
  EXPECT_EQ(trace.count("popen", kCopyFromBackup), 1);
  EXPECT_EQ(trace.count("popen", kCopyToBackup), 1);
  EXPECT_EQ(trace.count("popen"), 2);
  EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE);
}

TEST_F(Repair, FromTheRecoveryCopyWhenTheBackupIsCorrupt) {
  provision_recovery_copy();
  kelo::tests::corrupt_schema(DB_CONFIG);
  kelo::tests::corrupt_schema(DB_CONFIGBAK);
  const std::string recovery = read_file(kRecovery);
  EXPECT_EQ(write_item("mask", "/24"), 0);
  EXPECT_EQ(scalar(DB_CONFIG, "select value from net where key='ssid'"), "old");
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select value from net where key='mask'"), "/24");
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_write_db", std::string("ERROR: ") + kCopyFromRecovery), 1)
      << log_.dump();
  EXPECT_EQ(recovery, read_file(kRecovery)) << "the recovery copy is never written";
}

TEST_F(Repair, FromTheRecoveryCopyWhenThereIsNoBackup) {
  provision_recovery_copy();
  kelo::tests::corrupt_schema(DB_CONFIG);
  fs::remove(DB_CONFIGBAK);
  EXPECT_EQ(write_item("mask", "/24"), 0);
  EXPECT_EQ(scalar(DB_CONFIG, "select value from net where key='ssid'"), "old");
}

TEST_F(Repair, WithoutASourceIsTriedAgainAllTheSame) {
  kelo::tests::corrupt_schema(DB_CONFIG);
  kelo::tests::corrupt_schema(DB_CONFIGBAK);
  const std::string primary = read_file(DB_CONFIG);
  const CallTrace trace;
  EXPECT_EQ(write_item("mask", "/24"), -1);
  EXPECT_EQ(trace.count("popen"), 0);
  EXPECT_EQ(trace.count("sqlite3_exec", "create table if not exists net"), 2) << trace.dump();
  EXPECT_EQ(create_errors(), 2) << log_.dump();
  EXPECT_EQ(texts(LOG_LVL_ERR, "dm_pal_write"), Texts{"dm_update_db: \n"});
  EXPECT_EQ(primary, read_file(DB_CONFIG));
  EXPECT_EQ(journal_state(DB_STATE), WS_READY);
}

TEST_F(Repair, IsMadeOnceInOneWrite) {
  const Fault fault({.call = "sqlite3_exec",
                     .code = SQLITE_CORRUPT,
                     .text = "create table if not exists net",
                     .times = kEveryTime});
  const CallTrace trace;
  EXPECT_EQ(write_item("mask", "/24"), -1);
  EXPECT_EQ(fault.failed(), 2);
  EXPECT_EQ(trace.count("popen"), 1);
  EXPECT_EQ(trace.count("popen", kCopyFromBackup), 1);
}

TEST_F(Repair, IsFollowedByAnOpenThatMayFail) {
  const Fault corrupt(
      {.call = "sqlite3_exec", .code = SQLITE_CORRUPT, .text = "create table if not exists net"});
  const Fault open(
      {.call = "sqlite3_open", .code = SQLITE_NOMEM, .text = DB_CONFIG, .at = 2, .null_handle = true});
  EXPECT_EQ(dm_write_db(DB_CONFIG, "net", 7, "ssid", 5, "cabin", 5), -101);
  EXPECT_EQ(open.failed(), 1);
}

TEST_F(Repair, CopiesOverThePrimaryWhicheverFileIsCorrupt) {
  provision_recovery_copy();
  kelo::tests::corrupt_schema(DB_CONFIG);
  kelo::tests::corrupt_schema(DB_CONFIGBAK);
  EXPECT_EQ(dm_write_db(DB_CONFIGBAK, "net", 7, "ssid", 5, "cabin", 5), -1);
  EXPECT_EQ(scalar(DB_CONFIG, "select value from net"), "old") << "the primary is the target";
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select value from net"), "old") << "made anew from that";
  EXPECT_EQ(create_errors(), 2) << log_.dump();
}

TEST_F(Repair, OfACorruptBackupLeavesAGoodPrimary) {
  provision_recovery_copy();
  const std::string primary = read_file(DB_CONFIG);
  kelo::tests::corrupt_schema(DB_CONFIGBAK);
  EXPECT_EQ(dm_write_db(DB_CONFIGBAK, "net", 7, "ssid", 5, "cabin", 5), -1);
  EXPECT_EQ(primary, read_file(DB_CONFIG));
  EXPECT_EQ(primary, read_file(DB_CONFIGBAK));
}

TEST_F(Repair, IsNotMadeOfAFileThatIsNoDatabase) {
  provision_recovery_copy();
  kelo::tests::make_no_database(DB_CONFIG);
  const CallTrace trace;
  EXPECT_EQ(write_item("mask", "/24"), -1);
  EXPECT_EQ(trace.count("popen"), 0);
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "create table error rc=26, file is not a database, szSql: "),
            1)
      << log_.dump();
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select value from net"), "home");
}

TEST_F(Repair, SyncsTheRepairedFileAndItsDirectory) {
  kelo::tests::corrupt_schema(DB_CONFIG);
  const CallTrace trace;
  EXPECT_EQ(write_item("mask", "/24"), 0);
  const int copied = trace.position("popen", kCopyFromBackup);
  const int synced = trace.position("fsync", DB_CONFIG);
  EXPECT_GT(synced, copied) << trace.dump();
  EXPECT_LT(synced, trace.position("sqlite3_exec", "create table if not exists net", 2)) << trace.dump();
}

TEST_F(Repair, OfMovedFiles) {
  fs::create_directory("/data/a");
  fs::create_directory("/data/b");
  sqlite_reg_store_area("/data/a/", "/data/b/");
  ASSERT_EQ(write_item("ssid", "moved"), 0);
  kelo::tests::corrupt_schema(DB_CONFIG);
  EXPECT_EQ(write_item("mask", "/24"), 0);
  EXPECT_EQ(scalar("/data/a/config.db", "select value from net where key='ssid'"), "moved");
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_write_db", "ERROR: cp /data/b/configbak.db /data/a/config.db"), 1);
}

// --- Files that another process holds ----------------------------------------------------------------------

TEST_F(ItemWrite, APrimaryHeldForAMomentIsWaitedFor) {
  ASSERT_EQ(write_item("ssid", "home"), 0);
  log_.clear();
  const auto start = std::chrono::steady_clock::now();
  const FileHolder holder(DB_CONFIG, "begin exclusive", 1500);
  EXPECT_EQ(write_item("ssid", "cabin"), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1500));
  EXPECT_EQ(Items{row_of("ssid", "cabin")}, item_rows(DB_CONFIGBAK, "net"));
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, ""), 1) << log_.dump();
}

TEST_F(ItemWrite, APrimaryHeldForLongIsLeftAlone) {
  ASSERT_EQ(write_item("ssid", "home"), 0);
  log_.clear();
  const ShortBusyTimeout patience(20);
  const CallTrace trace;
  {
    const FileHolder holder(DB_CONFIG, "begin exclusive");
    EXPECT_EQ(write_item("ssid", "cabin"), -1);
  }
  EXPECT_TRUE(patience.was_asked_for());
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "create table error rc=5, database is locked"), 1)
      << log_.dump();
  EXPECT_EQ(trace.count("popen"), 0);
  EXPECT_EQ(scalar(DB_CONFIG, "select value from net"), "home");
}

// --- The slot of a handle ----------------------------------------------------------------------------------

kelo_dm_item_desc descriptor(const char* table, const char* key, int type) {
  kelo_dm_item_desc item{};
  std::snprintf(item.item_table, sizeof item.item_table, "%s", table);
  std::snprintf(item.item_key, sizeof item.item_key, "%s", key);
  item.type = type;
  return item;
}

TEST_F(ItemWrite, SlotWritesWhatTheDescriptorSays) {
  kelo_dm_item_desc item = descriptor("net", "ssid", 5);
  EXPECT_EQ(dm_sqlite_write(7, &item, "home", 4), 0);
  EXPECT_EQ(Items{row_of("ssid", "home")}, item_rows(DB_CONFIGBAK, "net"));
  EXPECT_EQ(log_.lines().at(0).text, "tab:net, key:ssid \n");
  EXPECT_EQ(log_.count(LOG_LVL_DBUG, "dm_sqlite_write", "tab:net, key:ssid \n"), 1) << log_.dump();
}

TEST_F(ItemWrite, SlotTakesNamesOfThirtyOneCharacters) {
  const std::string table(31, 't');
  const std::string key(31, 'k');
  kelo_dm_item_desc item = descriptor(table.c_str(), key.c_str(), -3);
  EXPECT_EQ(dm_sqlite_write(0xFFFFFFFF, &item, "home", 4), 0);
  EXPECT_EQ(item_rows(DB_CONFIGBAK, table), (Items{{-1, key, -3, 4, reference_crc("home"), "home"}}));
  EXPECT_EQ(journal_row(DB_STATE), (JournalRow{"write_state", table, -1, key, -3, 4, 102}));
}

TEST_F(ItemWrite, SlotPassesResultsOn) {
  kelo_dm_item_desc item = descriptor("net", "ssid", 5);
  EXPECT_EQ(dm_sqlite_write(7, &item, nullptr, 4), -1);
  EXPECT_EQ(dm_sqlite_write(7, &item, "home", -1), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_pal_write", "dm_pal_write NULL\n"), 2) << log_.dump();
  // The lock was given back each time.
  EXPECT_EQ(dm_sqlite_write(7, &item, "home", 4), 0);
}

TEST_F(ItemWrite, SlotWithoutDescriptor) {
  EXPECT_EQ(dm_sqlite_write(7, nullptr, "home", 4), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_sqlite_write", "dm_sqlite_write param NULL\n"), 1) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 1U);
}

// --- Descriptors and threads -------------------------------------------------------------------------------

TEST_F(ItemWrite, NoDescriptorIsLeftOpen) {
  const auto before = open_descriptors();
  write_item("ssid", "home");
  EXPECT_EQ(before, open_descriptors()) << "after the first write";
  write_item("ssid", "cabin");
  EXPECT_EQ(before, open_descriptors()) << "after an update";

  const kelo::tests::FaultPlan plans[] = {
      {.call = "sqlite3_open", .code = SQLITE_CANTOPEN, .text = DB_STATE},
      {.call = "sqlite3_open", .code = SQLITE_CANTOPEN, .text = DB_CONFIG},
      {.call = "sqlite3_open_v2", .code = SQLITE_CANTOPEN},
      {.call = "sqlite3_exec", .code = SQLITE_CORRUPT, .text = "create table if not exists net"},
      {.call = "sqlite3_exec", .code = SQLITE_FULL, .text = "create table if not exists net"},
      {.call = "sqlite3_exec", .code = SQLITE_CORRUPT, .text = "quick_check"},
      {.call = "sqlite3_get_table", .code = SQLITE_IOERR},
      {.call = "sqlite3_prepare", .code = SQLITE_ERROR, .times = kEveryTime},
      {.call = "sqlite3_bind_blob", .code = SQLITE_NOMEM},
      {.call = "sqlite3_step", .code = SQLITE_FULL},
      {.call = "sqlite3_step", .code = SQLITE_ROW},
      {.call = "popen", .code = EMFILE},
      {.call = "fsync", .code = EIO},
  };
  for (const auto& plan : plans) {
    const Fault fault(plan);
    write_item("ssid", "harbour");
    EXPECT_GT(fault.failed(), 0) << plan.call << " " << plan.text;
    EXPECT_EQ(before, open_descriptors()) << plan.call << " " << plan.text;
  }
  kelo::tests::corrupt_schema(DB_CONFIG);
  write_item("ssid", "home");
  EXPECT_EQ(before, open_descriptors()) << "after a repair";
  write_item("no such", "");
  dm_pal_write(nullptr, 7, "ssid", 5, "home", 4);
  EXPECT_EQ(before, open_descriptors()) << "after refusals";
}

TEST_F(ItemWrite, ThreadsWriteAndReadTheirItems) {
  constexpr int kRounds = 12;
  kelo_set_log_level(LOG_LVL_CRT);
  std::atomic<int> failures{0};
  const auto work = [&failures](int id) {
    kelo_dm_item_desc own = descriptor("net", ("own_" + std::to_string(id)).c_str(), 5);
    kelo_dm_item_desc shared = descriptor("net", "shared", 5);
    for (int round = 0; round < kRounds; ++round) {
      const std::string value = std::to_string(id) + " in round " + std::to_string(round);
      if (dm_sqlite_write(7, &own, value.data(), static_cast<int>(value.size())) != 0) ++failures;
      if (dm_sqlite_write(8, &shared, value.data(), static_cast<int>(value.size())) != 0) ++failures;
      std::string read(64, '\0');
      const int length = dm_sqlite_read(7, &own, read.data(), static_cast<int>(read.size()));
      if (length != static_cast<int>(value.size()) || read.compare(0, value.size(), value) != 0) ++failures;
      if (dm_sqlite_read(8, &shared, read.data(), static_cast<int>(read.size())) < 1) ++failures;
    }
  };
  std::thread first(work, 1);
  std::thread second(work, 2);
  first.join();
  second.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(scalar(DB_CONFIGBAK, "select count(*) from net"), "3");
  EXPECT_EQ(read_file(DB_CONFIG), read_file(DB_CONFIGBAK));
}

// Whether the thread sleeps in a system call, as it does in a lock that is held.
bool sleeps(pid_t thread) {
  std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string line;
  std::getline(stat, line);
  const std::size_t name_end = line.rfind(')');
  return name_end != std::string::npos && line.compare(name_end, 3, ") S") == 0;
}

// A second operation does not begin before the first one's last step, the copy included.
TEST_F(ItemWrite, SlotsExcludeEachOther) {
  kelo_dm_item_desc item = descriptor("net", "ssid", 5);
  ASSERT_EQ(dm_sqlite_write(7, &item, "home", 4), 0);
  ASSERT_EQ(mkfifo("/tmp/copying", 0600), 0);
  ASSERT_EQ(mkfifo("/tmp/go_on", 0600), 0);
  put_in_path("cp", R"(echo > /tmp/copying; cat /tmp/go_on; exec /bin/cp "$@")");
  log_.clear();
  std::thread writer([&item] { EXPECT_EQ(dm_sqlite_write(7, &item, "cabin", 5), 0); });
  read_file("/tmp/copying");

  std::atomic<pid_t> reader_id{0};
  std::atomic<bool> ended{false};
  std::string value(16, '\0');
  std::thread reader([&] {
    reader_id = gettid();
    EXPECT_EQ(dm_sqlite_read(7, &item, value.data(), 16), 5);
    ended = true;
  });
  while (reader_id == 0 || (!ended && !sleeps(reader_id))) std::this_thread::yield();
  EXPECT_FALSE(ended) << "the read did not wait for the write";
  EXPECT_EQ(log_.count_containing(LOG_LVL_DBUG, "rd ret"), 0) << log_.dump();
  kelo::tests::write_file("/tmp/go_on", "");
  writer.join();
  reader.join();
  EXPECT_EQ(value.substr(0, 5), "cabin");
}

}  // namespace
