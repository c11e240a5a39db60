// SPDX-License-Identifier: MIT
// Rows are updated or inserted, with all their columns.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/reference_crc.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using kelo::tests::CallTrace;
using kelo::tests::execute_sql;
using kelo::tests::Fault;
using kelo::tests::FaultPlan;
using kelo::tests::item_rows;
using kelo::tests::ItemRow;
using kelo::tests::kEveryTime;
using kelo::tests::LogCapture;
using kelo::tests::reference_crc;

constexpr char kStep[] = "dm_update_record";
constexpr char kPath[] = "/data/rows.db";
constexpr char kInsertFragment[] = "insert into net";
constexpr char kUpdateFragment[] = "update net";

// --- Whether a row exists ----------------------------------------------------------------------------------

class Existence : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(sqlite3_open(":memory:", &db_), SQLITE_OK); }
  void TearDown() override { EXPECT_EQ(sqlite3_close(db_), SQLITE_OK) << "something was left open"; }
  void run(const char* sql) { ASSERT_EQ(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr), SQLITE_OK); }

  sqlite3* db_ = nullptr;
  LogCapture log_;
};

TEST_F(Existence, OfNoRowOneRowAndSeveral) {
  run("create table net (key text)");
  EXPECT_EQ(dm_record_exist(db_, "net", "ssid"), 0);
  run("insert into net values ('other')");
  EXPECT_EQ(dm_record_exist(db_, "net", "ssid"), 0);
  run("insert into net values ('ssid')");
  EXPECT_EQ(dm_record_exist(db_, "net", "ssid"), 1);
  run("insert into net values ('ssid')");
  EXPECT_EQ(dm_record_exist(db_, "net", "ssid"), 1);
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(Existence, AsksWithItsStatement) {
  run("create table net (key text)");
  const CallTrace trace;
  dm_record_exist(db_, "net", "ssid");
  EXPECT_EQ(trace.count("sqlite3_get_table", "select 1 from net where key='ssid'"), 1);
  EXPECT_EQ(trace.calls().size(), 1U) << trace.dump();
}

TEST_F(Existence, OfATableThatIsNotThere) {
  EXPECT_EQ(dm_record_exist(db_, "net", "ssid"), 0);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\[\d+\] get table existence error: SQL logic error\n)"), 1)
      << log_.dump();
  ASSERT_EQ(log_.lines().size(), 1U);
  EXPECT_EQ(log_.lines()[0].function, "dm_record_exist");
}

TEST_F(Existence, ThatCannotBeAsked) {
  run("create table net (key text); insert into net values ('ssid')");
  const Fault fault({.call = "sqlite3_get_table", .code = SQLITE_CORRUPT});
  EXPECT_EQ(dm_record_exist(db_, "net", "ssid"), 0);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR,
                                R"(\[\d+\] get table existence error: database disk image is malformed\n)"),
            1)
      << log_.dump();
}

TEST_F(Existence, NullArguments) {
  EXPECT_EQ(dm_record_exist(nullptr, "net", "ssid"), 0);
  EXPECT_EQ(dm_record_exist(db_, nullptr, "ssid"), 0);
  EXPECT_EQ(dm_record_exist(db_, "net", nullptr), 0);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_record_exist", "dm_record_exist param NULL\n"), 3) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 3U);
}

TEST_F(Existence, StatementIsCutAtItsRoom) {
  run("create table net (key text)");
  const CallTrace trace;
  EXPECT_EQ(dm_record_exist(db_, "net", std::string(600, 'k').c_str()), 0);
  EXPECT_EQ(trace.calls().at(0).text.size(), 511U);
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "get table existence error"), 1) << log_.dump();
}

// --- Storing a row -----------------------------------------------------------------------------------------

class RowStorage : public testing::Test {
 protected:
  int store(const std::string& value) {
    return dm_write_db(kPath, "net", 7, "ssid", 5, value.data(), static_cast<int>(value.size()));
  }
  ItemRow row_of(const std::string& value) {
    return {7, "ssid", 5, static_cast<std::int64_t>(value.size()), reference_crc(value), value};
  }
  using Items = std::vector<ItemRow>;

