// SPDX-License-Identifier: MIT
// Finding a process by a `ps` of the test's own, and by the real one.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/emulation.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/own_tools_first.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using kelo::tests::CallTrace;
using kelo::tests::expect_lines;
using kelo::tests::Fault;
using kelo::tests::make_script;

constexpr char kFunction[] = "oem_get_pid_by_name";
constexpr std::size_t kLongestName = 227;

class ProcessId : public kelo::tests::OwnToolsFirst {
 protected:
  // Lets `ps -e` print these lines.
  static void list_processes(const std::string& lines) {
    std::filesystem::create_directories("/tmp/t");
    std::ofstream("/tmp/t/processes") << lines;
    make_script("ps", "[ \"$*\" = -e ] && cat /tmp/t/processes");
  }

  // What is found in such a line, which holds the name.
  static int id_in_line(const std::string& line) {
    list_processes(line);
    return oem_get_pid_by_name("modemd");
  }

  void expect_not_started() { expect_lines(log, kFunction, {{LOG_LVL_ERR, "command popen error!!!\n"}}); }
};

TEST_F(ProcessId, IsThatOfTheFirstLineWithTheName) {
  list_processes(
      "    PID TTY          TIME CMD\n"
      "      1 ?        00:00:04 init\n"
      "    812 ?        00:01:00 modemd_watch\n"
      "    815 ?        00:00:00 modemd\n");
  EXPECT_EQ(oem_get_pid_by_name("init"), 1);
  EXPECT_EQ(oem_get_pid_by_name("modemd_watch"), 812);
  EXPECT_EQ(oem_get_pid_by_name("modemd"), 812);
  EXPECT_EQ(oem_get_pid_by_name("'00 modemd_'"), 812);
}

TEST_F(ProcessId, IsNoneForANameThatTheShellWouldActOn) {
  list_processes("7 modemd\n");
  for (const char character : std::string(";&|<>$\\`()\n")) {
    for (const std::string& name : {std::string(1, character), "modemd" + std::string(1, character),
                                    "modemd" + std::string(1, character) + "x"}) {
      const CallTrace trace;
      EXPECT_EQ(oem_get_pid_by_name(name.c_str()), -1) << name;
      EXPECT_TRUE(trace.calls().empty()) << trace.dump();
    }
  }
}

TEST_F(ProcessId, IsNoneWhereNoLineHasTheName) {
  list_processes("  1 ? 00:00:04 init\n");
  EXPECT_EQ(oem_get_pid_by_name("modemd"), -1);
  EXPECT_EQ(oem_get_pid_by_name("INIT"), -1);
  list_processes("");
  EXPECT_EQ(oem_get_pid_by_name("init"), -1);
}

TEST_F(ProcessId, IsNotThatOfASearch) {
  list_processes("31 ? 00:00:00 grep modemd\n33 ? 00:00:00 modemd\n");
  EXPECT_EQ(oem_get_pid_by_name("modemd"), 33);
  EXPECT_EQ(oem_get_pid_by_name("grep"), -1);
}

TEST_F(ProcessId, IsANumberAtTheStartOfTheLine) {
  const std::pair<std::string, int> lines[] = {{"7 modemd\n", 7},
                                               {"\t 7 modemd\n", 7},
                                               {"7modemd\n", 7},
                                               {"007 modemd\n", 7},
                                               {"0x7 modemd\n", 0},
                                               {"+7 modemd\n", 7},
                                               {"-7 modemd\n", -7},
                                               {"7 modemd", 7},
                                               {"modemd 7\n", -1},
                                               {"- 7 modemd\n", -1},
                                               {"PID modemd\n7 modemd\n", -1},
                                               {"modemd\n", -1},
                                               {"7 modemd\n8 modemd\n", 7},
                                               {"2147483647 modemd\n", INT_MAX},
                                               {"2147483648 modemd\n", INT_MAX},
                                               {"4294967297 modemd\n", INT_MAX},
                                               {"99999999999999999999 modemd\n", INT_MAX},
                                               {"-2147483648 modemd\n", INT_MIN},
                                               {"-2147483649 modemd\n", INT_MIN}};
  for (const auto& [line, id] : lines) EXPECT_EQ(id_in_line(line), id) << line;
}

