// SPDX-License-Identifier: MIT
// A start completes a write that was cut.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/sanitized.hpp"

namespace {

using namespace kelo::tests;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

constexpr char kCompletion[] = "dm_sqlite_check_database";
constexpr char kTable[] = "NET_TAB";
constexpr char kKey[] = "SSID";
constexpr std::uint32_t kId = 1204;
constexpr char kReading[] = "dm_sqlite_check_database read primary\n";

void write_row(const char* path, const char* table, const char* key, const std::string& value) {
  ASSERT_EQ(
      dm_write_db(path, table, kId, key, KELO_DM_TYPE_STRING, value.data(), static_cast<int>(value.size())),
      0);
}

void write_journal(int len, int state, const char* table = kTable, const char* key = kKey) {
  ASSERT_EQ(dm_write_state_db(table, kId, key, KELO_DM_TYPE_STRING, len, state), 0);
}

std::vector<std::string> rows_of(const char* path, const std::string& table = kTable) {
  return query_lines(path, "select id,key,type,len,value,typeof(value) from " + table);
}

class CrashCompletionTest : public testing::Test {
 protected:
  // The completion's own lines, in order.
  [[nodiscard]] std::vector<LogLine> lines() const {
    std::vector<LogLine> own;
    for (const LogLine& line : log.lines()) {
      if (line.function == kCompletion) own.push_back(line);
    }
    return own;
  }

  int complete() {
    log.clear();
    return dm_sqlite_check_database();
  }

  // Neither the primary was read nor the backup touched.
  void expect_no_action() const {
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kReading), 0) << log.dump();
    EXPECT_FALSE(file_exists(DB_CONFIGBAK));
  }

  LogCapture log;
};

auto says(int level, const std::string& text) {
  return AllOf(Field(&LogLine::level, level), Field(&LogLine::text, text));
}

TEST_F(CrashCompletionTest, AWriteWithoutItsBackupIsCarriedOver) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  write_row(DB_CONFIG, "OTHER_TAB", "OTHER", "stays in the primary");
  write_journal(5, WS_WRITE_DONE);
  EXPECT_EQ(complete(), 0);
  EXPECT_THAT(
      lines(),
      ElementsAre(
          says(LOG_LVL_DBUG,
               "szSql select item_table,item_key,id,type,len,state from state where key='write_state'\n"),
          says(LOG_LVL_DBUG, "read item_table NET_TAB\n"), says(LOG_LVL_DBUG, "read item_key SSID\n"),
          says(LOG_LVL_DBUG, "read id 1204\n"), says(LOG_LVL_DBUG, "read type 5\n"),
          says(LOG_LVL_DBUG, "read len 5\n"), says(LOG_LVL_DBUG, "read state 101\n"),
          says(LOG_LVL_DBUG, kReading)))
      << log.dump();
  EXPECT_THAT(query_lines(DB_CONFIGBAK, "select name from sqlite_master"), ElementsAre(kTable));
  EXPECT_THAT(rows_of(DB_CONFIGBAK), ElementsAre("1204|SSID|5|5|cabin|blob"));
  const char crc[] = "select crc from NET_TAB";
  EXPECT_EQ(query_lines(DB_CONFIGBAK, crc), query_lines(DB_CONFIG, crc));
  EXPECT_THAT(query_lines(DB_STATE, "select * from state"),
              ElementsAre("write_state|NET_TAB|1204|SSID|5|5|101"));
}

TEST_F(CrashCompletionTest, ExactlyOneRowOfTheBackupIsWritten) {
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK}) {
    write_row(path, kTable, kKey, "home");
    write_row(path, kTable, "PSK", "secret");
  }
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  write_row(DB_CONFIG, kTable, "PSK", "newer than the journal");
  execute_sql(
      DB_CONFIGBAK,
      "create table writes (key text);"
      "create trigger inserts after insert on NET_TAB begin insert into writes values(new.key); end;"
      "create trigger updates after update on NET_TAB begin insert into writes values(new.key); end;");
  write_journal(5, WS_WRITE_DONE);
  EXPECT_EQ(complete(), 0);
  EXPECT_THAT(query_lines(DB_CONFIGBAK, "select key from writes"), ElementsAre(kKey));
  EXPECT_THAT(rows_of(DB_CONFIGBAK), ElementsAre("1204|SSID|5|5|cabin|blob", "1204|PSK|5|6|secret|blob"));
}

