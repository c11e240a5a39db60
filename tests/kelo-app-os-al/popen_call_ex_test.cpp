// SPDX-License-Identifier: MIT
// Shell commands whose standard output is captured after a pause of a second.
#include <signal.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/c_library.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/leaves_nothing.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using kelo::tests::error_text;
using kelo::tests::ExactBuffer;
using kelo::tests::expect_lines;
using kelo::tests::Fault;
using kelo::tests::ManyDescriptors;
using kelo::tests::open_descriptors;
using Clock = std::chrono::steady_clock;

constexpr char kCall[] = "oem_popen_call_ex";

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string zeros(std::size_t count) { return std::string(count, '\0'); }

// Everything in a buffer of `size` bytes after the call.
std::string captured(const std::string& command, std::int32_t size) {
  const ExactBuffer result(static_cast<std::size_t>(size));
  EXPECT_EQ(kelo_popen_call_ex(command.c_str(), result.data(), size), 0) << command;
  return result.bytes();
}

class PopenCallEx : public kelo::tests::LeavesNothing {};

struct Sized {
  std::int32_t size;
  std::string text;
};

TEST_F(PopenCallEx, RefusesANullCommandAndANullResult) {
  const ExactBuffer result(8);
  EXPECT_EQ(kelo_popen_call_ex(nullptr, result.data(), 8), -1);
  expect_lines(log, kCall, {{LOG_LVL_ERR, "popen call:(null) fail[parameter invaild!]\n"}});
  EXPECT_TRUE(result.untouched());
  EXPECT_EQ(kelo_popen_call_ex("touch /tmp/ran", nullptr, 8), -1);
  expect_lines(log, kCall, {{LOG_LVL_ERR, "popen call:touch /tmp/ran fail[parameter invaild!]\n"}});
  EXPECT_FALSE(std::filesystem::exists("/tmp/ran"));
}

TEST_F(PopenCallEx, ReportsAPipeThatCannotBeMadeWithoutAPause) {
  const ExactBuffer result(8);
  const Fault fault({.call = "popen", .code = EMFILE, .times = kelo::tests::kEveryTime});
  double quickest = 60;  // of three, on a machine however busy
  for (int i = 0; i < 3; ++i) {
    const auto start = Clock::now();
    EXPECT_EQ(kelo_popen_call_ex("echo x", result.data(), 8), -1);
    quickest = std::min(quickest, seconds_since(start));
    expect_lines(log, kCall, {{LOG_LVL_ERR, "popen call:echo x fail[" + error_text(EMFILE) + "]\n"}});
  }
  EXPECT_LT(quickest, 1.0);
  EXPECT_TRUE(result.untouched());
}

TEST_F(PopenCallEx, PausesASecondAfterTheStart) {
  auto start = Clock::now();
  EXPECT_EQ(captured("echo x", 8), "x\n" + zeros(6));
  EXPECT_GE(seconds_since(start), 1.0);
  expect_lines(log, kCall, {{LOG_LVL_DBUG, "x\n\n"}});
  start = Clock::now();
  EXPECT_EQ(kelo_popen_call_ex("exit 1", std::array<char, 1>{}.data(), 0), 0);
  EXPECT_GE(seconds_since(start), 1.0);
}

// The command leaves its mark in the middle of the pause: it was started before.
TEST_F(PopenCallEx, PausesASecondThroughSignals) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  const auto start = Clock::now();
  EXPECT_EQ(captured("for i in 1 2; do sleep 0.2; kill -USR1 $PPID; done; echo x", 8), "x\n" + zeros(6));
  EXPECT_GE(seconds_since(start), 1.0);
}

