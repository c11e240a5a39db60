// SPDX-License-Identifier: MIT
// The parameter databases as a whole: any statement, callbacks, the return to the factory settings.
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/descriptors.hpp"
#include "tests/support/own_tools.hpp"
#include "tests/support/parameter_files.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using namespace kelo::tests;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kCopy = "cp " + kFactoryFile + " " + kUserFile;

using Rows = std::vector<std::string>;
int collect(void* rows, int ncols, char** values, char** names) {
  std::string row;
  for (int column = 0; column < ncols; ++column)
    row += std::string(names[column]) + "=" + (values[column] == nullptr ? "NULL" : values[column]) + " ";
  static_cast<Rows*>(rows)->push_back(row);
  return 0;
}

// Runs a piece of a test in the callback.
using Step = std::function<int()>;
int run_step(void* step, int /*ncols*/, char** /*values*/, char** /*names*/) {
  return (*static_cast<Step*>(step))();
}

class ParameterFiles : public ParameterTest {
 protected:
  static int run(const std::string& sql, int which = 0) {
    return kelo_db_exec_cmd(sql.c_str(), nullptr, nullptr, which);
  }
  static int for_each_row(const char* sql, Step step, int which = 0) {
    return kelo_db_exec_cmd(sql, run_step, &step, which);
  }
  static std::uint8_t channel() {
    std::uint8_t value = 90;
    EXPECT_EQ(kelo_db_get_value("wifi", "channel", &value, 0, 0), 0);
    return value;
  }
};

// --- Any statement --------------------------------------------------------------------------------------

TEST_F(ParameterFiles, CommandHandsOverItsRows) {
  execute_sql(kUserFile, "insert into wifi (channel) values (7)");
  Rows rows;
  EXPECT_EQ(kelo_db_exec_cmd("select channel, note from wifi", collect, &rows, 0), 0);
  EXPECT_THAT(rows, ElementsAre("channel=36 note=blank ", "channel=7 note=NULL "));
  EXPECT_THAT(lines(),
              ElementsAre("DBUG oem_db_exec_cmd: executeCommand sql_cmd:select channel, note from wifi!!\n"));
}

TEST_F(ParameterFiles, CommandRunsOnTheFactoryForOneAlone) {
  set_cell("channel", "1", kFactoryFile);
  for (const int which : {0, 1, 2, -1}) {
    Rows rows;
    EXPECT_EQ(kelo_db_exec_cmd("select channel from wifi", collect, &rows, which), 0);
    EXPECT_THAT(rows, ElementsAre(which == 1 ? "channel=1 " : "channel=36 ")) << which;
  }
}

TEST_F(ParameterFiles, CommandMayBeLongAndOfSeveralStatements) {
  const std::string text(5000, 'x');
  EXPECT_EQ(run("update wifi set ssid = '" + text + "'; update wifi set channel = 9"), 0);
  EXPECT_EQ(cell("ssid"), text);
  EXPECT_EQ(cell("channel"), "9");
  EXPECT_EQ(run(""), 0);
}

TEST_F(ParameterFiles, NullCommandIsRefused) {
  const CallTrace trace;
  EXPECT_EQ(kelo_db_exec_cmd(nullptr, nullptr, nullptr, 0), -1);
  EXPECT_THAT(trace.calls(), IsEmpty());
  EXPECT_THAT(lines(), ElementsAre("ERR oem_db_exec_cmd: kelo_db_exec_cmd param NULL\n"));
}

TEST_F(ParameterFiles, FailingCommandKeepsWhatCameBeforeIt) {
  EXPECT_EQ(run("update wifi set channel = 9; update none set x = 1; update wifi set users = 1"), -1);
  EXPECT_THAT(user_row(), ElementsAre("1|9|32|5000000000|factory|blank"));
  EXPECT_THAT(errors(), ElementsAre("ERR oem_db_exec_cmd: Error, sql_cmd err info:[no such table: none].\n"));
}

TEST_F(ParameterFiles, FailureWithoutATextIsReportedToo) {
  const Fault fault({.call = "sqlite3_exec", .code = SQLITE_NOMEM, .null_error = true});
  EXPECT_EQ(run("select 1"), -1);
  EXPECT_THAT(errors(), ElementsAre("ERR oem_db_exec_cmd: Error, sql_cmd err info:[out of memory].\n"));
}

TEST_F(ParameterFiles, CallbackEndsItsStatement) {
  execute_sql(kUserFile, "insert into wifi (channel) values (7)");
  int calls = 0;
  EXPECT_EQ(for_each_row("select channel from wifi", [&] { return ++calls; }), -1);
  EXPECT_EQ(calls, 1);
  EXPECT_THAT(errors(), ElementsAre("ERR oem_db_exec_cmd: Error, sql_cmd err info:[query aborted].\n"));
}

