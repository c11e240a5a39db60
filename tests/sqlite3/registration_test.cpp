// SPDX-License-Identifier: MIT
// The back-end fills in the table of operations and keeps the version record.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace kelo::tests;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kRegistration[] = "sqlite_reg";
constexpr char kMatch[] = "sqlite_chk_db_ver_match";
constexpr char kVersionRow[] = "select id,key,type,len,crc,hex(value),typeof(value) from SQL_VER_TAB";

// A lock that a failed operation left held ends the test instead of stopping it.
class RegistrationTest : public testing::Test {
 protected:
  RegistrationTest() { alarm(60); }
  void TearDown() override { alarm(0); }

  // What the registration said, in order.
  [[nodiscard]] std::vector<std::string> said() const {
    std::vector<std::string> texts;
    for (const LogLine& line : log.lines()) {
      if (line.function != kRegistration) continue;
      EXPECT_EQ(line.level, LOG_LVL_DBUG) << line;
      texts.push_back(line.text);
    }
    return texts;
  }

  void register_afresh() {
    log.clear();
    sqlite_reg(&operations);
  }

  // The back-end still answers: the lock was released.
  static void expect_lock_free() {
    std::uint32_t version = 0;
    dm_sqlite_read_CfgDB_version(&version);
  }

  LogCapture log;
  kelo_dm_operations operations{};
};

void store_version(std::uint32_t version) {
  ASSERT_EQ(
      dm_pal_write(SQL_VER_TAB, SQL_VER_ID, SQL_VER_KEY, KELO_DM_TYPE_SCALAR3, &version, sizeof version), 0);
}

void store_defaults_version(std::uint32_t version) {
  ASSERT_EQ(dm_write_def_db(SQL_VER_TAB, SQL_VER_KEY, KELO_DM_TYPE_SCALAR3, &version, sizeof version), 0);
}

// Makes the stored checksum wrong.
void break_checksum(const char* path) { execute_sql(path, "update SQL_VER_TAB set crc=crc+1"); }

void make_directory_of(const char* path) {
  std::filesystem::remove(path);
  ASSERT_TRUE(std::filesystem::create_directory(path));
}

TEST_F(RegistrationTest, FillsTheSevenSlots) {
  sqlite_reg(&operations);
  EXPECT_EQ(operations.write, dm_sqlite_write);
  EXPECT_EQ(operations.read, dm_sqlite_read);
  EXPECT_NE(operations.clean, nullptr);
  EXPECT_EQ(operations.def_db_const, dm_sqlite_def_db_const);
  EXPECT_EQ(operations.def_db_read, dm_sqlite_def_db_read);
  EXPECT_EQ(operations.read_cfg_db_version, dm_sqlite_read_CfgDB_version);
  EXPECT_EQ(operations.read_def_items_db_version, dm_sqlite_read_DefItemsDB_version);
}

TEST_F(RegistrationTest, FirstStartStoresTheVersionThroughTheJournal) {
  register_afresh();
  EXPECT_THAT(said(), ElementsAre("sqlite_reg\n", "database no ver_num\n")) << log.dump();
  const std::string row = "65537|SQL_VER_KEY|3|4|0|01000100|blob";
  EXPECT_THAT(query_lines(DB_CONFIG, kVersionRow), ElementsAre(row));
  EXPECT_EQ(read_file(DB_CONFIGBAK), read_file(DB_CONFIG));
  EXPECT_THAT(query_lines(DB_STATE, "select * from state"),
              ElementsAre("write_state|SQL_VER_TAB|65537|SQL_VER_KEY|3|4|102"));
  EXPECT_FALSE(file_exists(DB_DEF_ITEMS));
  std::uint32_t version = 0;
  EXPECT_EQ(operations.read_cfg_db_version(&version), 4);
  EXPECT_EQ(version, 0x00010001U);
}