  LogCapture log_;
};

TEST_F(RowStorage, Insert) {
  const CallTrace trace;
  EXPECT_EQ(store("home"), 0);
  EXPECT_EQ(Items{row_of("home")}, item_rows(kPath, "net"));
  const std::string crc = std::to_string(reference_crc("home"));
  EXPECT_EQ(
      trace.count("sqlite3_prepare",
                  "insert into net (id, key, type, len, crc, value) values(7, 'ssid',5, 4, " + crc + ", ?)"),
      1)
      << trace.dump();
  EXPECT_EQ(trace.count("sqlite3_step", kInsertFragment), 1);
}

TEST_F(RowStorage, Update) {
  EXPECT_EQ(store("home"), 0);
  EXPECT_EQ(dm_write_db(kPath, "net", 8, "mask", 6, "x", 1), 0);
  const CallTrace trace;
  EXPECT_EQ(store("cabin"), 0);
  EXPECT_EQ(item_rows(kPath, "net"), (Items{row_of("cabin"), {8, "mask", 6, 1, reference_crc("x"), "x"}}));
  const std::string crc = std::to_string(reference_crc("cabin"));
  EXPECT_EQ(trace.count("sqlite3_prepare",
                        "update net set id=7, type=5, len=5, crc=" + crc + ",value=:1 where key='ssid'"),
            1)
      << trace.dump();
}

TEST_F(RowStorage, UpdateRenewsEveryColumnButTheKey) {
  EXPECT_EQ(store("home"), 0);
  EXPECT_EQ(dm_write_db(kPath, "net", 9, "ssid", 6, "other", 5), 0);
  EXPECT_EQ(item_rows(kPath, "net"), (Items{{9, "ssid", 6, 5, reference_crc("other"), "other"}}));
}

TEST_F(RowStorage, ChecksumIsLogged) {
  EXPECT_EQ(store("home"), 0);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "wr crc: 0x%x\n", static_cast<unsigned>(reference_crc("home")));
  EXPECT_EQ(log_.count(LOG_LVL_DBUG, kStep, text.data()), 1) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 1U) << log_.dump();
}

TEST_F(RowStorage, LargeNumbersAreStoredAsNegativeOnes) {
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(dm_write_db(kPath, "net", 0xFFFFFFFE, "ssid", 0x80000000, "home", 4), 0);
    const std::vector<ItemRow> rows = item_rows(kPath, "net");
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].id, -2);
    EXPECT_EQ(rows[0].type, INT32_MIN);
  }
}

TEST_F(RowStorage, BytesAreStoredAsABlob) {
  const std::string value("a\0b'\xff\n\0", 7);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(store(value), 0);
    EXPECT_EQ(Items{row_of(value)}, item_rows(kPath, "net"));
  }
}

// The checksum's length is a number of bits in 16 bits: lengths about its limits, inserted and updated.
class ValueLength : public RowStorage, public testing::WithParamInterface<std::size_t> {};

TEST_P(ValueLength, IsStoredWholeWithItsChecksum) {
  std::string value(GetParam(), '\0');
  for (std::size_t i = 0; i < value.size(); ++i) value[i] = static_cast<char>(i * 31 + 7);
  EXPECT_EQ(store(value), 0);
  EXPECT_EQ(Items{row_of(value)}, item_rows(kPath, "net"));
  if (!value.empty()) value.back() = static_cast<char>(value.back() ^ 0x55);
  EXPECT_EQ(store(value), 0);
  EXPECT_EQ(Items{row_of(value)}, item_rows(kPath, "net"));
}

INSTANTIATE_TEST_SUITE_P(Lengths, ValueLength,
                         testing::Values(0U, 1U, 2U, 7U, 8U, 9U, 4096U, 65535U, 65536U, 65537U, 70000U));

TEST_F(RowStorage, ChecksumOfNothingIsZero) {
  EXPECT_EQ(dm_write_db(kPath, "net", 7, "ssid", 5, "unused", 0), 0);
  EXPECT_EQ(item_rows(kPath, "net"), (Items{{7, "ssid", 5, 0, 0, ""}}));
}

