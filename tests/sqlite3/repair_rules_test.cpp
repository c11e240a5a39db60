// SPDX-License-Identifier: MIT
// What is repaired from what: a healthy file is never replaced by an older one, and an empty one is no
// source.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/sqlite_faults.hpp"
#include "tests/support/store_settings.hpp"

namespace {

namespace fs = std::filesystem;
using namespace kelo::tests;

class StoreRepairRules : public StoreTest {
 protected:
  static void expect_all_kept() {
    EXPECT_EQ(get("apn"), "internet");
    expect_others_kept();
  }
  static std::vector<std::string> net_rows(const char* path) {
    return query_lines(path, "select key, value from net order by key");
  }
  static const std::vector<std::string>& kept_rows() {
    static const std::vector<std::string> rows = {"apn|internet", "mtu|1500"};
    return rows;
  }
};

// --- Only the backup is bad --------------------------------------------------------------------------------

TEST_F(StoreRepairRules, ADamagedBackupIsMadeAnew) {
  provision_recovery();
  corrupt_schema(DB_CONFIGBAK);
  EXPECT_EQ(get("apn"), "<-100>");
  EXPECT_EQ(net_rows(DB_CONFIG), kept_rows());
  expect_all_kept();
  expect_backup_equals_primary();
}

TEST_F(StoreRepairRules, ABackupThatIsNoDatabaseIsMadeAnew) {
  provision_recovery();
  make_no_database(DB_CONFIGBAK);
  EXPECT_EQ(get("apn"), "<-100>");
  EXPECT_EQ(net_rows(DB_CONFIG), kept_rows());
  expect_all_kept();
}

TEST_F(StoreRepairRules, AMissingOrEmptyBackupIsMadeAnew) {
  provision_recovery();
  for (const bool missing : {true, false}) {
    if (missing) {
      fs::remove(DB_CONFIGBAK);
    } else {
      write_file(DB_CONFIGBAK, "");
    }
    EXPECT_EQ(get("apn"), "<-100>");
    EXPECT_EQ(net_rows(DB_CONFIG), kept_rows());
    expect_all_kept();
  }
}

TEST_F(StoreRepairRules, AStartWithADamagedBackupKeepsThePrimary) {
  provision_recovery();
  corrupt_schema(DB_CONFIGBAK);
  start_and([] {});
  EXPECT_EQ(net_rows(DB_CONFIG), kept_rows());
  expect_all_kept();
}

TEST_F(StoreRepairRules, AWriteWithADamagedBackupKeepsThePrimary) {
  provision_recovery();
  corrupt_schema(DB_CONFIGBAK);
  EXPECT_EQ(put("mtu", "1492"), 0);
  EXPECT_EQ(get("apn"), "internet");
  EXPECT_EQ(get("mtu"), "1492");
  EXPECT_EQ(get("name", "lan"), "home");
}

// --- The primary is gone -----------------------------------------------------------------------------------

TEST_F(StoreRepairRules, AWriteIntoAMissingPrimaryKeepsTheOtherSettings) {
  fs::remove(DB_CONFIG);
  EXPECT_EQ(put("apn", "new value"), 0);
  EXPECT_EQ(get("apn"), "new value");
  expect_others_kept();
  expect_backup_equals_primary();
}

TEST_F(StoreRepairRules, AWriteIntoAnEmptyPrimaryKeepsTheOtherSettings) {
  write_file(DB_CONFIG, "");
  EXPECT_EQ(put("apn", "new value"), 0);
  EXPECT_EQ(get("apn"), "new value");
  expect_others_kept();
  expect_backup_equals_primary();
}

TEST_F(StoreRepairRules, AWriteIntoAMissingPrimaryWaitsForABackupThatCanBeLookedAt) {
  fs::remove(DB_CONFIG);
  {
    const Fault no_memory({.call = "sqlite3_exec", .code = SQLITE_NOMEM, .text = "quick_check"});
    EXPECT_EQ(put("apn", "new value"), -1);
  }
  EXPECT_EQ(put("apn", "new value"), 0);
  EXPECT_EQ(get("apn"), "new value");
  expect_others_kept();
}

TEST_F(StoreRepairRules, ABackupThatIsAPipeIsNotWaitedFor) {
  corrupt_schema(DB_CONFIG);
  fs::remove(DB_CONFIGBAK);
  ASSERT_EQ(mkfifo(DB_CONFIGBAK, 0644), 0);
  alarm(60);  // ends the test
  EXPECT_EQ(put("apn", "new value"), -1);
  EXPECT_EQ(check_database_health(DB_CONFIGBAK), -1);
  alarm(0);
}

TEST_F(StoreRepairRules, AStartWithoutAPrimaryKeepsTheSettings) {
  fs::remove(DB_CONFIG);
  start_and([] {
    expect_all_kept();
    EXPECT_EQ(put("fresh", "row"), 0);
    expect_all_kept();
  });
}

// --- Empty files are no source -----------------------------------------------------------------------------

TEST_F(StoreRepairRules, ADamagedPrimaryIsNotReplacedByAnEmptyBackup) {
  provision_recovery();
  write_file(DB_CONFIGBAK, "");
  corrupt_schema(DB_CONFIG);
  EXPECT_EQ(put("fresh", "row"), 0);
  EXPECT_EQ(get("fresh"), "row");
  EXPECT_EQ(get("apn"), "older");
}

TEST_F(StoreRepairRules, AReadWithoutABackupLeavesNoEmptySource) {
  provision_recovery();
  fs::remove(DB_CONFIGBAK);
  static_cast<void>(get("apn"));
  corrupt_schema(DB_CONFIG);
  static_cast<void>(get("apn"));  // repairs
  const std::string value = get("apn");
  EXPECT_TRUE(value == "internet" || value == "older") << value;
}

TEST_F(StoreRepairRules, ADamagedPrimaryIsNotReplacedByAnEmptyRecoveryCopy) {
  write_file(kRecovery, "");
  write_file(DB_CONFIGBAK, "");
  corrupt_schema(DB_CONFIG);
  const std::string damaged = read_file(DB_CONFIG);
  static_cast<void>(get("apn"));
  EXPECT_TRUE(read_file(DB_CONFIG) == damaged) << "what can still be rescued by hand is kept";
}

// --- A damaged page that only the health check finds -------------------------------------------------------

// Damages the page of one table's rows; statements on other tables do not notice.
void damage_table(const char* path, const char* table) {
  const std::string sql = std::string("select rootpage from sqlite_master where name = '") + table + "'";
  const std::size_t page = std::stoul(scalar(path, sql));
  overwrite_file(path, (page - 1) * 4096, std::string(64, '\xA5'));
}

TEST_F(StoreRepairRules, TheNextWriteHealsAPrimaryWithADamagedPage) {
  damage_table(DB_CONFIG, "lan");
  EXPECT_EQ(put("apn", "second"), 0);
  EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE);
  const std::string between = get("apn");
  EXPECT_TRUE(between == "internet" || between == "second") << between;
  EXPECT_EQ(put("mtu", "1492"), 0);
  EXPECT_EQ(get("apn"), "second");
  EXPECT_EQ(get("mtu"), "1492");
  EXPECT_EQ(get("name", "lan"), "home");
  EXPECT_EQ(check_database_health(DB_CONFIG), 0);
}

