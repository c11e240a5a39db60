// SPDX-License-Identifier: MIT
// Opening the parameter databases, and the connection that is kept between operations.
#include <sqlite3.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/support/file_holder.hpp"
#include "tests/support/parameter_files.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using namespace kelo::tests;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kCopy = "cp " + kFactoryFile + " " + kUserFile;
const std::string kUserMissing = "ERR open_sqlite_db: Error, db:" + kUserFile + " couldn't access.\n";
const std::string kFactoryMissing = "ERR open_sqlite_db: Error, db:" + kFactoryFile + " couldn't access.\n";

class ParameterConnection : public ParameterTest {
 protected:
  static int get_channel(std::uint8_t& channel) {
    channel = 90;
    return kelo_db_get_value("wifi", "channel", &channel, 0, 0);
  }
  static int set_channel(std::uint8_t channel) {
    return kelo_db_update_value("wifi", "channel", &channel, 0);
  }
  static int run(const char* sql, int which = 0) { return kelo_db_exec_cmd(sql, nullptr, nullptr, which); }
  // Whether this process has the file open.
  static bool is_open(const std::string& path) {
    for (const std::string& descriptor : open_descriptors())
      if (descriptor.ends_with(" " + path)) return true;
    return false;
  }

  std::uint8_t channel = 90;
};

// --- Missing files --------------------------------------------------------------------------------------

TEST_F(ParameterConnection, MissingUserDatabaseIsMadeFromTheFactory) {
  std::filesystem::remove(kUserFile);
  EXPECT_EQ(get_channel(channel), 0);
  EXPECT_EQ(channel, 36);
  EXPECT_EQ(read_file(kUserFile), read_file(kFactoryFile));
  EXPECT_THAT(lines(), ElementsAre(kUserMissing, "DBUG oem_system_call: System call: " + kCopy + "\n",
                                   "DBUG oem_system_call: run shell script successfully result=0.\n"));
}

TEST_F(ParameterConnection, MissingUserDatabaseIsMadeBeforeTheFactoryIsRead) {
  std::filesystem::remove(kUserFile);
  EXPECT_EQ(run("select 1", 1), 0);
  EXPECT_EQ(read_file(kUserFile), read_file(kFactoryFile));
}

TEST_F(ParameterConnection, BothDatabasesMissingIsLogged) {
  std::filesystem::remove(kUserFile);
  std::filesystem::remove(kFactoryFile);
  const CallTrace trace;
  EXPECT_EQ(get_channel(channel), -1);
  EXPECT_EQ(channel, 90);
  EXPECT_EQ(trace.count("system"), 0);
  EXPECT_THAT(lines(), ElementsAre(kUserMissing, kFactoryMissing,
                                   "ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select "
                                   "channel from wifi ;], db err:[no such table: wifi].\n"));
  EXPECT_EQ(read_file(kUserFile), "") << "SQLite makes an empty file";
}

TEST_F(ParameterConnection, FailedCopyOfTheFactoryIsLogged) {
  std::filesystem::remove(kUserFile);
  const Fault fault({.call = "system", .code = 256});
  EXPECT_EQ(get_channel(channel), -1);
  EXPECT_THAT(
      errors(),
      ElementsAre(kUserMissing, "ERR oem_system_call: run shell script fail=256, script exit code: 1\n",
                  "ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select "
                  "channel from wifi ;], db err:[no such table: wifi].\n"));
}

TEST_F(ParameterConnection, MissingFolderCannotBeOpened) {
  std::filesystem::rename(kParameterFolder, "/data/elsewhere");
  EXPECT_EQ(get_channel(channel), -1);
  EXPECT_EQ(set_channel(1), -1);
  EXPECT_EQ(run("select 1", 1), -1);
  EXPECT_EQ(channel, 90);
  const std::string user =
      "ERR open_sqlite_db: Error, db:" + kUserFile + " open failed:unable to open database file.\n";
  EXPECT_THAT(
      errors(),
      ElementsAre(
          "ERR sqlite: " + kUserFile +
              ": No such file or directory. Check its folder, its mode and the space, or move it away\n",
          kUserMissing, kFactoryMissing, user, "ERR search_by_table: Error, open_sqlite_db return faild.\n",
          kUserMissing, kFactoryMissing, user,
          "ERR update_item_to_db: Error, db:" + kUserFile + " open_sqlite_db return faild.\n",
          "ERR oem_db_update_value: Error, tbl_name:wifi update key:[channel] failed.\n", kUserMissing,
          kFactoryMissing,
          "ERR open_sqlite_db: Error, db:" + kFactoryFile + " open failed:unable to open database file.\n",
          "ERR oem_db_exec_cmd: Error, db:" + kFactoryFile + " open_sqlite_db return faild.\n"));
  std::filesystem::rename("/data/elsewhere", kParameterFolder);
}

