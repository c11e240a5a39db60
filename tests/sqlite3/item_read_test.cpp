// SPDX-License-Identifier: MIT
// Reads of an item: both databases, checksum, length and lines.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/sqlite_faults.hpp"
#include "tests/support/stored_rows.hpp"

namespace {

using kelo::tests::CallTrace;
using kelo::tests::execute_sql;
using kelo::tests::Fault;
using kelo::tests::kCrc;
using kelo::tests::kEveryTime;
using kelo::tests::kLength;
using kelo::tests::kValue;
using kelo::tests::LogCapture;
using kelo::tests::put;
using kelo::tests::put_row;
using kelo::tests::read_file;
using kelo::tests::ReadRow;
using Buffer = kelo::tests::MarkedBuffer;

constexpr char kRecovery[] = "/kelonvbak/data/config.db";
constexpr char kFromBackup[] = "error: DB_CONFIG is damaged cp /data/configbak.db /data/config.db";
constexpr char kFromRecovery[] =
    "error: DB_CONFIG is damaged so cp /kelonvbak/data/config.db /data/config.db";

// --- Reading one row -----------------------------------------------------------------------------------

TEST_F(ReadRow, BadArgumentsAreRefused) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  Buffer buffer(16);
  EXPECT_EQ(dm_read_db(nullptr, "net", "ssid", buffer.data(), &crc_, 16), -1);
  EXPECT_EQ(dm_read_db(DB_CONFIG, nullptr, "ssid", buffer.data(), &crc_, 16), -1);
  EXPECT_EQ(dm_read_db(DB_CONFIG, "net", nullptr, buffer.data(), &crc_, 16), -1);
  EXPECT_EQ(dm_read_db(DB_CONFIG, "net", "ssid", nullptr, &crc_, 16), -1);
  EXPECT_EQ(dm_read_db(DB_CONFIG, "net", "ssid", buffer.data(), &crc_, -1), -1);
  EXPECT_EQ(logged("dm_read_db NULL\n"), 5) << log_.dump();
  EXPECT_TRUE(buffer.untouched_from(0));
  EXPECT_EQ(crc_, kUnset);
}

TEST_F(ReadRow, ValueAndChecksumAreRead) {
  put_row(DB_CONFIG, "ssid", {kValue, kLength}, static_cast<std::int32_t>(kCrc));
  Buffer buffer(kLength + 1);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_EQ(buffer.first(kLength), kValue);
  EXPECT_TRUE(buffer.untouched_from(kLength));
  EXPECT_EQ(crc_, kCrc);
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(ReadRow, BufferOfTheValuesLengthIsFilled) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  Buffer buffer(kLength);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_EQ(buffer.first(kLength), kValue);
}

TEST_F(ReadRow, ShorterBufferReceivesTheFirstBytes) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  Buffer buffer(kLength - 1);
  EXPECT_EQ(read(buffer), 7);
  EXPECT_EQ(buffer.first(7), std::string(kValue, 7));
  EXPECT_EQ(crc_, kCrc) << "the checksum is the stored one";
}

TEST_F(ReadRow, EmptyBufferReadsAsZeroBytes) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  Buffer buffer(1);
  EXPECT_EQ(dm_read_db(DB_CONFIG, "net", "ssid", buffer.data(), &crc_, 0), 0);
  EXPECT_TRUE(buffer.untouched_from(0));
}

TEST_F(ReadRow, ChecksumIsNotVerifiedHere) {
  put_row(DB_CONFIG, "ssid", {kValue, kLength}, -2);
  Buffer buffer(kLength);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_EQ(crc_, 0xFFFFFFFEU) << "stored as a signed number";
}

TEST_F(ReadRow, ChecksumNeedNotBeAskedFor) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  Buffer buffer(kLength);
  EXPECT_EQ(dm_read_db(DB_CONFIG, "net", "ssid", buffer.data(), nullptr, 8), 8);
}

TEST_F(ReadRow, FirstOfTwoRowsAnswers) {
  put(DB_CONFIG, "ssid", "first");
  execute_sql(DB_CONFIG, "insert into net values (7, 'ssid', 6, 6, 0, 'second')");
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 5);
  EXPECT_EQ(buffer.first(5), "first");
}

