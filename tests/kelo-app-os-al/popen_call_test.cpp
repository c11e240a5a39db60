// SPDX-License-Identifier: MIT
// Shell commands whose standard output is captured.
#include <signal.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/c_library.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/leaves_nothing.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/read_faults.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using namespace std::string_literals;
using kelo::tests::error_text;
using kelo::tests::ExactBuffer;
using kelo::tests::expect_lines;
using kelo::tests::FailingHeap;
using kelo::tests::Fault;
using kelo::tests::kDescriptorsOfAStart;
using kelo::tests::kGnuLibrary;
using kelo::tests::ManyDescriptors;
using kelo::tests::open_descriptors;

constexpr char kCall[] = "oem_popen_call";

std::string zeros(std::size_t count) { return std::string(count, '\0'); }

// Everything in a buffer of `size` bytes after the call.
std::string captured(const std::string& command, std::int32_t size) {
  const ExactBuffer result(static_cast<std::size_t>(size));
  EXPECT_EQ(kelo_popen_call(command.c_str(), result.data(), size), 0) << command;
  return result.bytes();
}

class PopenCall : public kelo::tests::LeavesNothing {};

TEST_F(PopenCall, RefusesANullCommand) {
  const ExactBuffer result(8);
  EXPECT_EQ(kelo_popen_call(nullptr, result.data(), 8), -1);
  expect_lines(log, kCall, {{LOG_LVL_ERR, "popen call:(null) fail[parameter invaild!]\n"}});
  EXPECT_EQ(kelo_popen_call(nullptr, nullptr, 0), -1);
  expect_lines(log, kCall, {{LOG_LVL_ERR, "popen call:(null) fail[parameter invaild!]\n"}});
  EXPECT_TRUE(result.untouched());
}

TEST_F(PopenCall, ReportsAPipeThatCannotBeMade) {
  const ExactBuffer result(8);
  const Fault fault({.call = "popen", .code = EMFILE});
  EXPECT_EQ(kelo_popen_call("echo x", result.data(), 8), -1);
  expect_lines(log, kCall, {{LOG_LVL_ERR, "popen call:echo x fail[" + error_text(EMFILE) + "]\n"}});
  EXPECT_TRUE(result.untouched());
}

TEST_F(PopenCall, CapturesLinesWithTheirNewlines) {
  EXPECT_EQ(captured("printf 'one\\n\\ntwo'", 16), "one\n\ntwo" + zeros(8));
  expect_lines(log, kCall,
               {{LOG_LVL_DBUG, "Line string:one\n"},
                {LOG_LVL_DBUG, "Line string:\n"},
                {LOG_LVL_DBUG, "Line string:two"},
                {LOG_LVL_DBUG, "popen call: printf 'one\\n\\ntwo' success. result string:one\n\ntwo\n"}});
}

TEST_F(PopenCall, DropsALineThatDoesNotFitWhole) {
  EXPECT_EQ(captured("echo hello; echo world-and-more", 16), "hello\n" + zeros(10));
  expect_lines(
      log, kCall,
      {{LOG_LVL_DBUG, "Line string:hello\n"},
       {LOG_LVL_ERR, "result_buf Exceeded max len.\n"},
       {LOG_LVL_DBUG, "popen call: echo hello; echo world-and-more success. result string:hello\n\n"}});
}

TEST_F(PopenCall, EndsAtTheFirstLineThatDoesNotFit) {
  EXPECT_EQ(captured("echo hello; echo world-and-more; echo x", 16), "hello\n" + zeros(10));
}

struct Sized {
  std::int32_t size;
  std::string text;
};

TEST_F(PopenCall, KeepsWhatFitsBeforeTheTerminator) {
  // Two lines of three characters, newlines counted.
  const std::vector<Sized> lines = {{1, ""},     {2, ""},     {3, "ab"},       {4, "ab\n"},
                                    {5, "ab\n"}, {6, "ab\n"}, {7, "ab\ncd\n"}, {8, "ab\ncd\n"}};
  for (const auto& [size, text] : lines) {
    const std::string expected = text + zeros(static_cast<std::size_t>(size) - text.size());
    EXPECT_EQ(captured("printf 'ab\\ncd\\n'", size), expected) << size;
  }
}

TEST_F(PopenCall, TakesALongLineInPieces) {
  // Pieces of two bytes less than the buffer has, of which only the first, and a last short one, fit.
  const std::vector<Sized> pieces = {{3, "ab"},    {4, "ab"},       {5, "abc"},     {6, "abcd"},
                                     {7, "abcde"}, {8, "abcdef\n"}, {9, "abcdef\n"}};
  for (const auto& [size, text] : pieces) {
    const std::string expected = text + zeros(static_cast<std::size_t>(size) - text.size());
    EXPECT_EQ(captured("echo abcdef", size), expected) << size;
  }
}

TEST_F(PopenCall, EndsWithAnEmptyResultWhereNoLineFits) {
  for (const std::int32_t size : {1, 2}) {
    EXPECT_EQ(captured("echo x", size), zeros(static_cast<std::size_t>(size)));
    expect_lines(log, kCall, {{LOG_LVL_DBUG, "popen call: echo x success. result string:\n"}});
  }
}

