// SPDX-License-Identifier: MIT
// Whole tables of parameters: loading, writing back, reloading from the factory.
#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "tests/support/parameter_files.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using namespace kelo::tests;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kNullTable = "Error, tbl_name is null. \n";

// The variables of a daemon, and the table that describes them.
struct Wifi {
  std::uint8_t enabled = 90;
  std::uint8_t channel = 91;
  std::int32_t users = 92;
  std::uint64_t bands = 93;
  std::array<char, 8> ssid = {'p', 'r', 'e', 's', 'e', 't', '\0', '\x5A'};
  std::array<kelo_db_param, 6> params = {{{&enabled, "enabled", 0, sizeof enabled, 1},
                                          {&channel, "channel", 1, sizeof channel, 2},
                                          {&users, "users", 4, sizeof users, 3},
                                          {&bands, "bands", 5, sizeof bands, 4},
                                          {ssid.data(), "ssid", 6, sizeof ssid, 5},
                                          {}}};
  kelo_db_query query = {"wifi", params.data()};

  bool operator==(const Wifi& other) const {
    return enabled == other.enabled && channel == other.channel && users == other.users &&
           bands == other.bands && ssid == other.ssid;
  }
};

class ParameterTables : public ParameterTest {
 protected:
  Wifi wifi;
};

std::string rc_lines_of(const std::string& select, int rc, int rows) {
  return "DBUG oem_db_query_db_init_struct: rc:" + std::to_string(rc) +
         ", search_by_table sql_cmd:" + select +
         "\nDBUG oem_db_query_db_init_struct: rc:" + std::to_string(rc) +
         ",  search_by_table azResult:*, nrow:" + std::to_string(rows) + "\n";
}

std::string joined(const std::vector<std::string>& lines) {
  std::string all;
  for (const std::string& line : lines) all += line;
  return all;
}

// --- Arguments ------------------------------------------------------------------------------------------

TEST_F(ParameterTables, NullArgumentsAreRefused) {
  const kelo_db_query no_name = {nullptr, wifi.params.data()};
  const kelo_db_query no_array = {"wifi", nullptr};
  const CallTrace trace;
  EXPECT_EQ(kelo_db_query_db_init_struct(nullptr), -1);
  EXPECT_EQ(kelo_db_query_db_init_struct(&no_name), -1);
  EXPECT_EQ(kelo_db_query_db_init_struct(&no_array), -1);
  EXPECT_EQ(kelo_db_update_db_from_struct(nullptr, -1), -1);
  EXPECT_EQ(kelo_db_update_db_from_struct(&no_name, -1), -1);
  EXPECT_EQ(kelo_db_update_db_from_struct(&no_array, -1), -1);
  EXPECT_EQ(kelo_db_reload_value(nullptr, 1), -1);
  EXPECT_EQ(kelo_db_reload_value(&no_name, 1), -1);
  EXPECT_EQ(kelo_db_reload_value(&no_array, 1), -1);
  EXPECT_THAT(trace.calls(), IsEmpty());
  EXPECT_THAT(
      lines(),
      ElementsAre("ERR oem_db_query_db_init_struct: kelo_db_query_db_init_struct param NULL\n",
                  "ERR oem_db_query_db_init_struct: " + kNullTable,
                  "ERR oem_db_query_db_init_struct: " + kNullTable,
                  "ERR oem_db_update_db_from_struct: kelo_db_update_db_from_struct param NULL\n",
                  "ERR oem_db_update_db_from_struct: " + kNullTable,
                  "ERR oem_db_update_db_from_struct: " + kNullTable,
                  "ERR oem_db_reload_value: kelo_db_reload_value param NULL\n",
                  "ERR oem_db_reload_value: " + kNullTable, "ERR oem_db_reload_value: " + kNullTable));
}