TEST_F(ReadRow, MissingRowIsAFailure) {
  put(DB_CONFIG, "other", {kValue, kLength});
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -1);
  EXPECT_EQ(logged("sqlite3_step error 101\n"), 1) << log_.dump();
  EXPECT_TRUE(buffer.untouched_from(0));
  EXPECT_EQ(crc_, kUnset);
}

TEST_F(ReadRow, EmptyAndMissingValuesAreSilentFailures) {
  Buffer buffer(16);
  put(DB_CONFIG, "ssid", "");
  EXPECT_EQ(read(buffer), -1);
  execute_sql(DB_CONFIG, "update net set value=null");
  EXPECT_EQ(read(buffer), -1);
  EXPECT_TRUE(buffer.untouched_from(0));
  EXPECT_EQ(crc_, kUnset);
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(ReadRow, MissingTableIsNotPrepared) {
  execute_sql(DB_CONFIG, "create table other (key text)");
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_EQ(prepare_errors(SQLITE_ERROR), 1) << log_.dump();
  EXPECT_EQ(log_.lines().back().function, "dm_read_db");
  EXPECT_EQ(log_.lines().size(), 1U) << "no repair without corruption";
  EXPECT_TRUE(buffer.untouched_from(0));
  EXPECT_EQ(crc_, kUnset);
}

TEST_F(ReadRow, MissingFileIsNotPrepared) {
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_EQ(prepare_errors(SQLITE_ERROR), 1) << log_.dump();
}

TEST_F(ReadRow, FileInAMissingFolderIsNotOpened) {
  Buffer buffer(16);
  EXPECT_EQ(dm_read_db("/data/none/config.db", "net", "ssid", buffer.data(), &crc_, 16), -101);
  EXPECT_EQ(logged("sqlite3_open failed: unable to open database file\n"), 1) << log_.dump();
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "/data/none/config.db: No such file or directory"), 1);
  EXPECT_EQ(log_.lines().size(), 2U);
  EXPECT_TRUE(buffer.untouched_from(0));
  EXPECT_EQ(crc_, kUnset);
}

TEST_F(ReadRow, StatementIsCutAtItsBuffer) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  // The cut falls into the key: its quote is never closed.
  const std::string key(600, 'k');
  Buffer buffer(16);
  EXPECT_EQ(dm_read_db(DB_CONFIG, "net", key.c_str(), buffer.data(), &crc_, 16), -100);
  EXPECT_EQ(prepare_errors(SQLITE_ERROR), 1) << log_.dump();
}

TEST_F(ReadRow, FailingStepIsAFailure) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  const Fault fault({.call = "sqlite3_step", .code = SQLITE_IOERR});
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -1);
  EXPECT_EQ(logged("sqlite3_step error 10\n"), 1) << log_.dump();
  EXPECT_TRUE(buffer.untouched_from(0));
  EXPECT_EQ(crc_, kUnset);
}

TEST_F(ReadRow, OpeningWithoutAHandleIsReportedToo) {
  const Fault fault({.call = "sqlite3_open", .code = SQLITE_NOMEM, .null_handle = true});
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -101);
  EXPECT_EQ(logged("sqlite3_open failed: out of memory\n"), 1) << log_.dump();
}

TEST_F(ReadRow, FileHeldByAnotherProcessIsWaitedForAndNotRepaired) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  put(DB_CONFIGBAK, "ssid", "older");
  sqlite3* holder = nullptr;
  ASSERT_EQ(sqlite3_open(DB_CONFIG, &holder), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(holder, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
  Buffer buffer(16);
  {
    const kelo::tests::ShortBusyTimeout short_wait(1);
    EXPECT_EQ(read(buffer), -100);
    EXPECT_TRUE(short_wait.was_asked_for());
  }
  EXPECT_EQ(prepare_errors(SQLITE_BUSY), 1) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 1U);
  sqlite3_close(holder);
  EXPECT_EQ(read(buffer), 8);
}

TEST_F(ReadRow, QueryIsForOneRowOfTheTable) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  const CallTrace trace;
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_EQ(trace.count("sqlite3_prepare", "select value,crc from net where key='ssid' limit 1"), 1)
      << trace.dump();
}

// --- The verified read ---------------------------------------------------------------------------------

