// SPDX-License-Identifier: MIT
// Missing columns are added to tables of older releases.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::LogCapture;

constexpr char kFunction[] = "alter_table_add_column";
constexpr char kSelect[] = "szSql select id,type from net where key='ssid' limit 1\n";
constexpr char kAlterId[] = "szSql alter table net add column id integer\n";
constexpr char kAlterType[] = "szSql alter table net add column type integer\n";

class Columns : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(sqlite3_open(":memory:", &db_), SQLITE_OK); }
  void TearDown() override { EXPECT_EQ(sqlite3_close(db_), SQLITE_OK) << "a statement was left open"; }

  void run(const char* sql) {
    ASSERT_EQ(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db_);
  }
  // The columns of a table in their order, each followed by a blank.
  std::string columns(const char* table) {
    std::string names;
    const std::string pragma = std::string("pragma table_info(") + table + ")";
    sqlite3_exec(
        db_, pragma.c_str(),
        [](void* out, int, char** cells, char**) {
          *static_cast<std::string*>(out) += std::string(cells[1]) + " ";
          return 0;
        },
        &names, nullptr);
    return names;
  }
  int add() { return alter_table_add_column(db_, "net", "ssid"); }

  // The texts logged so far at one level, all of them under the function's name.
  std::vector<std::string> texts(int level) const {
    std::vector<std::string> found;
    for (const auto& line : log_.lines()) {
      EXPECT_EQ(line.function, kFunction);
      if (line.level == level) found.push_back(line.text);
    }
    return found;
  }

  sqlite3* db_ = nullptr;
  LogCapture log_;
};

using Texts = std::vector<std::string>;

TEST_F(Columns, NullArgumentsAreRefused) {
  EXPECT_EQ(alter_table_add_column(nullptr, "net", "ssid"), -1);
  EXPECT_EQ(alter_table_add_column(db_, nullptr, "ssid"), -1);
  EXPECT_EQ(alter_table_add_column(db_, "net", nullptr), -1);
  const Texts warnings(3, "alter_table_add_column\n");
  EXPECT_EQ(warnings, texts(LOG_LVL_WRN));
  EXPECT_EQ(texts(LOG_LVL_ERR), Texts(3, "argv NULL\n"));
}

TEST_F(Columns, CompleteTableIsLeftAlone) {
  run("create table net (key text, id integer, type integer)");
  EXPECT_EQ(add(), 0);
  EXPECT_EQ(columns("net"), "key id type ");
  EXPECT_EQ(texts(LOG_LVL_WRN), (Texts{"alter_table_add_column\n", kSelect})) << log_.dump();
  EXPECT_TRUE(texts(LOG_LVL_ERR).empty());
}

TEST_F(Columns, MissingIdIsAdded) {
  run("create table net (key text, type integer)");
  EXPECT_EQ(add(), 0);
  EXPECT_EQ(columns("net"), "key type id ");
  EXPECT_EQ(texts(LOG_LVL_WRN),
            (Texts{"alter_table_add_column\n", kSelect, "no such column: id\n", kAlterId, kSelect}));
  EXPECT_TRUE(texts(LOG_LVL_ERR).empty());
}

TEST_F(Columns, MissingTypeIsAdded) {
  run("create table net (key text, id integer)");
  EXPECT_EQ(add(), 0);
  EXPECT_EQ(columns("net"), "key id type ");
  EXPECT_EQ(texts(LOG_LVL_WRN),
            (Texts{"alter_table_add_column\n", kSelect, "no such column: type\n", kAlterType, kSelect}));
}

TEST_F(Columns, IdIsAddedBeforeType) {
  run("create table net (key text, value blob); insert into net values ('ssid', x'01')");
  EXPECT_EQ(add(), 0);
  EXPECT_EQ(columns("net"), "key value id type ");
  EXPECT_EQ(texts(LOG_LVL_WRN), (Texts{"alter_table_add_column\n", kSelect, "no such column: id\n", kAlterId,
                                       kSelect, "no such column: type\n", kAlterType, kSelect}));
  EXPECT_TRUE(texts(LOG_LVL_ERR).empty());
}