TEST_F(CrashCompletionTest, AFinishedWriteNeedsNothing) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  write_journal(5, WS_BACKUP_DONE);
  EXPECT_EQ(complete(), 0);
  const std::vector<LogLine> said = lines();
  ASSERT_GE(said.size(), 2U);
  EXPECT_THAT(said[said.size() - 2], says(LOG_LVL_DBUG, "dm_sqlite_check_database len: 5\n"));
  EXPECT_THAT(said.back(), says(LOG_LVL_DBUG, "dm_sqlite_check_database suc, no need sync\n"));
  expect_no_action();
}

TEST_F(CrashCompletionTest, AFinishedWriteOfAnEmptyValueNeedsNothing) {
  write_journal(0, WS_BACKUP_DONE);
  EXPECT_EQ(complete(), 0);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kCompletion, "dm_sqlite_check_database len: 0\n"), 1);
  expect_no_action();
}

class OtherStateTest : public CrashCompletionTest, public testing::WithParamInterface<int> {};

TEST_P(OtherStateTest, LeadsToNoAction) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  write_journal(5, GetParam());
  EXPECT_EQ(complete(), 0);
  EXPECT_THAT(lines().back(), says(LOG_LVL_DBUG, "read state " + std::to_string(GetParam()) + "\n"));
  expect_no_action();
}

INSTANTIATE_TEST_SUITE_P(States, OtherStateTest, testing::Values(WS_READY, 103, 0, -101));

TEST_F(CrashCompletionTest, ALengthBelowOneLeadsToNoAction) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  for (const int len : {0, -1}) {
    write_journal(len, WS_WRITE_DONE);
    EXPECT_EQ(complete(), 0);
    EXPECT_THAT(lines().back(), says(LOG_LVL_DBUG, "read state 101\n"));
    expect_no_action();
  }
}

TEST_F(CrashCompletionTest, AValueOfOneByteIsCarriedOver) {
  write_row(DB_CONFIG, kTable, kKey, "\xFF");
  write_journal(1, WS_WRITE_DONE);
  EXPECT_EQ(complete(), 0);
  EXPECT_THAT(query_lines(DB_CONFIGBAK, "select len,hex(value) from NET_TAB"), ElementsAre("1|FF"));
}

// --- Journals that say nothing -----------------------------------------------------------------------------

TEST_F(CrashCompletionTest, AMissingJournal) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  complete();
  EXPECT_EQ(lines().size(), 2U) << log.dump();
  EXPECT_THAT(lines().back(), says(LOG_LVL_WRN, "errmsg no such table: state\n"));
  expect_no_action();
}

TEST_F(CrashCompletionTest, AJournalWithoutARow) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  write_journal(5, WS_WRITE_DONE);
  execute_sql(DB_STATE, "delete from state");
  complete();
  EXPECT_EQ(lines().size(), 1U) << log.dump();
  expect_no_action();
}

TEST_F(CrashCompletionTest, AJournalThatIsNoDatabase) {
  write_file(DB_STATE, std::string(4096, 'x'));
  complete();
  EXPECT_THAT(lines().back(), says(LOG_LVL_WRN, "errmsg file is not a database\n"));
  expect_no_action();
  EXPECT_EQ(read_file(DB_STATE), std::string(4096, 'x'));
}

TEST_F(CrashCompletionTest, AJournalThatCannotBeOpened) {
  ASSERT_TRUE(std::filesystem::create_directory(DB_STATE));
  complete();
  EXPECT_THAT(lines(), ElementsAre(says(LOG_LVL_ERR, "sqlite3_open failed: unable to open database file\n")));
  expect_no_action();
}

class EmptyCellTest : public CrashCompletionTest, public testing::WithParamInterface<const char*> {};

TEST_P(EmptyCellTest, LeadsToNoAction) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  execute_sql(DB_STATE,
              "create table state (key,item_table,id,item_key,type,len,state);"
              "insert into state values('write_state','NET_TAB',1204,'SSID',5,5,101);");
  execute_sql(DB_STATE, std::string("update state set ") + GetParam() + "=null");
  complete();
  expect_no_action();
}

INSTANTIATE_TEST_SUITE_P(Columns, EmptyCellTest,
                         testing::Values("item_table", "item_key", "id", "type", "len", "state"),
                         [](const auto& instance) { return std::string(instance.param); });

// --- Journals of an older release --------------------------------------------------------------------------

struct OlderJournal {
  const char* name;
  const char* columns;
  std::vector<std::string> columns_after;
};

void PrintTo(const OlderJournal& journal, std::ostream* out) { *out << journal.name; }

class OlderJournalTest : public CrashCompletionTest, public testing::WithParamInterface<OlderJournal> {};

