// SPDX-License-Identifier: MIT
// The journal of a write: its states, its row and its failures.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/file_holder.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using kelo::tests::CallTrace;
using kelo::tests::execute_sql;
using kelo::tests::Fault;
using kelo::tests::file_exists;
using kelo::tests::FileHolder;
using kelo::tests::journal_row;
using kelo::tests::JournalRow;
using kelo::tests::LogCapture;
using kelo::tests::open_descriptors;
using kelo::tests::ShortBusyTimeout;

constexpr char kFunction[] = "dm_write_state_db";
constexpr char kColumns[] = "alter_table_add_column";

constexpr char kUpdate[] =
    "update state set item_table='net',id=7,item_key='ssid',type=5,len=4,state=101 where key='write_state'";

class Journal : public testing::Test {
 protected:
  int record(int state) { return dm_write_state_db("net", 7, "ssid", 5, 4, state); }

  // A journal of an older release, with the row of an earlier write.
  void make_journal(const std::string& columns, const std::string& values) {
    execute_sql(DB_STATE, "create table state (" + columns + "); insert into state values (" + values + ")");
  }

  // Once in a process, the line that names an unusable file may follow.
  void expect_only_line(int level, const std::string& pattern) {
    EXPECT_EQ(log_.count_matching(level, pattern), 1) << log_.dump();
    std::vector<kelo::tests::LogLine> lines = log_.lines();
    std::erase_if(lines, [](const auto& line) { return line.function == "sqlite"; });
    ASSERT_EQ(lines.size(), 1U) << log_.dump();
    EXPECT_EQ(lines[0].function, kFunction);
  }

  LogCapture log_;
};

TEST_F(Journal, FirstRowIsInserted) {
  EXPECT_EQ(record(WS_READY), 0);
  EXPECT_EQ(journal_row(DB_STATE), (JournalRow{"write_state", "net", 7, "ssid", 5, 4, 100}));
  EXPECT_EQ(
      kelo::tests::table_schema(DB_STATE, "state"),
      "CREATE TABLE state (key text not null,item_table text not null,id integer not null,item_key text not "
      "null,type integer,len integer,state integer)");
  EXPECT_EQ(kelo::tests::scalar(DB_STATE, "select count(*) from sqlite_master"), "1");
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(Journal, LaterRowsReplaceIt) {
  EXPECT_EQ(record(WS_READY), 0);
  EXPECT_EQ(dm_write_state_db("lan", 8, "mask", 6, 16, WS_WRITE_DONE), 0);
  EXPECT_EQ(journal_row(DB_STATE), (JournalRow{"write_state", "lan", 8, "mask", 6, 16, 101}));
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(Journal, StatesAreStoredAsGiven) {
  for (const int state : {0, -1, 100, 101, 102, 103}) {
    EXPECT_EQ(record(state), 0);
    EXPECT_EQ(state, kelo::tests::journal_state(DB_STATE));
  }
}

TEST_F(Journal, LargeNumbersAreStoredAsNegativeOnes) {
  EXPECT_EQ(dm_write_state_db("net", 0xFFFFFFFF, "ssid", 0x80000000, -4, WS_READY), 0);
  const JournalRow stored{"write_state", "net", -1, "ssid", INT32_MIN, -4, 100};
  EXPECT_EQ(stored, journal_row(DB_STATE));
  EXPECT_EQ(dm_write_state_db("net", 0xFFFFFFFF, "ssid", 0x80000000, -4, WS_READY), 0);
  EXPECT_EQ(stored, journal_row(DB_STATE)) << "the update stores another number than the insert";
}

TEST_F(Journal, NullArguments) {
  EXPECT_EQ(dm_write_state_db(nullptr, 7, "ssid", 5, 4, WS_READY), -1);
  EXPECT_EQ(dm_write_state_db("net", 7, nullptr, 5, 4, WS_READY), -1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, "dm_write_state_db NULL\n"), 2) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 2U);
  EXPECT_FALSE(file_exists(DB_STATE));
}