TEST_F(RegistrationTest, ASecondCallOnlyFillsTheSlots) {
  sqlite_reg(&operations);
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK, DB_STATE}) std::filesystem::remove(path);
  operations = {};
  register_afresh();
  EXPECT_EQ(operations.write, dm_sqlite_write);
  EXPECT_EQ(operations.read_def_items_db_version, dm_sqlite_read_DefItemsDB_version);
  EXPECT_EQ(log.lines().size(), 2U) << log.dump();
  EXPECT_THAT(said(), ElementsAre("sqlite_reg\n", "sqlite_already reg\n"));
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK, DB_STATE}) EXPECT_FALSE(file_exists(path)) << path;
  expect_lock_free();
}

TEST_F(RegistrationTest, NullIsRefusedAndDoesNotCountAsTheFirstCall) {
  sqlite_reg(nullptr);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kRegistration, "sqlite_reg\n"), 1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kRegistration, "sqlite_reg param NULL\n"), 1);
  EXPECT_FALSE(file_exists(DB_CONFIG));
  register_afresh();
  EXPECT_THAT(said(), ElementsAre("sqlite_reg\n", "database no ver_num\n"));
}

TEST_F(RegistrationTest, AnEqualVersionLeadsToTheCompletionOfAWrite) {
  store_version(SQL_VER);
  register_afresh();
  EXPECT_THAT(said(), ElementsAre("sqlite_reg\n", "sqlite_ver & database_ver is same\n"));
  EXPECT_EQ(
      log.count(LOG_LVL_DBUG, "dm_sqlite_check_database", "dm_sqlite_check_database suc, no need sync\n"), 1);
  expect_lock_free();
}

struct StoredVersion {
  const char* name;
  std::uint32_t version;
  std::vector<std::string> said;
};

void PrintTo(const StoredVersion& stored, std::ostream* out) { *out << stored.name; }

class OtherVersionTest : public RegistrationTest, public testing::WithParamInterface<StoredVersion> {};

TEST_P(OtherVersionTest, IsReportedAndNothingElse) {
  store_version(GetParam().version);
  const std::string config = read_file(DB_CONFIG);
  const std::string state = read_file(DB_STATE);
  register_afresh();
  EXPECT_EQ(said(), GetParam().said) << log.dump();
  for (const LogLine& line : log.lines()) EXPECT_NE(line.function, "dm_sqlite_check_database");
  EXPECT_EQ(read_file(DB_CONFIG), config);
  EXPECT_EQ(read_file(DB_CONFIGBAK), config);
  EXPECT_EQ(read_file(DB_STATE), state);
  expect_lock_free();
}

const char kUpdate[] = "sqlite_ver update to new,database is old\n";
const char kRollback[] = "sqlite_ver rollback to old,database is new\n";

INSTANTIATE_TEST_SUITE_P(
    Versions, OtherVersionTest,
    testing::Values(StoredVersion{"OneNewer", 0x00010002, {"sqlite_reg\n", kRollback}},
                    StoredVersion{"Newest", 0x7FFFFFFF, {"sqlite_reg\n", kRollback}},
                    StoredVersion{"OneOlder", 0x00010000, {"sqlite_reg\n", kUpdate}},
                    StoredVersion{"One", 1, {"sqlite_reg\n", kUpdate}},
                    StoredVersion{"None", 0, {"sqlite_reg\n", kUpdate, "database no update_cb ,clean db\n"}},
                    // Versions are compared as signed numbers.
                    StoredVersion{"Negative", 0x80000000, {"sqlite_reg\n", kUpdate}}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(RegistrationTest, AShorterVersionCountsWithZerosAfterIt) {
  const std::uint8_t one_byte = 7;
  ASSERT_EQ(dm_pal_write(SQL_VER_TAB, SQL_VER_ID, SQL_VER_KEY, KELO_DM_TYPE_SCALAR3, &one_byte, 1), 0);
  register_afresh();
  EXPECT_THAT(said(), ElementsAre("sqlite_reg\n", kUpdate));
}

TEST_F(RegistrationTest, AWrongChecksumIsReportedAsBad) {
  store_version(SQL_VER);
  break_checksum(DB_CONFIG);
  break_checksum(DB_CONFIGBAK);
  const std::string config = read_file(DB_CONFIG);
  register_afresh();
  EXPECT_THAT(said(), ElementsAre("sqlite_reg\n", "database bad err,clean db\n"));
  EXPECT_EQ(read_file(DB_CONFIG), config);
  expect_lock_free();
}

TEST_F(RegistrationTest, AWrongChecksumInThePrimaryAloneDoesNotCount) {
  store_version(SQL_VER);
  break_checksum(DB_CONFIG);
  register_afresh();
  EXPECT_THAT(said(), ElementsAre("sqlite_reg\n", "sqlite_ver & database_ver is same\n"));
}

TEST_F(RegistrationTest, ABackupThatCannotBeOpenedIsReportedAsBad) {
  store_version(SQL_VER);
  make_directory_of(DB_CONFIGBAK);
  register_afresh();
  EXPECT_THAT(said(), ElementsAre("sqlite_reg\n", "database bad err,clean db\n"));
  expect_lock_free();
}

TEST_F(RegistrationTest, AMissingRowLeavesTheVersionUnwritten) {
  store_version(SQL_VER);
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK}) execute_sql(path, "delete from SQL_VER_TAB");
  register_afresh();
  EXPECT_THAT(said(), ElementsAre("sqlite_reg\n", "database other err\n"));
  EXPECT_THAT(query_lines(DB_CONFIG, kVersionRow), IsEmpty());
  expect_lock_free();
}