// The cells of an added column are empty, so the journal of that release says nothing; the next one does.
TEST_P(OlderJournalTest, GetsItsColumnsAndLeadsToNoAction) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  execute_sql(DB_STATE, std::string("create table state (") + GetParam().columns +
                            "); insert into state (key,item_table,item_key,len,state)"
                            " values('write_state','NET_TAB','SSID',5,101);");
  complete();
  EXPECT_EQ(log.count_matching(LOG_LVL_WRN, "errmsg no such column: (id|type)\n"), 1) << log.dump();
  EXPECT_THAT(lines().back(), says(LOG_LVL_DBUG, "szSql select success, nRow, 1, nColumn: 6\n"));
  EXPECT_EQ(query_lines(DB_STATE, "select name from pragma_table_info('state')"), GetParam().columns_after);
  expect_no_action();

  write_journal(5, WS_WRITE_DONE);
  EXPECT_EQ(complete(), 0);
  EXPECT_THAT(rows_of(DB_CONFIGBAK), ElementsAre("1204|SSID|5|5|cabin|blob"));
}

INSTANTIATE_TEST_SUITE_P(
    Columns, OlderJournalTest,
    testing::Values(OlderJournal{"NoId",
                                 "key,item_table,item_key,type,len,state",
                                 {"key", "item_table", "item_key", "type", "len", "state", "id"}},
                    OlderJournal{"NoType",
                                 "key,item_table,id,item_key,len,state",
                                 {"key", "item_table", "id", "item_key", "len", "state", "type"}},
                    OlderJournal{"Neither",
                                 "key,item_table,item_key,len,state",
                                 {"key", "item_table", "item_key", "len", "state", "id", "type"}}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(CrashCompletionTest, AnotherMissingColumnIsNotAdded) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  execute_sql(DB_STATE,
              "create table state (key,item_table,id,item_key,type,state);"
              "insert into state values('write_state','NET_TAB',1204,'SSID',5,101);");
  complete();
  EXPECT_EQ(lines().size(), 2U) << log.dump();
  EXPECT_THAT(lines().back(), says(LOG_LVL_WRN, "errmsg no such column: len\n"));
  EXPECT_EQ(log.count(LOG_LVL_WRN, "alter_table_add_column\n"), 1);
  expect_no_action();
}

TEST_F(CrashCompletionTest, AJournalThatCannotBeMended) {
  execute_sql(DB_STATE,
              "create table state (item_table,id,item_key,type,len,state);"
              "insert into state values('NET_TAB',1204,'SSID',5,5,101);");
  complete();
  EXPECT_EQ(log.count(LOG_LVL_WRN, kCompletion, "errmsg no such column: key\n"), 1) << log.dump();
  EXPECT_THAT(lines().back(), says(LOG_LVL_ERR, "alter_table_add_column failed\n"));
  expect_no_action();
}

// --- Names -------------------------------------------------------------------------------------------------

TEST_F(CrashCompletionTest, NamesOfUpTo32CharactersAreWhole) {
  for (const std::size_t length : {31U, 32U}) {
    const std::string table(length, 'T');
    const std::string key(length, 'k');
    write_row(DB_CONFIG, table.c_str(), key.c_str(), "cabin");
    write_journal(5, WS_WRITE_DONE, table.c_str(), key.c_str());
    EXPECT_EQ(complete(), 0);
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kCompletion, "read item_table " + table + "\n"), 1) << log.dump();
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kCompletion, "read item_key " + key + "\n"), 1);
    EXPECT_THAT(rows_of(DB_CONFIGBAK, table), ElementsAre("1204|" + key + "|5|5|cabin|blob"));
  }
}

TEST_F(CrashCompletionTest, ALongerTableNameReadsAsEmpty) {
  const std::string table(33, 'T');
  write_row(DB_CONFIG, table.c_str(), kKey, "cabin");
  write_journal(5, WS_WRITE_DONE, table.c_str());
  complete();
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kCompletion, "read item_table \n"), 1) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kReading), 1);
  EXPECT_FALSE(file_exists(DB_CONFIGBAK));
}

TEST_F(CrashCompletionTest, ALongerKeyReadsAsEmpty) {
  const std::string key(33, 'k');
  write_row(DB_CONFIG, kTable, key.c_str(), "cabin");
  write_journal(5, WS_WRITE_DONE, kTable, key.c_str());
  complete();
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kCompletion, "read item_key \n"), 1) << log.dump();
  EXPECT_FALSE(file_exists(DB_CONFIGBAK));
}

TEST_F(CrashCompletionTest, TextInPlaceOfNumbersReadsAsZero) {
  execute_sql(DB_STATE,
              "create table state (key,item_table,id,item_key,type,len,state);"
              "insert into state values('write_state','NET_TAB','one','SSID','text','long','done');");
  EXPECT_EQ(complete(), 0);
  for (const char* const text : {"read id 0\n", "read type 0\n", "read len 0\n", "read state 0\n"}) {
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kCompletion, text), 1) << text;
  }
  expect_no_action();
}

