// SPDX-License-Identifier: MIT
// Single defaults are stored, and stored ones are replaced.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <string>
#include <string_view>
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

constexpr char kConst[] = "dm_sqlite_def_db_const";
constexpr char kWrite[] = "dm_write_def_db";
constexpr char kRowStep[] = "dm_update_def_record";
constexpr char kTable[] = "NET_TAB";
constexpr std::uint32_t kId = 1203;

kelo_dm_item_desc descriptor(int type, const char* key = "KEY") {
  kelo_dm_item_desc item{};
  std::strcpy(item.item_table, kTable);
  std::strcpy(item.item_key, key);
  item.type = type;
  item.def_type = type;
  return item;
}

std::vector<std::string> rows(const std::string& table = kTable) {
  return query_lines(DB_DEF_ITEMS, "select key,type,len,hex(value),typeof(value) from " + table);
}

bool has_table(const std::string& table) {
  return file_exists(DB_DEF_ITEMS) && table_schema(DB_DEF_ITEMS, table) != "no row";
}

class DefaultsWriteTest : public testing::Test {
 protected:
  // Gets the write of the version record, which is due once in a process, out of the way.
  void write_version_first() {
    kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_SCALAR1, "FIRST");
    ASSERT_EQ(dm_sqlite_def_db_const(kId, &item, "x", 1), 0);
    execute_sql(DB_DEF_ITEMS, "drop table NET_TAB");
    log.clear();
  }

  LogCapture log;
};

// --- The value by its type ---------------------------------------------------------------------------------

struct Scalar {
  const char* name;
  int type;
  int len;
  const char* row;
};

void PrintTo(const Scalar& scalar, std::ostream* out) { *out << scalar.name; }

class ScalarTest : public DefaultsWriteTest, public testing::WithParamInterface<Scalar> {};

TEST_P(ScalarTest, StoresItsBytes) {
  write_version_first();
  const Scalar& scalar = GetParam();
  kelo_dm_item_desc item = descriptor(scalar.type);
  const std::uint8_t bytes[] = {0xF1, 0xE2, 0x00, 0xC4, 0xB5, 0xA6, 0x97, 0x88};
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, bytes, scalar.len), 0);
  EXPECT_THAT(rows(), ElementsAre(scalar.row));
}

TEST_P(ScalarTest, IsTakenFromTheDescriptorItself) {
  write_version_first();
  const Scalar& scalar = GetParam();
  kelo_dm_item_desc item = descriptor(scalar.type);
  const std::uint8_t bytes[] = {0xF1, 0xE2, 0x00, 0xC4, 0xB5, 0xA6, 0x97, 0x88};
  std::memcpy(&item.def_value, bytes, sizeof item.def_value);
  if (scalar.len > static_cast<int>(sizeof item.def_value)) GTEST_SKIP() << "longer than the field";
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, &item.def_value, scalar.len), 0);
  EXPECT_THAT(rows(), ElementsAre(scalar.row));
}

INSTANTIATE_TEST_SUITE_P(Types, ScalarTest,
                         testing::Values(Scalar{"Type1", 1, 1, "KEY|1|1|F1|blob"},
                                         Scalar{"Type2", 2, 2, "KEY|2|2|F1E2|blob"},
                                         Scalar{"Type3", 3, 4, "KEY|3|4|F1E200C4|blob"},
                                         Scalar{"Type4", 4, 8, "KEY|4|8|F1E200C4B5A69788|blob"},
                                         Scalar{"Empty", 3, 0, "KEY|3|0||blob"}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(DefaultsWriteTest, ALengthBeyondTheDescriptorEndsWithIt) {
  write_version_first();
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_SCALAR4);
  const auto room =
      static_cast<int>(reinterpret_cast<char*>(&item + 1) - reinterpret_cast<char*>(&item.def_value));
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, &item.def_value, room + 1), 0);
  EXPECT_THAT(query_lines(DB_DEF_ITEMS, "select len,length(value) from NET_TAB"),
              ElementsAre(std::to_string(room) + "|" + std::to_string(room)));
}