class VerifiedRead : public testing::Test {
 protected:
  int read(Buffer& buffer) { return dm_pal_read("net", "ssid", buffer.data(), buffer.size()); }
  // What the read of the primary came to, as its log line says.
  testing::AssertionResult primary_came_to(int result) const {
    const std::string text = "rd ret  " + std::to_string(result) + " \n";
    if (log_.count(LOG_LVL_DBUG, "dm_pal_read", text) == 1) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "no " << text << log_.dump();
  }
  static void put_both(std::string_view value) {
    put(DB_CONFIG, "ssid", value);
    put(DB_CONFIGBAK, "ssid", value);
  }

  LogCapture log_;
};

TEST_F(VerifiedRead, BadArgumentsAreRefused) {
  put_both({kValue, kLength});
  Buffer buffer(16);
  EXPECT_EQ(dm_pal_read(nullptr, "ssid", buffer.data(), 16), -1);
  EXPECT_EQ(dm_pal_read("net", nullptr, buffer.data(), 16), -1);
  EXPECT_EQ(dm_pal_read("net", "ssid", nullptr, 16), -1);
  EXPECT_EQ(dm_pal_read("net", "ssid", buffer.data(), -1), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_pal_read", "dm_pal_read NULL\n"), 4) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 4U);
  EXPECT_TRUE(buffer.untouched_from(0));
}

TEST_F(VerifiedRead, MatchingValueIsReturned) {
  put_both({kValue, kLength});
  Buffer buffer(kLength + 1);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_EQ(buffer.first(kLength), kValue);
  EXPECT_TRUE(buffer.untouched_from(kLength));
  EXPECT_TRUE(primary_came_to(8));
  EXPECT_EQ(log_.lines().size(), 1U) << log_.dump();
}

TEST_F(VerifiedRead, ExactBufferIsEnough) {
  put_both({kValue, kLength});
  Buffer buffer(kLength);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_EQ(buffer.first(kLength), kValue);
}

TEST_F(VerifiedRead, ShorterBufferFailsTheChecksum) {
  put_both({kValue, kLength});
  Buffer buffer(kLength - 1);
  EXPECT_EQ(read(buffer), -102);
  EXPECT_EQ(buffer.first(kLength - 1), std::string(kValue, kLength - 1)) << "the bytes were copied";
  EXPECT_TRUE(primary_came_to(-102));
}

TEST_F(VerifiedRead, EmptyBufferFailsTheChecksum) {
  put_both({kValue, kLength});
  Buffer buffer(1);
  EXPECT_EQ(dm_pal_read("net", "ssid", buffer.data(), 0), -102);
  EXPECT_TRUE(buffer.untouched_from(0));
  EXPECT_TRUE(primary_came_to(-102));
}

// The checksum of leading zero bits is 0 however many they are.
TEST_F(VerifiedRead, ShorterBufferPassesWhenTheCoveredBitsAreZero) {
  put_both(std::string_view("\x00wireles", kLength));
  Buffer buffer(kLength - 1);
  EXPECT_EQ(read(buffer), 7);
}

TEST_F(VerifiedRead, ValueComesFromTheBackup) {
  put(DB_CONFIG, "ssid", "primary value");
  put(DB_CONFIGBAK, "ssid", "backup");
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 6);
  EXPECT_EQ(buffer.first(6), "backup");
  EXPECT_TRUE(buffer.untouched_from(6)) << "no rest of the primary's longer value";
  EXPECT_TRUE(primary_came_to(13));
}

TEST_F(VerifiedRead, StaleBackupAnswersThatThereIsNoRow) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  put(DB_CONFIGBAK, "other", {kValue, kLength});
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -1);
  EXPECT_TRUE(primary_came_to(8));
  EXPECT_TRUE(buffer.untouched_from(0)) << "the primary's value is not the caller's business";
}

TEST_F(VerifiedRead, MissingPrimaryDoesNotMatter) {
  put(DB_CONFIGBAK, "ssid", {kValue, kLength});
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_TRUE(primary_came_to(-100));
}

TEST_F(VerifiedRead, MissingBackupHasNoTable) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_TRUE(primary_came_to(8));
}

TEST_F(VerifiedRead, EmptyValueIsNoRow) {
  put_both("");
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -1);
  EXPECT_TRUE(primary_came_to(-1));
}

TEST_F(VerifiedRead, PrimaryWithABadChecksumDoesNotMatter) {
  put_row(DB_CONFIG, "ssid", {kValue, kLength}, 1);
  put(DB_CONFIGBAK, "ssid", {kValue, kLength});
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_TRUE(primary_came_to(-102));
}

