// SPDX-License-Identifier: MIT
// keloctl settings: on a healthy, missing, read-only, full, locked and damaged store, and while daemons write.
#include <gmock/gmock.h>

#include "tests/support/keloctl.hpp"

namespace {

using namespace kelo::tests;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class KeloctlSettings : public KeloctlTest {};

constexpr char kAllLines[] =
    "item\tlan\tname\t7\t5\t4\tset\thome\trouter\t686f6d65\t726f75746572\n"
    "item\tnet\tapn\t7\t5\t8\tset\tinternet\tinternet\t696e7465726e6574\t696e7465726e6574\n"
    "item\tnet\tkey\t13\t6\t4\tset\t01ff007f\t\t01ff007f\t\n"
    "item\tnet\tmtu\t7\t5\t4\tset\t1500\t\t31353030\t\n"
    "item\tnet\tsize\t12\t3\t4\tset\t1400\t1500\t78050000\tdc050000\n"
    "item\tnet\toff\t\t5\t2\tdefault\t\tno\t\t6e6f\n";
constexpr char kGood[] = "ok\ttrue\nerror\t\n";

TEST_F(KeloctlSettings, ListShowsEverySetting) {
  const auto before = files();
  EXPECT_EQ(
      keloctl("settings list"),
      (Ran{
          0,
          "table         key                   id      type  len   state         value                     "
          "default\n"
          "lan           name                  7       5  4     set           home                      "
          "router\n"
          "net           apn                   7       5  8     set           internet                  "
          "internet\n"
          "net           key                   13      6  4     set           01ff007f                  -\n"
          "net           mtu                   7       5  4     set           1500                      -\n"
          "net           size                  12      3  4     set           1400                      "
          "1500\n"
          "net           off                   -       5  2     default       -                         no\n",
          ""}));
  EXPECT_EQ(keloctl("settings list --tsv"), (Ran{0, std::string(kAllLines) + kGood, ""}));
  EXPECT_EQ(
      keloctl("settings list --json lan"),
      (Ran{0,
           R"({"items":[{"table":"lan","key":"name","id":7,"type":5,"len":4,"state":"set","value":"home",)"
           R"("default":"router","hex":"686f6d65","default_hex":"726f75746572"}],"ok":true,"error":null})"
           "\n",
           ""}));
  EXPECT_EQ(files(), before);
}

TEST_F(KeloctlSettings, ListOfAnUnknownTableFails) {
  EXPECT_EQ(keloctl("settings list none --tsv"), (Ran{1, "ok\tfalse\nerror\tthere is no table none\n", ""}));
}

TEST_F(KeloctlSettings, GetPrintsTheValueTheDefaultAndHexadecimalDigits) {
  EXPECT_EQ(keloctl("settings get net.size"), (Ran{0, "1400\n", ""}));
  EXPECT_EQ(keloctl("settings get net.size --default"), (Ran{0, "1500\n", ""}));
  EXPECT_EQ(keloctl("settings get --hex net.apn"), (Ran{0, "696e7465726e6574\n", ""}));
  EXPECT_EQ(keloctl("settings get net.off"), (Ran{0, "no\n", ""}));
  EXPECT_EQ(keloctl("settings get net.key --json"),
            (Ran{0,
                 R"({"table":"net","key":"key","type":6,"state":"set","value":"01ff007f","hex":"01ff007f",)"
                 R"("ok":true,"error":null})"
                 "\n",
                 ""}));
  EXPECT_EQ(keloctl("settings get net.key --default"), (Ran{1, "", complaint("net.key has no default")}));
  EXPECT_EQ(keloctl("settings get net.none"), (Ran{1, "", complaint("there is no setting net.none")}));
}

TEST_F(KeloctlSettings, GetKeepsATerminalFromControlCharacters) {
  start_and([] { put("apn", "a\x1b[2J\xc2\x9b\xff\tb\xc3\xa4"); });
  EXPECT_EQ(keloctl("settings get net.apn").output, "a\\x1b[2J\\xc2\\x9b\\xff\\x09b\xc3\xa4\n");
  EXPECT_THAT(keloctl("settings get net.apn --json").output,
              HasSubstr(R"("value":"a\u001b[2J)"
                        "\xc2\x9b"
                        R"(\ufffd\u0009b)"
                        "\xc3\xa4"
                        R"(","hex":"611b5b324ac29bff0962c3a4")"));
}

TEST_F(KeloctlSettings, SetStoresAValueThroughTheJournal) {
  EXPECT_EQ(
      keloctl("settings set net.apn 'my apn'"),
      (Ran{0, "net.apn is stored. Running daemons are not told: they use the value when they next read it.\n",
           ""}));
  EXPECT_EQ(get("apn"), "my apn");
  const auto journal = journal_row(DB_STATE);
  ASSERT_TRUE(journal);
  EXPECT_EQ(*journal, (JournalRow{"write_state", "net", 7, "apn", 5, 6, 102}));
  expect_backup_equals_primary();
  EXPECT_EQ(
      keloctl("settings set net.size 0x10 --json"),
      (Ran{0,
           R"({"table":"net","key":"size","value":"16","hex":"10000000","daemons_told":false,"ok":true,)"
           R"("error":null})"
           "\n",
           ""}));
  EXPECT_EQ(
      keloctl("settings set net.size -1 --tsv"),
      (Ran{0, "table\tnet\nkey\tsize\nvalue\t-1\nhex\tffffffff\ndaemons_told\tfalse\nok\ttrue\nerror\t\n",
           ""}));
  EXPECT_EQ(keloctl("settings set --hex net.key 00fF").status, 0);
  EXPECT_EQ(get("key"), std::string("\0\xff", 2));
  expect_others_kept();
}

TEST_F(KeloctlSettings, SetStoresWhatHasOnlyADefault) {
  EXPECT_EQ(keloctl("settings set net.off yes --id 900").status, 0);
  EXPECT_EQ(get("off"), "yes");
  EXPECT_EQ(scalar(DB_CONFIG, "select id from net where key = 'off'"), "900");
  remove_store();
  start_and([] { dm_write_def_db("net", "off", KELO_DM_TYPE_STRING, "no", 2); });
  std::filesystem::remove(DB_CONFIG);
  EXPECT_EQ(keloctl("settings set net.off on").status, 0);
  EXPECT_EQ(get("off"), "on");
}

TEST_F(KeloctlSettings, SetRefusesWhatTheSettingCannotHold) {
  const auto before = files();
  const struct {
    const char* words;
    int status;
    const char* error;
  } cases[] = {
      {"net.size 4294967296", 2, "4294967296 is not a number of 4 bytes"},
      {"net.size -2147483649", 2, "-2147483649 is not a number of 4 bytes"},
      {"net.size 12x", 2, "12x is not a number of 4 bytes"},
      {"net.size --hex 0102", 2, "net.size has 4 bytes, not 2"},
      {"net.key text", 2, "net.key holds bytes: give them with --hex"},
      {"net.key --hex 123", 2, "123 is not an even number of hexadecimal digits"},
      {"net.key --hex 1g", 2, "1g is not an even number of hexadecimal digits"},
      {"net.apn ''", 2, "an empty value cannot be stored: settings reset stores the default"},
      {"net.off yes --id -1", 2, "no setting has the id -1"},
      {"net.off yes --id x", 2, "x is not an id"},
      {"net.none x", 1, "there is no setting net.none"},
      {"SQL_VER_TAB.SQL_VER_KEY 1", 2, "the version record is no setting"},
      {"\"net.a'b\" x", 2, "net.a'b is not TABLE.KEY, two plain names of at most 31 characters"},
      {"net x", 2, "net is not TABLE.KEY, two plain names of at most 31 characters"},
  };
  for (const auto& refused : cases)
    EXPECT_EQ(keloctl(std::string("settings set ") + refused.words),
              (Ran{refused.status, "", complaint(refused.error)}))
        << refused.words;
  EXPECT_EQ(files(), before);
}

TEST_F(KeloctlSettings, ResetStoresTheDefault) {
  EXPECT_EQ(keloctl("settings reset net.size").status, 0);
  EXPECT_EQ(keloctl("settings get net.size").output, "1500\n");
  EXPECT_EQ(item_rows(DB_CONFIG, "net").size(), 4U);
  EXPECT_EQ(keloctl("settings reset net.mtu"), (Ran{1, "", complaint("net.mtu has no default")}));
}

TEST_F(KeloctlSettings, DiffShowsWhatDiffersFromTheDefaults) {
  EXPECT_EQ(keloctl("settings diff lan"), (Ran{1,
                                               "table         key                   id      type  len   "
                                               "state         value                     default\n"
                                               "lan           name                  7       5  4     set     "
                                               "      home                      router\n",
                                               complaint("1 settings differ from their defaults")}));
  EXPECT_EQ(keloctl("settings reset lan.name").status, 0);
  EXPECT_EQ(keloctl("settings diff lan --json"), (Ran{0, "{\"items\":[],\"ok\":true,\"error\":null}\n", ""}));
  EXPECT_EQ(keloctl("settings diff --tsv").output,
            "item\tnet\tkey\t13\t6\t4\tset\t01ff007f\t\t01ff007f\t\n"
            "item\tnet\tmtu\t7\t5\t4\tset\t1500\t\t31353030\t\n"
            "item\tnet\tsize\t12\t3\t4\tset\t1400\t1500\t78050000\tdc050000\n"
            "ok\tfalse\nerror\t3 settings differ from their defaults\n");
}

TEST_F(KeloctlSettings, MissingStoreStaysMissing) {
  remove_store();
  const auto before = files();
  const std::string error =
      complaint("there is no store: neither /data/config.db nor /data/DefItems.db has settings");
  for (const char* const words : {"list", "get net.apn", "set net.apn x", "reset net.apn", "diff"})
    EXPECT_EQ(keloctl(std::string("settings ") + words), (Ran{1, "", error})) << words;
  EXPECT_EQ(files(), before);
}

TEST_F(KeloctlSettings, ReadOnlyStoreIsShownAndNotWritten) {
  for (const auto& entry : std::filesystem::directory_iterator("/data")) chmod(entry.path().c_str(), 0444);
  chmod("/data", 0555);
  const auto before = files();
  EXPECT_EQ(keloctl("settings list --tsv"), (Ran{0, std::string(kAllLines) + kGood, ""}));
  const Ran ran = keloctl("settings set net.apn x");
  EXPECT_EQ(ran.status, 3);
  EXPECT_THAT(ran.errors, StartsWith("keloctl: net.apn was not stored"));
  EXPECT_EQ(files(), before);
  // A user who may not open the lock file reads without the lock.
  chmod("/data/config.db-lock", 0);
  EXPECT_EQ(keloctl("settings list --tsv"), (Ran{0, std::string(kAllLines) + kGood, ""}));
}

TEST_F(KeloctlSettings, FullFlashKeepsTheOldValue) {
  fill_flash();
  const Ran ran = keloctl("settings set net.apn " + std::string(9000, 'y'));
  EXPECT_EQ(ran.status, 3);
  EXPECT_THAT(ran.errors, MatchesRegex("cp: .*keloctl: net.apn was not stored: .*(rc: 13|disk is full)\n"));
  EXPECT_EQ(keloctl("settings get net.apn"), (Ran{0, "internet\n", ""}));
}

TEST_F(KeloctlSettings, LockedStoreIsATimeOutThatNamesTheHolder) {
  const StoreHolder holder;
  const auto before = files();
  for (const char* const words : {"list", "set net.apn x"}) {
    const Ran ran = keloctl(std::string("settings ") + words);
    EXPECT_EQ(ran.status, 5) << ran;
    EXPECT_EQ(ran.output, "");
    EXPECT_THAT(ran.errors, StartsWith("keloctl: /data/config.db-lock was held for 5 s by process " +
                                       std::to_string(getpid()) + " ("));
  }
  EXPECT_EQ(files(), before);
}

TEST_F(KeloctlSettings, DamagedValueIsSaidToBeDamaged) {
  damage_value(DB_CONFIGBAK);
  const std::string error = complaint("1 values do not match their checksums");
  const Ran listed = keloctl("settings list");
  EXPECT_EQ(listed.status, 4);
  EXPECT_EQ(listed.errors, error);
  EXPECT_THAT(listed.output, HasSubstr("bad checksum  Xnternet                  internet\n"));
  EXPECT_EQ(keloctl("settings get net.apn"),
            (Ran{4, "", complaint("the value of net.apn does not match its checksum")}));
  EXPECT_EQ(keloctl("settings get net.apn --default"), (Ran{0, "internet\n", ""}));
  EXPECT_EQ(keloctl("settings diff").status, 4);
  EXPECT_EQ(keloctl("settings set net.apn new").status, 0);
  EXPECT_EQ(get("apn"), "new");
}

TEST_F(KeloctlSettings, DamagedBackupIsReadFromThePrimary) {
  make_no_database(DB_CONFIGBAK);
  const auto before = files();
  EXPECT_EQ(keloctl("settings list --tsv"), (Ran{0, std::string(kAllLines) + kGood, ""}));
  EXPECT_EQ(files(), before);
  make_no_database(DB_CONFIG);
  EXPECT_EQ(keloctl("settings list"),
            (Ran{3, "", complaint("/data/configbak.db is damaged: file is not a database")}));
}

TEST_F(KeloctlSettings, InterruptedCopyIsReadAsTheNextOperationLeavesIt) {
  std::filesystem::rename(DB_CONFIGBAK, std::string(DB_CONFIGBAK) + "-previous");
  write_file(DB_CONFIGBAK, "half of a copy");
  std::filesystem::remove(DB_CONFIG);  // from which the values would come otherwise
  const auto before = files();
  EXPECT_EQ(keloctl("settings list --tsv"), (Ran{0, std::string(kAllLines) + kGood, ""}));
  EXPECT_EQ(files(), before);
}

TEST_F(KeloctlSettings, RowsOfOlderReleasesAreShown) {
  execute_sql(DB_CONFIGBAK,
              "create table old (key text not null,len integer not null,crc integer not null,value blob);"
              "insert into old values ('name', 2, " +
                  std::to_string(kelo_dm_Crc32Calc("me", 2, 0)) + ", cast('me' as blob))");
  EXPECT_EQ(keloctl("settings list old --tsv").output,
            "item\told\tname\t\t0\t2\tset\t6d65\t\t6d65\t\n" + std::string(kGood));
  EXPECT_EQ(keloctl("settings set old.name x"),
            (Ran{1, "", complaint("old.name has the type 0 and the id 0, which no setting has")}));
}

TEST_F(KeloctlSettings, OtherFoldersAreNamedByOptions) {
  std::filesystem::create_directories("/tmp/store");
  std::filesystem::copy_file(DB_CONFIG, "/tmp/store/config.db");
  std::filesystem::copy_file(DB_CONFIGBAK, "/tmp/store/configbak.db");
  remove_store();
  EXPECT_EQ(keloctl("--store /tmp/store/ settings get lan.name"), (Ran{0, "home\n", ""}));
  EXPECT_EQ(
      keloctl("settings get lan.name --store=/tmp/store"),
      (Ran{2, "",
           complaint("/tmp/store is not the path of a folder of at most 50 characters that ends in /")}));
  std::filesystem::remove_all("/tmp/store");
}

TEST_F(KeloctlSettings, WrongUsageIsRefused) {
  const struct {
    const char* words;
    const char* error;
  } cases[] = {
      {"", "there is no such command: keloctl --help lists them"},
      {"settings", "there is no such command: keloctl --help lists them"},
      {"settings lost", "there is no such command: keloctl --help lists them"},
      {"settings get", "usage: keloctl settings get TABLE.KEY [--default] [--hex]"},
      {"settings list a b", "usage: keloctl settings list [TABLE]"},
      {"settings get net.apn --long", "--long is no option of this command, or lacks its value"},
      {"settings set net.apn x --id", "--id is no option of this command, or lacks its value"},
      {"settings get net.apn --hex=1", "--hex=1 is no option of this command, or lacks its value"},
  };
  for (const auto& wrong : cases)
    EXPECT_EQ(keloctl(wrong.words), (Ran{2, "", complaint(wrong.error)})) << wrong.words;
  EXPECT_EQ(keloctl("--json settings").output,
            "{\"ok\":false,\"error\":\"there is no such command: keloctl --help lists them\"}\n");
  EXPECT_EQ(keloctl("--help").status, 0);
}

TEST_F(KeloctlSettings, OutputThatIsLostIsAFailure) {
  EXPECT_EQ(
      std::system(
          (shell_command(KELO_BINARY_DIR "/tools/keloctl/keloctl") + " settings list > /dev/full").c_str()),
      3 << 8);
}

TEST_F(KeloctlSettings, IsRightWhileFourDaemonsWrite) {
  const DaemonsThatWrite daemons;
  for (int i = 0; i < 5; ++i) {
    const std::string value = "value" + std::to_string(i);
    EXPECT_EQ(keloctl("settings set net.apn " + value).status, 0);
    EXPECT_EQ(keloctl("settings get net.apn"), (Ran{0, value + "\n", ""}));
    const Ran ran = keloctl("settings list lan --tsv");
    EXPECT_EQ(ran.status, 0) << ran;
    EXPECT_THAT(ran.output, HasSubstr("item\tlan\tname\t7\t5\t4\tset\thome\t"));
  }
}

}  // namespace