TEST_F(RowStorage, ChecksumOfAMultipleOf65536IsZero) {
  EXPECT_EQ(store(std::string(65536, 'x')), 0);
  EXPECT_EQ(kelo::tests::scalar(kPath, "select crc from net"), "0");
}

TEST_F(RowStorage, ChecksumCoversAnEighthOfTheBytes) {
  std::string value(80, 'a');
  EXPECT_EQ(store(value), 0);
  const std::string before = kelo::tests::scalar(kPath, "select crc from net");
  value[10] = 'b';
  EXPECT_EQ(store(value), 0);
  EXPECT_EQ(before, kelo::tests::scalar(kPath, "select crc from net"));
  EXPECT_EQ(value, kelo::tests::scalar(kPath, "select value from net"));
  value[9] = 'b';
  EXPECT_EQ(store(value), 0);
  EXPECT_NE(before, kelo::tests::scalar(kPath, "select crc from net"));
}

// --- Failures of a step are logged, not reported -----------------------------------------------------------

struct Way {
  const char* name;
  const char* statement;  // part of its text
  const char* label;      // before the code in its messages
  bool row_exists;
};
void PrintTo(const Way& way, std::ostream* out) { *out << way.name; }

constexpr Way kWays[] = {{"Insert", kInsertFragment, "", false}, {"Update", kUpdateFragment, "rc: ", true}};

class FailingStep : public RowStorage, public testing::WithParamInterface<Way> {
 protected:
  void SetUp() override {
    execute_sql(
        kPath,
        "create table net (id integer not null,key text not null,type integer not null,len integer not "
        "null,crc integer not null,value blob)");
    if (GetParam().row_exists) execute_sql(kPath, "insert into net values (7,'ssid',5,3,1,x'414243')");
    before_ = item_rows(kPath, "net");
  }
  int store_with(FaultPlan plan) {
    plan.text = plan.call == "sqlite3_exec" ? plan.text : GetParam().statement;
    const Fault fault(plan);
    const int result = store("home");
    EXPECT_GT(fault.failed(), 0) << "the fault was not met";
    return result;
  }
  std::string prepare_error(int code) {
    return R"(\[\d+\] sqlite3_prepare error, )" + std::string(GetParam().label) + std::to_string(code) + "\n";
  }
  void expect_function_of_errors() {
    for (const auto& line : log_.lines()) {
      if (line.level == LOG_LVL_ERR && line.text.find("update error") == std::string::npos) {
        EXPECT_EQ(line.function, kStep) << line;
      }
    }
  }

  Items before_;
};

TEST_P(FailingStep, PreparationFailsOnce) {
  EXPECT_EQ(store_with({.call = "sqlite3_prepare", .code = SQLITE_ERROR}), 0);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, prepare_error(1)), 1) << log_.dump();
  EXPECT_EQ(log_.count(LOG_LVL_WRN, "alter_table_add_column", "alter_table_add_column\n"), 1) << log_.dump();
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, ""), 1) << log_.dump();
  expect_function_of_errors();
  EXPECT_EQ(Items{row_of("home")}, item_rows(kPath, "net"));
}

TEST_P(FailingStep, PreparationFailsTwice) {
  EXPECT_EQ(store_with({.call = "sqlite3_prepare", .code = SQLITE_NOMEM, .times = kEveryTime}), 0);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, prepare_error(7)), 2) << log_.dump();
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, ""), 2) << log_.dump();
  expect_function_of_errors();
  EXPECT_EQ(before_, item_rows(kPath, "net"));
}

TEST_P(FailingStep, ColumnsCannotBeAdded) {
  const Fault select({.call = "sqlite3_exec", .code = SQLITE_IOERR, .text = "select id,type"});
  EXPECT_EQ(store_with({.call = "sqlite3_prepare", .code = SQLITE_ERROR}), 0);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, prepare_error(1)), 1) << log_.dump();
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kStep, "alter_table_add_column failed\n"), 1) << log_.dump();
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, ""), 2) << log_.dump();
  expect_function_of_errors();
  EXPECT_EQ(before_, item_rows(kPath, "net"));
}