TEST_F(ParameterConnection, MissingFactoryCannotBeReloadedFrom) {
  std::filesystem::remove(kFactoryFile);
  const kelo_db_param params[] = {{&channel, "channel", 0, 1, 1}, {}};
  const kelo_db_query query = {"wifi", params};
  EXPECT_EQ(kelo_db_reload_value(&query, 1), -1);
  EXPECT_EQ(channel, 90);
  EXPECT_THAT(errors(),
              ElementsAre("ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select "
                          "channel from wifi;], db err:[no such table: wifi].\n",
                          "ERR oem_db_reload_value: Error, db:" + kFactoryFile +
                              " search_by_table return failed.\n"));
}

TEST_F(ParameterConnection, FileThatWentAwayIsForgotten) {
  EXPECT_EQ(run("select 1"), 0);
  std::filesystem::remove(kUserFile);
  set_cell("channel", "7", kFactoryFile);
  EXPECT_EQ(get_channel(channel), 0);
  EXPECT_EQ(channel, 7) << "not what the file that is gone holds";
}

TEST_F(ParameterConnection, WriteThatWasCutOffDoesNotReachTheNewFile) {
  cut_off_a_write();
  std::filesystem::remove(kUserFile);
  EXPECT_EQ(get_channel(channel), 0);
  EXPECT_EQ(channel, 36);
  EXPECT_EQ(scalar(kUserFile, "pragma integrity_check"), "ok");
  EXPECT_EQ(scalar(kUserFile, "select count(*) from sqlite_master where name = 'filler'"), "0");
}

// --- Files that cannot be used --------------------------------------------------------------------------

TEST_F(ParameterConnection, UserFileThatIsNoDatabaseFails) {
  make_no_database(kUserFile);
  EXPECT_EQ(get_channel(channel), -1);
  EXPECT_EQ(set_channel(1), -1);
  EXPECT_EQ(channel, 90);
  EXPECT_THAT(
      errors(),
      ElementsAre("ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select channel from "
                  "wifi ;], db err:[file is not a database].\n",
                  "ERR update_item_to_db: Error, sql_cmd err info:[file is not a database].\n",
                  "ERR oem_db_update_value: Error, tbl_name:wifi update key:[channel] failed.\n"));
}

TEST_F(ParameterConnection, FactoryFileThatIsNoDatabaseFails) {
  make_no_database(kFactoryFile);
  const kelo_db_param params[] = {{&channel, "channel", 0, 1, 1}, {}};
  const kelo_db_query query = {"wifi", params};
  EXPECT_EQ(kelo_db_reload_value(&query, 1), -1);
  EXPECT_EQ(channel, 90);
  EXPECT_EQ(cell("channel"), "36");
  EXPECT_THAT(errors(),
              ElementsAre("ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select "
                          "channel from wifi;], db err:[file is not a database].\n",
                          "ERR oem_db_reload_value: Error, db:" + kFactoryFile +
                              " search_by_table return failed.\n"));
}

TEST_F(ParameterConnection, FolderInPlaceOfAFileCannotBeOpened) {
  std::filesystem::remove(kUserFile);
  std::filesystem::create_directory(kUserFile);
  EXPECT_EQ(get_channel(channel), -1);
  EXPECT_THAT(errors(), ElementsAre("ERR open_sqlite_db: Error, db:" + kUserFile +
                                        " open failed:unable to open database file.\n",
                                    "ERR search_by_table: Error, open_sqlite_db return faild.\n"));
  std::filesystem::remove(kUserFile);
}

TEST_F(ParameterConnection, ReadOnlyFileIsReadAndNotWritten) {
  chmod(kUserFile.c_str(), 0444);
  EXPECT_EQ(get_channel(channel), 0);
  EXPECT_EQ(channel, 36);
  EXPECT_EQ(set_channel(1), -1);
  EXPECT_EQ(cell("channel"), "36");
  EXPECT_THAT(
      errors(),
      ElementsAre("ERR update_item_to_db: Error, sql_cmd err info:[attempt to write a readonly database].\n",
                  "ERR oem_db_update_value: Error, tbl_name:wifi update key:[channel] failed.\n"));
}