TEST_F(ParameterFiles, TransactionSpansCommands) {
  EXPECT_EQ(run("begin"), 0);
  EXPECT_EQ(run("update wifi set channel = 9"), 0);
  EXPECT_EQ(cell("channel"), "36");
  EXPECT_EQ(run("commit"), 0);
  EXPECT_EQ(cell("channel"), "9");
}

TEST_F(ParameterFiles, CloseRollsATransactionBack) {
  EXPECT_EQ(run("begin; update wifi set channel = 9"), 0);
  EXPECT_EQ(kelo_db_close_sqlite(), 0);
  EXPECT_EQ(cell("channel"), "36");
  EXPECT_EQ(run("commit"), -1);
}

// --- Callbacks ------------------------------------------------------------------------------------------

TEST_F(ParameterFiles, CallbackReadsTheSameDatabase) {
  execute_sql(kUserFile, "insert into wifi (channel) values (7)");
  const CallTrace trace;
  int rows = 0;
  EXPECT_EQ(for_each_row("select channel from wifi",
                         [&] {
                           ++rows;
                           EXPECT_EQ(channel(), 36);
                           return 0;
                         }),
            0);
  EXPECT_EQ(rows, 2);
  EXPECT_EQ(trace.count("sqlite3_open_v2"), 1) << "with the connection that its rows come from";
}

TEST_F(ParameterFiles, CallbackWritesTheTableThatItReads) {
  execute_sql(kUserFile, "insert into wifi (channel) values (7)");
  int rows = 0;
  EXPECT_EQ(for_each_row("select channel from wifi",
                         [&] {
                           ++rows;
                           EXPECT_EQ(kelo_db_update_value("wifi", "note", "note", 6), 0);
                           EXPECT_EQ(kelo_db_update_value("wifi", "ssid", "ssid", 6), 0);
                           return 0;
                         }),
            0);
  EXPECT_EQ(rows, 2);
  EXPECT_THAT(query_lines(kUserFile, "select ssid, note from wifi"), ElementsAre("ssid|note", "ssid|note"));
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ParameterFiles, CallbackUsesTheOtherDatabase) {
  set_cell("channel", "7", kFactoryFile);
  std::uint8_t value = 0;
  const kelo_db_param params[] = {{&value, "channel", 0, 1, 1}, {}};
  const kelo_db_query query = {"wifi", params};
  for (const int which : {0, 1}) {
    set_cell("channel", "36");
    int rows = 0;
    EXPECT_EQ(for_each_row(
                  "select channel from wifi",
                  [&] {
                    ++rows;
                    EXPECT_EQ(kelo_db_reload_value(&query, 1), 0);
                    return 0;
                  },
                  which),
              0);
    EXPECT_EQ(rows, 1);
    EXPECT_EQ(value, 7);
    EXPECT_EQ(cell("channel"), "7");
  }
  EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ParameterFiles, CallbackRunsFurtherCommands) {
  Rows rows;
  EXPECT_EQ(for_each_row("select channel from wifi",
                         [&] {
                           EXPECT_EQ(kelo_db_exec_cmd("select users from wifi", collect, &rows, 0), 0);
                           EXPECT_EQ(kelo_db_exec_cmd("select bands from wifi", collect, &rows, 1), 0);
                           EXPECT_EQ(kelo_db_exec_cmd("select ssid from wifi", collect, &rows, 0), 0);
                           return 0;
                         }),
            0);
  EXPECT_THAT(rows, ElementsAre("users=32 ", "bands=5000000000 ", "ssid=factory "));
  EXPECT_EQ(kelo_db_close_sqlite(), 0);
  EXPECT_EQ(open_descriptors(), descriptors_);
}

TEST_F(ParameterFiles, CloseInACallbackIsRefusedAsBusy) {
  execute_sql(kUserFile, "insert into wifi (channel) values (7)");
  int rows = 0;
  EXPECT_EQ(for_each_row("select channel from wifi",
                         [&] {
                           ++rows;
                           EXPECT_EQ(kelo_db_close_sqlite(), SQLITE_BUSY);
                           return 0;
                         }),
            0);
  EXPECT_EQ(rows, 2) << "the statement went on";
  EXPECT_EQ(kelo_db_close_sqlite(), 0);
}

TEST_F(ParameterFiles, CloseInACallbackOnTheFactoryHasNothingToClose) {
  EXPECT_EQ(for_each_row(
                "select channel from wifi",
                [] {
                  EXPECT_EQ(kelo_db_close_sqlite(), 0);
                  return 0;
                },
                1),
            0);
}

// --- Back to the factory settings -----------------------------------------------------------------------