TEST_P(FailingStep, ValueCannotBeBound) {
  const CallTrace trace;
  EXPECT_EQ(store_with({.call = "sqlite3_bind_blob", .code = SQLITE_TOOBIG}), 0);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR,
                                R"(\[\d+\] bind_blob error, )" + std::string(GetParam().label) + "18\n"),
            1)
      << log_.dump();
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, ""), 1) << log_.dump();
  expect_function_of_errors();
  EXPECT_EQ(trace.count("sqlite3_step"), 0) << "stepped without a value";
  EXPECT_EQ(before_, item_rows(kPath, "net"));
}

TEST_P(FailingStep, StepFails) {
  for (const int code : {SQLITE_FULL, SQLITE_ROW, SQLITE_OK}) {
    log_.clear();
    EXPECT_EQ(store_with({.call = "sqlite3_step", .code = code}), 0);
    EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\d+ step failed rc: )" + std::to_string(code) + "\n"), 1)
        << log_.dump();
    EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, ""), 1) << log_.dump();
    expect_function_of_errors();
    EXPECT_EQ(before_, item_rows(kPath, "net"));
  }
}

INSTANTIATE_TEST_SUITE_P(Ways, FailingStep, testing::ValuesIn(kWays),
                         [](const auto& way) { return std::string(way.param.name); });

// A real refusal, by a table whose rows must satisfy more.
TEST_F(RowStorage, RefusedRow) {
  execute_sql(kPath,
              "create table net (id integer,key text,type integer,len integer check (len < 4),crc integer,"
              "value blob)");
  EXPECT_EQ(store("home"), 0);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\d+ step failed rc: (1|19|275)\n)"), 1) << log_.dump();
  EXPECT_EQ(Items{}, item_rows(kPath, "net"));
}

// --- Tables of older releases ------------------------------------------------------------------------------

struct OldTable {
  const char* name;
  const char* columns;
  const char* values;  // of a row with the key "ssid"
  int added;
};
void PrintTo(const OldTable& table, std::ostream* out) { *out << table.name; }

constexpr OldTable kOldTables[] = {
    {"WithoutId", "key text,type integer,len integer,crc integer,value blob", "'ssid',5,1,1,x'41'", 1},
    {"WithoutType", "id integer,key text,len integer,crc integer,value blob", "7,'ssid',1,1,x'41'", 1},
    {"WithoutBoth", "key text,len integer,crc integer,value blob", "'ssid',1,1,x'41'", 2},
};

class OldTables : public RowStorage, public testing::WithParamInterface<OldTable> {
 protected:
  void make_table() { execute_sql(kPath, std::string("create table net (") + GetParam().columns + ")"); }
};

TEST_P(OldTables, InsertAddsTheColumns) {
  make_table();
  EXPECT_EQ(store("home"), 0);
  EXPECT_EQ(Items{row_of("home")}, item_rows(kPath, "net"));
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\[\d+\] sqlite3_prepare error, 1\n)"), 1) << log_.dump();
  EXPECT_EQ(GetParam().added, log_.count_containing(LOG_LVL_WRN, "szSql alter table net add column"))
      << log_.dump();
}

TEST_P(OldTables, UpdateAddsTheColumns) {
  make_table();
  execute_sql(kPath, std::string("insert into net values (") + GetParam().values + ")");
  EXPECT_EQ(store("home"), 0);
  EXPECT_EQ(Items{row_of("home")}, item_rows(kPath, "net"));
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\[\d+\] sqlite3_prepare error, rc: 1\n)"), 1) << log_.dump();
}

TEST_P(OldTables, OtherRowsStay) {
  make_table();
  execute_sql(kPath, std::string("insert into net values (") + GetParam().values + ")");
  EXPECT_EQ(dm_write_db(kPath, "net", 8, "mask", 6, "x", 1), 0);
  const Items rows = item_rows(kPath, "net");
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].key, "ssid");
  EXPECT_EQ(rows[0].value, "A");
  EXPECT_EQ(rows[1], (ItemRow{8, "mask", 6, 1, reference_crc("x"), "x"}));
}