TEST_F(ParameterConnection, LockedFileIsWaitedForAndFails) {
  const FileHolder holder(kUserFile, "begin exclusive");
  const ShortBusyTimeout short_wait(1);
  EXPECT_EQ(get_channel(channel), -1);
  EXPECT_EQ(set_channel(1), -1);
  EXPECT_EQ(channel, 90);
  EXPECT_TRUE(short_wait.was_asked_for());
  EXPECT_THAT(
      errors(),
      ElementsAre("ERR search_by_table: Error, sqlite3_get_table run faild, sql_cmd:[select channel from "
                  "wifi ;], db err:[database is locked].\n",
                  "ERR update_item_to_db: Error, sql_cmd err info:[database is locked].\n",
                  "ERR oem_db_update_value: Error, tbl_name:wifi update key:[channel] failed.\n"));
}

TEST_F(ParameterConnection, FileLockedForAWhileIsWaitedFor) {
  const FileHolder holder(kUserFile, "begin exclusive", 200);
  EXPECT_EQ(set_channel(1), 0);
  EXPECT_EQ(get_channel(channel), 0);
  EXPECT_EQ(channel, 1);
}

// --- What is kept ---------------------------------------------------------------------------------------

TEST_F(ParameterConnection, SuccessClosesTheUserConnection) {
  EXPECT_EQ(get_channel(channel), 0);
  EXPECT_FALSE(is_open(kUserFile));
  EXPECT_EQ(set_channel(1), 0);
  EXPECT_FALSE(is_open(kUserFile));
}

TEST_F(ParameterConnection, FailureKeepsTheUserConnection) {
  EXPECT_EQ(kelo_db_get_value("none", "channel", &channel, 0, 0), -1);
  EXPECT_TRUE(is_open(kUserFile));
  {
    const CallTrace trace;
    EXPECT_EQ(kelo_db_update_value("none", "channel", &channel, 0), -1);
    EXPECT_EQ(trace.count("sqlite3_open_v2"), 0) << "the kept one is used again";
  }
  EXPECT_TRUE(is_open(kUserFile));
  EXPECT_EQ(get_channel(channel), 0);
  EXPECT_FALSE(is_open(kUserFile));
}

TEST_F(ParameterConnection, OpeningOneClosesTheOther) {
  EXPECT_EQ(run("select 1", 0), 0);
  EXPECT_TRUE(is_open(kUserFile));
  EXPECT_EQ(run("select 1", 1), 0);
  EXPECT_FALSE(is_open(kUserFile));
  EXPECT_TRUE(is_open(kFactoryFile));
  EXPECT_EQ(run("select 1", 0), 0);
  EXPECT_TRUE(is_open(kUserFile));
  EXPECT_FALSE(is_open(kFactoryFile));
}

TEST_F(ParameterConnection, ReadOfTheFactoryKeepsItsConnection) {
  const kelo_db_param params[] = {{&channel, "none", 0, 1, 1}, {}};
  const kelo_db_query query = {"wifi", params};
  EXPECT_EQ(kelo_db_reload_value(&query, 1), -1);
  EXPECT_TRUE(is_open(kFactoryFile));
  EXPECT_EQ(kelo_db_close_sqlite(), 0);
  EXPECT_TRUE(is_open(kFactoryFile)) << "only the user's is closed";
  const CallTrace trace;
  EXPECT_EQ(run("select 1", 1), 0);
  EXPECT_EQ(trace.count("sqlite3_open_v2"), 0);
  EXPECT_TRUE(is_open(kFactoryFile));
}

TEST_F(ParameterConnection, ReloadLeavesNothingOpen) {
  const kelo_db_param params[] = {{&channel, "channel", 0, 1, 1}, {}};
  const kelo_db_query query = {"wifi", params};
  EXPECT_EQ(kelo_db_reload_value(&query, 1), 0);
  EXPECT_FALSE(is_open(kFactoryFile));
  EXPECT_FALSE(is_open(kUserFile));
}

TEST_F(ParameterConnection, FailedOpeningKeepsNothing) {
  {
    const Fault fault({.call = "sqlite3_open_v2", .code = SQLITE_CANTOPEN});
    EXPECT_EQ(get_channel(channel), -1);
  }
  EXPECT_EQ(open_descriptors(), descriptors_);
  EXPECT_EQ(kelo_db_close_sqlite(), 0);
  EXPECT_EQ(get_channel(channel), 0);
}

TEST_F(ParameterConnection, CloseEndsTheKeptConnection) {
  EXPECT_EQ(kelo_db_close_sqlite(), 0);
  EXPECT_EQ(run("select 1"), 0);
  EXPECT_TRUE(is_open(kUserFile));
  EXPECT_EQ(kelo_db_close_sqlite(), 0);
  EXPECT_FALSE(is_open(kUserFile));
  EXPECT_EQ(kelo_db_close_sqlite(), 0);
  EXPECT_THAT(errors(), IsEmpty());
}

}  // namespace