TEST_F(StoreRepairRules, AWriteIntoTheDamagedTableIsHealedToo) {
  damage_table(DB_CONFIG, "net");
  EXPECT_EQ(put("apn", "second"), 0);
  EXPECT_EQ(put("name", "cabin", "lan"), 0);
  EXPECT_EQ(get("apn"), "second");
  EXPECT_EQ(get("mtu"), "1500");
  EXPECT_EQ(get("name", "lan"), "cabin");
  EXPECT_EQ(check_database_health(DB_CONFIG), 0);
}

// --- Rows that are there twice -----------------------------------------------------------------------------

TEST_F(StoreRepairRules, ALookThatFailsDoesNotMakeASecondRow) {
  {
    const Fault fault({.call = "sqlite3_get_table", .code = SQLITE_NOMEM, .text = "from net"});
    EXPECT_EQ(put("apn", "second"), 0);
    EXPECT_EQ(fault.failed(), 1);
  }
  EXPECT_EQ(net_rows(DB_CONFIG), (std::vector<std::string>{"apn|second", "mtu|1500"}));
  EXPECT_EQ(get("apn"), "second");
}

TEST_F(StoreRepairRules, ALookThatFailsDoesNotKeepANewRowOut) {
  {
    const Fault fault({.call = "sqlite3_get_table", .code = SQLITE_NOMEM, .text = "from net"});
    EXPECT_EQ(put("fresh", "row"), 0);
    EXPECT_EQ(fault.failed(), 1);
  }
  EXPECT_EQ(get("fresh"), "row");
  expect_all_kept();
}

