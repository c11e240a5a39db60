// SPDX-License-Identifier: MIT
// What the supervised runner accepts, and what it starts for it. Programs are recorded instead of started.
#include <array>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/log_capture.hpp"
#include "tests/support/process_faults.hpp"

namespace {

using kelo::tests::LogCapture;
using kelo::tests::LogLine;

constexpr char kStage[] = "oem_ds_exec_internal";

class SupervisedCall : public testing::Test {
 protected:
  void SetUp() override { kelo::tests::programs_are_recorded = true; }

  // What was started for the command: "[path][argument 0][argument 1]..."
  std::string started_for(const std::string& command, int expected_result = 0) {
    std::array<char, 2048> output{};
    EXPECT_EQ(kelo_ds_system_call3(command.c_str(), 0, output.data(), output.size(), 0), expected_result)
        << command;
    return output.data();
  }

  LogCapture log;
};

struct Resolution {
  const char* word;
  const char* path;
};

TEST_F(SupervisedCall, StartsTheProgramOfEachKnownWord) {
  constexpr std::array<Resolution, 10> kKnown = {{{"iptables", "/usr/sbin/iptables"},
                                                  {"ip6tables", "/usr/sbin/ip6tables"},
                                                  {"ip", "/sbin/ip"},
                                                  {"ndc", "ndc"},
                                                  {"ifconfig", "/sbin/ifconfig"},
                                                  {"tc", "/sbin/tc"},
                                                  {"rm", "/bin/rm"},
                                                  {"echo", "/bin/echo"},
                                                  {"ls", "/bin/ls"},
                                                  {"sleep", "/bin/sleep"}}};
  for (const auto& [word, path] : kKnown) {
    const std::string started = "[" + std::string(path) + "]";
    EXPECT_EQ(started_for(word), started + started);
    EXPECT_EQ(started_for(std::string(word) + " -L"), started + started + "[-L]");
  }
}

TEST_F(SupervisedCall, StartsAPathOfAProgramFolderAsItIs) {
  for (const std::string path : {"/opt/tools/bin/x", "/system/bin/x", "/usr/bin/x", "/sbin/x", "/usr/sbin/x",
                                 "/bin", "tools/binary", "/opt/sbinaries/x", "../bin/iptables"}) {
    std::string expected("[");
    expected.append(path).append("][").append(path).append("][a]");
    EXPECT_EQ(started_for(path + " a"), expected);
  }
}

TEST_F(SupervisedCall, RefusesEveryOtherWordWithoutALine) {
  for (const char* const command :
       {"ping 1.1.1.1", "IP addr", "Echo x", "ipt", "iptables6", "ech", "echoo", "/opt/x", "bin/x", "sbin",
        "x /bin/echo", "\techo", "echo\tx", "'echo' x", "/BIN/echo", "/ bin/echo", "\xff"}) {
    std::array<char, 8> output = {"preset"};
    EXPECT_EQ(kelo_ds_system_call3(command, 0, output.data(), output.size(), 1), -1) << command;
    EXPECT_STREQ(output.data(), "preset") << command;
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(SupervisedCall, RefusesACommandWithoutWordsWithoutALine) {
  for (const char* const command : {"", " ", "     "}) {
    EXPECT_EQ(kelo_ds_system_call3(command, 0, nullptr, 0, 1), -1);
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(SupervisedCall, RefusesANullCommandWithALine) {
  std::array<char, 8> output = {"preset"};
  EXPECT_EQ(kelo_ds_system_call3(nullptr, 0, output.data(), output.size(), 1), -1);
  EXPECT_STREQ(output.data(), "preset");
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_ds_system_call3", "kelo_ds_system_call3 param NULL\n"), 1);
}

TEST_F(SupervisedCall, MakesNoArgumentsOfRunsOfSpaces) {
  EXPECT_EQ(started_for("   echo   a  b c   "), "[/bin/echo][/bin/echo][a][b][c]");
}

TEST_F(SupervisedCall, SeparatesWordsBySpacesAlone) {
  EXPECT_EQ(started_for("echo 'a b' \"c\" a\tb $HOME * > x"),
            "[/bin/echo][/bin/echo]['a][b'][\"c\"][a\tb][$HOME][*][>][x]");
}

TEST_F(SupervisedCall, IgnoresTheReservedNumber) {
  for (const std::int32_t reserved : {INT32_MIN, -1, 1, INT32_MAX}) {
    std::array<char, 64> output{};
    EXPECT_EQ(kelo_ds_system_call3("ls", reserved, output.data(), output.size(), 0), 0);
    EXPECT_STREQ(output.data(), "[/bin/ls][/bin/ls]");
  }
}

TEST_F(SupervisedCall, TakesACommandOf511Characters) {
  const std::string argument(511 - 5, 'x');
  EXPECT_EQ(started_for("echo " + argument), "[/bin/echo][/bin/echo][" + argument + "]");
}

TEST_F(SupervisedCall, RefusesACommandOf512CharactersOrMore) {
  for (const std::size_t length : {512U, 513U, 4000U}) {
    log.clear();
    const std::string command = "echo " + std::string(length - 5, 'x');
    std::array<char, 8> output = {"preset"};
    EXPECT_EQ(kelo_ds_system_call3(command.c_str(), 0, output.data(), output.size(), 1), -1);
    EXPECT_STREQ(output.data(), "preset");
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
    const std::string text =
        "unable to re-direct stderr: command string too long.Command string was: " + command + "\n";
    // A local line is cut at its size.
    if (length < 4000) {
      EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_ds_system_call3", text), 1) << log.dump();
    }
    EXPECT_EQ(log.count_containing(LOG_LVL_ERR, text.substr(0, 512)), 1) << log.dump();
  }
}

TEST_F(SupervisedCall, ChecksTheLengthBeforeTheProgram) {
  const std::string command(512, 'x');
  EXPECT_EQ(kelo_ds_system_call3(command.c_str(), 0, nullptr, 0, 0), -1);
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "command string too long"), 1);
}

std::string command_of_words(int words) {
  std::string command = "echo";
  for (int i = 1; i < words; ++i) command += " " + std::to_string(i);
  return command;
}

TEST_F(SupervisedCall, PassesThirtyArguments) {
  std::string started = "[/bin/echo][/bin/echo]";
  for (int i = 1; i <= 30; ++i) started += "[" + std::to_string(i) + "]";
  EXPECT_EQ(started_for(command_of_words(31)), started);
  EXPECT_EQ(started_for(command_of_words(31) + "   "), started);
  EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "too long"), 0);
}

TEST_F(SupervisedCall, LetsTheChildGiveUpAtThe32ndWord) {
  for (const int words : {32, 33, 100}) {
    log.clear();
    EXPECT_EQ(started_for(command_of_words(words), -1), "");
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 5U) << log.dump();
    EXPECT_EQ(lines[3].level, LOG_LVL_INFO);
    EXPECT_EQ(lines[3].function, kStage);
    EXPECT_EQ(lines[3].text, "(): command is too long\n");
    EXPECT_EQ(log.count_matching(LOG_LVL_INFO, R"(\[cpid:\d+\] Process exited normally with rc=255\n)"), 1);
    EXPECT_EQ(waitpid(-1, nullptr, 0), -1) << "a zombie is left";
  }
}