TEST_F(Journal, FileThatCannotBeOpened) {
  sqlite_reg_store_area("/nowhere/", nullptr);
  EXPECT_EQ(record(WS_READY), -1);
  expect_only_line(LOG_LVL_ERR, "sqlite3_open failed: unable to open database file\n");
}

TEST_F(Journal, OpenWithoutMemory) {
  const Fault fault({.call = "sqlite3_open", .code = SQLITE_NOMEM, .null_handle = true});
  EXPECT_EQ(record(WS_READY), -1);
  expect_only_line(LOG_LVL_ERR, "sqlite3_open failed: out of memory\n");
}

TEST_F(Journal, TableThatCannotBeCreated) {
  kelo::tests::make_no_database(DB_STATE);
  const std::string before = kelo::tests::read_file(DB_STATE);
  const CallTrace trace;
  EXPECT_EQ(record(WS_READY), -1);
  expect_only_line(LOG_LVL_ERR, R"(\[\d+\] create table error, file is not a database\n)");
  EXPECT_EQ(trace.count("system"), 0) << "only a failing update deletes the journal";
  EXPECT_EQ(before, kelo::tests::read_file(DB_STATE));
}

TEST_F(Journal, RowThatCannotBeInserted) {
  const Fault fault({.call = "sqlite3_exec", .code = SQLITE_FULL, .text = "insert into state"});
  const CallTrace trace;
  EXPECT_EQ(record(WS_READY), -1);
  expect_only_line(LOG_LVL_ERR, R"(\[\d+\] insert error, database or disk is full\n)");
  EXPECT_EQ(fault.failed(), 1);
  EXPECT_EQ(trace.count("system"), 0);
  EXPECT_EQ(std::nullopt, journal_row(DB_STATE));
}

// Whether there is a row could not be asked: the journal then gets another one, as callers know it.
TEST_F(Journal, ExistenceThatCannotBeAsked) {
  const Fault fault({.call = "sqlite3_get_table", .code = SQLITE_IOERR});
  EXPECT_EQ(record(WS_READY), 0);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\[\d+\] get table existence error: disk I/O error\n)"), 1)
      << log_.dump();
  EXPECT_EQ(log_.lines()[0].function, "dm_record_exist");
  EXPECT_EQ(kelo::tests::journal_state(DB_STATE), WS_READY);
}

// --- Journals of older releases ----------------------------------------------------------------------------

TEST_F(Journal, MissingIdIsAdded) {
  make_journal("key text,item_table text,item_key text,type integer,len integer,state integer",
               "'write_state','lan','mask',6,16,102");
  EXPECT_EQ(record(WS_WRITE_DONE), 0);
  EXPECT_EQ(journal_row(DB_STATE), (JournalRow{"write_state", "net", 7, "ssid", 5, 4, 101}));
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction,
                       std::string("szSql: ") + kUpdate + ", rc: 1, szErrMsg: no such column: id\n"),
            1)
      << log_.dump();
  EXPECT_EQ(log_.count(LOG_LVL_WRN, kColumns, "szSql alter table state add column id integer\n"), 1)
      << log_.dump();
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, ""), 1) << log_.dump();
}

TEST_F(Journal, MissingTypeIsAdded) {
  make_journal("key text,item_table text,id integer,item_key text,len integer,state integer",
               "'write_state','lan',8,'mask',16,102");
  EXPECT_EQ(record(WS_WRITE_DONE), 0);
  EXPECT_EQ(journal_row(DB_STATE), (JournalRow{"write_state", "net", 7, "ssid", 5, 4, 101}));
  EXPECT_EQ(log_.count(LOG_LVL_WRN, kColumns, "szSql alter table state add column type integer\n"), 1)
      << log_.dump();
}

TEST_F(Journal, BothMissingColumnsAreAdded) {
  make_journal("key text,item_table text,item_key text,len integer,state integer",
               "'write_state','lan','mask',16,102");
  EXPECT_EQ(record(WS_WRITE_DONE), 0);
  EXPECT_EQ(journal_row(DB_STATE), (JournalRow{"write_state", "net", 7, "ssid", 5, 4, 101}));
}

