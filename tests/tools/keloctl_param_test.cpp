// SPDX-License-Identifier: MIT
// keloctl param: on healthy, missing, read-only, full, locked and damaged parameter databases, and while daemons write.
#include <gmock/gmock.h>

#include <thread>
#include <vector>

#include "tests/support/keloctl.hpp"
#include "tests/support/parameter_files.hpp"

namespace {

using namespace kelo::tests;
using testing::AllOf;
using testing::Field;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kGood[] = "ok\ttrue\nerror\t\n";
constexpr char kGoodEnd[] = "\"ok\":true,\"error\":null}\n";
constexpr char kHeadings[] =
    "table         name                  type     state             value                     factory\n";
constexpr char kAllLines[] =
    "parameter\tlan\tname\ttext\tno factory value\thome\t\n"
    "parameter\twifi\tchannel\tinteger\tchanged\t40\t36\n"
    "parameter\twifi\tssid\ttext\tfactory\tcpe-5g\tcpe-5g\n"
    "parameter\twifi\tkey\tblob\tfactory\t01ff\t01ff\n"
    "parameter\twifi\tnote\tnull\tfactory\t\t\n";

class KeloctlParam : public testing::Test {
 protected:
  void SetUp() override {
    alarm(120);
    provision(
        "create table wifi (channel integer, ssid text, key blob, note);"
        "insert into wifi values (36, 'cpe-5g', x'01ff', null);");
    execute_sql(kUserFile,
                "update wifi set channel = 40; create table lan (name text);"
                "insert into lan values ('home')");
  }
  void TearDown() override {
    chmod(kParameterFolder.c_str(), 0755);
    for (const std::string path : {"/data/filler", "/data/kelo-resource"}) std::filesystem::remove_all(path);
    alarm(0);
  }

  static std::set<std::string> files() {
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator("/data"))
      if (entry.is_regular_file()) found.insert(entry.path().string() + ":" + read_file(entry.path()));
    return found;
  }

  static std::string stored(const std::string& name) {
    return name + " is stored. Running daemons are not told: they use the value when they next read it.\n";
  }

  // A command that fails changes no file, and says why in each form of output.
  static void expect_refused(const std::string& words, int status, const std::string& error) {
    const auto before = files();
    EXPECT_EQ(keloctl("param " + words), (Ran{status, "", complaint(error)})) << words;
    EXPECT_EQ(keloctl("param --json " + words),
              (Ran{status, "{\"ok\":false,\"error\":\"" + error + "\"}\n", ""}))
        << words;
    EXPECT_EQ(keloctl("param --tsv " + words), (Ran{status, "ok\tfalse\nerror\t" + error + "\n", ""}))
        << words;
    EXPECT_TRUE(files() == before) << words;
  }

  static void expect_listed() {
    const auto before = files();
    EXPECT_EQ(keloctl("param list --tsv"), (Ran{0, std::string(kAllLines) + kGood, ""}));
    EXPECT_TRUE(files() == before);
  }
};

// --- Healthy ------------------------------------------------------------------------------------------------

TEST_F(KeloctlParam, ListShowsEveryParameter) {
  expect_listed();
  EXPECT_EQ(
      keloctl("param list"),
      (Ran{0,
           std::string(kHeadings) +
               "lan           name                  text     no factory value  home                      -\n"
               "wifi          channel               integer  changed           40                        36\n"
               "wifi          ssid                  text     factory           cpe-5g                    "
               "cpe-5g\n"
               "wifi          key                   blob     factory           01ff                      "
               "01ff\n"
               "wifi          note                  null     factory           -                         -\n",
           ""}));
  EXPECT_EQ(keloctl("param list lan --json"),
            (Ran{0,
                 R"({"parameters":[{"table":"lan","name":"name","type":"text","state":"no factory value",)"
                 R"("value":"home","factory":null}],)" +
                     std::string(kGoodEnd),
                 ""}));
  EXPECT_EQ(keloctl("param list none --tsv"),
            (Ran{1, "ok\tfalse\nerror\tthere is no table none with a row\n", ""}));
}