TEST_F(VerifiedRead, ChecksumCoversAsManyBitsAsTheValueHasBytes) {
  const std::int32_t crc = kelo::tests::crc_of({kValue, kLength});
  put(DB_CONFIG, "ssid", {kValue, kLength});
  Buffer buffer(16);
  put_row(DB_CONFIGBAK, "ssid", std::string_view("\x01WIRELES", kLength), crc);
  EXPECT_EQ(read(buffer), 8) << "bits after the eighth are not covered";
  EXPECT_EQ(buffer.first(kLength), "\x01WIRELES");
  put_row(DB_CONFIGBAK, "ssid", std::string_view("\x03wireles", kLength), crc);
  EXPECT_EQ(read(buffer), -102);
}

TEST_F(VerifiedRead, LengthOfTheChecksumWrapsAt65536) {
  std::string value(0x10000 + kLength, 'x');
  value[0] = '\x01';
  put(DB_CONFIG, "ssid", "x");
  put_row(DB_CONFIGBAK, "ssid", value, static_cast<std::int32_t>(kCrc));  // of eight bits
  Buffer buffer(value.size() + 1);
  EXPECT_EQ(static_cast<int>(value.size()), read(buffer));
  EXPECT_EQ(value, buffer.first(value.size()));
  EXPECT_TRUE(buffer.untouched_from(value.size()));
}

TEST_F(VerifiedRead, UnusablePrimaryDoesNotMatter) {
  put(DB_CONFIGBAK, "ssid", {kValue, kLength});
  Buffer buffer(16);
  kelo::tests::make_no_database(DB_CONFIG);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_TRUE(primary_came_to(-100));
  log_.clear();
  ASSERT_EQ(unlink(DB_CONFIG), 0);
  ASSERT_EQ(mkdir(DB_CONFIG, 0755), 0);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_TRUE(primary_came_to(-101));
}

TEST_F(VerifiedRead, CorruptPrimaryIsRepairedFromTheBackup) {
  put_both({kValue, kLength});
  kelo::tests::corrupt_schema(DB_CONFIG);
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_TRUE(primary_came_to(8));
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_read_db", kFromBackup), 1);
  EXPECT_EQ(read_file(DB_CONFIGBAK), read_file(DB_CONFIG));
}

TEST_F(VerifiedRead, CorruptBackupEndsTheReadAndIsRenewed) {
  put_both({kValue, kLength});
  put(kRecovery, "ssid", "older");
  kelo::tests::corrupt_schema(DB_CONFIGBAK);
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_TRUE(primary_came_to(8));
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_read_db", kFromRecovery), 0) << log_.dump();
  EXPECT_EQ(read_file(DB_CONFIG), read_file(DB_CONFIGBAK));
  EXPECT_EQ(read(buffer), 8);
}

// The primary is repaired once, and the backup made anew from it.
TEST_F(VerifiedRead, BothFilesCorruptEndsWithARepairedPrimary) {
  put_both({kValue, kLength});
  put(kRecovery, "ssid", "older");
  kelo::tests::corrupt_schema(DB_CONFIG);
  kelo::tests::corrupt_schema(DB_CONFIGBAK);
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_TRUE(primary_came_to(5));
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_read_db", kFromRecovery), 1) << log_.dump();
  EXPECT_EQ(read_file(kRecovery), read_file(DB_CONFIGBAK));
}

// How often one call opens each file.
struct Opened {
  int primary;
  int backup;
  bool operator==(const Opened&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Opened& opened) {
  return out << "primary " << opened.primary << ", backup " << opened.backup;
}
Opened opened(const CallTrace& trace) {
  return {trace.count("sqlite3_open", DB_CONFIG), trace.count("sqlite3_open", DB_CONFIGBAK)};
}

TEST_F(VerifiedRead, GoodBackupIsReadOnce) {
  put_both({kValue, kLength});
  const CallTrace trace;
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), 8);
  EXPECT_EQ(opened(trace), (Opened{1, 1}));
  EXPECT_LT(trace.position("sqlite3_open", DB_CONFIG), trace.position("sqlite3_open", DB_CONFIGBAK));
}

TEST_F(VerifiedRead, BackupWithABadChecksumIsReadTwice) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  put_row(DB_CONFIGBAK, "ssid", "damaged!", 1);
  const CallTrace trace;
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -102);
  EXPECT_EQ(opened(trace), (Opened{1, 2}));
  EXPECT_EQ(buffer.first(8), "damaged!") << "the bytes are there, the result says what they are worth";
  EXPECT_TRUE(primary_came_to(8));
}