TEST_F(PopenCall, LeavesABufferOfNoSizeAlone) {
  for (const std::int32_t size : {0, -1, INT32_MIN}) {
    const ExactBuffer result(4);
    EXPECT_EQ(kelo_popen_call("echo x > /tmp/ran", result.data(), size), 0);
    EXPECT_TRUE(result.untouched());
    EXPECT_TRUE(std::filesystem::remove("/tmp/ran"));
    expect_lines(log, kCall, {{LOG_LVL_DBUG, "popen call: echo x > /tmp/ran success. result string:\n"}});
  }
}

TEST_F(PopenCall, RunsTheCommandToItsEndWithoutAResult) {
  EXPECT_EQ(kelo_popen_call("sleep 0.1; echo done > /tmp/ran", nullptr, 16), 0);
  EXPECT_TRUE(std::filesystem::exists("/tmp/ran"));
  expect_lines(
      log, kCall,
      {{LOG_LVL_DBUG, "popen call: sleep 0.1; echo done > /tmp/ran success. result string:(null)\n"}});
}

TEST_F(PopenCall, KeepsOfALineWhatIsBeforeAZeroByte) {
  EXPECT_EQ(captured("printf 'a\\0b\\nc\\n\\0d\\ne'", 16), "ac\ne" + zeros(12));
  expect_lines(log, kCall,
               {{LOG_LVL_DBUG, "Line string:a"},
                {LOG_LVL_DBUG, "Line string:c\n"},
                {LOG_LVL_DBUG, "Line string:"},
                {LOG_LVL_DBUG, "Line string:e"},
                {LOG_LVL_DBUG, "popen call: printf 'a\\0b\\nc\\n\\0d\\ne' success. result string:ac\ne\n"}});
}

TEST_F(PopenCall, ReadsZeroBytesWithoutEnd) {
  EXPECT_EQ(captured("head -c 100000 /dev/zero; echo x", 16), zeros(16));
}

TEST_F(PopenCall, IgnoresTheExitStatus) {
  for (const std::string command : {"exit 3", "kill -KILL $$", "", "no-such-command 2> /dev/null"}) {
    EXPECT_EQ(captured(command, 8), zeros(8));
    expect_lines(log, kCall, {{LOG_LVL_DBUG, "popen call: " + command + " success. result string:\n"}});
  }
  EXPECT_EQ(captured("echo x; exit 1", 8), "x\n" + zeros(6));
}

TEST_F(PopenCall, CapturesStandardOutputAlone) {
  EXPECT_EQ(captured("echo error 2>&1 > /dev/null; (echo x >&2) 2> /dev/null; echo out", 16),
            "out\n" + zeros(12));
}

TEST_F(PopenCall, EndsACommandWithTooMuchOutput) {
  captured("seq 1 200000 && echo > /tmp/whole", 16);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kCall, "result_buf Exceeded max len.\n"), 1);
  EXPECT_FALSE(std::filesystem::exists("/tmp/whole"));
}

TEST_F(PopenCall, CapturesALargeOutputByteForByte) {
  kelo_set_log_level(LOG_LVL_INFO);
  std::string expected;
  for (int i = 1; i <= 200000; ++i) expected += std::to_string(i) + "\n";
  const auto size = static_cast<std::int32_t>(expected.size());
  EXPECT_EQ(captured("seq 1 200000", size + 1), expected + zeros(1));
  EXPECT_TRUE(log.lines().empty());
  const std::string last = "200000\n";
  EXPECT_EQ(captured("seq 1 200000", size), expected.substr(0, expected.size() - last.size()) + zeros(7));
}

// Lines below the log's level take another path.
TEST_F(PopenCall, CapturesTheSameWithoutLogging) {
  const std::vector<std::string> commands = {"printf 'ab\\ncd\\n'",      "echo abcdef",
                                             "printf 'a\\n\\n\\nb\\nc'", "printf 'a\\nb\\0c\\n\\0\\nd\\n'",
                                             "printf 'a\\0\\nb\\0\\n'",  "printf 'a\\nbc\\ndefgh\\ni\\n'"};
  for (const std::string& command : commands) {
    for (std::int32_t size = 1; size <= 16; ++size) {
      kelo_set_log_level(LOG_LVL_DBUG);
      log.clear();
      const std::string logged = captured(command, size);
      const int exceeded = log.count(LOG_LVL_ERR, "result_buf Exceeded max len.\n");
      kelo_set_log_level(LOG_LVL_INFO);
      log.clear();
      EXPECT_EQ(captured(command, size), logged) << command << " " << size;
      EXPECT_EQ(log.count(LOG_LVL_ERR, "result_buf Exceeded max len.\n"), exceeded) << command << " " << size;
    }
  }
}

TEST_F(PopenCall, CapturesALongLineThatComesInManyPieces) {
  kelo_set_log_level(LOG_LVL_INFO);
  const std::string line(1 << 20, 'x');
  EXPECT_EQ(captured("head -c 1048576 /dev/zero | tr '\\0' x", (1 << 20) + 2), line + zeros(2));
}