TEST_F(RegistrationTest, AVersionThatCannotBeWrittenIsReported) {
  make_directory_of(DB_CONFIG);
  register_afresh();
  EXPECT_THAT(said(), ElementsAre("sqlite_reg\n", "database no ver_num\n", "database wr ver_num fail\n"));
  expect_lock_free();
}

TEST_F(RegistrationTest, TheVersionIsStoredBesideOtherItems) {
  const int value = 6;
  ASSERT_EQ(dm_pal_write("NET_TAB", 1203, "CHANNEL", KELO_DM_TYPE_SCALAR3, &value, sizeof value), 0);
  register_afresh();
  EXPECT_THAT(said(), ElementsAre("sqlite_reg\n", "database no ver_num\n"));
  EXPECT_EQ(query_lines(DB_CONFIGBAK, kVersionRow).size(), 1U);
  EXPECT_EQ(query_lines(DB_CONFIGBAK, "select * from NET_TAB").size(), 1U);
}

// --- Version queries ---------------------------------------------------------------------------------------

TEST_F(RegistrationTest, TheConfigurationVersionQuery) {
  EXPECT_EQ(dm_sqlite_read_CfgDB_version(nullptr), DM_SQLITE_FAILED);
  EXPECT_EQ(
      log.count(LOG_LVL_ERR, "dm_sqlite_read_CfgDB_version", "dm_sqlite_read_CfgDB_version param NULL\n"), 1);
  std::uint32_t version = 0xA5A5A5A5;
  EXPECT_EQ(dm_sqlite_read_CfgDB_version(&version), DM_SQLITE_NOT_PREPARED);
  EXPECT_EQ(version, 0xA5A5A5A5);
  store_version(0x12345678);
  EXPECT_EQ(dm_sqlite_read_CfgDB_version(&version), 4);
  EXPECT_EQ(version, 0x12345678U);
  break_checksum(DB_CONFIGBAK);
  EXPECT_EQ(dm_sqlite_read_CfgDB_version(&version), DM_SQLITE_BAD_CRC);
  execute_sql(DB_CONFIGBAK, "delete from SQL_VER_TAB");
  EXPECT_EQ(dm_sqlite_read_CfgDB_version(&version), DM_SQLITE_FAILED);
  make_directory_of(DB_CONFIGBAK);
  EXPECT_EQ(dm_sqlite_read_CfgDB_version(&version), DM_SQLITE_NOT_OPENED);
}

