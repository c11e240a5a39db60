// SPDX-License-Identifier: MIT
// keloctl store: on a healthy, missing, read-only, full, locked and damaged store, and while daemons write.
#include <gmock/gmock.h>
#include <sqlite3.h>

#include "tests/support/keloctl.hpp"

namespace {

using namespace kelo::tests;
using testing::HasSubstr;
using testing::StartsWith;

class KeloctlStore : public KeloctlTest {
 protected:
  // Where "all is well" is expected, the file sizes are those of whole pages.
  static std::string size_of(const char* path) { return std::to_string(std::filesystem::file_size(path)); }

  static void expect_unchanged(const std::string& words, const Ran& expected) {
    const auto before = files();
    EXPECT_EQ(keloctl(words), expected) << words;
    EXPECT_EQ(files(), before) << words;
  }
};

TEST_F(KeloctlStore, HealthyStoreIsWell) {
  expect_unchanged("store status", {0,
                                    "lock        nobody\n"
                                    "journal     the last write, of net.key (id 13), is complete\n"
                                    "version     0x00010001\n"
                                    "primary    healthy      " +
                                        size_of(DB_CONFIG) +
                                        "     /data/config.db\n"
                                        "backup     healthy      " +
                                        size_of(DB_CONFIGBAK) +
                                        "     /data/configbak.db\n"
                                        "journal    healthy      " +
                                        size_of(DB_STATE) +
                                        "      /data/state.db\n"
                                        "defaults   healthy      " +
                                        size_of(DB_DEF_ITEMS) +
                                        "     /data/DefItems.db\n"
                                        "recovery   missing      -         /kelonvbak/data/config.db\n"
                                        "agree       yes\n"
                                        "findings    0\n"
                                        "all is well\n",
                                    ""});
  expect_unchanged(
      "store status --json",
      {0,
       R"({"lock":"nobody","journal":"is complete","journal_state":102,"journal_item":"net.key",)"
       R"("journal_id":13,"version":"0x00010001","files":[)"
       R"({"file":"primary","health":"healthy","size":)" +
           size_of(DB_CONFIG) + R"(,"path":"/data/config.db"},{"file":"backup","health":"healthy","size":)" +
           size_of(DB_CONFIGBAK) +
           R"(,"path":"/data/configbak.db"},{"file":"journal","health":"healthy","size":)" +
           size_of(DB_STATE) + R"(,"path":"/data/state.db"},{"file":"defaults","health":"healthy","size":)" +
           size_of(DB_DEF_ITEMS) +
           R"(,"path":"/data/DefItems.db"},{"file":"recovery","health":"missing","size":null,)"
           R"("path":"/kelonvbak/data/config.db"}],"agree":true,"left_overs":[],"findings":0,"ok":true,)"
           "\"error\":null}\n",
       ""});
  expect_unchanged("store check", {0, "rows        17\nfindings    0\nall is well\n", ""});
  expect_unchanged("store check --tsv", {0, "rows\t17\nfindings\t0\nok\ttrue\nerror\t\n", ""});
}

TEST_F(KeloctlStore, MissingStoreStaysMissing) {
  remove_store();
  expect_unchanged("store check",
                   {1,
                    "primary                                        /data/config.db is missing\n"
                    "backup                                         /data/configbak.db is missing\n"
                    "rows        0\nfindings    2\nnot all is well\n",
                    complaint("the store has 2 findings")});
  expect_unchanged("store status", {1,
                                    "lock        no lock file\n"
                                    "journal     no write was recorded\n"
                                    "version     -\n"
                                    "primary    missing      -         /data/config.db\n"
                                    "backup     missing      -         /data/configbak.db\n"
                                    "journal    missing      -         /data/state.db\n"
                                    "defaults   missing      -         /data/DefItems.db\n"
                                    "recovery   missing      -         /kelonvbak/data/config.db\n"
                                    "agree       -\n"
                                    "findings    2\n"
                                    "not all is well\n",
                                    complaint("the store has 2 findings")});
}

TEST_F(KeloctlStore, ReadOnlyStoreIsChecked) {
  for (const auto& entry : std::filesystem::directory_iterator("/data")) chmod(entry.path().c_str(), 0444);
  chmod("/data", 0555);
  expect_unchanged("store check", {0, "rows        17\nfindings    0\nall is well\n", ""});
  chmod("/data/config.db-lock", 0);
  const Ran ran = keloctl("store status");
  EXPECT_EQ(ran.status, 0) << ran;
  EXPECT_THAT(ran.output, StartsWith("lock        this user may not open the lock file\n"));
}

TEST_F(KeloctlStore, FullFlashDoesNotMatter) {
  fill_flash();
  EXPECT_EQ(keloctl("store check"), (Ran{0, "rows        17\nfindings    0\nall is well\n", ""}));
  EXPECT_EQ(keloctl("store status").status, 0);
}

TEST_F(KeloctlStore, LockedStoreIsATimeOutThatNamesTheHolder) {
  const StoreHolder holder;
  const Ran ran = keloctl("store status");
  EXPECT_EQ(ran.status, 5) << ran;
  const std::string process = "process " + std::to_string(getpid()) + " (";
  EXPECT_THAT(ran.output, StartsWith("lock        " + process));
  EXPECT_THAT(ran.errors, StartsWith("keloctl: /data/config.db-lock was held for 5 s by " + process));
  EXPECT_EQ(keloctl("store check").status, 5);
}

TEST_F(KeloctlStore, DamagedFilesAreNamed) {
  make_no_database(DB_CONFIGBAK);
  corrupt_schema(DB_STATE);
  const auto before = files();
  const Ran status = keloctl("store status");
  EXPECT_EQ(status.status, 1);
  EXPECT_THAT(status.output, HasSubstr("\nbackup     damaged "));
  EXPECT_THAT(status.output, HasSubstr("\njournal     cannot be read\n"));
  EXPECT_THAT(status.output, HasSubstr("\nagree       -\nfindings    2\nnot all is well\n"));
  const Ran check = keloctl("store check");
  EXPECT_EQ(check.status, 1);
  EXPECT_THAT(check.output, HasSubstr("/data/configbak.db is damaged: file is not a database\n"));
  EXPECT_THAT(check.output, HasSubstr("/data/state.db is damaged: database disk image is malformed\n"));
  EXPECT_EQ(files(), before);
}

TEST_F(KeloctlStore, DamagedRowsAreNamed) {
  damage_value(DB_CONFIG);
  expect_unchanged("store check",
                   {4,
                    "primary    net           apn                   the value does not match its checksum\n"
                    "rows        17\nfindings    1\nnot all is well\n",
                    complaint("the store has 1 findings")});
  EXPECT_THAT(keloctl("store status").output, HasSubstr("agree       no\nfindings    1\nnot all is well\n"));
  execute_sql(DB_CONFIGBAK,
              "update net set len = 3, type = 9 where key = 'mtu'; insert into net select * from net where "
              "key = 'size'; update net set key = 'a''b' where key = 'key'");
  execute_sql(DB_DEF_ITEMS, "update lan set len = 1, type = 0");
  expect_unchanged("store check --tsv",
                   {1,
                    "problem\tprimary\tnet\tapn\tthe value does not match its checksum\n"
                    "problem\tbackup\tnet\ta'b\tthe key is no plain name\n"
                    "problem\tbackup\tnet\tmtu\tthe type is 9\n"
                    "problem\tbackup\tnet\tmtu\tthe length is 3, and the value has 4 bytes\n"
                    "problem\tbackup\tnet\tsize\tthe key has another row\n"
                    "problem\tdefaults\tlan\tname\tthe type is 0\n"
                    "problem\tdefaults\tlan\tname\tthe length is 1, and the value has 6 bytes\n"
                    "rows\t18\nfindings\t7\nok\tfalse\nerror\tthe store has 7 findings\n",
                    ""});
}

TEST_F(KeloctlStore, StatesOfTheJournalAreExplained) {
  execute_sql(DB_STATE, "update state set state = 100");
  EXPECT_THAT(
      keloctl("store status").output,
      HasSubstr(
          "journal     the last write, of net.key (id 13), was begun: its value may be in the primary, and "
          "reads give the old one\n"));
  execute_sql(DB_STATE, "update state set state = 101");
  EXPECT_THAT(
      keloctl("store status").output,
      HasSubstr(
          "journal     the last write, of net.key (id 13), is in the primary: the next start of a daemon "
          "completes the backup\n"));
  execute_sql(DB_STATE, "update state set state = 7");
  EXPECT_THAT(keloctl("store status").output, HasSubstr("is in a state that no write has\n"));
  EXPECT_THAT(keloctl("store check").output, HasSubstr("the state is 7\n"));
}

TEST_F(KeloctlStore, OtherVersionIsAFinding) {
  execute_sql(DB_CONFIGBAK, "update SQL_VER_TAB set value = x'02000100'");
  EXPECT_THAT(keloctl("store status").output,
              HasSubstr("version     0x00010002, not that of this library\n"));
}

TEST_F(KeloctlStore, LeftOverFilesAreExplained) {
  std::filesystem::copy_file(DB_CONFIGBAK, std::string(DB_CONFIGBAK) + "-previous");
  write_file(DB_CONFIGBAK, "half of a copy");
  write_file(std::string(DB_CONFIG) + "-new", "");
  const auto before = files();
  const Ran ran = keloctl("store status --tsv");
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(
      ran.output,
      HasSubstr(
          "left_over\t/data/config.db-new\ta copy was cut off before it began: the next one deletes this "
          "file\n"
          "left_over\t/data/configbak.db-previous\ta copy was interrupted: the next operation puts this old "
          "content back\n"
          "findings\t2\n"));
  EXPECT_THAT(ran.output, HasSubstr("\t/data/configbak.db-previous\nfile\tjournal"));
  EXPECT_EQ(files(), before);
}

TEST_F(KeloctlStore, WriteThatWasCutOffIsAFinding) {
  run_in_child([] {
    sqlite3* db = nullptr;
    sqlite3_open(DB_CONFIG, &db);
    sqlite3_exec(db, "pragma cache_size = 1; begin; update net set value = zeroblob(50000)", nullptr, nullptr,
                 nullptr);
    _exit(0);
  });
  ASSERT_TRUE(file_exists("/data/config.db-journal"));
  const auto before = files();
  const Ran ran = keloctl("store status");
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.output, HasSubstr("primary    cut off "));
  EXPECT_THAT(ran.output, HasSubstr("/data/config.db-journal"));
  EXPECT_EQ(keloctl("settings get net.apn"), (Ran{0, "internet\n", ""}));
  EXPECT_EQ(files(), before);
}

