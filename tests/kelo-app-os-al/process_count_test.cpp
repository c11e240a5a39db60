// SPDX-License-Identifier: MIT
// Counting processes by a `ps` of the test's own, and by the real one.
#include <signal.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/child_process.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/own_tools_first.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using kelo::tests::CallTrace;
using kelo::tests::Fault;
using kelo::tests::make_script;

constexpr char kOwnTools[] = "/tmp/t/bin";
constexpr std::size_t kLongestName = 99;

class ProcessCount : public kelo::tests::OwnToolsFirst {
 protected:
  // Lets `ps` print these lines.
  static void list_processes(const std::string& lines) {
    make_script("ps", "[ $# -eq 0 ] && cat << 'END'\n" + lines + "END");
  }

  // Lets the last step of the count print this.
  static int count_when_printed(const std::string& text) {
    make_script("grep", "cat > /dev/null; printf '%s' '" + text + "'");
    return kelo_check_process_exist("x");
  }
};

TEST_F(ProcessCount, CountsLinesThatHoldTheName) {
  list_processes(
      "  1 root init\n 22 root /usr/bin/modemd -d\n 23 root modemd_watch\n 24 root sh modemd.sh\n");
  EXPECT_EQ(kelo_check_process_exist("modemd"), 3);
  EXPECT_EQ(kelo_check_process_exist("modemd_watch"), 1);
  EXPECT_EQ(kelo_check_process_exist("init"), 1);
  EXPECT_EQ(kelo_check_process_exist("root"), 4);
}

TEST_F(ProcessCount, FindsNothingOfAnotherName) {
  list_processes("  1 root init\n");
  EXPECT_EQ(kelo_check_process_exist("modemd"), 0);
  EXPECT_EQ(kelo_check_process_exist("INIT"), 0);
}

TEST_F(ProcessCount, CountsNoProcessWithGrepInItsLine) {
  list_processes(
      " 31 root grep -c modemd\n 32 root sh -c ps | grep -v grep | grep -c modemd\n 33 root modemd\n");
  EXPECT_EQ(kelo_check_process_exist("modemd"), 1);
  EXPECT_EQ(kelo_check_process_exist("grep"), 0);
}

TEST_F(ProcessCount, HandsTheNameToTheShellAsItIs) {
  list_processes("a b\na\nA\n");
  EXPECT_EQ(kelo_check_process_exist("'a b'"), 1);
  EXPECT_EQ(kelo_check_process_exist("-i a"), 3);
  EXPECT_EQ(kelo_check_process_exist("^.$"), 2);
}

TEST_F(ProcessCount, RunsTheOneCommand) {
  list_processes("x\n");
  const CallTrace trace;
  EXPECT_EQ(kelo_check_process_exist("x"), 1);
  EXPECT_EQ(trace.calls().at(0).text, "ps | grep -v grep | grep -c x");
}

TEST_F(ProcessCount, RefusesANullName) {
  EXPECT_EQ(kelo_check_process_exist(nullptr), -1);
  kelo::tests::expect_lines(log, "oem_check_process_exist",
                            {{LOG_LVL_ERR, "kelo_check_process_exist param NULL\n"}});
}

TEST_F(ProcessCount, TakesALongName) {
  const std::string name(kLongestName, 'x');
  list_processes(name + "\n" + name + "y\n" + name.substr(1) + "\n");
  EXPECT_EQ(kelo_check_process_exist(name.c_str()), 2);
}

TEST_F(ProcessCount, EndsTheProcessOverALongerName) {
  for (const std::size_t length : {kLongestName + 1, kLongestName + 2, std::size_t{100000}}) {
    const std::string name(length, 'x');
    const auto ended = kelo::tests::run_in_child([&] { kelo_check_process_exist(name.c_str()); });
    EXPECT_EQ(ended.signal, SIGABRT);
    EXPECT_TRUE(ended.standard_output.starts_with("kelo-app-os-al/kelo_app_os_al.c, line: "))
        << ended.standard_output;
  }
}

TEST_F(ProcessCount, FindsNothingWithoutAPipe) {
  list_processes("x\n");
  const Fault fault({.call = "popen", .code = EMFILE});
  EXPECT_EQ(kelo_check_process_exist("x"), 0);
  EXPECT_EQ(fault.failed(), 1);
}

TEST_F(ProcessCount, FailsWhereNothingIsPrinted) { EXPECT_EQ(count_when_printed(""), -1); }

TEST_F(ProcessCount, CountsNothingWithoutPs) {
  const std::string grep = std::filesystem::exists("/usr/bin/grep") ? "/usr/bin/grep" : "/bin/grep";
  std::filesystem::create_directories(kOwnTools);
  std::filesystem::create_symlink(grep, std::string(kOwnTools) + "/grep");
  const auto ended = kelo::tests::run_in_child([] {
    setenv("PATH", kOwnTools, 1);
    EXPECT_EQ(kelo_check_process_exist("x"), 0);
  });
  EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
}

TEST_F(ProcessCount, ReadsADecimalNumber) {
  EXPECT_EQ(count_when_printed("12"), 12);
  EXPECT_EQ(count_when_printed(" 7 of 9"), 7);
  EXPECT_EQ(count_when_printed("-5"), -5);
  EXPECT_EQ(count_when_printed("0x1f"), 0);
  EXPECT_EQ(count_when_printed("010"), 10);
  EXPECT_EQ(count_when_printed("none"), 0);
}

TEST_F(ProcessCount, ReadsSixteenBytes) {
  EXPECT_EQ(count_when_printed("00000000000000123"), 12);
  EXPECT_EQ(count_when_printed("               123"), 1);
}

TEST_F(ProcessCount, KeepsToTheRangeOfAnInt) {
  EXPECT_EQ(count_when_printed("2147483647"), INT_MAX);
  EXPECT_EQ(count_when_printed("2147483648"), INT_MAX);
  EXPECT_EQ(count_when_printed("4294967296"), INT_MAX);
  EXPECT_EQ(count_when_printed("-4294967296"), INT_MIN);
}

TEST_F(ProcessCount, ReadsACountThatComesInPieces) {
  make_script("grep", "cat > /dev/null; printf 1; sleep 0.1; printf 2");
  EXPECT_EQ(kelo_check_process_exist("x"), 12);
}

// How many lines of the system's own `ps` hold the name, by the test's count.
int counted_by_hand(const std::string& name) {
  std::FILE* const ps = popen("ps", "re");
  int count = 0;
  std::array<char, 4096> line;
  while (std::fgets(line.data(), line.size(), ps) != nullptr) {
    const std::string text = line.data();
    if (text.find(name) != std::string::npos && text.find("grep") == std::string::npos) ++count;
  }
  pclose(ps);
  return count;
}

TEST_F(ProcessCount, AgreesWithTheRealPs) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << kelo::tests::kNamedAsTheEmulator;
  if (std::system("ps > /dev/null 2>&1") != 0) GTEST_SKIP() << "this machine has no ps";
  const std::string own = "process_count";
  EXPECT_GE(counted_by_hand(own), 1);
  EXPECT_EQ(kelo_check_process_exist(own.c_str()), counted_by_hand(own));
  EXPECT_EQ(kelo_check_process_exist("no_such_process"), 0);
}

}  // namespace