TEST_F(KeloctlParam, GetPrintsTheValueOrThatOfTheFactory) {
  EXPECT_EQ(keloctl("param get wifi.channel"), (Ran{0, "40\n", ""}));
  EXPECT_EQ(keloctl("param get wifi.channel --factory"), (Ran{0, "36\n", ""}));
  EXPECT_EQ(keloctl("param get wifi.note"), (Ran{0, "\n", ""}));
  EXPECT_EQ(keloctl("param get wifi.note --json"),
            (Ran{0,
                 R"({"table":"wifi","name":"note","type":"null","state":"factory","value":null,)" +
                     std::string(kGoodEnd),
                 ""}));
  EXPECT_EQ(
      keloctl("param get wifi.key --tsv"),
      (Ran{0, std::string("table\twifi\nname\tkey\ntype\tblob\nstate\tfactory\nvalue\t01ff\n") + kGood, ""}));
  expect_refused("get wifi.none", 1, "there is no parameter wifi.none");
  expect_refused("get none.ssid", 1, "there is no parameter none.ssid");
  expect_refused("get lan.name --factory", 1, "lan.name has no factory value");
  expect_refused("get wifi", 2, "wifi is not TABLE.NAME, two plain names of at most 63 characters");
}

TEST_F(KeloctlParam, SetStoresAValue) {
  EXPECT_EQ(keloctl("param set wifi.ssid \"it's mine\""), (Ran{0, stored("wifi.ssid"), ""}));
  EXPECT_EQ(scalar(kUserFile, "select ssid from wifi"), "it's mine");
  EXPECT_EQ(
      keloctl("param set wifi.channel 0x10 --json"),
      (Ran{0,
           R"({"table":"wifi","name":"channel","value":"16","daemons_told":false,)" + std::string(kGoodEnd),
           ""}));
  EXPECT_EQ(
      keloctl("param set wifi.channel --tsv -- -2147483648"),
      (Ran{0, std::string("table\twifi\nname\tchannel\nvalue\t-2147483648\ndaemons_told\tfalse\n") + kGood,
           ""}));
  EXPECT_EQ(scalar(kUserFile, "select channel from wifi"), "-2147483648");
  EXPECT_EQ(keloctl("param set wifi.channel 9223372036854775807").status, 0);
  EXPECT_EQ(scalar(kUserFile, "select channel from wifi"), "9223372036854775807");
  EXPECT_EQ(keloctl("param set wifi.ssid " + std::string(228, 'x')).status, 0);
  EXPECT_EQ(scalar(kUserFile, "select ssid from wifi"), std::string(228, 'x'));
}

TEST_F(KeloctlParam, SetRefusesWhatTheParameterCannotHold) {
  const std::string text = "wifi.ssid takes a text of at most 228 bytes without double quotes";
  expect_refused("set wifi.ssid " + std::string(229, 'x'), 2, text);
  expect_refused("set wifi.ssid 'a\"b'", 2, text);
  for (const std::string number : {"9223372036854775808", "-2147483649", "x", "1.5"})
    expect_refused("set wifi.channel " + number, 2,
                   number + " is not a number from -2147483648 to 9223372036854775807");
  expect_refused("set wifi.none 1", 1, "there is no parameter wifi.none");
}

TEST_F(KeloctlParam, RestoreStoresFactoryValues) {
  EXPECT_EQ(keloctl("param restore wifi.channel"), (Ran{0, stored("wifi.channel"), ""}));
  EXPECT_EQ(keloctl("param get wifi.channel").output, "36\n");
  expect_refused("restore lan.name", 1, "lan.name has no factory value");
  expect_refused("restore", 2, "name one parameter, or --all");
  expect_refused("restore wifi.ssid --all", 2, "name one parameter, or --all");
  EXPECT_EQ(keloctl("param restore --all"),
            (Ran{0, "All parameters have the values of the factory. Running daemons are not told.\n", ""}));
  EXPECT_EQ(read_file(kUserFile), read_file(kFactoryFile));
  EXPECT_EQ(keloctl("param restore --all --json"),
            (Ran{0, std::string("{\"daemons_told\":false,") + kGoodEnd, ""}));
  EXPECT_EQ(keloctl("param restore --all --tsv"), (Ran{0, std::string("daemons_told\tfalse\n") + kGood, ""}));
}

TEST_F(KeloctlParam, ProvisionMakesTheFactorySettings) {
  write_file("/tmp/new.sql", "create table a (x integer); insert into a values (7);");
  const std::string user = read_file(kUserFile);
  EXPECT_EQ(keloctl("param provision /tmp/new.sql"),
            (Ran{0, "The factory settings are made. The user settings are as they were.\n", ""}));
  EXPECT_EQ(scalar(kFactoryFile, "select x from a"), "7");
  EXPECT_EQ(read_file(kUserFile), user);
  EXPECT_EQ(keloctl("param provision /tmp/new.sql --json"),
            (Ran{0, std::string("{\"user\":false,\"daemons_told\":false,") + kGoodEnd, ""}));
  EXPECT_EQ(keloctl("param provision /tmp/new.sql --user --tsv"),
            (Ran{0, std::string("user\ttrue\ndaemons_told\tfalse\n") + kGood, ""}));
  EXPECT_EQ(read_file(kUserFile), read_file(kFactoryFile));
  write_file("/tmp/wrong.sql", "create table b (x);");
  expect_refused("provision /tmp/wrong.sql", 2,
                 "nothing was changed: kelo_provision: table b has 0 rows, not 1");
  expect_refused("provision /tmp/none.sql", 3,
                 "nothing was changed: kelo_provision: cannot read /tmp/none.sql");
}