TEST_F(Journal, AnotherMissingColumnCannotBeAdded) {
  make_journal("key text,item_table text,id integer,item_key text,type integer,state integer",
               "'write_state','lan',8,'mask',6,102");
  const CallTrace trace;
  EXPECT_EQ(record(WS_WRITE_DONE), -1);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\[\d+\] update error, no such column: len\n)"), 1)
      << log_.dump();
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, std::string("error when szSql: ") + kUpdate + ", rc: 1\n"), 1)
      << log_.dump();
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, ""), 3) << log_.dump();
  EXPECT_EQ(trace.count("system"), 0) << "the journal is kept";
  EXPECT_EQ(kelo::tests::scalar(DB_STATE, "select state from state"), "102");
}

TEST_F(Journal, ColumnThatCannotBeAdded) {
  make_journal("key text,item_table text,item_key text,type integer,len integer,state integer",
               "'write_state','lan','mask',6,16,102");
  const Fault fault({.call = "sqlite3_exec", .code = SQLITE_FULL, .text = "alter table state"});
  const CallTrace trace;
  EXPECT_EQ(record(WS_WRITE_DONE), -1);
  EXPECT_EQ(log_.count_matching(LOG_LVL_ERR, R"(\[\d+\] update error, database or disk is full\n)"), 1)
      << log_.dump();
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, "alter_table_add_column failed\n"), 1) << log_.dump();
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, std::string("error when szSql: ") + kUpdate + ", rc: 1\n"), 1)
      << log_.dump();
  EXPECT_EQ(trace.count("system"), 0);
  EXPECT_EQ(kelo::tests::scalar(DB_STATE, "select state from state"), "102");
}

// --- Broken journals ---------------------------------------------------------------------------------------

class BrokenJournal : public Journal {
 protected:
  void SetUp() override {
    ASSERT_EQ(record(WS_READY), 0);
    // A real failure that is not about a column.
    execute_sql(DB_STATE,
                "create trigger broken before update on state begin select raise(abort, 'no more'); end");
    log_.clear();
  }
};

TEST_F(BrokenJournal, IsDeletedAndMadeAnew) {
  const CallTrace trace;
  EXPECT_EQ(record(WS_WRITE_DONE), -1);
  EXPECT_EQ(trace.count("system"), 1);
  EXPECT_EQ(trace.count("system", "rm -f /data/state.db"), 1) << trace.dump();
  EXPECT_EQ(std::filesystem::file_size(DB_STATE), 0U) << "not a fresh file";

  using Texts = std::vector<std::string>;
  Texts texts;
  for (const auto& line : log_.lines()) {
    EXPECT_EQ(line.function, kFunction);
    EXPECT_EQ(line.text.starts_with("Create database") ? LOG_LVL_DBUG : LOG_LVL_ERR, line.level);
    texts.push_back(line.text);
  }
  const std::string update = kUpdate;
  EXPECT_EQ(
      texts,
      (Texts{"szSql: " + update + ", rc: 19, szErrMsg: no more\n", "ret_pos is NULL, other error occured\n",
             "Create database /data/state.db successfully\n", "error when szSql: " + update + ", rc: 19\n"}));

  log_.clear();
  EXPECT_EQ(record(WS_WRITE_DONE), 0);
  EXPECT_EQ(journal_row(DB_STATE), (JournalRow{"write_state", "net", 7, "ssid", 5, 4, 101}));
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

TEST_F(BrokenJournal, ThatCannotBeMadeAnew) {
  const Fault fault({.call = "sqlite3_open", .code = SQLITE_NOMEM, .at = 2, .null_handle = true});
  EXPECT_EQ(record(WS_WRITE_DONE), -1);
  EXPECT_EQ(fault.failed(), 1);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, "Can't create database: out of memory\n"), 1) << log_.dump();
  EXPECT_EQ(log_.count(LOG_LVL_DBUG, kFunction, "Create database /data/state.db successfully\n"), 1)
      << log_.dump();
  EXPECT_FALSE(file_exists(DB_STATE));
  EXPECT_EQ(record(WS_WRITE_DONE), 0) << "the next write makes it";
}