TEST_F(ProcessId, IsLookedForInTheFirst255Bytes) {
  const auto line = [](std::size_t blanks) { return std::string(blanks, ' ') + "12 modemd\n"; };
  EXPECT_EQ(id_in_line(line(253)), 12);
  EXPECT_EQ(id_in_line(line(254)), 1);
  EXPECT_EQ(id_in_line(line(255)), -1);
  EXPECT_EQ(id_in_line(line(5000)), -1);
  EXPECT_EQ(id_in_line("12 " + std::string(100000, 'x') + "modemd\n"), 12);
}

TEST_F(ProcessId, EndsAtANulByte) {
  make_script("grep", "cat > /dev/null; printf '1\\0002 modemd\\n'");
  EXPECT_EQ(oem_get_pid_by_name("modemd"), 1);
  make_script("grep", "cat > /dev/null; printf '\\00012 modemd\\n'");
  EXPECT_EQ(oem_get_pid_by_name("modemd"), -1);
}

TEST_F(ProcessId, ComesInPieces) {
  make_script("grep", "cat > /dev/null; printf ' 1'; sleep 0.1; printf '2 modemd'");
  EXPECT_EQ(oem_get_pid_by_name("modemd"), 12);
}

TEST_F(ProcessId, DoesNotWaitForTheRestToBeRead) {
  make_script("ps", "echo 7 modemd; while echo 8 modemd; do :; done 2> /dev/null");
  EXPECT_EQ(oem_get_pid_by_name("modemd"), 7);
}

TEST_F(ProcessId, TakesOneCommand) {
  list_processes("7 modemd\n");
  const CallTrace trace;
  EXPECT_EQ(oem_get_pid_by_name("modemd"), 7);
  ASSERT_EQ(trace.count("popen"), 1);
  EXPECT_EQ(trace.calls().at(0).text, "ps -e | grep modemd | grep -v grep");
}

TEST_F(ProcessId, RefusesANullName) {
  const CallTrace trace;
  EXPECT_EQ(oem_get_pid_by_name(nullptr), -1);
  expect_lines(log, kFunction, {{LOG_LVL_ERR, "oem_get_pid_by_name param NULL\n"}});
  EXPECT_TRUE(trace.calls().empty()) << trace.dump();
}

TEST_F(ProcessId, TakesALongName) {
  const std::string name(kLongestName, 'x');
  list_processes("6 " + name.substr(1) + "\n7 " + name + "\n");
  EXPECT_EQ(oem_get_pid_by_name(name.c_str()), 7);
  EXPECT_EQ(oem_get_pid_by_name(name.substr(1).c_str()), 6);
}

TEST_F(ProcessId, RunsNothingForALongerName) {
  for (const std::size_t length : {kLongestName + 1, kLongestName + 2, std::size_t{100000}}) {
    const std::string name(length, length % 2 == 0 ? 'x' : ';');
    list_processes("7 " + name + "\n");
    const CallTrace trace;
    EXPECT_EQ(oem_get_pid_by_name(name.c_str()), -1);
    expect_not_started();
    EXPECT_TRUE(trace.calls().empty()) << trace.dump();
  }
}

TEST_F(ProcessId, FailsWithoutAPipe) {
  list_processes("7 modemd\n");
  const Fault fault({.call = "popen", .code = EMFILE});
  EXPECT_EQ(oem_get_pid_by_name("modemd"), -1);
  EXPECT_EQ(fault.failed(), 1);
  expect_not_started();
}

TEST_F(ProcessId, IsThatOfTheTestByTheRealPs) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << kelo::tests::kNamedAsTheEmulator;
  if (std::system("ps -e > /dev/null 2>&1") != 0) GTEST_SKIP() << "this machine has no ps";
  EXPECT_EQ(oem_get_pid_by_name("process_id_test"), getpid());
  EXPECT_EQ(oem_get_pid_by_name("no_such_process"), -1);
}

}  // namespace