TEST_F(KeloctlParam, LevelOfTheLogIsAParameter) {
  const auto level = [](const std::string& words) { return keloctl("log level " + words); };
  EXPECT_EQ(level("3"), (Ran{1, "", complaint("there is no parameter system.log_level")}));
  execute_sql(kUserFile, "create table system (log_level integer); insert into system values (2)");
  EXPECT_EQ(level("3"), (Ran{0, stored("system.log_level"), ""}));
  EXPECT_EQ(level("4 --json"),
            (Ran{0,
                 R"({"table":"system","name":"log_level","value":"4","daemons_told":false,)" +
                     std::string(kGoodEnd),
                 ""}));
  EXPECT_EQ(scalar(kUserFile, "select log_level from system"), "4");
  EXPECT_EQ(level("5 --tsv"), (Ran{2, "ok\tfalse\nerror\t5 is not a level from 0 to 4\n", ""}));
}

// --- Other states of the store ------------------------------------------------------------------------------

TEST_F(KeloctlParam, MissingDatabases) {
  std::filesystem::remove(kUserFile);
  const auto before = files();
  EXPECT_EQ(keloctl("param get wifi.channel"), (Ran{0, "36\n", ""}));
  EXPECT_TRUE(files() == before);
  EXPECT_EQ(keloctl("param set wifi.channel 44"), (Ran{0, stored("wifi.channel"), ""}));
  EXPECT_EQ(keloctl("param get wifi.channel --factory"), (Ran{0, "36\n", ""}));
  std::filesystem::remove_all(kParameterFolder);
  const std::string none =
      "there are no parameters: neither " + kUserFile + " nor " + kFactoryFile + " has tables";
  for (const std::string words : {"list", "get wifi.channel", "set wifi.channel 1", "restore wifi.channel"})
    expect_refused(words, 1, none);
  expect_refused("restore --all", 1, kFactoryFile + " is missing");
}

TEST_F(KeloctlParam, ReadOnlyDatabases) {
  for (const auto& entry : std::filesystem::directory_iterator(kParameterFolder))
    chmod(entry.path().c_str(), 0444);
  chmod(kParameterFolder.c_str(), 0555);
  expect_listed();
  const std::string reason = ": Error, sql_cmd err info:[attempt to write a readonly database].";
  expect_refused("set wifi.ssid x", 3, "the parameter was not stored" + reason);
  expect_refused("restore wifi.channel", 3, "the parameter was not restored" + reason);
  const auto before = files();
  for (const std::string words : {"restore --all", "provision /tmp/tables.sql"}) {
    const Ran ran = keloctl("param --tsv " + words);
    EXPECT_EQ(ran.status, 3) << ran;
    EXPECT_THAT(ran.output, StartsWith("ok\tfalse\nerror\t"));
  }
  EXPECT_TRUE(files() == before);
}

TEST_F(KeloctlParam, FullFlash) {
  ASSERT_EQ(keloctl("param set wifi.channel 40").status, 0);  // makes the lock file
  {
    std::ofstream filler("/data/filler");
    while (filler << std::string(4096, 'x') << std::flush) {
    }
  }
  expect_listed();
  expect_refused("set wifi.ssid " + std::string(228, 'y'), 3,
                 "the parameter was not stored: Error, sql_cmd err info:[database or disk is full].");
  EXPECT_THAT(
      keloctl("param restore --all --json"),
      AllOf(Field(&Ran::status, 3),
            Field(&Ran::output, "{\"ok\":false,\"error\":\"the user settings are as they were\"}\n")));
  EXPECT_THAT(keloctl("param provision /tmp/tables.sql"),
              AllOf(Field(&Ran::status, 3), Field(&Ran::errors, HasSubstr("database or disk is full"))));
  expect_listed();
}

