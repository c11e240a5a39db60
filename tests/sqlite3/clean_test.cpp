// SPDX-License-Identifier: MIT
// A clean deletes the databases and keeps dated copies.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <map>
#include <ostream>
#include <regex>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using namespace kelo::tests;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr char kClean[] = "dm_sqlite_clean";
const std::string kCopies = "/mnt/vendor/nvdata/";

// The files kept, by name, with what they hold.
std::map<std::string, std::string> kept_files(const std::string& directory = kCopies) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    if (entry.is_regular_file()) files[entry.path().lexically_relative(directory)] = read_file(entry.path());
  }
  return files;
}

std::string copy_name(int number) {
  return "2020-01-0" + std::to_string(number) + "_00_00_00.db" + std::to_string(number);
}

void keep_copies(int count, const std::string& directory = kCopies) {
  for (int number = 1; number <= count; ++number) {
    write_file(directory + copy_name(number), "copy " + std::to_string(number));
  }
}

// A lock that was left held ends the test instead of stopping it.
class CleanTest : public testing::Test {
 protected:
  CleanTest() {
    alarm(60);
    write_file(DB_CONFIG, "primary");
    write_file(DB_CONFIGBAK, "backup");
    write_file(DB_STATE, "journal");
    write_file(DB_DEF_ITEMS, "defaults");
  }
  void TearDown() override { alarm(0); }

  static void expect_databases(bool config, bool backup, bool state) {
    EXPECT_EQ(file_exists(DB_CONFIG), config);
    EXPECT_EQ(file_exists(DB_CONFIGBAK), backup);
    EXPECT_EQ(file_exists(DB_STATE), state);
    EXPECT_EQ(read_file(DB_DEF_ITEMS), "defaults");
  }

  // The back-end answers again.
  static void expect_lock_free() {
    std::uint32_t version = 0;
    dm_sqlite_read_CfgDB_version(&version);
  }

  void expect_counted(int count) const {
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kClean,
                        "-----------------Get db num:" + std::to_string(count) + "---------------\n"),
              1)
        << log.dump();
  }

  // The new copy's name: the date, the time and its number.
  static void expect_new_copy(const std::string& name, int number) {
    static const std::regex form(R"(\d{4}-\d\d-\d\d_\d\d_\d\d_\d\d\.db)");
    const std::string digits = std::to_string(number);
    ASSERT_GT(name.size(), digits.size());
    EXPECT_TRUE(std::regex_match(name.substr(0, name.size() - digits.size()), form)) << name;
    EXPECT_EQ(name.substr(name.size() - digits.size()), digits);
  }

  LogCapture log;
};

// --- Without a copy ----------------------------------------------------------------------------------------

TEST_F(CleanTest, DeletesTheThreeDatabases) {
  const CallTrace trace;
  EXPECT_EQ(dm_sqlite_clean(nullptr), 0);
  expect_databases(false, false, false);
  EXPECT_THAT(kept_files(), IsEmpty());
  expect_counted(0);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kClean, "just clean database no need backup\n"), 1);
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, ""), 0) << log.dump();
  EXPECT_EQ(trace.count("popen"), 1);
  EXPECT_EQ(trace.count("popen", "find /mnt/vendor/nvdata/ -name \"*.db*\" | wc -l"), 1) << trace.dump();
  expect_lock_free();
}

TEST_F(CleanTest, LeavesKeptCopiesAlone) {
  keep_copies(4);
  EXPECT_EQ(dm_sqlite_clean(nullptr), 0);
  expect_counted(4);
  EXPECT_EQ(kept_files().size(), 4U);
}

TEST_F(CleanTest, StopsAtAMissingPrimary) {
  std::filesystem::remove(DB_CONFIG);
  EXPECT_EQ(dm_sqlite_clean(nullptr), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kClean, "unlink error: No such file or directory\n"), 1) << log.dump();
  expect_databases(false, true, true);
}

