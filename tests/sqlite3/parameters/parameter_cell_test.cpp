// SPDX-License-Identifier: MIT
// Single cells of the user database.
#include <sqlite3.h>

#include <cstdint>
#include <string>

#include "tests/support/exact_buffer.hpp"
#include "tests/support/parameter_files.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using namespace kelo::tests;
using testing::ElementsAre;
using testing::IsEmpty;

class ParameterCell : public ParameterTest {
 protected:
  // A failing read leaves its variable alone.
  static int failing_get(const char* table, const char* name) {
    const ExactBuffer variable(8);
    const int result = kelo_db_get_value(table, name, variable.data(), 6, 8);
    EXPECT_TRUE(variable.untouched());
    return result;
  }
  static std::uint8_t channel() {
    std::uint8_t value = 0;
    EXPECT_EQ(kelo_db_get_value("wifi", "channel", &value, 0, 0), 0);
    return value;
  }
};

TEST_F(ParameterCell, IsReadWithoutALine) {
  const CallTrace trace;
  EXPECT_EQ(channel(), 36);
  EXPECT_EQ(trace.count("sqlite3_get_table", "select channel from wifi ;"), 1) << trace.dump();
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(ParameterCell, IsReadFromTheFirstRow) {
  execute_sql(kUserFile, "insert into wifi (channel) values (7)");
  EXPECT_EQ(channel(), 36);
}

TEST_F(ParameterCell, IsWrittenInEveryRow) {
  execute_sql(kUserFile, "insert into wifi (channel) values (7)");
  const std::uint8_t value = 11;
  EXPECT_EQ(kelo_db_update_value("wifi", "channel", &value, 0), 0);
  EXPECT_THAT(query_lines(kUserFile, "select channel from wifi"), ElementsAre("11", "11"));
}

TEST_F(ParameterCell, UpdateLogsItsStatement) {
  const std::uint8_t value = 11;
  EXPECT_EQ(kelo_db_update_value("wifi", "channel", &value, 1), 0);
  EXPECT_THAT(
      lines(),
      ElementsAre("DBUG update_item_to_db: sqlite3_exec sql_cmd:[update wifi set  channel = 11;].\n"));
  log.clear();
  EXPECT_EQ(kelo_db_update_value("wifi", "ssid", "home", 6), 0);
  EXPECT_THAT(
      lines(),
      ElementsAre("DBUG update_item_to_db: sqlite3_exec sql_cmd:[update wifi set  ssid = \"home\";].\n"));
}

TEST_F(ParameterCell, FactoryIsLeftAlone) {
  EXPECT_EQ(kelo_db_update_value("wifi", "ssid", "home", 6), 0);
  EXPECT_EQ(cell("ssid"), "home");
  EXPECT_EQ(cell("ssid", kFactoryFile), "factory");
}

TEST_F(ParameterCell, NullArgumentsAreRefused) {
  std::uint8_t value = 90;
  const CallTrace trace;
  EXPECT_EQ(kelo_db_get_value(nullptr, "channel", &value, 0, 1), -1);
  EXPECT_EQ(kelo_db_get_value("wifi", nullptr, &value, 0, 1), -1);
  EXPECT_EQ(kelo_db_get_value("wifi", "channel", nullptr, 0, 1), -1);
  EXPECT_EQ(kelo_db_update_value(nullptr, "channel", &value, 0), -1);
  EXPECT_EQ(kelo_db_update_value("wifi", nullptr, &value, 0), -1);
  EXPECT_EQ(kelo_db_update_value("wifi", "channel", nullptr, 0), -1);
  EXPECT_EQ(value, 90);
  EXPECT_THAT(trace.calls(), IsEmpty());
  const std::string get = "ERR oem_db_get_value: kelo_db_get_value param NULL\n";
  const std::string update = "ERR oem_db_update_value: kelo_db_update_value param NULL\n";
  EXPECT_THAT(lines(), ElementsAre(get, get, get, update, update, update));
}

TEST_F(ParameterCell, MissingColumnFails) {
  EXPECT_EQ(failing_get("wifi", "none"), -1);
  EXPECT_EQ(kelo_db_update_value("wifi", "none", "x", 6), -1);
  EXPECT_THAT(
      lines(),
      ElementsAre(
          "ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select none from wifi ;], "
          "db err:[no such column: none].\n",
          "DBUG update_item_to_db: sqlite3_exec sql_cmd:[update wifi set  none = \"x\";].\n",
          "ERR update_item_to_db: Error, sql_cmd err info:[no such column: none].\n",
          "ERR oem_db_update_value: Error, tbl_name:wifi update key:[none] failed.\n"));
}

TEST_F(ParameterCell, MissingTableFails) {
  EXPECT_EQ(failing_get("none", "ssid"), -1);
  EXPECT_EQ(kelo_db_update_value("none", "ssid", "x", 6), -1);
  EXPECT_THAT(
      errors(),
      ElementsAre(
          "ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select ssid from none ;], "
          "db err:[no such table: none].\n",
          "ERR update_item_to_db: Error, sql_cmd err info:[no such table: none].\n",
          "ERR oem_db_update_value: Error, tbl_name:none update key:[ssid] failed.\n"));
}

TEST_F(ParameterCell, TableWithoutARowGivesNoValueAndStaysEmpty) {
  execute_sql(kUserFile, "delete from wifi");
  EXPECT_EQ(failing_get("wifi", "ssid"), -1);
  EXPECT_THAT(lines(), ElementsAre("ERR oem_db_get_value: Error, db:" + kUserFile +
                                   " search_by_table return failed.\n"));
  EXPECT_EQ(kelo_db_update_value("wifi", "ssid", "x", 6), 0);
  EXPECT_THAT(user_row(), IsEmpty());
}

TEST_F(ParameterCell, SelectFillsItsBufferAndIsNeverCut) {
  // "select", "from", the blanks and the semicolon take 14 bytes, the name 4
  const std::string longest(255 - 14 - 4 - 1, 't');
  execute_sql(kUserFile,
              "create table " + longest + " (ssid text); insert into " + longest + " values ('in')");
  char out[8] = "preset";
  EXPECT_EQ(kelo_db_get_value(longest.c_str(), "ssid", out, 6, sizeof out), 0);
  EXPECT_STREQ(out, "in");
  log.clear();
  // Cut by one byte, the statement would still name a table that is there.
  const CallTrace trace;
  EXPECT_EQ(failing_get((longest + "t").c_str(), "ssid"), -1);
  EXPECT_EQ(trace.count("sqlite3_get_table"), 0);
  EXPECT_THAT(lines(),
              ElementsAre("ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select ssid "
                          "from " +
                          longest + "t ], db err:[string or blob too big].\n"));
}

TEST_F(ParameterCell, UpdateOfALongNameIsNeverCut) {
  const std::string name(300, 'n');
  const CallTrace trace;
  const std::uint8_t value = 1;
  EXPECT_EQ(kelo_db_update_value("wifi", name.c_str(), &value, 0), -1);
  EXPECT_THAT(trace.calls(), IsEmpty());
  EXPECT_THAT(lines(), ElementsAre("ERR oem_db_update_value: Error, tbl_name:wifi update key:[" + name +
                                   "] failed.\n"));
}

TEST_F(ParameterCell, FailureOfSqliteIsReportedInItsWords) {
  {
    const Fault fault({.call = "sqlite3_get_table", .code = SQLITE_IOERR, .error = "disk on fire"});
    EXPECT_EQ(failing_get("wifi", "ssid"), -1);
  }
  {
    const Fault fault({.call = "sqlite3_get_table", .code = SQLITE_NOMEM, .null_error = true});
    EXPECT_EQ(failing_get("wifi", "ssid"), -1);
  }
  {
    const Fault fault({.call = "sqlite3_exec", .code = SQLITE_FULL, .error = "disk is full"});
    EXPECT_EQ(kelo_db_update_value("wifi", "ssid", "x", 6), -1);
  }
  {
    const Fault fault({.call = "sqlite3_exec", .code = SQLITE_NOMEM, .null_error = true});
    EXPECT_EQ(kelo_db_update_value("wifi", "ssid", "x", 6), -1);
  }
  const std::string search =
      "ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select ssid from wifi ;], db err:[";
  const std::string failed = "ERR oem_db_update_value: Error, tbl_name:wifi update key:[ssid] failed.\n";
  EXPECT_THAT(errors(),
              ElementsAre(search + "disk on fire].\n", search + "out of memory].\n",
                          "ERR update_item_to_db: Error, sql_cmd err info:[disk is full].\n", failed,
                          "ERR update_item_to_db: Error, sql_cmd err info:[out of memory].\n", failed));
  EXPECT_EQ(cell("ssid"), "factory");
}

}  // namespace