TEST_F(DefaultsWriteTest, AStringIsStoredWithoutItsTerminator) {
  write_version_first();
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_STRING);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, "home", 99), 0);
  EXPECT_THAT(rows(), ElementsAre("KEY|5|4|686F6D65|blob"));
}

TEST_F(DefaultsWriteTest, AStringIsFoundThroughTheDescriptorsOwnField) {
  write_version_first();
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_STRING);
  item.def_value = KELO_DM_TEXT("cabin");
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, &item.def_value, -1), 0);
  EXPECT_THAT(rows(), ElementsAre("KEY|5|5|636162696E|blob"));
}

// Only the field's own address means "the text is elsewhere": a copy of the field is text like any other.
TEST_F(DefaultsWriteTest, AnotherDescriptorsFieldIsTheTextItself) {
  write_version_first();
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_STRING);
  kelo_dm_item_desc other = descriptor(KELO_DM_TYPE_STRING);
  std::memcpy(&other.def_value, "abc", 4);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, &other.def_value, 0), 0);
  EXPECT_THAT(rows(), ElementsAre("KEY|5|3|616263|blob"));
}

TEST_F(DefaultsWriteTest, AnEmptyStringIsAnEmptyValue) {
  write_version_first();
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_STRING);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, "", 5), 0);
  EXPECT_THAT(rows(), ElementsAre("KEY|5|0||blob"));
}

TEST_F(DefaultsWriteTest, ALongStringIsStoredWhole) {
  write_version_first();
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_STRING);
  const std::string text(100'000, 't');
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, text.c_str(), 0), 0);
  EXPECT_THAT(query_lines(DB_DEF_ITEMS, "select len,length(value) from NET_TAB"),
              ElementsAre("100000|100000"));
}

TEST_F(DefaultsWriteTest, ANullStringIsRefused) {
  write_version_first();
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_STRING);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, nullptr, 4), DM_SQLITE_FAILED);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, &item.def_value, 4), DM_SQLITE_FAILED);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kWrite, "dm_write_def_db param NULL\n"), 2) << log.dump();
  EXPECT_FALSE(has_table(kTable));
}

TEST_F(DefaultsWriteTest, ABufferIsFoundThroughItsPointer) {
  write_version_first();
  const char bytes[] = {'\x00', '\x01', '\xFF', '\x00', 'z'};
  const char* const address = bytes;
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_BUFFER);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, &address, 4), 0);
  EXPECT_THAT(rows(), ElementsAre("KEY|6|4|0001FF00|blob"));

  kelo_dm_item_desc registered = descriptor(KELO_DM_TYPE_BUFFER, "REGISTERED");
  registered.def_value = KELO_DM_BYTES(bytes);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &registered, &registered.def_value, sizeof bytes), 0);
  EXPECT_THAT(rows(), ElementsAre("KEY|6|4|0001FF00|blob", "REGISTERED|6|5|0001FF007A|blob"));
}

TEST_F(DefaultsWriteTest, ANullBufferIsRefused) {
  write_version_first();
  const char* const nowhere = nullptr;
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_BUFFER);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, &nowhere, 4), DM_SQLITE_FAILED);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, nullptr, 4), DM_SQLITE_FAILED);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kWrite, "dm_write_def_db param NULL\n"), 2) << log.dump();
  EXPECT_FALSE(has_table(kTable));
}

TEST_F(DefaultsWriteTest, ANullScalarIsRefused) {
  write_version_first();
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_SCALAR3);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, nullptr, 4), DM_SQLITE_FAILED);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kWrite, "dm_write_def_db param NULL\n"), 1) << log.dump();
  EXPECT_FALSE(has_table(kTable));
}

TEST_F(DefaultsWriteTest, ANegativeLengthIsRefused) {
  write_version_first();
  const char bytes[] = "text";
  const char* const address = bytes;
  kelo_dm_item_desc scalar = descriptor(KELO_DM_TYPE_SCALAR3);
  kelo_dm_item_desc buffer = descriptor(KELO_DM_TYPE_BUFFER);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &scalar, bytes, -1), DM_SQLITE_FAILED);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &scalar, &scalar.def_value, -1), DM_SQLITE_FAILED);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &buffer, &address, -1), DM_SQLITE_FAILED);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kWrite, "dm_write_def_db param invald\n"), 3) << log.dump();
  EXPECT_FALSE(has_table(kTable));
}