TEST_F(ParameterTables, EmptyTableOfParametersIsNoFailure) {
  const kelo_db_param end = {};
  const kelo_db_query query = {"wifi", &end};
  EXPECT_EQ(kelo_db_query_db_init_struct(&query), 0);
  EXPECT_EQ(kelo_db_update_db_from_struct(&query, -1), 0);
  EXPECT_EQ(kelo_db_update_db_from_struct(&query, 1), -1);
  EXPECT_EQ(kelo_db_reload_value(&query, 1), -1);
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(ParameterTables, EntryWithoutAVariableIsRefusedAndTheOthersAreServed) {
  wifi.params[1].value = nullptr;
  EXPECT_EQ(kelo_db_query_db_init_struct(&wifi.query), -1);
  EXPECT_EQ(wifi.enabled, 1);
  EXPECT_EQ(wifi.users, 32);
  EXPECT_THAT(errors(),
              ElementsAre("ERR oem_db_query_db_init_struct: kelo_db_query_db_init_struct param NULL\n"));
  log.clear();
  wifi.users = 7;
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, -1), -1);
  EXPECT_EQ(cell("users"), "7");
  EXPECT_EQ(cell("channel"), "36");
  EXPECT_THAT(errors(),
              ElementsAre("ERR oem_db_update_db_from_struct: kelo_db_update_db_from_struct param NULL\n"));
  log.clear();
  set_cell("channel", "1");
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, 2), -1);
  EXPECT_EQ(cell("channel"), "1");
  EXPECT_THAT(errors(), ElementsAre("ERR oem_db_reload_value: kelo_db_reload_value param NULL\n"));
}

// --- Loading --------------------------------------------------------------------------------------------

TEST_F(ParameterTables, LoadFillsEveryVariable) {
  EXPECT_EQ(kelo_db_query_db_init_struct(&wifi.query), 0);
  EXPECT_EQ(wifi.enabled, 1);
  EXPECT_EQ(wifi.channel, 36);
  EXPECT_EQ(wifi.users, 32);
  EXPECT_EQ(wifi.bands, 5000000000U);
  EXPECT_EQ(wifi.ssid, (std::array<char, 8>{'f', 'a', 'c', 't', 'o', 'r', 'y', '\0'}));
  EXPECT_EQ(joined(lines()),
            rc_lines_of("select enabled from wifi", 0, 1) + rc_lines_of("select channel from wifi", 0, 1) +
                rc_lines_of("select users from wifi", 0, 1) + rc_lines_of("select bands from wifi", 0, 1) +
                rc_lines_of("select ssid from wifi", 0, 1));
}

TEST_F(ParameterTables, LoadReadsTheUserDatabase) {
  set_cell("channel", "44");
  EXPECT_EQ(kelo_db_query_db_init_struct(&wifi.query), 0);
  EXPECT_EQ(wifi.channel, 44);
}

TEST_F(ParameterTables, LoadWithoutARowKeepsTheVariables) {
  execute_sql(kUserFile, "delete from wifi");
  EXPECT_EQ(kelo_db_query_db_init_struct(&wifi.query), 0);
  EXPECT_EQ(wifi, Wifi());
  EXPECT_EQ(log.count(LOG_LVL_DBUG, "oem_db_query_db_init_struct",
                      "rc:0, search_by_table sql_cmd:select ssid from wifi\n"),
            1);
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ParameterTables, LoadGoesOnAfterAMissingColumn) {
  wifi.params[1].name = "none";
  EXPECT_EQ(kelo_db_query_db_init_struct(&wifi.query), -1);
  EXPECT_EQ(wifi.channel, 91);
  EXPECT_EQ(wifi.users, 32);
  const std::string search =
      "ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select none from wifi], db err:[no "
      "such "
      "column: none].\n";
  const std::string load = "ERR oem_db_query_db_init_struct: Error, db:" + kUserFile +
                           " search_by_table return failed. sql_cmd:select none from wifi\n";
  EXPECT_THAT(errors(), ElementsAre(search, load));
  EXPECT_NE(joined(lines()).find(search + rc_lines_of("select none from wifi", 1, 0) + load),
            std::string::npos)
      << log.dump();
}

TEST_F(ParameterTables, LoadOfAMissingTableFails) {
  wifi.query.tbl_name = "none";
  EXPECT_EQ(kelo_db_query_db_init_struct(&wifi.query), -1);
  EXPECT_EQ(wifi, Wifi());
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "search_by_table return failed. sql_cmd:select"), 5);
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "db err:[no such table: none].\n"), 5);
}

