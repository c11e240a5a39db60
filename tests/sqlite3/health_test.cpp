// SPDX-License-Identifier: MIT
// The check of a database and its results.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <set>
#include <string>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using kelo::tests::Fault;
using kelo::tests::LogCapture;
using kelo::tests::open_descriptors;

constexpr char kFunction[] = "check_database_health";
constexpr char kCallback[] = "integrity_check_callback";
constexpr char kPath[] = "/data/some.db";
constexpr std::size_t kPageSize = 4096;

// --- The callback --------------------------------------------------------------------------------------

template <std::size_t Count>
int deliver(int preset, std::array<const char*, Count> cells) {
  std::array<char*, Count> row{};
  for (std::size_t i = 0; i < Count; ++i) row[i] = const_cast<char*>(cells[i]);  // as SQLite hands it out
  int is_corrupted = preset;
  EXPECT_EQ(integrity_check_callback(&is_corrupted, static_cast<int>(Count), row.data(), nullptr), 0);
  return is_corrupted;
}

TEST(QuickCheckCallback, OkClearsTheFlag) {
  const LogCapture log;
  EXPECT_EQ(deliver<1>(1, {"ok"}), 0);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(QuickCheckCallback, AnythingElseSetsTheFlagAndIsLogged) {
  const LogCapture log;
  for (const char* const text : {"Page 3: never used", "OK", "ok ", "o", ""}) {
    EXPECT_EQ(deliver<1>(0, {text}), 1) << text;
    EXPECT_EQ(log.count(LOG_LVL_ERR, kCallback, std::string("[ERROR] Corruption detected: ") + text + "\n"),
              1)
        << log.dump();
  }
  EXPECT_EQ(log.lines().size(), 5U);
}

TEST(QuickCheckCallback, NullsAreSkipped) {
  const LogCapture log;
  EXPECT_EQ(deliver<1>(1, {nullptr}), 0);
  EXPECT_EQ(deliver<3>(1, {nullptr, "ok", nullptr}), 0);
  EXPECT_EQ(deliver<3>(0, {nullptr, "bad", nullptr}), 1);
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
}

TEST(QuickCheckCallback, OneBadColumnOfSeveralIsEnough) {
  const LogCapture log;
  EXPECT_EQ(deliver<3>(0, {"bad", "ok", "ok"}), 1);
  EXPECT_EQ(deliver<3>(0, {"ok", "bad", "worse"}), 1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kCallback, "[ERROR] Corruption detected: worse\n"), 1);
  EXPECT_EQ(log.lines().size(), 3U) << log.dump();
}

TEST(QuickCheckCallback, RowWithoutColumnsClearsTheFlag) {
  int is_corrupted = 1;
  EXPECT_EQ(integrity_check_callback(&is_corrupted, 0, nullptr, nullptr), 0);
  EXPECT_EQ(is_corrupted, 0);
}

TEST(QuickCheckCallback, LastRowDecides) {
  EXPECT_EQ(deliver<1>(deliver<1>(0, {"bad"}), {"ok"}), 0);
  EXPECT_EQ(deliver<1>(deliver<1>(0, {"ok"}), {"bad"}), 1);
}

// --- The check -----------------------------------------------------------------------------------------

class Health : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(descriptors_, open_descriptors()) << "a connection was left open"; }

  // A table of one leaf page.
  void make_database() {
    kelo::tests::execute_sql(
        kPath,
        "create table net (key text, value blob);"
        "insert into net values ('ssid', x'0102'); insert into net values ('band', x'03')");
  }
  // Whether the last line tells the flag at this level.
  testing::AssertionResult ends_with_flag(int level, int flag) const {
    const auto lines = log_.lines();
    const std::string text = "is_corrupted=" + std::to_string(flag) + "\n";
    if (!lines.empty() && lines.back().level == level && lines.back().text == text &&
        lines.back().function == kFunction) {
      return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "no " << text << log_.dump();
  }

  const std::set<std::string> descriptors_ = open_descriptors();
  LogCapture log_;
};