TEST_F(SupervisedCall, LogsEachStageOfACommand) {
  EXPECT_EQ(kelo_ds_system_call3(" ls  -l ", 0, nullptr, 0, 0), 0);
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 4U) << log.dump();
  for (const LogLine& line : lines) EXPECT_EQ(line.function, kStage);
  for (const std::size_t i : {0U, 1U}) {
    EXPECT_EQ(lines[i].level, LOG_LVL_DBUG);
    EXPECT_EQ(lines[i].text, "ret=0\n");
  }
  EXPECT_EQ(lines[2].level, LOG_LVL_INFO);
  const std::string child = lines[2].text.substr(6, lines[2].text.find(']') - 6);
  EXPECT_GT(std::stoi(child), 0);
  EXPECT_EQ(lines[2].text, "[cpid:" + child + "] Spawned child PID(" + child + ") command:\" ls  -l \"\n");
  EXPECT_EQ(lines[3].level, LOG_LVL_INFO);
  EXPECT_EQ(lines[3].text, "[cpid:" + child + "] Process exited normally with rc=0\n");
}

TEST_F(SupervisedCall, LogsTheCommandFirstWhenVerbose) {
  for (const int verbose : {1, -1, 2}) {
    log.clear();
    EXPECT_EQ(kelo_ds_system_call3(" ls  -l ", 0, nullptr, 0, verbose), 0);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 5U) << log.dump();
    EXPECT_EQ(lines[0].level, LOG_LVL_INFO);
    EXPECT_EQ(lines[0].function, kStage);
    EXPECT_EQ(lines[0].text, "(): Executing command \" ls  -l \"\n");
    EXPECT_EQ(lines[1].text, "ret=0\n");
  }
}

}  // namespace