TEST_F(KeloctlParam, DamagedDatabases) {
  const std::string damaged = " is damaged: file is not a database";
  make_no_database(kUserFile.c_str());
  for (const std::string words : {"list", "get wifi.channel", "set wifi.channel 1", "restore wifi.channel"})
    expect_refused(words, 3, kUserFile + damaged);
  EXPECT_EQ(keloctl("param restore --all").status, 0);
  EXPECT_EQ(keloctl("param get wifi.channel"), (Ran{0, "36\n", ""}));
  make_no_database(kFactoryFile.c_str());
  expect_refused("list", 3, kFactoryFile + damaged);
  expect_refused("restore --all", 3, kFactoryFile + " is damaged");
  EXPECT_EQ(keloctl("param provision /tmp/tables.sql").status, 0);
  EXPECT_EQ(keloctl("param list").status, 0);
}

TEST_F(KeloctlParam, WriteThatWasCutOffIsUndoneByTheNextOne) {
  cut_off_a_write();
  EXPECT_EQ(keloctl("param get wifi.ssid").status, 3);
  EXPECT_EQ(keloctl("param set wifi.ssid x"), (Ran{0, stored("wifi.ssid"), ""}));
  EXPECT_EQ(keloctl("param get wifi.channel"), (Ran{0, "40\n", ""}));
}

TEST_F(KeloctlParam, LockedDatabasesAreATimeOutThatNamesTheHolder) {
  ASSERT_EQ(keloctl("param set wifi.channel 40").status, 0);  // makes the lock file
  const StoreHolder holder(kUserFile + "-lock");
  const auto before = files();
  const std::string error =
      kUserFile + "-lock was held for 5 s by process " + std::to_string(getpid()) + " (";
  std::vector<std::thread> runs;
  int number = 0;
  for (const std::string words : {"list", "get wifi.ssid", "set wifi.ssid x", "restore wifi.ssid",
                                  "restore --all", "provision /tmp/tables.sql"})
    runs.emplace_back([=] {
      const std::string name = "locked" + std::to_string(number);
      const std::string form = number % 3 == 0 ? "--json " : number % 3 == 1 ? "--tsv " : "";
      const Ran ran = keloctl("param " + form + words, name);
      EXPECT_EQ(ran.status, 5) << words << "\n" << ran;
      EXPECT_THAT(ran.output + ran.errors, HasSubstr(error)) << words;
    }),
        ++number;
  for (std::thread& run : runs) run.join();
  EXPECT_TRUE(files() == before);
}

// --- Beside daemons -----------------------------------------------------------------------------------------

// Each daemon writes a parameter of its own until it is told to end. A write that has begun is completed.
[[noreturn]] void write_for_ever(const std::string& name) {
  static volatile std::sig_atomic_t ended;
  struct sigaction action {};
  action.sa_handler = [](int) { ended = 1; };
  sigaction(SIGTERM, &action, nullptr);
  for (int i = 0; ended == 0; ++i) {
    kelo_db_update_value("work", name.c_str(), &i, KELO_DB_TYPE_32BIT_2);
    usleep(5000);
  }
  _exit(0);
}

TEST_F(KeloctlParam, IsRightWhileFourDaemonsWrite) {
  for (const std::string& path : {kUserFile, kFactoryFile})
    execute_sql(path.c_str(),
                "create table work (a integer, b integer, c integer, d integer);"
                "insert into work values (0, 0, 0, 0)");
  std::vector<pid_t> daemons;
  for (const std::string name : {"a", "b", "c", "d"}) {
    daemons.push_back(fork());
    if (daemons.back() == 0) write_for_ever(name);
  }
  for (int i = 0; i < 4; ++i) {
    const std::string value = "value" + std::to_string(i);
    EXPECT_EQ(keloctl("param set wifi.ssid " + value), (Ran{0, stored("wifi.ssid"), ""}));
    EXPECT_EQ(keloctl("param get wifi.ssid"), (Ran{0, value + "\n", ""}));
    const Ran listed = keloctl("param list wifi --tsv");
    EXPECT_EQ(listed.status, 0) << listed;
    EXPECT_THAT(listed.output, HasSubstr("parameter\twifi\tssid\ttext\tchanged\t" + value + "\tcpe-5g\n"));
    EXPECT_EQ(keloctl("param restore wifi.ssid"), (Ran{0, stored("wifi.ssid"), ""}));
    EXPECT_EQ(keloctl("param restore --all").status, 0);
    EXPECT_EQ(keloctl("param get wifi.channel"), (Ran{0, "36\n", ""}));
  }
  for (const pid_t daemon : daemons) {
    kill(daemon, SIGTERM);
    waitpid(daemon, nullptr, 0);
  }
  EXPECT_EQ(scalar(kUserFile, "pragma integrity_check"), "ok");
}

}  // namespace