TEST_F(PopenCall, FailsWithoutMemory) {
  static std::string last_line;
  last_line.assign(4096, '\0');
  set_print_interface([](const char* line) { std::strncpy(last_line.data(), line, last_line.size() - 1); });
  const ExactBuffer result(64);
  // Short enough for the interposer of popen() to allocate nothing.
  constexpr char kTouch[] = "echo>/tmp/ran";
  std::string ending;
  int served = 0;
  for (; served < 10 && ending != "result_str is NULL!"; ++served) {
    int code = 0;
    {
      const FailingHeap heap(served);
      code = kelo_popen_call(kTouch, result.data(), 64);
    }
    EXPECT_EQ(code, -1);
    const std::string line = last_line.substr(0, last_line.find('\0'));
    EXPECT_NE(line.find("=ERR="), std::string::npos) << line;
    EXPECT_NE(line.find(" | oem_popen_call "), std::string::npos) << line;
    ending = line.substr(line.rfind("| ") + 2);
    if (ending != "result_str is NULL!") {
      EXPECT_EQ(ending, "popen call:echo>/tmp/ran fail[Cannot allocate memory]\n");
    }
  }
  EXPECT_GT(served, kGnuLibrary ? 1 : 0) << "other C libraries allocate by a way of their own";
  EXPECT_EQ(ending, "result_str is NULL!");
  EXPECT_TRUE(result.untouched());
  EXPECT_TRUE(std::filesystem::exists("/tmp/ran")) << "the command was not waited for";
}

// --- Signals

TEST_F(PopenCall, LosesNothingToAnInterruptedRead) {
  for (const int at : {1, 2}) {
    const Fault fault({.call = "read", .code = EINTR, .at = at, .times = 3});
    EXPECT_EQ(captured("printf whole", 8), "whole" + zeros(3));
    EXPECT_GE(fault.seen(), at + 3);
  }
}

// The command lives a bounded time, whenever the signal is delivered.
TEST_F(PopenCall, LosesNothingToASignal) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  EXPECT_EQ(captured("printf half; sleep 0.1; kill -USR1 $PPID; sleep 0.1; echo whole", 16),
            "halfwhole\n" + zeros(6));
}

TEST_F(PopenCall, TakesAFailedReadForTheEnd) {
  const Fault fault({"read", EIO});
  EXPECT_EQ(captured("echo x", 8), zeros(8));
}

// --- Descriptors and threads

TEST_F(PopenCall, HandsDownNoDescriptor) {
  const auto before = open_descriptors();
  std::array<char, 4096> listing{};
  EXPECT_EQ(kelo_popen_call("ls -l /proc/self/fd", listing.data(), listing.size()), 0);
  std::ofstream("/tmp/descriptors") << listing.data();
  kelo::tests::expect_nothing_inherited("/tmp/descriptors", before);
}

TEST_F(PopenCall, HidesThePipeFromOtherPrograms) {
  ASSERT_EQ(mkfifo("/tmp/started", 0600), 0);
  ASSERT_EQ(mkfifo("/tmp/end", 0600), 0);
  const auto before = open_descriptors();
  std::thread caller([] { captured("echo > /tmp/started; cat /tmp/end", 8); });
  std::string line;
  std::getline(std::ifstream("/tmp/started"), line);
  EXPECT_EQ(std::system("ls -l /proc/self/fd > /tmp/descriptors"), 0);
  std::ofstream("/tmp/end").close();
  caller.join();
  kelo::tests::expect_nothing_inherited("/tmp/descriptors", before);
}

TEST_F(PopenCall, ServesAProcessWithMoreThan1024Descriptors) {
  kelo::tests::limit_descriptors(2048);
  if (IsSkipped() || HasFatalFailure()) return;
  const ManyDescriptors many(1500, 0);
  ASSERT_GT(many.highest(), 1024);
  EXPECT_EQ(captured("echo x", 8), "x\n" + zeros(6));
}

TEST_F(PopenCall, FailsCleanlyWhenDescriptorsRunOut) {
  kelo::tests::limit_descriptors(64);
  constexpr std::size_t kNeeded = 2 + kDescriptorsOfAStart;
  for (std::size_t free = 0; free < kNeeded; ++free) {
    const ManyDescriptors many(64, free);
    const ExactBuffer result(8);
    EXPECT_EQ(kelo_popen_call("echo x", result.data(), 8), -1);
    expect_lines(log, kCall, {{LOG_LVL_ERR, "popen call:echo x fail[" + error_text(EMFILE) + "]\n"}});
    EXPECT_TRUE(result.untouched());
  }
  const ManyDescriptors many(64, kNeeded);
  EXPECT_EQ(captured("echo x", 8), "x\n" + zeros(6));
}

TEST_F(PopenCall, ServesSeveralThreadsAtOnce) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int id = 1; id <= 4; ++id) {
    threads.emplace_back([id] {
      for (int i = 0; i < 20; ++i) {
        const std::string text = std::to_string(id) + "-" + std::to_string(i);
        EXPECT_EQ(captured("echo " + text, 16), text + "\n" + zeros(15 - text.size()));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