TEST_F(Columns, ThirdFailedSelectEndsTheAttempts) {
  run("create table net (value blob)");
  EXPECT_EQ(add(), -1);
  EXPECT_EQ(columns("net"), "value id type ") << "the two columns stay";
  EXPECT_EQ(texts(LOG_LVL_WRN),
            (Texts{"alter_table_add_column\n", kSelect, "no such column: id\n", kAlterId, kSelect,
                   "no such column: type\n", kAlterType, kSelect, "no such column: key\n"}));
  EXPECT_EQ(texts(LOG_LVL_ERR), Texts{"cnt error 3\n"});
}

TEST_F(Columns, OtherComplaintEndsAtOnce) {
  EXPECT_EQ(add(), -1);
  EXPECT_EQ(texts(LOG_LVL_WRN), (Texts{"alter_table_add_column\n", kSelect, "no such table: net\n"}));
  EXPECT_TRUE(texts(LOG_LVL_ERR).empty());
}

TEST_F(Columns, FailingAlterEndsTheCall) {
  run("create table base (key text); create view net as select key from base");
  EXPECT_EQ(add(), -1);
  EXPECT_EQ(texts(LOG_LVL_WRN),
            (Texts{"alter_table_add_column\n", kSelect, "no such column: id\n", kAlterId}));
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\[\d+\] update error, Cannot add a column to a view\n)"), 1)
      << log_.dump();
  EXPECT_EQ(texts(LOG_LVL_ERR).size(), 1U);
}

TEST_F(Columns, ColumnWhoseNameBeginsWithIdCountsAsId) {
  run("create table net (key text, type integer, id integer)");
  EXPECT_EQ(alter_table_add_column(db_, "net", "ssid' and idx='1"), -1);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\[\d+\] update error, duplicate column name: id\n)"), 1)
      << log_.dump();
}

// The complaint names the table, so its text can be as long as a statement.
TEST_F(Columns, ComplaintIsCutAt128Characters) {
  const std::string prefix = "no such table: ";
  for (const std::size_t length : {127U, 128U, 129U, 300U}) {
    const std::string table(length - prefix.size(), 'x');
    EXPECT_EQ(alter_table_add_column(db_, table.c_str(), "ssid"), -1);
    const std::string complaint = (prefix + table).substr(0, 128) + "\n";
    EXPECT_EQ(log_.count(LOG_LVL_WRN, kFunction, complaint), 1) << log_.dump();
    log_.clear();
  }
}

TEST_F(Columns, ComplaintIsSearchedOnlyWithinThe128Characters) {
  const std::string prefix = "no such table: ";
  const std::string bait = "no such column: id";
  const std::size_t last_fit = 128 - prefix.size() - bait.size();

  const std::string within = "\"" + std::string(last_fit, 'x') + bait + "\"";
  EXPECT_EQ(alter_table_add_column(db_, within.c_str(), "ssid"), -1);
  EXPECT_EQ(texts(LOG_LVL_ERR).size(), 1U) << "the column was not tried: " << log_.dump();
  log_.clear();

  const std::string behind = "\"" + std::string(last_fit + 1, 'x') + bait + "\"";
  EXPECT_EQ(alter_table_add_column(db_, behind.c_str(), "ssid"), -1);
  EXPECT_TRUE(texts(LOG_LVL_ERR).empty()) << log_.dump();
  EXPECT_EQ(log_.count_containing(LOG_LVL_WRN, "alter table"), 0) << log_.dump();
}

TEST_F(Columns, StatementIsCutAtItsBuffer) {
  const std::string table(600, 'x');
  EXPECT_EQ(alter_table_add_column(db_, table.c_str(), "ssid"), -1);
  const std::string select = "szSql " + ("select id,type from " + table).substr(0, 511) + "\n";
  EXPECT_EQ(log_.count(LOG_LVL_WRN, kFunction, select), 1) << log_.dump();
}

TEST_F(Columns, JournalTableIsServedToo) {
  run("create table state (key text, item_table text, item_key text, len integer, state integer)");
  EXPECT_EQ(alter_table_add_column(db_, "state", "write_state"), 0);
  EXPECT_EQ(columns("state"), "key item_table item_key len state id type ");
  EXPECT_EQ(log_.count(LOG_LVL_WRN, kFunction, "szSql alter table state add column type integer\n"), 1);
}

}  // namespace