TEST_F(VerifiedRead, BackupWithoutRowOrTableIsReadOnce) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  put(DB_CONFIGBAK, "other", {kValue, kLength});
  const CallTrace trace;
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -1);
  EXPECT_EQ(opened(trace), (Opened{1, 1}));
  EXPECT_EQ(dm_pal_read("none", "ssid", buffer.data(), 16), -100);
  EXPECT_EQ(opened(trace), (Opened{2, 2}));
}

// The wait for the lock of another program is over when SQLite says so. A second statement would wait again.
TEST_F(VerifiedRead, WaitsOnceForEachFileThatAnotherProgramHolds) {
  put_both({kValue, kLength});
  const Fault fault(
      {.call = "sqlite3_exec", .code = SQLITE_BUSY, .text = "PRAGMA schema_version", .times = kEveryTime});
  const CallTrace trace;
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_EQ(fault.failed(), 2);
  EXPECT_EQ(trace.count("sqlite3_prepare"), 0) << trace.dump();
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "sqlite3_prepare error, 5 "), 2) << log_.dump();
}

TEST_F(VerifiedRead, BackupThatCannotBeOpenedIsTriedTwice) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  const Fault fault(
      {.call = "sqlite3_open", .code = SQLITE_CANTOPEN, .text = DB_CONFIGBAK, .times = kEveryTime});
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -101);
  EXPECT_EQ(fault.failed(), 2);
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "sqlite3_open failed: "), 2) << log_.dump();
}

// The second try of the backup decides the result.
TEST_F(VerifiedRead, SecondTryOfTheBackupDecides) {
  const auto read_failing_once = [this](Buffer& buffer) {
    const Fault fault({.call = "sqlite3_open", .code = SQLITE_CANTOPEN, .text = DB_CONFIGBAK});
    const int result = read(buffer);
    EXPECT_EQ(fault.seen(), 2);
    return result;
  };
  Buffer buffer(16);
  EXPECT_EQ(read_failing_once(buffer), -100);
  put_both({kValue, kLength});
  EXPECT_EQ(read_failing_once(buffer), 8);
  EXPECT_EQ(buffer.first(kLength), kValue);
  put_row(DB_CONFIGBAK, "ssid", {kValue, kLength}, 1);
  EXPECT_EQ(read_failing_once(buffer), -102);
  execute_sql(DB_CONFIGBAK, "delete from net");
  EXPECT_EQ(read_failing_once(buffer), -1);
}

// The checksum of the primary is not carried over to the backup's value.
TEST_F(VerifiedRead, ChecksumOfThePrimaryDoesNotServeTheBackup) {
  put(DB_CONFIG, "ssid", {kValue, kLength});
  put_row(DB_CONFIGBAK, "ssid", {kValue, kLength}, 0);
  execute_sql(DB_CONFIGBAK, "update net set crc='none'");
  Buffer buffer(16);
  EXPECT_EQ(read(buffer), -102);
}

// --- The read slot and the read by key -----------------------------------------------------------------

kelo_dm_item_desc item(const char* table, const char* key) {
  kelo_dm_item_desc desc{};
  std::strncpy(desc.item_table, table, sizeof desc.item_table - 1);
  std::strncpy(desc.item_key, key, sizeof desc.item_key - 1);
  desc.type = 6;
  return desc;
}

class ReadSlot : public VerifiedRead {};

