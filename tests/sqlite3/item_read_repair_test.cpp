// SPDX-License-Identifier: MIT
// The repair that a read makes of the primary database.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/sqlite_faults.hpp"
#include "tests/support/stored_rows.hpp"

namespace {

using kelo::tests::CallTrace;
using kelo::tests::Fault;
using kelo::tests::kEveryTime;
using kelo::tests::put;
using kelo::tests::read_file;
using kelo::tests::ReadRow;
using Buffer = kelo::tests::MarkedBuffer;

constexpr char kRecovery[] = "/kelonvbak/data/config.db";
constexpr char kFromBackup[] = "error: DB_CONFIG is damaged cp /data/configbak.db /data/config.db";
constexpr char kFromRecovery[] =
    "error: DB_CONFIG is damaged so cp /kelonvbak/data/config.db /data/config.db";

class Repair : public ReadRow {
 protected:
  void SetUp() override {
    put(DB_CONFIG, "ssid", "current");
    put(DB_CONFIGBAK, "ssid", "backed up");
  }
  static void provide_recovery() { put(kRecovery, "ssid", "recovered"); }

  int repairs() const { return log_.count_containing(LOG_LVL_ERR, "DB_CONFIG is damaged"); }
  int health_checks() const {
    return log_.count_containing(LOG_LVL_DBUG, "is_corrupted=0\n") +
           log_.count_containing(LOG_LVL_ERR, "is_corrupted=");
  }
};

TEST_F(Repair, HealthyBackupIsCopiedFirst) {
  provide_recovery();
  kelo::tests::corrupt_schema(DB_CONFIG);
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 9);
  EXPECT_EQ(buffer.first(9), "backed up");
  EXPECT_EQ(prepare_errors(SQLITE_CORRUPT), 1) << log_.dump();
  EXPECT_EQ(logged(kFromBackup), 1) << log_.dump();
  EXPECT_EQ(repairs(), 1);
  EXPECT_EQ(read_file(DB_CONFIGBAK), read_file(DB_CONFIG));
}

TEST_F(Repair, RecoveryCopyIsTheLastSource) {
  provide_recovery();
  const std::string recovery = read_file(kRecovery);
  kelo::tests::corrupt_schema(DB_CONFIG);
  kelo::tests::corrupt_schema(DB_CONFIGBAK);
  const std::string backup = read_file(DB_CONFIGBAK);
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 9);
  EXPECT_EQ(buffer.first(9), "recovered");
  EXPECT_EQ(logged(kFromRecovery), 1) << log_.dump();
  EXPECT_EQ(repairs(), 1);
  EXPECT_EQ(recovery, read_file(DB_CONFIG));
  EXPECT_EQ(recovery, read_file(kRecovery));
  EXPECT_EQ(backup, read_file(DB_CONFIGBAK));
}

TEST_F(Repair, MissingBackupCountsAsUnhealthy) {
  provide_recovery();
  kelo::tests::corrupt_schema(DB_CONFIG);
  ASSERT_EQ(unlink(DB_CONFIGBAK), 0);
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 9);
  EXPECT_EQ(logged(kFromRecovery), 1) << log_.dump();
  EXPECT_FALSE(kelo::tests::file_exists(DB_CONFIGBAK));
}

TEST_F(Repair, WithoutAHealthyCopyTheReadIsJustRepeated) {
  kelo::tests::corrupt_schema(DB_CONFIG);
  kelo::tests::make_no_database(DB_CONFIGBAK);
  const std::string primary = read_file(DB_CONFIG);
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_EQ(prepare_errors(SQLITE_CORRUPT), 2) << log_.dump();
  EXPECT_EQ(repairs(), 0);
  EXPECT_EQ(health_checks(), 2) << "the sources are examined once";
  EXPECT_EQ(primary, read_file(DB_CONFIG));
  EXPECT_TRUE(buffer.untouched_from(0));
  EXPECT_EQ(crc_, kUnset);
}

// A good primary is not replaced: the backup is made anew from it, for the next read.
TEST_F(Repair, CorruptBackupIsMadeAnewFromAGoodPrimary) {
  provide_recovery();
  kelo::tests::corrupt_schema(DB_CONFIGBAK);
  const std::string primary = read_file(DB_CONFIG);
  Buffer buffer(16);
  EXPECT_EQ(dm_read_db(DB_CONFIGBAK, "net", "ssid", buffer.data(), &crc_, 16), -100);
  EXPECT_EQ(prepare_errors(SQLITE_CORRUPT), 2) << log_.dump();
  EXPECT_EQ(logged(kFromRecovery), 0);
  EXPECT_EQ(primary, read_file(DB_CONFIG));
  EXPECT_EQ(primary, read_file(DB_CONFIGBAK));
}