// --- Repair -------------------------------------------------------------------------------------------------

class KeloctlRepair : public KeloctlStore {
 protected:
  static constexpr char kLastStep[] =
      "store the version record again, and copy the primary over the backup\n";

  // Without --yes the steps are printed and no file changes; with it they are taken.
  static void expect_repair(const std::string& steps) {
    expect_unchanged("store repair",
                     {1, steps + kLastStep, complaint("nothing was changed: --yes takes these steps")});
    EXPECT_EQ(keloctl("store repair --yes"), (Ran{0, steps + kLastStep + "repaired    yes\n", ""}));
    expect_unchanged("store repair", {0, "all is well\n", ""});
    EXPECT_EQ(keloctl("store status").status, 0);
    EXPECT_EQ(keloctl("store check").status, 0);
    EXPECT_EQ(get("apn"), "internet");
    expect_others_kept();
  }
};

TEST_F(KeloctlRepair, HealthyStoreIsNotTouched) {
  expect_unchanged("store repair --yes --json", {0, "{\"steps\":[],\"ok\":true,\"error\":null}\n", ""});
}

TEST_F(KeloctlRepair, DamagedBackup) {
  make_no_database(DB_CONFIGBAK);
  expect_repair("make the backup anew from the primary\n");
}

TEST_F(KeloctlRepair, DamagedPrimary) {
  make_no_database(DB_CONFIG);
  expect_repair("make the primary anew from the backup\n");
}