TEST_F(CleanTest, StopsAtAMissingBackup) {
  std::filesystem::remove(DB_CONFIGBAK);
  EXPECT_EQ(dm_sqlite_clean(nullptr), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kClean, "unlink bak error: No such file or directory\n"), 1) << log.dump();
  expect_databases(false, false, true);
}

TEST_F(CleanTest, StopsAtAMissingJournal) {
  std::filesystem::remove(DB_STATE);
  EXPECT_EQ(dm_sqlite_clean(nullptr), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kClean, "unlink state error: No such file or directory\n"), 1)
      << log.dump();
  expect_databases(false, false, false);
  expect_lock_free();
}

struct Obstacle {
  const char* name;
  const char* path;
  const char* text;
};

void PrintTo(const Obstacle& obstacle, std::ostream* out) { *out << obstacle.name; }

class ObstacleTest : public CleanTest, public testing::WithParamInterface<Obstacle> {};

TEST_P(ObstacleTest, IsReportedAndEndsTheClean) {
  std::filesystem::remove(GetParam().path);
  ASSERT_TRUE(std::filesystem::create_directory(GetParam().path));
  EXPECT_EQ(dm_sqlite_clean(nullptr), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kClean, GetParam().text), 1) << log.dump();
  EXPECT_TRUE(file_exists(GetParam().path));
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "unlink"), 1) << log.dump();
  expect_lock_free();
}

INSTANTIATE_TEST_SUITE_P(
    Directories, ObstacleTest,
    testing::Values(Obstacle{"Primary", DB_CONFIG, "unlink error: Is a directory\n"},
                    Obstacle{"Backup", DB_CONFIGBAK, "unlink bak error: Is a directory\n"},
                    Obstacle{"Journal", DB_STATE, "unlink state error: Is a directory\n"}),
    [](const auto& instance) { return std::string(instance.param.name); });

// A copy that a crash interrupted must not bring an old database back after the clean.
TEST_F(CleanTest, WhatACrashLeftOfACopyGoesToo) {
  const std::string previous = std::string(DB_CONFIGBAK) + "-previous";
  write_file(previous, "old backup");
  EXPECT_EQ(dm_sqlite_clean(nullptr), 0);
  expect_databases(false, false, false);
  EXPECT_FALSE(file_exists(previous));
}

// --- With a copy -------------------------------------------------------------------------------------------

TEST_F(CleanTest, KeepsTheFirstCopiesUnderTheirNumbers) {
  for (int number = 1; number <= 3; ++number) {
    write_file(DB_CONFIG, "primary " + std::to_string(number));
    write_file(DB_CONFIGBAK, "backup");
    write_file(DB_STATE, "journal");
    std::map<std::string, std::string> before = kept_files();
    log.clear();
    EXPECT_EQ(dm_sqlite_clean("any text"), 0);
    expect_databases(false, false, false);
    expect_counted(number - 1);
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kClean, "just clean database no need backup\n"), 0);
    for (const auto& [name, contents] : kept_files()) {
      if (before.erase(name) == 1) continue;
      expect_new_copy(name, number);
      EXPECT_EQ(contents, "primary " + std::to_string(number));
    }
    EXPECT_THAT(before, IsEmpty());
    EXPECT_EQ(kept_files().size(), static_cast<std::size_t>(number));
  }
}

TEST_F(CleanTest, AnyTextAsksForACopy) {
  EXPECT_EQ(dm_sqlite_clean(""), 0);
  EXPECT_EQ(kept_files().size(), 1U);
}

TEST_F(CleanTest, TheCopyIsMadeWithTheDocumentedCommand) {
  keep_copies(2);
  const CallTrace trace;
  EXPECT_EQ(dm_sqlite_clean(""), 0);
  EXPECT_THAT(trace.count("popen"), 2) << trace.dump();
  EXPECT_EQ(trace.count("popen", "cp -rf /data/config.db /mnt/vendor/nvdata/`date +%Y-%m-%d_%H_%M_%S`.db3"),
            1)
      << trace.dump();
}

