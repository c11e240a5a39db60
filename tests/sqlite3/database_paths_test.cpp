// SPDX-License-Identifier: MIT
// The paths of the databases, and their change by a registration.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::file_exists;
using kelo::tests::LogCapture;
using kelo::tests::read_file;
using kelo::tests::write_file;

constexpr char kAllExist[] = "config && configbak all exist\n";

// A directory name of `length` characters that ends in "/".
std::string directory_of_length(std::size_t length) { return "/" + std::string(length - 2, 'd') + "/"; }

TEST(Paths, InitialContentsAndSizes) {
  EXPECT_STREQ("/data/config.db", DB_CONFIG);
  EXPECT_STREQ("/data/configbak.db", DB_CONFIGBAK);
  EXPECT_STREQ("/data/state.db", DB_STATE);
  EXPECT_STREQ("/data/DefItems.db", DB_DEF_ITEMS);
  EXPECT_STREQ("/data/ExportCSV.csv", DB_EXPORT_CSV);
  EXPECT_STREQ(db_area, "/data/");
  EXPECT_STREQ(db_rst_bak, "/mnt/vendor/nvdata/");
  EXPECT_EQ(sizeof DB_CONFIG, 64U);
  EXPECT_EQ(sizeof DB_CONFIGBAK, 64U);
  EXPECT_EQ(sizeof DB_STATE, 64U);
  EXPECT_EQ(sizeof DB_DEF_ITEMS, 64U);
  EXPECT_EQ(sizeof DB_EXPORT_CSV, 64U);
  EXPECT_EQ(sizeof db_area, 50U);
  EXPECT_EQ(sizeof db_rst_bak, 64U);
}

TEST(Paths, BothDirectoriesAreTaken) {
  const LogCapture log;
  sqlite_reg_store_area("/a/", "/b/");
  EXPECT_STREQ("/a/config.db", DB_CONFIG);
  EXPECT_STREQ("/a/state.db", DB_STATE);
  EXPECT_STREQ("/b/configbak.db", DB_CONFIGBAK);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Paths, TheOtherArraysStay) {
  sqlite_reg_store_area("/a/", "/b/");
  EXPECT_STREQ("/data/DefItems.db", DB_DEF_ITEMS);
  EXPECT_STREQ("/data/ExportCSV.csv", DB_EXPORT_CSV);
  EXPECT_STREQ(db_area, "/data/");
  EXPECT_STREQ(db_rst_bak, "/mnt/vendor/nvdata/");
}

TEST(Paths, NullBackupDirectoryLeavesTheBackup) {
  sqlite_reg_store_area("/a/", nullptr);
  EXPECT_STREQ("/a/config.db", DB_CONFIG);
  EXPECT_STREQ("/a/state.db", DB_STATE);
  EXPECT_STREQ("/data/configbak.db", DB_CONFIGBAK);
}

TEST(Paths, NullPrimaryDirectoryLeavesPrimaryAndJournal) {
  sqlite_reg_store_area(nullptr, "/b/");
  EXPECT_STREQ("/data/config.db", DB_CONFIG);
  EXPECT_STREQ("/data/state.db", DB_STATE);
  EXPECT_STREQ("/b/configbak.db", DB_CONFIGBAK);
}

TEST(Paths, TwoNullsChangeNothing) {
  sqlite_reg_store_area(nullptr, nullptr);
  EXPECT_STREQ("/data/config.db", DB_CONFIG);
  EXPECT_STREQ("/data/state.db", DB_STATE);
  EXPECT_STREQ("/data/configbak.db", DB_CONFIGBAK);
}

TEST(Paths, NoSeparatorIsAdded) {
  sqlite_reg_store_area("/a", "/b");
  EXPECT_STREQ("/aconfig.db", DB_CONFIG);
  EXPECT_STREQ("/astate.db", DB_STATE);
  EXPECT_STREQ("/bconfigbak.db", DB_CONFIGBAK);
}

TEST(Paths, EmptyDirectoriesGiveBareNames) {
  sqlite_reg_store_area("", "");
  EXPECT_STREQ("config.db", DB_CONFIG);
  EXPECT_STREQ("state.db", DB_STATE);
  EXPECT_STREQ("configbak.db", DB_CONFIGBAK);
}