TEST_F(RegistrationTest, TheDefaultsVersionQuery) {
  EXPECT_EQ(dm_sqlite_read_DefItemsDB_version(nullptr), DM_SQLITE_FAILED);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "dm_sqlite_read_DefItemsDB_version",
                      "dm_sqlite_read_DefItemsDB_version param NULL\n"),
            1);
  std::uint32_t version = 0xA5A5A5A5;
  EXPECT_EQ(dm_sqlite_read_DefItemsDB_version(&version), DM_SQLITE_NOT_PREPARED);
  EXPECT_EQ(version, 0xA5A5A5A5);
  store_defaults_version(0x12345678);
  EXPECT_EQ(dm_sqlite_read_DefItemsDB_version(&version), 4);
  EXPECT_EQ(version, 0x12345678U);
  execute_sql(DB_DEF_ITEMS, "delete from SQL_VER_TAB");
  EXPECT_EQ(dm_sqlite_read_DefItemsDB_version(&version), DM_SQLITE_FAILED);
  make_directory_of(DB_DEF_ITEMS);
  EXPECT_EQ(dm_sqlite_read_DefItemsDB_version(&version), DM_SQLITE_NOT_OPENED);
}

// --- Comparison of the two ---------------------------------------------------------------------------------

constexpr int kUntouched = 77;

TEST_F(RegistrationTest, ComparingIntoNothingDoesNothing) {
  sqlite_chk_db_ver_match(nullptr);
  EXPECT_THAT(log.lines(), IsEmpty()) << log.dump();
  EXPECT_FALSE(file_exists(DB_CONFIG));
}

TEST_F(RegistrationTest, ComparingWithoutAConfigurationVersion) {
  store_defaults_version(SQL_VER);
  int matched = kUntouched;
  sqlite_chk_db_ver_match(&matched);
  EXPECT_EQ(matched, kUntouched);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kMatch, "tmp_sqlite_ver read fail\n"), 1);
  EXPECT_EQ(log.count_containing(LOG_LVL_DBUG, "tmp_"), 0) << log.dump();
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "matched"), 0) << log.dump();
  expect_lock_free();
}

TEST_F(RegistrationTest, ComparingWithoutADefaultsVersion) {
  store_version(SQL_VER);
  int matched = kUntouched;
  sqlite_chk_db_ver_match(&matched);
  EXPECT_EQ(matched, kUntouched);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kMatch, "tmp_sqlite_ver 10001\n"), 1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kMatch, "tmp_DefItems_db_ver read fail\n"), 1);
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "matched"), 0) << log.dump();
  expect_lock_free();
}

struct TwoVersions {
  const char* name;
  std::uint32_t configuration;
  std::uint32_t defaults;
  int matched;
  const char* configuration_text;
  const char* defaults_text;
};

void PrintTo(const TwoVersions& versions, std::ostream* out) { *out << versions.name; }

class ComparisonTest : public RegistrationTest, public testing::WithParamInterface<TwoVersions> {};

TEST_P(ComparisonTest, SaysWhetherBothAreTheLibrarys) {
  store_version(GetParam().configuration);
  store_defaults_version(GetParam().defaults);
  log.clear();
  int matched = kUntouched;
  sqlite_chk_db_ver_match(&matched);
  EXPECT_EQ(matched, GetParam().matched);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kMatch, GetParam().configuration_text), 1) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kMatch, GetParam().defaults_text), 1) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_ERR, kMatch, " sqlite_chk_db_ver_matched \n"), matched);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kMatch, " sqlite_chk_db_ver_not_matched \n"), 1 - matched);
  expect_lock_free();
}

INSTANTIATE_TEST_SUITE_P(
    Versions, ComparisonTest,
    testing::Values(TwoVersions{"Agreeing", 0x10001, 0x10001, 1, "tmp_sqlite_ver 10001\n",
                                "tmp_DefItems_db_ver 10001\n"},
                    TwoVersions{"OtherConfiguration", 0x10002, 0x10001, 0, "tmp_sqlite_ver 10002\n",
                                "tmp_DefItems_db_ver 10001\n"},
                    TwoVersions{"OtherDefaults", 0x10001, 0xABCDEF, 0, "tmp_sqlite_ver 10001\n",
                                "tmp_DefItems_db_ver abcdef\n"},
                    // They agree with one another, but not with the library.
                    TwoVersions{"BothOther", 0x10002, 0x10002, 0, "tmp_sqlite_ver 10002\n",
                                "tmp_DefItems_db_ver 10002\n"},
                    TwoVersions{"BothNone", 0, 0, 0, "tmp_sqlite_ver 0\n", "tmp_DefItems_db_ver 0\n"}),
    [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