TEST_F(KeloctlRepair, MissingPrimary) {
  std::filesystem::remove(DB_CONFIG);
  expect_repair("make the primary anew from the backup\n");
}

TEST_F(KeloctlRepair, CorruptPrimaryAndBackup) {
  std::filesystem::copy_file(DB_CONFIG, kRecovery);
  corrupt_schema(DB_CONFIG);
  corrupt_schema(DB_CONFIGBAK);
  expect_repair(
      "make the primary anew from the recovery copy\n"
      "make the backup anew from the primary\n");
}

TEST_F(KeloctlRepair, DamagedRow) {
  damage_value(DB_CONFIG);
  expect_repair("take rows that do not match their checksums from the other file\n");
}

TEST_F(KeloctlRepair, DifferentFiles) {
  execute_sql(DB_CONFIG, "create table more (x)");
  execute_sql(DB_CONFIG, "drop table more");
  expect_repair("");
}

TEST_F(KeloctlRepair, UnfinishedWriteAndInterruptedCopy) {
  execute_sql(DB_STATE, "update state set state = 100");
  std::filesystem::rename(DB_CONFIGBAK, std::string(DB_CONFIGBAK) + "-previous");
  write_file(DB_CONFIGBAK, "half of a copy");
  expect_repair(
      "undo what an interrupted change has left\n"
      "end the write that the journal says was not completed\n");
}