TEST_F(StoreRepairRules, ALookThatFailsDoesNotMakeASecondJournalRow) {
  {
    const Fault fault({.call = "sqlite3_get_table", .code = SQLITE_NOMEM, .text = "from state"});
    EXPECT_EQ(put("apn", "second"), 0);
    EXPECT_EQ(fault.failed(), 1);
  }
  EXPECT_EQ(query(DB_STATE, "select 1 from state").size(), 1U);
  EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE);
}

TEST_F(StoreRepairRules, AStartKeepsTheNewerOfTwoRows) {
  const std::string newer = "insert into net select id, key, type, 5, " +
                            std::to_string(kelo_dm_Crc32Calc("newer", 5, 0)) +
                            ", cast('newer' as blob) from net where key = 'apn'";
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK}) execute_sql(path, newer);
  start_and([] { EXPECT_EQ(get("apn"), "newer"); });
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK})
    EXPECT_EQ(net_rows(path), (std::vector<std::string>{"apn|newer", "mtu|1500"})) << path;
}

TEST_F(StoreRepairRules, AStartKeepsTheNewerOfTwoJournalRows) {
  execute_sql(DB_STATE,
              "insert into state values ('write_state', 'net', 7, 'mtu', 5, 4, 102);"
              "update state set state = 100 where rowid = 1");
  start_and([] {});
  EXPECT_EQ(query_lines(DB_STATE, "select item_key, state from state"),
            (std::vector<std::string>{"mtu|102"}));
}

// --- What SQLite has to roll back first --------------------------------------------------------------------

// Ends a process in the middle of a transaction that has already changed pages in the file.
void cut_off_a_write(const char* path) {
  run_in_child([=] {
    sqlite3* db = nullptr;
    sqlite3_open(path, &db);
    sqlite3_exec(db,
                 "pragma cache_size = 1; begin; update net set value = randomblob(3000), crc = 1;"
                 "create table filler (x); insert into filler values (randomblob(100000));"
                 "update lan set value = randomblob(3000), crc = 1",
                 nullptr, nullptr, nullptr);
    _exit(0);
  });
  ASSERT_GT(fs::file_size(std::string(path) + "-journal"), 512U);
}

TEST_F(StoreRepairRules, ABackupIsJudgedAfterItsRollback) {
  provision_recovery();
  cut_off_a_write(DB_CONFIGBAK);
  corrupt_schema(DB_CONFIG);
  EXPECT_EQ(put("fresh", "row"), 0);
  EXPECT_EQ(get("fresh"), "row");
  expect_all_kept();
}

// The journal of what was there before must not be rolled back into the copy.
TEST_F(StoreRepairRules, ACopyOverABackupWithAJournalIsWhole) {
  cut_off_a_write(DB_CONFIGBAK);
  EXPECT_EQ(put("apn", "second"), 0);
  EXPECT_EQ(get("apn"), "second");
  expect_others_kept();
  EXPECT_EQ(scalar(DB_CONFIGBAK, "pragma integrity_check"), "ok");
}

TEST_F(StoreRepairRules, APrimaryMadeAnewIsNotSpoiltByAnOldJournal) {
  cut_off_a_write(DB_CONFIG);
  fs::remove(DB_CONFIG);
  EXPECT_EQ(put("fresh", "row"), 0);
  EXPECT_EQ(get("fresh"), "row");
  expect_all_kept();
  EXPECT_EQ(scalar(DB_CONFIG, "pragma integrity_check"), "ok");
}

TEST_F(StoreRepairRules, APrimaryWithAJournalKeepsItsSettings) {
  provision_recovery();
  cut_off_a_write(DB_CONFIG);
  EXPECT_EQ(get("apn"), "internet");
  EXPECT_EQ(put("mtu", "1492"), 0);
  EXPECT_EQ(get("apn"), "internet");
  EXPECT_EQ(get("mtu"), "1492");
  EXPECT_EQ(get("name", "lan"), "home");
}

}  // namespace