TEST_F(ParameterFiles, RestoreCopiesTheFactory) {
  execute_sql(kUserFile, "update wifi set channel = 1; create table own (x)");
  EXPECT_EQ(kelo_db_restore_factory(), 1);
  EXPECT_EQ(read_file(kUserFile), read_file(kFactoryFile));
  EXPECT_THAT(lines(), ElementsAre("DBUG oem_system_call: System call: " + kCopy + "\n",
                                   "DBUG oem_system_call: run shell script successfully result=0.\n"));
}

TEST_F(ParameterFiles, RestoreMakesAMissingUserDatabase) {
  std::filesystem::remove(kUserFile);
  EXPECT_EQ(kelo_db_restore_factory(), 1);
  EXPECT_EQ(read_file(kUserFile), read_file(kFactoryFile));
}

TEST_F(ParameterFiles, RestoreWithoutAFactoryFails) {
  set_cell("channel", "1");
  std::filesystem::remove(kFactoryFile);
  EXPECT_EQ(kelo_db_restore_factory(), 0);
  EXPECT_EQ(cell("channel"), "1");
  EXPECT_THAT(errors(), ElementsAre("ERR oem_system_call: run shell script fail=256, script exit code: 1\n"));
}

TEST_F(ParameterFiles, RestoreThatCannotBeginKeepsTheUsersFile) {
  set_cell("channel", "1");
  std::filesystem::create_directory(kUserFile + "-new");
  EXPECT_EQ(kelo_db_restore_factory(), 0);
  std::filesystem::remove(kUserFile + "-new");
  EXPECT_EQ(cell("channel"), "1");
}

TEST_F(ParameterFiles, RestoreFromAPipeIsNotWaitedFor) {
  set_cell("channel", "1");
  std::filesystem::remove(kFactoryFile);
  ASSERT_EQ(mkfifo(kFactoryFile.c_str(), 0644), 0);
  alarm(60);  // ends the test
  EXPECT_EQ(kelo_db_restore_factory(), 0);
  alarm(0);
  std::filesystem::remove(kFactoryFile);
  EXPECT_EQ(cell("channel"), "1");
}

TEST_F(ParameterFiles, RestoreIntoAReadOnlyFileFails) {
  set_cell("channel", "1");
  chmod(kUserFile.c_str(), 0444);
  EXPECT_EQ(kelo_db_restore_factory(), 0);
  EXPECT_EQ(cell("channel"), "1");
}

// It tells other processes that the copy is still under way when its parent has died.
TEST_F(ParameterFiles, RestoreLeavesTheDescriptorOfTheLockToItsCommand) {
  kelo::tests::make_script("cp", "ls -l /proc/self/fd > /tmp/descriptors; exec /bin/cp \"$@\"");
  const std::string path = getenv("PATH");
  setenv("PATH", ("/tmp/t/bin:" + path).c_str(), 1);
  EXPECT_EQ(kelo_db_restore_factory(), 1);
  setenv("PATH", path.c_str(), 1);
  int locks = 0;
  for (const std::string& held : kelo::tests::listed_descriptors("/tmp/descriptors")) {
    if (held.ends_with("/user_info.db-lock") && ++locks == 1) continue;
    EXPECT_TRUE(held[0] <= '2' || open_descriptors().count(held) == 1) << held;
  }
  EXPECT_EQ(locks, 1);
}

TEST_F(ParameterFiles, RestoreThatCouldNotStartFails) {
  const Fault fault({.call = "system", .code = -1});
  EXPECT_EQ(kelo_db_restore_factory(), 0);
  EXPECT_THAT(errors(), ElementsAre("ERR oem_system_call: system error!\n"));
}

TEST_F(ParameterFiles, RestoreForgetsWhatTheKeptConnectionKnew) {
  EXPECT_EQ(run("begin; update wifi set channel = 9"), 0);
  EXPECT_EQ(kelo_db_restore_factory(), 1);
  EXPECT_EQ(open_descriptors(), descriptors_) << "the connection of the old file is closed";
  EXPECT_EQ(channel(), 36);
  EXPECT_EQ(run("commit"), -1);
}

TEST_F(ParameterFiles, RestoreIsNotUndoneByAWriteThatWasCutOff) {
  cut_off_a_write();
  EXPECT_EQ(kelo_db_restore_factory(), 1);
  EXPECT_EQ(channel(), 36);
  EXPECT_EQ(read_file(kUserFile), read_file(kFactoryFile));
}

TEST_F(ParameterFiles, FailedRestoreLeavesACutOffWriteToSqlite) {
  cut_off_a_write();
  std::filesystem::remove(kFactoryFile);
  EXPECT_EQ(kelo_db_restore_factory(), 0);
  EXPECT_EQ(channel(), 36);
  EXPECT_EQ(scalar(kUserFile, "pragma integrity_check"), "ok");
  EXPECT_EQ(scalar(kUserFile, "select x = zeroblob(100000) from filler"), "1");
}

}  // namespace