TEST_F(BrokenJournal, TheRestOfAWriteUsesTheFreshFile) {
  EXPECT_EQ(dm_pal_write("net", 7, "ssid", 5, "home", 4), 0);
  EXPECT_EQ(log_.count(LOG_LVL_ERR, "dm_pal_write", "dm_write_state_db  WS_READY failed: -1\n"), 1)
      << log_.dump();
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "WS_WRITE_DONE failed"), 0) << log_.dump();
  EXPECT_EQ(journal_row(DB_STATE), (JournalRow{"write_state", "net", 7, "ssid", 5, 4, 102}));
}

TEST_F(Journal, EveryOtherFailureOfAnUpdateBreaksIt) {
  for (const int code : {SQLITE_IOERR, SQLITE_CORRUPT, SQLITE_FULL, SQLITE_READONLY, SQLITE_NOTADB}) {
    ASSERT_EQ(record(WS_READY), 0);
    const CallTrace trace;
    const Fault fault({.call = "sqlite3_exec", .code = code, .text = "update state"});
    EXPECT_EQ(record(WS_WRITE_DONE), -1);
    EXPECT_EQ(trace.count("system", "rm -f /data/state.db"), 1) << code;
    EXPECT_EQ(std::filesystem::file_size(DB_STATE), 0U);
  }
}

// SQLite gives no text with some failures; the line then carries its words for the code.
TEST_F(Journal, FailureWithoutText) {
  ASSERT_EQ(record(WS_READY), 0);
  const Fault fault(
      {.call = "sqlite3_exec", .code = SQLITE_MISUSE, .text = "update state", .null_error = true});
  EXPECT_EQ(record(WS_WRITE_DONE), -1);
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "rc: 21, szErrMsg: bad parameter or other API misuse\n"), 1)
      << log_.dump();
}

// --- Journals that another process holds -------------------------------------------------------------------

TEST_F(Journal, ALockIsWaitedFor) {
  ASSERT_EQ(record(WS_READY), 0);
  const ShortBusyTimeout as_asked(-1);
  const auto start = std::chrono::steady_clock::now();
  const FileHolder holder(DB_STATE, "begin exclusive", 1500);
  EXPECT_EQ(record(WS_WRITE_DONE), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1500));
  EXPECT_EQ(kelo::tests::journal_state(DB_STATE), WS_WRITE_DONE);
  EXPECT_TRUE(as_asked.was_asked_for());
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

// What a lock that outlasts the wait does: the journal stays as it is, whichever call meets it.
class HeldJournal : public Journal {
 protected:
  void SetUp() override {
    ASSERT_EQ(record(WS_READY), 0);
    log_.clear();
  }
  void expect_kept_while(const char* begin) {
    const std::string before = kelo::tests::read_file(DB_STATE);
    const ShortBusyTimeout patience(20);
    const CallTrace trace;
    {
      const FileHolder holder(DB_STATE, begin);
      EXPECT_EQ(record(WS_WRITE_DONE), -1);
    }
    EXPECT_EQ(trace.count("system"), 0) << trace.dump();
    EXPECT_EQ(before, kelo::tests::read_file(DB_STATE));
    EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "ret_pos is NULL"), 0) << log_.dump();
  }
};

TEST_F(HeldJournal, Exclusively) {
  expect_kept_while("begin exclusive");
  expect_only_line(LOG_LVL_ERR, R"(\[\d+\] create table error, database is locked\n)");
}

TEST_F(HeldJournal, ForWriting) {
  expect_kept_while("begin immediate");
  const std::string update = kUpdate;
  EXPECT_EQ(
      log_.count(LOG_LVL_ERR, kFunction, "szSql: " + update + ", rc: 5, szErrMsg: database is locked\n"), 1)
      << log_.dump();
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, "error when szSql: " + update + ", rc: 5\n"), 1)
      << log_.dump();
  EXPECT_EQ(log_.lines().size(), 2U) << log_.dump();
}