TEST_F(CleanTest, ThreeCopiesMoveDownByOne) {
  keep_copies(3);
  const CallTrace trace;
  EXPECT_EQ(dm_sqlite_clean(""), 0);
  std::map<std::string, std::string> files = kept_files();
  ASSERT_EQ(files.size(), 3U);
  EXPECT_EQ(files["2020-01-02_00_00_00.db1"], "copy 2");
  EXPECT_EQ(files["2020-01-03_00_00_00.db2"], "copy 3");
  expect_new_copy(files.rbegin()->first, 3);
  EXPECT_EQ(files.rbegin()->second, "primary");
  expect_databases(false, false, false);

  std::vector<std::string> commands;
  for (const TracedCall& call : trace.calls()) {
    if (call.function == "popen") commands.push_back(call.text);
  }
  EXPECT_THAT(
      commands,
      ElementsAre("find /mnt/vendor/nvdata/ -name \"*.db*\" | wc -l", "rm /mnt/vendor/nvdata/*.db1",
                  "find /mnt/vendor/nvdata/ -name \"*.db2\"",
                  "mv /mnt/vendor/nvdata/2020-01-02_00_00_00.db2 /mnt/vendor/nvdata/2020-01-02_00_00_00.db1",
                  "rm /mnt/vendor/nvdata/*.db2", "find /mnt/vendor/nvdata/ -name \"*.db3\"",
                  "mv /mnt/vendor/nvdata/2020-01-03_00_00_00.db3 /mnt/vendor/nvdata/2020-01-03_00_00_00.db2",
                  "cp -rf /data/config.db /mnt/vendor/nvdata/`date +%Y-%m-%d_%H_%M_%S`.db3"));
  EXPECT_EQ(
      log.count(LOG_LVL_DBUG, kClean,
                "-----------------Get db name:/mnt/vendor/nvdata/2020-01-02_00_00_00.db2\n-----------\n"),
      1)
      << log.dump();
}

class ManyCopiesTest : public CleanTest, public testing::WithParamInterface<int> {};

// More copies than are made are turned over as they are found: each moves down and the new one comes last.
TEST_P(ManyCopiesTest, MoveDownByOne) {
  const int count = GetParam();
  keep_copies(count);
  EXPECT_EQ(dm_sqlite_clean(""), 0);
  expect_counted(count);
  std::map<std::string, std::string> files = kept_files();
  ASSERT_EQ(files.size(), static_cast<std::size_t>(count));
  for (int number = 2; number <= count; ++number) {
    const std::string name =
        "2020-01-0" + std::to_string(number) + "_00_00_00.db" + std::to_string(number - 1);
    EXPECT_EQ(files[name], "copy " + std::to_string(number)) << name;
  }
  expect_new_copy(files.rbegin()->first, count);
}

INSTANTIATE_TEST_SUITE_P(Counts, ManyCopiesTest, testing::Values(4, 5, 9));

TEST_F(CleanTest, EveryFileThatLooksLikeADatabaseIsCounted) {
  write_file(kCopies + copy_name(1), "copy 1");
  write_file(kCopies + "settings.db", "foreign");
  write_file(kCopies + "settings.db-journal", "foreign");
  write_file(kCopies + "notes.txt", "not counted");
  ASSERT_TRUE(std::filesystem::create_directory(kCopies + "folder"));
  write_file(kCopies + "folder/deep.dbx", "foreign");
  EXPECT_EQ(dm_sqlite_clean(""), 0);
  expect_counted(4);
  std::map<std::string, std::string> files = kept_files();
  EXPECT_EQ(files.count(copy_name(1)), 0U);
  EXPECT_EQ(files.erase("settings.db") + files.erase("settings.db-journal") + files.erase("notes.txt") +
                files.erase("folder/deep.dbx"),
            4U);
  ASSERT_EQ(files.size(), 1U);
  expect_new_copy(files.begin()->first, 4);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kClean, "-----------------Get db name:-----------\n"), 3) << log.dump();
}

