// SPDX-License-Identifier: MIT
// Defaults are read from their database.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using kelo::tests::execute_sql;
using kelo::tests::Fault;
using kelo::tests::LogCapture;
using kelo::tests::open_descriptors;

constexpr char kMark = '\x5A';
constexpr std::uint32_t kUnset = 0xDEADBEEF;

// The defaults database with one row of type 5 and the value "home".
void provide_default() {
  execute_sql(DB_DEF_ITEMS,
              "create table net (key text not null,type integer not null,len integer not null,value blob);"
              "insert into net values ('ssid', 5, 4, x'686f6d65')");
}

// A heap block of the exact size, so that the sanitizer sees a byte too many.
std::vector<char> buffer_of(std::size_t size) { return std::vector<char>(size, kMark); }

std::string text(const std::vector<char>& buffer) { return {buffer.begin(), buffer.end()}; }

class DefaultsRead : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(descriptors_, open_descriptors()) << "a connection was left open"; }

  int read(std::vector<char>& buffer) {
    return dm_read_def_db("net", "ssid", &type_, buffer.data(), static_cast<int>(buffer.size()));
  }
  int logged(const char* message) const { return log_.count(LOG_LVL_ERR, "dm_read_def_db", message); }
  int prepare_errors(int code) const {
    return log_.count_matching(LOG_LVL_ERR,
                               R"(\[\d+\] sqlite3_prepare error, )" + std::to_string(code) + "\n");
  }
  testing::AssertionResult untouched(const std::vector<char>& buffer) const {
    if (type_ != kUnset) return testing::AssertionFailure() << "type " << type_;
    if (text(buffer) != std::string(buffer.size(), kMark)) return testing::AssertionFailure() << text(buffer);
    return testing::AssertionSuccess();
  }

  const std::set<std::string> descriptors_ = open_descriptors();
  std::uint32_t type_ = kUnset;
  LogCapture log_;
};

TEST_F(DefaultsRead, BadArgumentsAreRefused) {
  provide_default();
  auto buffer = buffer_of(8);
  EXPECT_EQ(dm_read_def_db(nullptr, "ssid", &type_, buffer.data(), 8), -1);
  EXPECT_EQ(dm_read_def_db("net", nullptr, &type_, buffer.data(), 8), -1);
  EXPECT_EQ(dm_read_def_db("net", "ssid", &type_, nullptr, 8), -1);
  EXPECT_EQ(dm_read_def_db("net", "ssid", &type_, buffer.data(), -1), -1);
  EXPECT_EQ(logged("dm_read_def_db NULL\n"), 4) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 4U);
  EXPECT_TRUE(untouched(buffer));
}