TEST_F(HeldJournal, ForReading) {
  expect_kept_while("begin; select * from state");
  EXPECT_EQ(log_.count_containing(LOG_LVL_ERR, "rc: 5, szErrMsg: database is locked\n"), 1) << log_.dump();
}

TEST_F(HeldJournal, AWriteGoesOnWithoutIt) {
  const ShortBusyTimeout patience(20);
  const CallTrace trace;
  {
    const FileHolder holder(DB_STATE, "begin immediate");
    EXPECT_EQ(dm_pal_write("net", 7, "ssid", 5, "home", 4), 0);
  }
  for (const char* const state : {"WS_READY", "WS_WRITE_DONE", "WS_BACKUP_DONE"}) {
    EXPECT_EQ(
        log_.count(LOG_LVL_ERR, "dm_pal_write", "dm_write_state_db  " + std::string(state) + " failed: -1\n"),
        1)
        << log_.dump();
  }
  EXPECT_EQ(trace.count("system"), 0);
  EXPECT_EQ(kelo::tests::journal_state(DB_STATE), WS_READY);
  EXPECT_EQ(kelo::tests::scalar(DB_CONFIGBAK, "select value from net"), "home");
}

// --- Sizes and descriptors ---------------------------------------------------------------------------------

// Quoted in the statement with the rest of it, so many characters fill the 511 there is room for.
std::string key_for_insert_of(std::size_t length) {
  constexpr std::string_view kRest =
      "insert into state (key,item_table,id,item_key,type,len,state) "
      "values('write_state','net',7,'',5,4,100)";
  return std::string(length - kRest.size(), 'k');
}

TEST_F(Journal, StatementsThatFitAreStored) {
  const std::string key = key_for_insert_of(511);
  const CallTrace trace;
  EXPECT_EQ(dm_write_state_db("net", 7, key.c_str(), 5, 4, WS_READY), 0);
  EXPECT_EQ(trace.calls().at(static_cast<std::size_t>(trace.position("sqlite3_exec", "insert"))).text.size(),
            511U);
  EXPECT_EQ(key, journal_row(DB_STATE).value_or(JournalRow{}).item_key);
}

TEST_F(Journal, LongerStatementsAreCut) {
  const std::string key = key_for_insert_of(512);
  const CallTrace trace;
  EXPECT_EQ(dm_write_state_db("net", 7, key.c_str(), 5, 4, WS_READY), -1);
  EXPECT_EQ(trace.calls().at(static_cast<std::size_t>(trace.position("sqlite3_exec", "insert"))).text.size(),
            511U);
  expect_only_line(LOG_LVL_ERR, R"(\[\d+\] insert error, incomplete input\n)");
}

TEST_F(Journal, NoDescriptorIsLeftOpen) {
  const auto before = open_descriptors();
  record(WS_READY);
  record(WS_WRITE_DONE);
  EXPECT_EQ(before, open_descriptors()) << "after success";
  for (const char* const text : {"create table", "update state"}) {
    const Fault fault({.call = "sqlite3_exec", .code = SQLITE_IOERR, .text = text});
    EXPECT_EQ(record(WS_READY), -1);
    EXPECT_EQ(before, open_descriptors()) << text;
  }
  {
    const Fault fault({.call = "sqlite3_exec", .code = SQLITE_IOERR, .text = "insert into state"});
    EXPECT_EQ(record(WS_READY), -1);
    EXPECT_EQ(before, open_descriptors());
  }
  {
    const Fault fault({.call = "sqlite3_open", .code = SQLITE_CANTOPEN});
    EXPECT_EQ(record(WS_READY), -1);
    EXPECT_EQ(before, open_descriptors()) << "a handle that came with a failure";
  }
  dm_write_state_db(nullptr, 7, "ssid", 5, 4, WS_READY);
  EXPECT_EQ(before, open_descriptors());
}

}  // namespace