TEST_F(CleanTest, AGapInTheNumbersIsPassedOver) {
  write_file(kCopies + copy_name(1), "copy 1");
  write_file(kCopies + copy_name(3), "copy 3");
  write_file(kCopies + "other.db", "foreign");
  EXPECT_EQ(dm_sqlite_clean(""), 0);
  std::map<std::string, std::string> files = kept_files();
  ASSERT_EQ(files.size(), 3U);
  EXPECT_EQ(files["2020-01-03_00_00_00.db2"], "copy 3");
  EXPECT_EQ(files["other.db"], "foreign");
}

TEST_F(CleanTest, ANameOfTwoHundredCharactersIsRenumberedWhole) {
  const std::string stem(200, 'n');
  keep_copies(1);
  write_file(kCopies + stem + ".db2", "long name");
  write_file(kCopies + copy_name(3), "copy 3");
  EXPECT_EQ(dm_sqlite_clean(""), 0);
  EXPECT_EQ(kept_files()[stem + ".db1"], "long name");
}

TEST_F(CleanTest, CopiesAreTurnedOverInAnotherDirectoryButMadeInTheFixedOne) {
  const std::string directory = "/tmp/copies/";
  ASSERT_TRUE(std::filesystem::create_directory(directory));
  keep_copies(3, directory);
  std::strcpy(db_rst_bak, directory.c_str());
  EXPECT_EQ(dm_sqlite_clean(""), 0);
  EXPECT_THAT(kept_files(directory), ElementsAre(Pair("2020-01-02_00_00_00.db1", "copy 2"),
                                                 Pair("2020-01-03_00_00_00.db2", "copy 3")));
  ASSERT_EQ(kept_files().size(), 1U);
  expect_new_copy(kept_files().begin()->first, 3);
}

TEST_F(CleanTest, AMissingDirectoryCountsAsEmpty) {
  std::strcpy(db_rst_bak, "/tmp/missing/");
  EXPECT_EQ(dm_sqlite_clean(""), 0);
  expect_counted(0);
  ASSERT_EQ(kept_files().size(), 1U);
  expect_new_copy(kept_files().begin()->first, 1);
}

// Only whether a command could be started is looked at, not what became of it.
TEST_F(CleanTest, ACopyThatFailsDoesNotStopTheClean) {
  ASSERT_EQ(chmod(kCopies.c_str(), S_IRUSR | S_IXUSR), 0);
  EXPECT_EQ(dm_sqlite_clean(""), 0);
  ASSERT_EQ(chmod(kCopies.c_str(), S_IRWXU), 0);
  expect_databases(false, false, false);
  EXPECT_THAT(kept_files(), IsEmpty());
}

TEST_F(CleanTest, AMissingPrimaryIsNoticedWhenItIsToBeDeleted) {
  std::filesystem::remove(DB_CONFIG);
  EXPECT_EQ(dm_sqlite_clean(""), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kClean, "unlink error: No such file or directory\n"), 1) << log.dump();
  expect_databases(false, true, true);
  EXPECT_THAT(kept_files(), IsEmpty());
}

// --- Commands that cannot be started -----------------------------------------------------------------------

class FailingCommandTest : public CleanTest, public testing::WithParamInterface<int> {};

TEST_P(FailingCommandTest, EndsTheCleanBeforeAnythingIsDeleted) {
  keep_copies(3);
  const Fault fault({"popen", EMFILE, "", GetParam()});
  EXPECT_EQ(dm_sqlite_clean(""), -1);
  EXPECT_EQ(fault.seen(), GetParam());
  EXPECT_EQ(log.count(LOG_LVL_ERR, "dm_sqlite_system_cmd",
                      "system command failed: (24) " + std::string(std::strerror(EMFILE)) + "\n"),
            1)
      << log.dump();
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "unlink"), 0);
  expect_databases(true, true, true);
  expect_lock_free();
}