// --- Primaries that cannot be carried over -----------------------------------------------------------------

TEST_F(CrashCompletionTest, AWrongChecksumIsNotCarriedOver) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  execute_sql(DB_CONFIG, "update NET_TAB set crc=crc+1");
  write_journal(5, WS_WRITE_DONE);
  complete();
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kReading), 1);
  EXPECT_FALSE(file_exists(DB_CONFIGBAK));
}

TEST_F(CrashCompletionTest, AMissingRowIsNotCarriedOver) {
  write_row(DB_CONFIG, kTable, "PSK", "secret");
  write_journal(5, WS_WRITE_DONE);
  complete();
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kReading), 1);
  EXPECT_FALSE(file_exists(DB_CONFIGBAK));
}

TEST_F(CrashCompletionTest, AMissingPrimaryLeavesTheBackup) {
  write_row(DB_CONFIGBAK, kTable, kKey, "home");
  write_journal(5, WS_WRITE_DONE);
  const std::string backup = read_file(DB_CONFIGBAK);
  complete();
  EXPECT_EQ(read_file(DB_CONFIGBAK), backup);
}

// The journal's length is the room for the value: a longer value is cut to it and fails its checksum.
TEST_F(CrashCompletionTest, AValueLongerThanTheJournalSaysIsNotCarriedOver) {
  write_row(DB_CONFIG, kTable, kKey, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF");
  write_journal(7, WS_WRITE_DONE);
  complete();
  EXPECT_FALSE(file_exists(DB_CONFIGBAK));
}

TEST_F(CrashCompletionTest, AValueShorterThanTheJournalSaysIsCarriedOverAsItIs) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  write_journal(4096, WS_WRITE_DONE);
  EXPECT_EQ(complete(), 0);
  EXPECT_THAT(rows_of(DB_CONFIGBAK), ElementsAre("1204|SSID|5|5|cabin|blob"));
}

TEST_F(CrashCompletionTest, ABackupThatCannotBeOpened) {
  write_row(DB_CONFIG, kTable, kKey, "cabin");
  write_journal(5, WS_WRITE_DONE);
  ASSERT_TRUE(std::filesystem::create_directory(DB_CONFIGBAK));
  EXPECT_LT(complete(), 0);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "dm_write_db", "sqlite3_open failed: unable to open database file\n"), 1);
}

// --- At registration ---------------------------------------------------------------------------------------

class StoredVersionTest : public CrashCompletionTest, public testing::WithParamInterface<std::uint32_t> {
 protected:
  void register_with_a_write_to_complete() {
    const std::uint32_t version = GetParam();
    ASSERT_EQ(
        dm_pal_write(SQL_VER_TAB, SQL_VER_ID, SQL_VER_KEY, KELO_DM_TYPE_SCALAR3, &version, sizeof version),
        0);
    write_row(DB_CONFIG, kTable, kKey, "cabin");
    write_journal(5, WS_WRITE_DONE);
    kelo_dm_operations operations{};
    sqlite_reg(&operations);
  }
};

TEST_P(StoredVersionTest, DecidesWhetherTheWriteIsCompleted) {
  register_with_a_write_to_complete();
  const std::vector<std::string> tables =
      query_lines(DB_CONFIGBAK, "select name from sqlite_master order by name");
  if (GetParam() == SQL_VER) {
    EXPECT_THAT(tables, ElementsAre(kTable, SQL_VER_TAB));
  } else {
    EXPECT_THAT(tables, ElementsAre(SQL_VER_TAB));
    EXPECT_THAT(lines(), IsEmpty()) << log.dump();
  }
}

INSTANTIATE_TEST_SUITE_P(Versions, StoredVersionTest, testing::Values(SQL_VER, SQL_VER + 1, SQL_VER - 1, 0));

// --- Memory ------------------------------------------------------------------------------------------------

TEST_F(CrashCompletionTest, NoMemoryForTheValueEndsTheProcess) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << "the emulator takes no notice of a limit of address space";
  if (kSanitized) GTEST_SKIP() << "the sanitizers need the address space that this test takes away";
  write_journal(INT32_MAX, WS_WRITE_DONE);
  const ChildResult child = run_in_child([] {
    const rlimit room = {512UL << 20, 512UL << 20};
    setrlimit(RLIMIT_AS, &room);
    dm_sqlite_check_database();
  });
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.standard_output, testing::MatchesRegex("sqlite3/src/kelo_dm_sqlite\\.c, line: [0-9]+\n"));
}

}  // namespace