TEST_F(ParameterTables, LoadOfAnUnsupportedTypeKeepsTheVariable) {
  wifi.params[1].type = 3;
  EXPECT_EQ(kelo_db_query_db_init_struct(&wifi.query), -1);
  EXPECT_EQ(wifi.channel, 91);
  EXPECT_EQ(wifi.users, 32);
  EXPECT_THAT(errors(), ElementsAre("ERR oem_db_query_db_init_struct: Error, param_type:3 \n"));
}

TEST_F(ParameterTables, LoadWithoutAConnectionFails) {
  const Fault fault(
      {.call = "sqlite3_open_v2", .code = SQLITE_NOMEM, .times = kEveryTime, .null_handle = true});
  wifi.params[1].name = nullptr;
  EXPECT_EQ(kelo_db_query_db_init_struct(&wifi.query), -1);
  EXPECT_EQ(wifi, Wifi());
  EXPECT_EQ(joined(lines()), "ERR open_sqlite_db: Error, db:" + kUserFile + " open failed:out of memory.\n" +
                                 "ERR search_by_table: Error, open_sqlite_db return faild.\n" +
                                 rc_lines_of("select enabled from wifi", 14, 0) +
                                 "ERR oem_db_query_db_init_struct: Error, db:" + kUserFile +
                                 " search_by_table return failed. sql_cmd:select enabled from wifi\n");
}

// --- Writing back ---------------------------------------------------------------------------------------

TEST_F(ParameterTables, WriteBackStoresEveryVariable) {
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, -1), 0);
  EXPECT_THAT(user_row(), ElementsAre("90|91|92|93|preset|blank"));
  const std::string run = "DBUG update_item_to_db: sqlite3_exec sql_cmd:[update wifi set ";
  EXPECT_THAT(lines(),
              ElementsAre(run + "enabled = 90;].\n", run + "channel = 91;].\n", run + "users = 92;].\n",
                          run + " bands = 93;].\n", run + "ssid = \"preset\";].\n"));
}

TEST_F(ParameterTables, WriteBackPicksTheMatchingEntry) {
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, 2), 0);
  EXPECT_THAT(user_row(), ElementsAre("1|91|32|5000000000|factory|blank"));
}

TEST_F(ParameterTables, WriteBackServesEveryEntryOfAnIdentifier) {
  wifi.params[3].param_id = 2;
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, 2), 0);
  EXPECT_THAT(user_row(), ElementsAre("1|91|32|93|factory|blank"));
}

TEST_F(ParameterTables, WriteBackOfAnUnknownIdentifierFails) {
  const CallTrace trace;
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, 6), -1);
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, 0), -1);
  EXPECT_THAT(trace.calls(), IsEmpty());
  EXPECT_THAT(lines(), IsEmpty());
}

TEST_F(ParameterTables, WriteBackGoesOnAfterAFailure) {
  wifi.params[0].name = "none";
  wifi.params[2].type = 3;
  std::memcpy(wifi.ssid.data(), "a\"b", 4);
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, -1), -1);
  EXPECT_THAT(user_row(), ElementsAre("1|91|32|93|factory|blank"));
  EXPECT_THAT(
      errors(),
      ElementsAre("ERR update_item_to_db: Error, sql_cmd err info:[no such column: none].\n",
                  "ERR oem_db_update_db_from_struct: Error, tbl_name:wifi update key:[none] failed.\n",
                  "ERR oem_db_update_db_from_struct: Error, param_type:3 \n",
                  "ERR oem_db_update_db_from_struct: Error, tbl_name:wifi update key:[ssid] failed.\n"));
}

TEST_F(ParameterTables, TextWithoutItsTerminatorIsRefused) {
  wifi.ssid.fill('x');
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, 5), -1);
  wifi.ssid.back() = '\0';
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, 5), 0);
  EXPECT_EQ(cell("ssid"), "xxxxxxx");
  wifi.params[4].size = 7;
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, 5), -1);
  wifi.params[4].size = 0;
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, 5), -1);
  EXPECT_EQ(cell("ssid"), "xxxxxxx");
  const std::string failed =
      "ERR oem_db_update_db_from_struct: Error, tbl_name:wifi update key:[ssid] failed.\n";
  EXPECT_THAT(errors(), ElementsAre(failed, failed, failed));
}