TEST_F(ReadSlot, NullDescriptorIsRefused) {
  Buffer buffer(16);
  EXPECT_EQ(dm_sqlite_read(7, nullptr, buffer.data(), 16), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_sqlite_read", "dm_sqlite_read param NULL\n"), 1) << log_.dump();
  EXPECT_TRUE(buffer.untouched_from(0));
}

TEST_F(ReadSlot, DescriptorNamesTheRow) {
  put_both({kValue, kLength});
  kelo_dm_item_desc desc = item("net", "ssid");
  Buffer buffer(16);
  EXPECT_EQ(dm_sqlite_read(7, &desc, buffer.data(), 16), 8);
  EXPECT_EQ(dm_sqlite_read(0, &desc, buffer.data(), 16), 8) << "the id is not used";
  EXPECT_EQ(buffer.first(kLength), kValue);
  EXPECT_EQ(log_.count(LOG_LVL_DBUG, "dm_sqlite_read", "tab:net, key:ssid \n"), 2) << log_.dump();
  EXPECT_STREQ(desc.item_table, "net");
  EXPECT_STREQ(desc.item_key, "ssid");
  EXPECT_EQ(desc.type, 6);
}

TEST_F(ReadSlot, LongestNamesAreServed) {
  const std::string name(31, 'n');
  execute_sql(DB_CONFIGBAK, "create table " + name + " (key text, value blob, crc integer)");
  execute_sql(DB_CONFIGBAK, "insert into " + name + " values ('" + name + "', x'00', 0)");
  kelo_dm_item_desc desc = item(name.c_str(), name.c_str());
  Buffer buffer(16);
  EXPECT_EQ(dm_sqlite_read(7, &desc, buffer.data(), 16), 1) << log_.dump();
}

TEST_F(ReadSlot, EveryResultIsPassedOnAndLeavesTheStoreFree) {
  kelo_dm_item_desc desc = item("net", "ssid");
  Buffer buffer(16);
  EXPECT_EQ(dm_sqlite_read(7, &desc, nullptr, 16), -1);
  EXPECT_EQ(dm_sqlite_read(7, &desc, buffer.data(), 16), -100);
  put_row(DB_CONFIGBAK, "ssid", {kValue, kLength}, 1);
  EXPECT_EQ(dm_sqlite_read(7, &desc, buffer.data(), 16), -102);
  ASSERT_EQ(unlink(DB_CONFIGBAK), 0);
  ASSERT_EQ(mkdir(DB_CONFIGBAK, 0755), 0);
  EXPECT_EQ(dm_sqlite_read(7, &desc, buffer.data(), 16), -101);
}

TEST_F(ReadSlot, ReadsAndWritesOfSeveralThreadsExcludeEachOther) {
  kelo_dm_item_desc desc = item("net", "ssid");
  ASSERT_EQ(dm_sqlite_write(7, &desc, kValue, kLength), 0);
  const auto work = [&desc](int start) {
    for (int i = 0; i < 6; ++i) {
      if ((start + i) % 3 == 0) {
        EXPECT_EQ(dm_sqlite_write(7, &desc, kValue, kLength), 0);
      } else {
        Buffer buffer(16);
        EXPECT_EQ(dm_sqlite_read(7, &desc, buffer.data(), 16), 8);
      }
    }
  };
  std::vector<std::thread> threads;
  threads.reserve(3);
  for (int start = 0; start < 3; ++start) threads.emplace_back(work, start);
  for (std::thread& thread : threads) thread.join();
}

class ReadByKey : public VerifiedRead {};

TEST_F(ReadByKey, NullArgumentsHaveACodeOfTheirOwn) {
  Buffer buffer(16);
  EXPECT_EQ(dm_pal_read_by_key(nullptr, "ssid", buffer.data(), 16), -3);
  EXPECT_EQ(dm_pal_read_by_key("net", nullptr, buffer.data(), 16), -3);
  EXPECT_EQ(dm_pal_read_by_key("net", "ssid", nullptr, 16), -3);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_pal_read_by_key", "dm_pal_read_by_key param NULL\n"), 3)
      << log_.dump();
  EXPECT_EQ(log_.lines().size(), 3U);
  EXPECT_TRUE(buffer.untouched_from(0));
}

TEST_F(ReadByKey, NegativeLengthIsRefusedByTheReadItself) {
  Buffer buffer(16);
  EXPECT_EQ(dm_pal_read_by_key("net", "ssid", buffer.data(), -1), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_pal_read", "dm_pal_read NULL\n"), 1) << log_.dump();
}

TEST_F(ReadByKey, ReadsAndFailsLikeTheVerifiedRead) {
  Buffer buffer(16);
  EXPECT_EQ(dm_pal_read_by_key("net", "ssid", buffer.data(), 16), -100);
  put_both({kValue, kLength});
  EXPECT_EQ(dm_pal_read_by_key("net", "ssid", buffer.data(), 16), 8);
  EXPECT_EQ(buffer.first(kLength), kValue);
  EXPECT_EQ(dm_pal_read_by_key("net", "other", buffer.data(), 16), -1);
  EXPECT_EQ(dm_pal_read_by_key("net", "ssid", buffer.data(), 7), -102);
}

}  // namespace