class UnknownTypeTest : public DefaultsWriteTest, public testing::WithParamInterface<int> {};

TEST_P(UnknownTypeTest, IsRefusedWithoutARow) {
  write_version_first();
  kelo_dm_item_desc item = descriptor(GetParam());
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, "text", 4), DM_SQLITE_FAILED);
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_ERR, kWrite, "dm_write_def_db param invald\n"), 1) << log.dump();
  EXPECT_FALSE(has_table(kTable));
}

INSTANTIATE_TEST_SUITE_P(Types, UnknownTypeTest, testing::Values(0, 7, -1, 255));

TEST_F(DefaultsWriteTest, ANullDescriptorIsRefused) {
  EXPECT_EQ(dm_sqlite_def_db_const(kId, nullptr, "text", 4), DM_SQLITE_FAILED);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kConst, "dm_sqlite_def_db_const param NULL\n"), 1);
  EXPECT_FALSE(file_exists(DB_DEF_ITEMS));
}

// --- The version record, once in a process -----------------------------------------------------------------

TEST_F(DefaultsWriteTest, TheFirstCallStoresTheVersionAsWell) {
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_STRING);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, "home", 0), 0);
  EXPECT_THAT(rows(), ElementsAre("KEY|5|4|686F6D65|blob"));
  EXPECT_THAT(rows(SQL_VER_TAB), ElementsAre("SQL_VER_KEY|3|4|01000100|blob"));
}

TEST_F(DefaultsWriteTest, TheFirstCallReturnsTheResultOfTheVersion) {
  kelo_dm_item_desc unknown = descriptor(7);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &unknown, "text", 4), 0);
  EXPECT_FALSE(has_table(kTable));
  EXPECT_THAT(rows(SQL_VER_TAB), ElementsAre("SQL_VER_KEY|3|4|01000100|blob"));
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &unknown, "text", 4), DM_SQLITE_FAILED);
}

TEST_F(DefaultsWriteTest, AVersionThatCannotBeStoredIsNotTriedAgain) {
  execute_sql(DB_DEF_ITEMS, "create table other (x); create index SQL_VER_TAB on other (x);");
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_STRING);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, "home", 0), DM_SQLITE_FAILED);
  EXPECT_THAT(rows(), ElementsAre("KEY|5|4|686F6D65|blob"));
  EXPECT_EQ(log.count_matching(LOG_LVL_ERR, "\\[\\d+\\] create table error, .*SQL_VER_TAB.*\n"), 1)
      << log.dump();
  execute_sql(DB_DEF_ITEMS, "drop index SQL_VER_TAB");
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, "cabin", 0), 0);
  EXPECT_FALSE(has_table(SQL_VER_TAB));
}

TEST_F(DefaultsWriteTest, LaterCallsLeaveTheVersionAlone) {
  write_version_first();
  execute_sql(DB_DEF_ITEMS, "delete from SQL_VER_TAB");
  kelo_dm_item_desc item = descriptor(KELO_DM_TYPE_STRING);
  EXPECT_EQ(dm_sqlite_def_db_const(kId, &item, "home", 0), 0);
  EXPECT_THAT(rows(SQL_VER_TAB), IsEmpty());
}

// --- The row -----------------------------------------------------------------------------------------------

TEST_F(DefaultsWriteTest, TheTableAndTheFilesAreTheDefaultsOwn) {
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_BUFFER, "\x01\x02", 2), 0);
  EXPECT_EQ(table_schema(DB_DEF_ITEMS, kTable),
            "CREATE TABLE NET_TAB (key text not null,type integer not null,len integer not null,value blob)");
  EXPECT_THAT(rows(), ElementsAre("KEY|6|2|0102|blob"));
  EXPECT_EQ(query_lines(DB_DEF_ITEMS, "select name from sqlite_master").size(), 1U);
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK, DB_STATE}) EXPECT_FALSE(file_exists(path)) << path;
  EXPECT_THAT(log.lines(), IsEmpty()) << log.dump();
}