// Counting, removing, finding and moving twice each, and copying.
INSTANTIATE_TEST_SUITE_P(Commands, FailingCommandTest, testing::Range(1, 9));

TEST_F(CleanTest, CountingThatFailsEndsAPlainCleanToo) {
  const Fault fault({"popen", ENOMEM});
  EXPECT_EQ(dm_sqlite_clean(nullptr), -1);
  EXPECT_EQ(log.count_containing(LOG_LVL_DBUG, "Get db num"), 0) << log.dump();
  expect_databases(true, true, true);
  expect_lock_free();
}

TEST_F(CleanTest, NoDescriptorsLeftForACommand) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none = {3, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_EQ(dm_sqlite_clean(nullptr), -1);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "system command failed: (24) "), 1) << log.dump();
}

// --- The lock ----------------------------------------------------------------------------------------------

// A reader that starts while the files are being copied gets no answer before they are gone.
TEST_F(CleanTest, ReadersWaitUntilTheCleanHasEnded) {
  // The copy is made by a `cp` that waits for this test first.
  ASSERT_EQ(mkfifo("/tmp/held", S_IRUSR | S_IWUSR), 0);
  ASSERT_TRUE(std::filesystem::create_directory("/tmp/bin"));
  write_file("/tmp/bin/cp", "#!/bin/sh\ncat /tmp/held\nexec /bin/cp \"$@\"\n");
  ASSERT_EQ(chmod("/tmp/bin/cp", S_IRWXU), 0);
  setenv("PATH", "/tmp/bin:/usr/bin:/bin", 1);
  auto clean = std::async(std::launch::async, [] { return dm_sqlite_clean(""); });
  std::FILE* const held = std::fopen("/tmp/held", "we");  // returns once the copy has begun
  ASSERT_NE(held, nullptr);
  auto reader = std::async(std::launch::async, [] {
    std::uint32_t version = 0;
    dm_sqlite_read_CfgDB_version(&version);
    return file_exists(DB_STATE);
  });
  EXPECT_EQ(reader.wait_for(std::chrono::milliseconds(200)), std::future_status::timeout);
  std::fclose(held);
  EXPECT_EQ(clean.get(), 0);
  EXPECT_FALSE(reader.get());
}

// --- The slot ----------------------------------------------------------------------------------------------

class CleanSlotTest : public CleanTest {
 protected:
  CleanSlotTest() {
    for (const char* const path : {DB_CONFIG, DB_CONFIGBAK, DB_STATE}) std::filesystem::remove(path);
    sqlite_reg(&operations);  // stores the version, so all three files are there again
  }

  kelo_dm_operations operations{};
};

TEST_F(CleanSlotTest, ClearsTheFlagWhenTheCleanSucceeded) {
  std::int32_t flag = 1;
  EXPECT_EQ(operations.clean(nullptr, 1, &flag), 0);
  EXPECT_EQ(flag, 0);
  expect_databases(false, false, false);
  EXPECT_THAT(kept_files(), IsEmpty());
}

TEST_F(CleanSlotTest, ClearsTheFlagWhenTheCleanFailed) {
  std::filesystem::remove(DB_CONFIGBAK);
  std::int32_t flag = 1;
  EXPECT_EQ(operations.clean(nullptr, 1, &flag), -1);
  EXPECT_EQ(flag, 0);
}

TEST_F(CleanSlotTest, ClearsTheFlagWhenNothingCouldBeCounted) {
  const Fault fault({"popen", ENOMEM});
  std::int32_t flag = 1;
  EXPECT_EQ(operations.clean("", 1, &flag), -1);
  EXPECT_EQ(flag, 0);
}

TEST_F(CleanSlotTest, HandsItsFirstArgumentOn) {
  const std::string primary = read_file(DB_CONFIG);
  EXPECT_EQ(operations.clean("", 0, nullptr), 0);
  ASSERT_EQ(kept_files().size(), 1U);
  EXPECT_EQ(kept_files().begin()->second, primary);
}

}  // namespace