TEST_F(DefaultsRead, ValueAndTypeAreRead) {
  provide_default();
  auto buffer = buffer_of(5);
  EXPECT_EQ(read(buffer), 4);
  EXPECT_EQ(text(buffer), "home\x5A") << "no terminator is added";
  EXPECT_EQ(type_, 5U);
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(DefaultsRead, ExactBufferIsFilled) {
  provide_default();
  auto buffer = buffer_of(4);
  EXPECT_EQ(read(buffer), 4);
  EXPECT_EQ(text(buffer), "home");
}

TEST_F(DefaultsRead, ShorterBufferReceivesTheFirstBytes) {
  provide_default();
  auto buffer = buffer_of(3);
  EXPECT_EQ(read(buffer), 3);
  EXPECT_EQ(text(buffer), "hom");
  EXPECT_EQ(type_, 5U);
}

TEST_F(DefaultsRead, EmptyBufferReadsZeroBytesAndTheType) {
  provide_default();
  auto buffer = buffer_of(1);
  EXPECT_EQ(dm_read_def_db("net", "ssid", &type_, buffer.data(), 0), 0);
  EXPECT_EQ(buffer[0], kMark);
  EXPECT_EQ(type_, 5U);
}

TEST_F(DefaultsRead, TypeNeedNotBeAskedFor) {
  provide_default();
  auto buffer = buffer_of(4);
  EXPECT_EQ(dm_read_def_db("net", "ssid", nullptr, buffer.data(), 4), 4);
}

TEST_F(DefaultsRead, TypeStoredAsTextIsANumber) {
  provide_default();
  execute_sql(DB_DEF_ITEMS, "update net set type='6'");
  auto buffer = buffer_of(4);
  EXPECT_EQ(read(buffer), 4);
  EXPECT_EQ(type_, 6U);
}

TEST_F(DefaultsRead, MissingRowIsAFailure) {
  provide_default();
  auto buffer = buffer_of(8);
  EXPECT_EQ(dm_read_def_db("net", "other", &type_, buffer.data(), 8), -1);
  EXPECT_EQ(logged("sqlite3_step error 101\n"), 1) << log_.dump();
  EXPECT_TRUE(untouched(buffer));
}

TEST_F(DefaultsRead, EmptyAndMissingValuesAreSilentFailures) {
  provide_default();
  auto buffer = buffer_of(8);
  for (const char* const value : {"x''", "null"}) {
    execute_sql(DB_DEF_ITEMS, std::string("update net set value=") + value);
    EXPECT_EQ(read(buffer), -1) << value;
  }
  EXPECT_TRUE(untouched(buffer));
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(DefaultsRead, FailingStepIsAFailure) {
  provide_default();
  const Fault fault({.call = "sqlite3_step", .code = SQLITE_IOERR});
  auto buffer = buffer_of(8);
  EXPECT_EQ(read(buffer), -1);
  EXPECT_EQ(logged("sqlite3_step error 10\n"), 1) << log_.dump();
  EXPECT_TRUE(untouched(buffer));
}

TEST_F(DefaultsRead, MissingTableIsNotPrepared) {
  provide_default();
  auto buffer = buffer_of(8);
  EXPECT_EQ(dm_read_def_db("none", "ssid", &type_, buffer.data(), 8), -100);
  EXPECT_EQ(prepare_errors(SQLITE_ERROR), 1) << log_.dump();
  EXPECT_EQ(log_.lines().back().function, "dm_read_def_db");
  EXPECT_TRUE(untouched(buffer));
}

TEST_F(DefaultsRead, MissingFileIsNotPrepared) {
  auto buffer = buffer_of(8);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_EQ(prepare_errors(SQLITE_ERROR), 1) << log_.dump();
}

TEST_F(DefaultsRead, FileThatCannotBeOpenedHasACodeOfItsOwn) {
  ASSERT_EQ(mkdir(DB_DEF_ITEMS, 0755), 0);
  auto buffer = buffer_of(8);
  EXPECT_EQ(read(buffer), -101);
  EXPECT_EQ(logged("sqlite3_open failed: unable to open database file\n"), 1) << log_.dump();
  EXPECT_TRUE(untouched(buffer));
}

TEST_F(DefaultsRead, CorruptDefaultsAreNeverRepaired) {
  provide_default();
  execute_sql(DB_CONFIGBAK, "create table net (key text)");
  execute_sql("/kelonvbak/data/config.db", "create table net (key text)");
  kelo::tests::corrupt_schema(DB_DEF_ITEMS);
  const std::string before = kelo::tests::read_file(DB_DEF_ITEMS);
  auto buffer = buffer_of(8);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_EQ(prepare_errors(SQLITE_CORRUPT), 1) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 1U);
  EXPECT_EQ(before, kelo::tests::read_file(DB_DEF_ITEMS));
  EXPECT_FALSE(kelo::tests::file_exists(DB_CONFIG));
}

TEST_F(DefaultsRead, FileHeldByAnotherProcessIsWaitedFor) {
  provide_default();
  sqlite3* holder = nullptr;
  ASSERT_EQ(sqlite3_open(DB_DEF_ITEMS, &holder), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(holder, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
  auto buffer = buffer_of(8);
  const kelo::tests::ShortBusyTimeout short_wait(1);
  EXPECT_EQ(read(buffer), -100);
  EXPECT_TRUE(short_wait.was_asked_for());
  EXPECT_EQ(prepare_errors(SQLITE_BUSY), 1) << log_.dump();
  sqlite3_close(holder);
}

// --- The defaults-read slot ----------------------------------------------------------------------------

class DefaultsSlot : public DefaultsRead {
 protected:
  DefaultsSlot() {
    std::strcpy(item_.item_table, "net");
    std::strcpy(item_.item_key, "ssid");
    item_.type = 77;
    item_.def_type = 3;
  }
  kelo_dm_item_desc item_{};
};

TEST_F(DefaultsSlot, NullDescriptorIsRefused) {
  auto buffer = buffer_of(8);
  EXPECT_EQ(dm_sqlite_def_db_read(7, nullptr, buffer.data(), 8), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_sqlite_def_db_read", "dm_sqlite_def_db_read param NULL\n"), 1)
      << log_.dump();
  EXPECT_TRUE(untouched(buffer));
}

TEST_F(DefaultsSlot, TypeReadGoesIntoTheDescriptor) {
  provide_default();
  auto buffer = buffer_of(4);
  EXPECT_EQ(dm_sqlite_def_db_read(7, &item_, buffer.data(), 4), 4);
  EXPECT_EQ(text(buffer), "home");
  EXPECT_EQ(item_.type, 5);
  EXPECT_EQ(item_.def_type, 3) << "the declared type stays";
  EXPECT_STREQ(item_.item_table, "net");
  EXPECT_STREQ(item_.item_key, "ssid");
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(DefaultsSlot, EveryFailureClearsTheType) {
  auto buffer = buffer_of(8);
  const auto read_with_type = [&](void* buf, int len) {
    item_.type = 77;
    return dm_sqlite_def_db_read(7, &item_, buf, len);
  };
  EXPECT_EQ(read_with_type(buffer.data(), 8), -100);
  EXPECT_EQ(item_.type, 0);
  EXPECT_EQ(read_with_type(nullptr, 8), -1);
  EXPECT_EQ(item_.type, 0);
  EXPECT_EQ(read_with_type(buffer.data(), -1), -1);
  EXPECT_EQ(item_.type, 0);
  execute_sql(DB_DEF_ITEMS, "create table net (key text, type integer, len integer, value blob)");
  EXPECT_EQ(read_with_type(buffer.data(), 8), -1);
  EXPECT_EQ(item_.type, 0);
  const Fault fault({.call = "sqlite3_open", .code = SQLITE_CANTOPEN});
  EXPECT_EQ(read_with_type(buffer.data(), 8), -101);
  EXPECT_EQ(item_.type, 0);
  EXPECT_TRUE(untouched(buffer));
}

TEST_F(DefaultsSlot, ShorterBufferStillTellsTheType) {
  provide_default();
  auto buffer = buffer_of(1);
  EXPECT_EQ(dm_sqlite_def_db_read(7, &item_, buffer.data(), 1), 1);
  EXPECT_EQ(text(buffer), "h");
  EXPECT_EQ(item_.type, 5);
}

}  // namespace