TEST(Paths, DirectoriesOfFortyNineAndFiftyCharactersAreTaken) {
  for (const std::size_t length : {49U, 50U}) {
    const std::string directory = directory_of_length(length);
    sqlite_reg_store_area(directory.c_str(), directory.c_str());
    EXPECT_EQ(directory + "config.db", DB_CONFIG);
    EXPECT_EQ(directory + "state.db", DB_STATE);
    EXPECT_EQ(directory + "configbak.db", DB_CONFIGBAK);
  }
}

TEST(Paths, PrimaryDirectoryOfFiftyOneCharactersChangesNothing) {
  sqlite_reg_store_area(directory_of_length(51).c_str(), "/b/");
  EXPECT_STREQ("/data/config.db", DB_CONFIG);
  EXPECT_STREQ("/data/state.db", DB_STATE);
  EXPECT_STREQ("/data/configbak.db", DB_CONFIGBAK);
}

TEST(Paths, BackupDirectoryOfFiftyOneCharactersLeavesTheBackup) {
  sqlite_reg_store_area("/a/", directory_of_length(51).c_str());
  EXPECT_STREQ("/a/config.db", DB_CONFIG);
  EXPECT_STREQ("/a/state.db", DB_STATE);
  EXPECT_STREQ("/data/configbak.db", DB_CONFIGBAK);
}

TEST(Paths, MovedDatabasesAreWritten) {
  // The longest directories there can be, so that the copy's command is the longest there can be as well.
  const std::string primary = "/data/" + std::string(43, 'p') + "/";
  const std::string backup = "/data/" + std::string(43, 'b') + "/";
  ASSERT_EQ(primary.size(), 50U);
  std::filesystem::create_directory(primary);
  std::filesystem::create_directory(backup);
  sqlite_reg_store_area(primary.c_str(), backup.c_str());
  EXPECT_EQ(dm_pal_write("net", 7, "ssid", 5, "home", 4), 0);
  EXPECT_EQ(kelo::tests::scalar(primary + "config.db", "select value from net where key='ssid'"), "home");
  EXPECT_EQ(read_file(primary + "config.db"), read_file(backup + "configbak.db"));
  EXPECT_EQ(kelo::tests::journal_state(primary + "state.db"), WS_BACKUP_DONE);
  EXPECT_FALSE(file_exists("/data/config.db"));
}

class Existence : public testing::Test {
 protected:
  const LogCapture log_;
};

TEST_F(Existence, NoFile) {
  EXPECT_EQ(dm_pal_check_db_exist(), -1);
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(Existence, PrimaryAlone) {
  write_file(DB_CONFIG, "");
  EXPECT_EQ(dm_pal_check_db_exist(), -1);
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(Existence, BackupAlone) {
  write_file(DB_CONFIGBAK, "");
  EXPECT_EQ(dm_pal_check_db_exist(), -1);
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(Existence, BothFiles) {
  write_file(DB_CONFIG, "");
  write_file(DB_CONFIGBAK, "");
  EXPECT_EQ(dm_pal_check_db_exist(), 0);
  EXPECT_EQ(log_.count(LOG_LVL_WRN, "dm_pal_check_db_exist", kAllExist), 1) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 1U);
}

TEST_F(Existence, MovedFiles) {
  std::filesystem::create_directory("/data/a");
  sqlite_reg_store_area("/data/a/", "/data/a/");
  write_file("/data/config.db", "");
  write_file("/data/configbak.db", "");
  EXPECT_EQ(dm_pal_check_db_exist(), -1);
  write_file("/data/a/config.db", "");
  write_file("/data/a/configbak.db", "");
  EXPECT_EQ(dm_pal_check_db_exist(), 0);
}

// A power cut while the backup was copied leaves it under its second name: it is still there.
TEST_F(Existence, FilesOfAnInterruptedCopyCount) {
  write_file(DB_CONFIG, "primary");
  write_file("/data/configbak.db-previous", "backup");
  EXPECT_EQ(dm_pal_check_db_exist(), 0);
  EXPECT_EQ(read_file(DB_CONFIGBAK), "backup");

  std::filesystem::rename(DB_CONFIG, "/data/config.db-previous");
  EXPECT_EQ(dm_pal_check_db_exist(), 0);
  EXPECT_EQ(read_file(DB_CONFIG), "primary");
}

}  // namespace