TEST_P(OldTables, ColumnThatCannotBeAdded) {
  make_table();
  const Fault fault({.call = "sqlite3_exec", .code = SQLITE_FULL, .text = "alter table net"});
  EXPECT_EQ(store("home"), 0);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\[\d+\] update error, database or disk is full\n)"), 1)
      << log_.dump();
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kStep, "alter_table_add_column failed\n"), 1) << log_.dump();
  EXPECT_EQ(kelo::tests::scalar(kPath, "select count(*) from net"), "0");
}

INSTANTIATE_TEST_SUITE_P(Releases, OldTables, testing::ValuesIn(kOldTables),
                         [](const auto& table) { return std::string(table.param.name); });

// --- Room for statements -----------------------------------------------------------------------------------

// A key with which the insert of the value "home" takes so many characters.
std::string key_for_insert_of(std::size_t length) {
  const std::string rest = "insert into net (id, key, type, len, crc, value) values(7, '',5, 4, " +
                           std::to_string(reference_crc("home")) + ", ?)";
  return std::string(length - rest.size(), 'k');
}

TEST_F(RowStorage, StatementsThatFitAreStored) {
  for (const std::size_t length : {510U, 511U}) {
    const std::string key = key_for_insert_of(length);
    EXPECT_EQ(dm_write_db(kPath, "net", 7, key.c_str(), 5, "home", 4), 0);
    EXPECT_EQ(kelo::tests::scalar(kPath, "select value from net where key='" + key + "'"), "home");
  }
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, ""), 0) << log_.dump();
}

TEST_F(RowStorage, LongerStatementsAreCut) {
  const std::string key = key_for_insert_of(512);
  const CallTrace trace;
  EXPECT_EQ(dm_write_db(kPath, "net", 7, key.c_str(), 5, "home", 4), 0);
  EXPECT_EQ(
      trace.calls().at(static_cast<std::size_t>(trace.position("sqlite3_prepare", "insert"))).text.size(),
      511U);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\[\d+\] sqlite3_prepare error, 1\n)"), 2) << log_.dump();
  EXPECT_EQ(kelo::tests::scalar(kPath, "select count(*) from net"), "0");
}

TEST_F(RowStorage, KeyLongerThanEveryStatement) {
  EXPECT_EQ(dm_write_db(kPath, "net", 7, std::string(600, 'k').c_str(), 5, "home", 4), 0);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kStep, "alter_table_add_column failed\n"), 1) << log_.dump();
  EXPECT_EQ(kelo::tests::scalar(kPath, "select count(*) from net"), "0");
}

// --- Fetching a value --------------------------------------------------------------------------------------

TEST_F(RowStorage, FetchFillsNoMoreThanTheBuffer) {
  store("abcdef");
  for (const int size : {0, 1, 5, 6, 7}) {
    std::array<char, 8> buffer{};
    buffer.fill('#');
    std::uint32_t crc = 1;
    const int copied = std::min(size, 6);
    EXPECT_EQ(copied, dm_read_db(kPath, "net", "ssid", buffer.data(), &crc, size));
    EXPECT_EQ(std::string("abcdef").substr(0, static_cast<std::size_t>(copied)) + "#",
              std::string(buffer.data(), static_cast<std::size_t>(copied) + 1));
    EXPECT_EQ(crc, static_cast<std::uint32_t>(reference_crc("abcdef")));
  }
}

TEST_F(RowStorage, FetchOfAnEmptyOrMissingValueTouchesNothing) {
  store("");
  execute_sql(kPath, "insert into net values (8,'null',5,0,0,null)");
  for (const char* const key : {"ssid", "null", "absent"}) {
    char buffer = '#';
    std::uint32_t crc = 77;
    EXPECT_EQ(dm_read_db(kPath, "net", key, &buffer, &crc, 1), -1) << key;
    EXPECT_EQ(buffer, '#');
    EXPECT_EQ(crc, 77U);
  }
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_read_db", "sqlite3_step error 101\n"), 1) << log_.dump();
}

}  // namespace