TEST_F(Health, NullPathIsRefused) {
  EXPECT_EQ(check_database_health(nullptr), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, "check_database_health param NULL\n"), 1) << log_.dump();
}

TEST_F(Health, SoundFileIsHealthy) {
  make_database();
  const std::string before = kelo::tests::read_file(kPath);
  EXPECT_EQ(check_database_health(kPath), 0);
  EXPECT_TRUE(ends_with_flag(LOG_LVL_DBUG, 0));
  EXPECT_EQ(log_.lines().size(), 1U) << log_.dump();
  EXPECT_EQ(before, kelo::tests::read_file(kPath));
}

TEST_F(Health, ReadOnlyFileIsHealthy) {
  make_database();
  ASSERT_EQ(chmod(kPath, 0444), 0);
  EXPECT_EQ(check_database_health(kPath), 0) << log_.dump();
}

TEST_F(Health, EmptyFileIsHealthy) {
  kelo::tests::write_file(kPath, "");
  EXPECT_EQ(check_database_health(kPath), 0) << log_.dump();
}

TEST_F(Health, MissingFileCannotBeOpenedAndIsNotMade) {
  EXPECT_EQ(check_database_health(kPath), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, "Open failed: unable to open database file (Code: 14)\n"), 1)
      << log_.dump();
  EXPECT_TRUE(ends_with_flag(LOG_LVL_ERR, 0));
  EXPECT_EQ(log_.lines().size(), 2U);
  EXPECT_NE(access(kPath, F_OK), 0);
}

TEST_F(Health, FolderCannotBeOpened) {
  EXPECT_EQ(check_database_health("/data"), -1);
  EXPECT_TRUE(ends_with_flag(LOG_LVL_ERR, 0));
}

TEST_F(Health, ForeignFileFailsTheCheckItself) {
  kelo::tests::write_file(kPath, std::string(3 * kPageSize, 'x'));
  EXPECT_EQ(check_database_health(kPath), -2);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction,
                       "/data/some.db Quick check error: file is not a database (Code: 26)\n"),
            1)
      << log_.dump();
  EXPECT_TRUE(ends_with_flag(LOG_LVL_ERR, 0));
  EXPECT_EQ(log_.lines().size(), 2U);
}

TEST_F(Health, CutFileIsCorrupt) {
  make_database();
  ASSERT_EQ(truncate(kPath, kPageSize), 0);
  EXPECT_EQ(check_database_health(kPath), 1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction,
                       "/data/some.db corruption detected: database disk image is malformed (Code: 11)\n"),
            1)
      << log_.dump();
  EXPECT_TRUE(ends_with_flag(LOG_LVL_ERR, 1));
  EXPECT_EQ(log_.lines().size(), 2U);
}

TEST_F(Health, ProblemFoundByTheCheckIsCorrupt) {
  make_database();
  constexpr std::size_t kFreePageCount = 36;  // in the file header; there are none
  kelo::tests::overwrite_file(kPath, kFreePageCount, std::string_view("\0\0\0\5", 4));
  EXPECT_EQ(check_database_health(kPath), 1);
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "[ERROR] Corruption detected: "), 1) << log_.dump();
  EXPECT_EQ(log_.lines().front().function, kCallback);
  EXPECT_TRUE(ends_with_flag(LOG_LVL_DBUG, 1)) << "the check itself went well";
  EXPECT_EQ(log_.lines().size(), 2U);
}

TEST_F(Health, ProblemThatEndsTheCheckIsCorrupt) {
  make_database();
  kelo::tests::overwrite_file(kPath, kPageSize, std::string(kPageSize, '\xFF'));  // the table's leaf
  EXPECT_EQ(check_database_health(kPath), 1);
  EXPECT_TRUE(ends_with_flag(LOG_LVL_ERR, 1));
}

