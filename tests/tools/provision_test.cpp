// SPDX-License-Identifier: MIT
// The script that makes the parameter databases of a device.
#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <string_view>

#include "tests/support/parameter_files.hpp"

namespace {

using namespace kelo::tests;
using testing::ElementsAre;
using testing::HasSubstr;

std::string provision_from(const std::string& sql, int status) {
  write_file("/tmp/own.sql", sql);
  const ScriptRun run = run_provision("--user --sql /tmp/own.sql " + kParameterFolder);
  EXPECT_EQ(run.status, status) << run.output;
  return run.output;
}

// What the folder holds, temporary files included.
std::set<std::string> files() {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(kParameterFolder))
    names.insert(entry.path().filename());
  return names;
}

int mode_of(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return static_cast<int>(status.st_mode & 0777);
}

TEST(Provision, MakesTheFactoryFileAlone) {
  const ScriptRun run = run_provision(kParameterFolder);
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_EQ(run.output, "");
  EXPECT_THAT(files(), ElementsAre("factory_info.db"));
}

TEST(Provision, MakesTheUserFileOnRequest) {
  const ScriptRun run = run_provision("--user " + kParameterFolder);
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_THAT(files(), ElementsAre("factory_info.db", "user_info.db"));
  EXPECT_EQ(read_file(kUserFile), read_file(kFactoryFile));
  EXPECT_EQ(scalar(kUserFile, "pragma integrity_check"), "ok");
}

TEST(Provision, FilesMayBeWrittenByTheirOwnerWhateverTheMask) {
  umask(0277);
  const ScriptRun run = run_provision("--user " + kParameterFolder);
  umask(022);
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_EQ(mode_of(kFactoryFile), 0644);
  EXPECT_EQ(mode_of(kUserFile), 0644);
}

TEST(Provision, SettingsOfTheExampleLoad) {
  ASSERT_EQ(run_provision(kParameterFolder).status, 0);
  const LogCapture log;
  std::uint8_t enabled = 90;
  std::int32_t power = 0;
  std::array<char, 33> ssid{};
  const kelo_db_param wifi[] = {{&enabled, "enabled", KELO_DB_TYPE_8BIT_0, sizeof enabled, 1},
                                {&power, "tx_power", KELO_DB_TYPE_32BIT_2, sizeof power, 2},
                                {ssid.data(), "ssid", KELO_DB_TYPE_TEXT, sizeof ssid, 3},
                                {}};
  const kelo_db_query query = {"wifi", wifi};
  EXPECT_EQ(kelo_db_query_db_init_struct(&query), 0) << log.dump();
  EXPECT_EQ(enabled, 1);
  EXPECT_EQ(power, -15);
  EXPECT_STREQ(ssid.data(), "cpe-5g");
  std::uint64_t bands = 0;
  EXPECT_EQ(kelo_db_get_value("cellular", "bands", &bands, KELO_DB_TYPE_64BIT, 0), 0);
  EXPECT_EQ(bands, 2748779069572U);
}

// docs/parameters.md shows these bytes.
TEST(Provision, RowOfTheExampleIsInItsPage) {
  ASSERT_EQ(run_provision(kParameterFolder).status, 0);
  constexpr std::string_view kRecord =
      "\x19\x01\x07\x09\x19\x1f\x01\x01\x01"
      "cpe-5g"
      "change me"
      "\x24\x20\xf1";
  EXPECT_THAT(read_file(kFactoryFile), HasSubstr(std::string(kRecord)));
}

TEST(Provision, ReplacesBothFilesAndWhatAWriteLeft) {
  provision_from("create table a (x); insert into a values (1);", 0);
  write_file(kUserFile + "-journal", "left");
  provision_from("create table a (x); insert into a values (2);", 0);
  EXPECT_EQ(scalar(kUserFile, "select x from a"), "2");
  EXPECT_EQ(scalar(kFactoryFile, "select x from a"), "2");
  EXPECT_THAT(files(), ElementsAre("factory_info.db", "user_info.db"));
}

TEST(Provision, RefusesWrongSqlAndKeepsTheFiles) {
  provision_from("create table a (x); insert into a values (1);", 0);
  const std::string before = read_file(kFactoryFile);
  EXPECT_THAT(provision_from("create table b (x); insert into b values (1); select y;", 1),
              HasSubstr("/tmp/own.sql is not right"));
  EXPECT_THAT(provision_from("", 1), HasSubstr("makes no table"));
  EXPECT_THAT(provision_from("create table b (x);", 1), HasSubstr("table b has 0 rows, not 1"));
  EXPECT_THAT(provision_from("create table b (x); insert into b values (1), (2);", 1),
              HasSubstr("table b has 2 rows, not 1"));
  EXPECT_EQ(read_file(kFactoryFile), before);
  EXPECT_EQ(read_file(kUserFile), before);
  EXPECT_THAT(files(), ElementsAre("factory_info.db", "user_info.db"));
}

TEST(Provision, RefusesWrongArguments) {
  for (const char* const arguments : {"", "--user", "--sql", "--none x", "--sql /none.sql /data/x", "''"}) {
    const ScriptRun run = run_provision(arguments);
    EXPECT_EQ(run.status, 1) << arguments;
    EXPECT_THAT(run.output, HasSubstr("provision.sh: ")) << arguments;
  }
}

}  // namespace