TEST_F(ParameterTables, LongTextFillsItsStatement) {
  std::array<char, 400> text{};
  const std::array<kelo_db_param, 2> params = {{{text.data(), "ssid", 6, sizeof text, 1}, {}}};
  const kelo_db_query query = {"wifi", params.data()};
  constexpr std::size_t kLongest = 255 - 18 - 8;
  std::memset(text.data(), 'x', kLongest);
  EXPECT_EQ(kelo_db_update_db_from_struct(&query, -1), 0);
  EXPECT_EQ(cell("ssid"), std::string(kLongest, 'x'));
  text[kLongest] = 'x';
  log.clear();
  EXPECT_EQ(kelo_db_update_db_from_struct(&query, -1), -1);
  EXPECT_EQ(cell("ssid"), std::string(kLongest, 'x'));
  EXPECT_THAT(
      lines(),
      ElementsAre("ERR oem_db_update_db_from_struct: Error, tbl_name:wifi update key:[ssid] failed.\n"));
}

TEST_F(ParameterTables, WhatIsWrittenBackLoadsAgain) {
  const Wifi written = wifi;
  EXPECT_EQ(kelo_db_update_db_from_struct(&wifi.query, -1), 0);
  Wifi loaded;
  loaded.enabled = loaded.channel = 0;
  loaded.users = 0;
  loaded.bands = 0;
  EXPECT_EQ(kelo_db_query_db_init_struct(&loaded.query), 0);
  loaded.ssid.back() = '\x5A';  // after the text there are zeros now
  EXPECT_EQ(loaded, written);
}

// --- Factory reload -------------------------------------------------------------------------------------

TEST_F(ParameterTables, ReloadCopiesTheFactoryValue) {
  set_cell("channel", "1");
  set_cell("ssid", "'mine'");
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, 2), 0);
  EXPECT_EQ(wifi.channel, 36);
  EXPECT_EQ(wifi.users, 92);
  EXPECT_EQ(cell("channel"), "36");
  EXPECT_EQ(cell("typeof(channel)"), "integer");
  EXPECT_EQ(cell("ssid"), "mine");
  const std::string reload = "DBUG oem_db_reload_value: ";
  EXPECT_THAT(
      lines(),
      ElementsAre(reload + "id = 2,i = 0,param_table[i].param_id= 1\n",
                  reload + "id = 2,i = 1,param_table[i].param_id= 2\n",
                  reload + "tbl_name = wifi,key = channel\n",
                  "DBUG update_item_to_db: sqlite3_exec sql_cmd:[update wifi set  channel = \"36\"].\n",
                  reload + "id = 2,i = 2,param_table[i].param_id= 3\n",
                  reload + "id = 2,i = 3,param_table[i].param_id= 4\n",
                  reload + "id = 2,i = 4,param_table[i].param_id= 5\n"));
}

TEST_F(ParameterTables, ReloadSelectsFromTheFactory) {
  const CallTrace trace;
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, 5), 0);
  EXPECT_EQ(trace.count("sqlite3_get_table", "select ssid from wifi;"), 1) << trace.dump();
  EXPECT_STREQ(wifi.ssid.data(), "factory");
}

TEST_F(ParameterTables, ReloadStoresTheWholeTextThatItsVariableCuts) {
  set_cell("ssid", "'longer than the variable'", kFactoryFile);
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, 5), 0);
  EXPECT_STREQ(wifi.ssid.data(), "longer ");
  EXPECT_EQ(cell("ssid"), "longer than the variable");
}

TEST_F(ParameterTables, ReloadOfNullStoresAnEmptyText) {
  set_cell("ssid", "null", kFactoryFile);
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, 5), 0);
  EXPECT_STREQ(wifi.ssid.data(), "");
  EXPECT_EQ(cell("typeof(ssid) || length(ssid)"), "text0");
}