TEST_F(KeloctlRepair, RowThatIsDamagedInBothFilesStays) {
  damage_value(DB_CONFIG);
  damage_value(DB_CONFIGBAK);
  const Ran ran = keloctl("store repair --yes");
  EXPECT_EQ(ran.status, 4);
  EXPECT_EQ(ran.errors, complaint("not all could be repaired: store check says what is left"));
}

TEST_F(KeloctlRepair, NothingIsGood) {
  make_no_database(DB_CONFIG);
  make_no_database(DB_CONFIGBAK);
  expect_unchanged(
      "store repair --yes",
      {3, "",
       complaint("neither the primary nor the backup nor the recovery copy is good: nothing can be "
                 "repaired")});
}

TEST_F(KeloctlRepair, ReadOnlyLockedAndFullStore) {
  damage_value(DB_CONFIG);
  {
    const StoreHolder holder;
    EXPECT_EQ(keloctl("store repair --yes").status, 5);
  }
  chmod(DB_CONFIG, 0444);
  chmod(DB_CONFIGBAK, 0444);
  chmod("/data", 0555);
  EXPECT_EQ(keloctl("store repair --yes").status, 3);
  chmod("/data", 0755);
  chmod(DB_CONFIG, 0644);
  chmod(DB_CONFIGBAK, 0644);
  fill_flash();
  EXPECT_NE(keloctl("store repair --yes").status, 0);
  std::filesystem::remove("/data/filler");
  EXPECT_EQ(keloctl("store repair --yes").status, 0);
}

TEST_F(KeloctlStore, IsWellWhileFourDaemonsWrite) {
  const DaemonsThatWrite daemons;
  for (int i = 0; i < 5; ++i) {
    const Ran status = keloctl("store status");
    EXPECT_EQ(status.status, 0) << status;
    const Ran check = keloctl("store check");
    EXPECT_EQ(check.status, 0) << check;
  }
}

}  // namespace