TEST_F(DefaultsWriteTest, ASecondWriteOfAKeyUpdatesItsRow) {
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_STRING, "home", 4), 0);
  EXPECT_EQ(dm_write_def_db(kTable, "OTHER", KELO_DM_TYPE_STRING, "stays", 5), 0);
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_BUFFER, "\xFF", 1), 0);
  EXPECT_THAT(rows(), ElementsAre("KEY|6|1|FF|blob", "OTHER|5|5|7374617973|blob"));
}

TEST_F(DefaultsWriteTest, AValueOfNoBytesIsStored) {
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_BUFFER, "", 0), 0);
  EXPECT_THAT(rows(), ElementsAre("KEY|6|0||blob"));
}

TEST_F(DefaultsWriteTest, BadArgumentsOfTheRowWrite) {
  EXPECT_EQ(dm_write_def_db(nullptr, "KEY", 3, "text", 4), DM_SQLITE_FAILED);
  EXPECT_EQ(dm_write_def_db(kTable, nullptr, 3, "text", 4), DM_SQLITE_FAILED);
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", 3, nullptr, 4), DM_SQLITE_FAILED);
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", 3, nullptr, 0), DM_SQLITE_FAILED);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kWrite, "dm_write_def_db param NULL\n"), 4) << log.dump();
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", 3, "text", -1), DM_SQLITE_FAILED);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kWrite, "dm_write_def_db param invald\n"), 1);
  EXPECT_FALSE(file_exists(DB_DEF_ITEMS));
}

TEST_F(DefaultsWriteTest, AFileThatCannotBeOpened) {
  ASSERT_TRUE(std::filesystem::create_directory(DB_DEF_ITEMS));
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", 3, "text", 4), DM_SQLITE_NOT_OPENED);
  EXPECT_EQ(log.lines().size(), 2U) << log.dump();  // once in a process, the second one names the file
  EXPECT_EQ(log.count(LOG_LVL_ERR, kWrite, "sqlite3_open failed: unable to open database file\n"), 1);
}

TEST_F(DefaultsWriteTest, ATableThatCannotBeCreated) {
  make_no_database(DB_DEF_ITEMS);
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", 3, "text", 4), DM_SQLITE_FAILED);
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_EQ(log.lines()[0].function, kWrite);
  EXPECT_EQ(log.count_matching(LOG_LVL_ERR, "\\[\\d+\\] create table error, file is not a database\n"), 1);
}

// --- Tables of an older release, and failing statements
// -----------------------------------------------------

TEST_F(DefaultsWriteTest, AMissingTypeColumnIsAdded) {
  execute_sql(DB_DEF_ITEMS, "create table NET_TAB (key text not null,len integer not null,value blob)");
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_STRING, "home", 4), 0);
  EXPECT_EQ(log.count_matching(LOG_LVL_ERR, "\\[\\d+\\] sqlite3_prepare error, 1\n"), 1) << log.dump();
  EXPECT_THAT(rows(), ElementsAre("KEY|5|4|686F6D65|blob"));
}

TEST_F(DefaultsWriteTest, AMissingTypeColumnIsAddedForAnUpdateToo) {
  execute_sql(DB_DEF_ITEMS,
              "create table NET_TAB (key text not null,len integer not null,value blob);"
              "insert into NET_TAB values('KEY',3,x'010203');");
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_STRING, "home", 4), 0);
  EXPECT_EQ(log.count_matching(LOG_LVL_ERR, "\\[\\d+\\] sqlite3_prepare error, 1\n"), 1) << log.dump();
  EXPECT_THAT(rows(), ElementsAre("KEY|5|4|686F6D65|blob"));
}