TEST_F(PopenCallEx, FillsTheResultToItsLastButOneByte) {
  // Several threads share the seconds.
  const std::vector<Sized> sizes = {{1, ""},
                                    {2, ""},
                                    {3, "h"},
                                    {4, "he"},
                                    {7, "hello"},
                                    {8, "hello\n"},
                                    {9, "hello\nw"},
                                    {13, "hello\nworld"},
                                    {14, "hello\nworld\n"},
                                    {15, "hello\nworld\n"}};
  std::vector<std::thread> threads;
  threads.reserve(sizes.size());
  for (const Sized& sized : sizes) {
    threads.emplace_back([&sized] {
      const std::string expected =
          sized.text + zeros(static_cast<std::size_t>(sized.size) - sized.text.size());
      EXPECT_EQ(captured("echo hello; echo world", sized.size), expected) << sized.size;
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(PopenCallEx, KeepsSixCharactersInAnEightByteResult) {
  EXPECT_EQ(captured("echo abcdefghij", 8), "abcdef" + zeros(2));
  expect_lines(log, kCall, {{LOG_LVL_DBUG, "abcdefghij\n\n"}});
}

TEST_F(PopenCallEx, EndsTheReadingOfOneByteAfterTheFirstLine) {
  EXPECT_EQ(captured("echo a; echo b", 1), zeros(1));
  expect_lines(log, kCall, {{LOG_LVL_DBUG, "a\n\n"}, {LOG_LVL_DBUG, "len=0,0\n"}});
}

TEST_F(PopenCallEx, LeavesAResultOfNoSizeAlone) {
  for (const std::int32_t size : {0, -1}) {
    const ExactBuffer result(4);
    EXPECT_EQ(kelo_popen_call_ex("echo a; echo b", result.data(), size), 0);
    EXPECT_TRUE(result.untouched());
    expect_lines(log, kCall, {{LOG_LVL_DBUG, "a\n\n"}, {LOG_LVL_DBUG, "b\n\n"}});
  }
}

TEST_F(PopenCallEx, ReadsAllOutputToItsEnd) {
  kelo_set_log_level(LOG_LVL_INFO);
  EXPECT_EQ(captured("seq 1 200000 && echo > /tmp/whole", 4), "1\n" + zeros(2));
  EXPECT_TRUE(std::filesystem::exists("/tmp/whole"));
}

TEST_F(PopenCallEx, ReadsALongLineInPiecesOf510) {
  const std::string line(1021, 'x');
  EXPECT_EQ(captured("head -c 1021 /dev/zero | tr '\\0' x", 1024), line + zeros(3));
  expect_lines(log, kCall,
               {{LOG_LVL_DBUG, std::string(510, 'x') + "\n"},
                {LOG_LVL_DBUG, std::string(510, 'x') + "\n"},
                {LOG_LVL_DBUG, "x\n"}});
}

TEST_F(PopenCallEx, KeepsOfALineWhatIsBeforeAZeroByte) {
  EXPECT_EQ(captured("printf 'a\\0b\\nc\\n'; exit 3", 8), "ac\n" + zeros(5));
  expect_lines(log, kCall, {{LOG_LVL_DBUG, "a\n"}, {LOG_LVL_DBUG, "c\n\n"}});
}

TEST_F(PopenCallEx, HandsDownNoDescriptor) {
  const auto before = open_descriptors();
  std::array<char, 4096> listing{};
  EXPECT_EQ(kelo_popen_call_ex("ls -l /proc/self/fd", listing.data(), listing.size()), 0);
  std::ofstream("/tmp/descriptors") << listing.data();
  kelo::tests::expect_nothing_inherited("/tmp/descriptors", before);
}

TEST_F(PopenCallEx, ServesAProcessWithMoreThan1024Descriptors) {
  kelo::tests::limit_descriptors(2048);
  if (IsSkipped() || HasFatalFailure()) return;
  const ManyDescriptors many(1500, 0);
  ASSERT_GT(many.highest(), 1024);
  EXPECT_EQ(captured("echo x", 8), "x\n" + zeros(6));
}

TEST_F(PopenCallEx, FailsCleanlyWhenDescriptorsRunOut) {
  kelo::tests::limit_descriptors(64);
  const ManyDescriptors many(64, 1);
  const ExactBuffer result(8);
  EXPECT_EQ(kelo_popen_call_ex("echo x", result.data(), 8), -1);
  expect_lines(log, kCall, {{LOG_LVL_ERR, "popen call:echo x fail[" + error_text(EMFILE) + "]\n"}});
  EXPECT_TRUE(result.untouched());
}

}  // namespace