TEST_F(ParameterTables, ReloadOfATextThatNamesAColumnIsThatText) {
  set_cell("ssid", "'note'", kFactoryFile);
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, 5), 0);
  EXPECT_EQ(cell("ssid"), "note");
}

TEST_F(ParameterTables, ReloadOfAnUnknownIdentifierFails) {
  const std::vector<std::string> before = user_row();
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, -1), -1);
  EXPECT_EQ(wifi, Wifi());
  EXPECT_EQ(user_row(), before);
  EXPECT_EQ(log.lines().size(), 5U);
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ParameterTables, ReloadTakesMinusOneForAnIdentifier) {
  wifi.params[1].param_id = -1;
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, -1), 0);
  EXPECT_EQ(wifi.channel, 36);
  EXPECT_EQ(wifi.users, 92);
}

TEST_F(ParameterTables, ReloadWithoutAFactoryRowChangesNothing) {
  execute_sql(kFactoryFile, "delete from wifi");
  const std::vector<std::string> before = user_row();
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, 2), -1);
  EXPECT_EQ(wifi, Wifi());
  EXPECT_EQ(user_row(), before);
  EXPECT_THAT(errors(), ElementsAre("ERR oem_db_reload_value: Error, db:" + kFactoryFile +
                                    " search_by_table return failed.\n"));
}

TEST_F(ParameterTables, ReloadOfAColumnThatTheFactoryLacksChangesNothing) {
  execute_sql(kFactoryFile, "alter table wifi drop column channel");
  const std::vector<std::string> before = user_row();
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, 2), -1);
  EXPECT_EQ(wifi, Wifi());
  EXPECT_EQ(user_row(), before);
  EXPECT_THAT(
      errors(),
      ElementsAre(
          "ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select channel from "
          "wifi;], db err:[no such column: channel].\n",
          "ERR oem_db_reload_value: Error, db:" + kFactoryFile + " search_by_table return failed.\n"));
}

TEST_F(ParameterTables, ReloadOfAnUnsupportedTypeChangesNothing) {
  set_cell("channel", "1");
  wifi.params[1].type = 3;
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, 2), -1);
  EXPECT_EQ(wifi, Wifi());
  EXPECT_EQ(cell("channel"), "1");
  EXPECT_THAT(errors(), ElementsAre("ERR oem_db_reload_value: Error, param_type:3 \n",
                                    "ERR oem_db_reload_value: Error, PARAM TYPE SETING ERROR.\n"));
}

TEST_F(ParameterTables, ReloadOfATextThatCannotBeStoredChangesNothing) {
  for (const std::string& text : {std::string("a\"b"), std::string(255 - 18 - 8 + 1, 'x')}) {
    set_cell("ssid", "'" + text + "'", kFactoryFile);
    set_cell("ssid", "'mine'");
    log.clear();
    EXPECT_EQ(kelo_db_reload_value(&wifi.query, 5), -1);
    EXPECT_EQ(wifi, Wifi());
    EXPECT_EQ(cell("ssid"), "mine");
    EXPECT_THAT(errors(),
                ElementsAre("ERR oem_db_reload_value: Error, tbl_name:wifi update key:[ssid] failed.\n"));
  }
  const std::string longest(255 - 18 - 8, 'x');
  set_cell("ssid", "'" + longest + "'", kFactoryFile);
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, 5), 0);
  EXPECT_EQ(cell("ssid"), longest);
}

TEST_F(ParameterTables, ReloadIntoADatabaseThatCannotBeWrittenFails) {
  set_cell("channel", "1");
  const Fault fault({.call = "sqlite3_exec", .code = SQLITE_FULL, .error = "full"});
  EXPECT_EQ(kelo_db_reload_value(&wifi.query, 2), -1);
  EXPECT_EQ(wifi.channel, 36) << "the variable has the factory value";
  EXPECT_EQ(cell("channel"), "1");
  EXPECT_THAT(errors(),
              ElementsAre("ERR update_item_to_db: Error, sql_cmd err info:[full].\n",
                          "ERR oem_db_reload_value: Error, tbl_name:wifi update key:[channel] failed.\n"));
}

}  // namespace