TEST_F(DefaultsWriteTest, AnotherMissingColumnIsReportedTwice) {
  execute_sql(DB_DEF_ITEMS, "create table NET_TAB (key text not null,type integer not null,value blob)");
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_STRING, "home", 4), 0);
  EXPECT_EQ(log.count_matching(LOG_LVL_ERR, "\\[\\d+\\] sqlite3_prepare error, 1\n"), 2) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_ERR, "alter_table_add_column failed\n"), 0);
  EXPECT_THAT(query_lines(DB_DEF_ITEMS, "select * from NET_TAB"), IsEmpty());
}

TEST_F(DefaultsWriteTest, ATableThatCannotBeMended) {
  execute_sql(DB_DEF_ITEMS,
              "create table NET_TAB (id,type integer not null,len integer not null,value blob)");
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_STRING, "home", 4), 0);
  EXPECT_EQ(log.count_matching(LOG_LVL_ERR, "\\[\\d+\\] get table existence error: .*\n"), 1) << log.dump();
  EXPECT_EQ(log.count_matching(LOG_LVL_ERR, "\\[\\d+\\] sqlite3_prepare error, 1\n"), 1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kRowStep, "alter_table_add_column failed\n"), 1);
  EXPECT_THAT(query_lines(DB_DEF_ITEMS, "select * from NET_TAB"), IsEmpty());
}

// A key that makes the statement longer than its buffer is cut, which leaves no statement at all.
TEST_F(DefaultsWriteTest, AStatementThatIsTooLongIsCut) {
  const std::string key(600, 'k');
  EXPECT_EQ(dm_write_def_db(kTable, key.c_str(), KELO_DM_TYPE_STRING, "home", 4), 0);
  EXPECT_EQ(log.count_matching(LOG_LVL_ERR, "\\[\\d+\\] sqlite3_prepare error, 1\n"), 1) << log.dump();
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(DefaultsWriteTest, AFileThatCannotBeWritten) {
  ASSERT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_STRING, "home", 4), 0);
  ASSERT_EQ(chmod(DB_DEF_ITEMS, S_IRUSR), 0);
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_STRING, "cabin", 5), 0);
  EXPECT_EQ(dm_write_def_db(kTable, "NEW", KELO_DM_TYPE_STRING, "cabin", 5), 0);
  EXPECT_EQ(log.count_matching(LOG_LVL_ERR, "\\d+ step failed rc: 1\n"), 2) << log.dump();
  for (const LogLine& line : log.lines()) EXPECT_EQ(line.function, kRowStep);
  EXPECT_THAT(rows(), ElementsAre("KEY|5|4|686F6D65|blob"));
}

TEST_F(DefaultsWriteTest, AValueThatCannotBeBound) {
  for (const char* const value : {"home", "cabin"}) {  // an insert, then an update
    log.clear();
    {
      const Fault fault({"sqlite3_bind_blob", SQLITE_TOOBIG});
      EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_STRING, "refused", 7), 0);
      EXPECT_EQ(fault.failed(), 1);
    }
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
    EXPECT_EQ(log.count_matching(LOG_LVL_ERR, "\\[\\d+\\] bind_blob error, 18\n"), 1) << log.dump();
    EXPECT_EQ(log.lines()[0].function, kRowStep);
    EXPECT_THAT(query_lines(DB_DEF_ITEMS, "select value from NET_TAB where value='refused'"), IsEmpty());
    EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_STRING, value, 4), 0);
  }
}

TEST_F(DefaultsWriteTest, TheStatementsAreTheDocumentedOnes) {
  const CallTrace trace;
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_STRING, "home", 4), 0);
  EXPECT_EQ(dm_write_def_db(kTable, "KEY", KELO_DM_TYPE_BUFFER, "cabin", 5), 0);
  EXPECT_EQ(
      trace.count("sqlite3_prepare", "insert into NET_TAB (key, type, len, value) values('KEY', '5', 4, ?)"),
      1)
      << trace.dump();
  EXPECT_EQ(trace.count("sqlite3_prepare", "update NET_TAB set type=6, len=5, value=:1 where key='KEY'"), 1)
      << trace.dump();
  EXPECT_EQ(trace.count("sqlite3_get_table", "select 1 from NET_TAB where key='KEY'"), 2);
  EXPECT_EQ(trace.count("popen"), 0);
}

}  // namespace