// A value that a later release forbids is a problem row of its own.
TEST_F(Health, EveryProblemIsLogged) {
  kelo::tests::execute_sql(kPath,
                           "create table net (key text, value blob);"
                           "insert into net values ('a', null), ('b', null), ('c', null);"
                           "pragma writable_schema=on;"
                           "update sqlite_master set sql='create table net (key text, value blob not null)'");
  EXPECT_EQ(check_database_health(kPath), 1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kCallback, "[ERROR] Corruption detected: NULL value in net.value\n"), 3)
      << log_.dump();
  EXPECT_TRUE(ends_with_flag(LOG_LVL_DBUG, 1));
}

TEST_F(Health, FileCalledCorruptOnOpeningIsCorrupt) {
  make_database();
  const Fault fault({.call = "sqlite3_open_v2", .code = SQLITE_CORRUPT, .text = kPath});
  EXPECT_EQ(check_database_health(kPath), 1);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, "Database is corrupted upon opening: .* \\(Code: 11\\)\n"), 1)
      << log_.dump();
  EXPECT_TRUE(ends_with_flag(LOG_LVL_ERR, 1));
  EXPECT_EQ(log_.lines().size(), 2U);
  EXPECT_EQ(log_.lines().front().function, kFunction);
}

TEST_F(Health, OpeningWithoutAHandleIsReportedToo) {
  const Fault fault({.call = "sqlite3_open_v2", .code = SQLITE_NOMEM, .null_handle = true});
  EXPECT_EQ(check_database_health(kPath), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, "Open failed: out of memory (Code: 7)\n"), 1) << log_.dump();
  EXPECT_TRUE(ends_with_flag(LOG_LVL_ERR, 0));
}

TEST_F(Health, FailureWithoutATextIsAnUnknownError) {
  make_database();
  const Fault other({.call = "sqlite3_exec", .code = SQLITE_IOERR, .at = 1, .null_error = true});
  EXPECT_EQ(check_database_health(kPath), -2);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, "/data/some.db Quick check error: Unknown error (Code: 10)\n"),
            1)
      << log_.dump();
  EXPECT_TRUE(ends_with_flag(LOG_LVL_ERR, 0));
  const Fault corrupt({.call = "sqlite3_exec", .code = SQLITE_CORRUPT, .at = 1, .null_error = true});
  EXPECT_EQ(check_database_health(kPath), 1);
  EXPECT_EQ(
      log_.count(LOG_LVL_ERR, kFunction, "/data/some.db corruption detected: Unknown error (Code: 11)\n"), 1)
      << log_.dump();
  EXPECT_TRUE(ends_with_flag(LOG_LVL_ERR, 1));
}

TEST_F(Health, FileHeldByAnotherProcessIsWaitedForAndNotCalledCorrupt) {
  make_database();
  sqlite3* holder = nullptr;
  ASSERT_EQ(sqlite3_open(kPath, &holder), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(holder, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
  const kelo::tests::ShortBusyTimeout short_wait(1);
  EXPECT_EQ(check_database_health(kPath), -2);
  EXPECT_TRUE(short_wait.was_asked_for());
  EXPECT_EQ(
      log_.count(LOG_LVL_ERR, kFunction, "/data/some.db Quick check error: database is locked (Code: 5)\n"),
      1)
      << log_.dump();
  sqlite3_close(holder);
  EXPECT_EQ(check_database_health(kPath), 0);
}

TEST_F(Health, CheckIsTheQuickOneOnAReadOnlyConnection) {
  make_database();
  const kelo::tests::CallTrace trace;
  EXPECT_EQ(check_database_health(kPath), 0);
  EXPECT_EQ(trace.count("sqlite3_open_v2", kPath), 1) << trace.dump();
  EXPECT_EQ(trace.count("sqlite3_exec", "PRAGMA quick_check;"), 1) << trace.dump();
  EXPECT_EQ(trace.count("sqlite3_open", kPath), 0) << trace.dump();
}

}  // namespace