// Of two corrupt files the primary is the one that is repaired, whichever was read.
TEST_F(Repair, CopyGoesToThePrimaryWhateverFileIsRead) {
  provide_recovery();
  kelo::tests::corrupt_schema(DB_CONFIG);
  kelo::tests::corrupt_schema(DB_CONFIGBAK);
  Buffer buffer(16);
  EXPECT_EQ(dm_read_db(DB_CONFIGBAK, "net", "ssid", buffer.data(), &crc_, 16), -100);
  EXPECT_EQ(prepare_errors(SQLITE_CORRUPT), 2) << log_.dump();
  EXPECT_EQ(logged(kFromRecovery), 1) << "once per call";
  EXPECT_EQ(read_file(kRecovery), read_file(DB_CONFIG));
  EXPECT_EQ(read_file(kRecovery), read_file(DB_CONFIGBAK));
}

TEST_F(Repair, FileOutsideTheStoreRepairsThePrimaryToo) {
  put("/data/other.db", "ssid", "other");
  kelo::tests::corrupt_schema("/data/other.db");
  Buffer buffer(16);
  EXPECT_EQ(dm_read_db("/data/other.db", "net", "ssid", buffer.data(), &crc_, 16), -100);
  EXPECT_EQ(logged(kFromBackup), 1) << log_.dump();
  EXPECT_EQ(read_file(DB_CONFIGBAK), read_file(DB_CONFIG));
}

// A source that passes the quick check without the table ends the second try with another error.
TEST_F(Repair, SecondTryReportsWhatTheCopyLacks) {
  kelo::tests::corrupt_schema(DB_CONFIG);
  ASSERT_EQ(unlink(DB_CONFIGBAK), 0);
  kelo::tests::execute_sql(DB_CONFIGBAK, "create table other (text)");
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_EQ(logged(kFromBackup), 1) << log_.dump();
  EXPECT_EQ(prepare_errors(SQLITE_CORRUPT), 1);
  EXPECT_EQ(prepare_errors(SQLITE_ERROR), 1);
}

// An empty file passes the check, but there is nothing in it.
TEST_F(Repair, EmptyBackupIsNoSource) {
  provide_recovery();
  kelo::tests::corrupt_schema(DB_CONFIG);
  kelo::tests::write_file(DB_CONFIGBAK, "");
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 9);
  EXPECT_EQ(logged(kFromBackup), 0) << log_.dump();
  EXPECT_EQ(logged(kFromRecovery), 1);
}

TEST_F(Repair, ForeignFileIsNotRepaired) {
  provide_recovery();
  kelo::tests::make_no_database(DB_CONFIG);
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_EQ(prepare_errors(SQLITE_NOTADB), 1) << log_.dump();
  EXPECT_EQ(repairs(), 0);
  EXPECT_EQ(health_checks(), 0);
}

TEST_F(Repair, DamageFoundByTheStepIsNotRepaired) {
  kelo::tests::overwrite_file(DB_CONFIG, 4096, std::string(64, '\xFF'));  // the table's own page
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -1);
  EXPECT_EQ(logged("sqlite3_step error 1\n"), 1) << log_.dump();
  EXPECT_EQ(repairs(), 0);
  EXPECT_TRUE(buffer.untouched_from(0));
  EXPECT_EQ(crc_, kUnset);
}

TEST_F(Repair, IsMadeOncePerCall) {
  const Fault fault(
      {.call = "sqlite3_prepare", .code = SQLITE_CORRUPT, .text = "from net", .times = kEveryTime});
  const CallTrace trace;
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_EQ(fault.failed(), 2) << trace.dump();
  EXPECT_EQ(trace.count("popen", "cp /data/configbak.db /data/config.db"), 1) << trace.dump();
  EXPECT_EQ(trace.count("popen"), 1);
  EXPECT_EQ(prepare_errors(SQLITE_CORRUPT), 2);
  EXPECT_EQ(repairs(), 1);
}

TEST_F(Repair, CopyThatCannotBeStartedLeavesTheFileAndTheReadIsRepeated) {
  kelo::tests::corrupt_schema(DB_CONFIG);
  const std::string primary = read_file(DB_CONFIG);
  const Fault fault({.call = "popen", .code = EMFILE});
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "system command failed: "), 1) << log_.dump();
  EXPECT_EQ(prepare_errors(SQLITE_CORRUPT), 2);
  EXPECT_EQ(primary, read_file(DB_CONFIG));
}

TEST_F(Repair, BusyBackupIsNotASource) {
  provide_recovery();
  kelo::tests::corrupt_schema(DB_CONFIG);
  const Fault fault({.call = "sqlite3_exec", .code = SQLITE_BUSY, .text = "quick_check"});
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 9);
  EXPECT_EQ(buffer.first(9), "recovered");
  EXPECT_EQ(logged(kFromRecovery), 1) << log_.dump();
}

}  // namespace
