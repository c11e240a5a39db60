// SPDX-License-Identifier: MIT
// Levels, the switch, the threshold, the two ways of a message, and threads that log.
#include "kelo_utils/log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <latch>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "tests/log/log_macros.h"
#include "tests/log/own_channel.hpp"
#include "tests/support/stdout_capture.hpp"

namespace {

using kelo::tests::channel_records;
using kelo::tests::ChannelRecord;
using kelo::tests::own_channel;
using kelo::tests::StdoutCapture;

constexpr char kSwitchFile[] = "/data/log_enable";

std::string read_file(const char* path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::atomic<int> syncs{0};
thread_local std::string switch_file_at_sync;

}  // namespace

// The library's calls land here: a sync() of the machine's storage is not what the tests are about.
extern "C" void sync() noexcept {
  ++syncs;
  switch_file_at_sync = read_file(kSwitchFile);
}

namespace {

std::atomic<int> lines_printed{0};
std::atomic<const char*> line_given{nullptr};

void count_line(const char* line) {
  ++lines_printed;
  line_given = line;
}

// A scratch buffer of the exact size, with guard bytes after it.
struct Scratch {
  static constexpr char kPreset = '\x5a';
  std::array<char, KELO_LOG_BUFFER_SIZE + 16> bytes;

  Scratch() { bytes.fill(kPreset); }
  char* data() { return bytes.data(); }
  [[nodiscard]] bool untouched_from(std::size_t position) const {
    for (std::size_t i = position; i < bytes.size(); ++i)
      if (bytes[i] != kPreset) return false;
    return true;
  }
};

// A lock that is not given back would stop a test for good: it is killed instead.
class KeloLog : public testing::Test {
 protected:
  void SetUp() override { alarm(120); }
};

using Setters = KeloLog;
using Threshold = KeloLog;
using Buffer = KeloLog;
using ChannelStart = KeloLog;
using HandOff = KeloLog;
using LocalMode = KeloLog;
using Callback = KeloLog;
using Errno = KeloLog;
using Threads = KeloLog;

// --- Setters and getters -----------------------------------------------------------------------------------

TEST_F(Setters, InitialState) {
  EXPECT_EQ(kelo_get_log_level(), LOG_LVL_INFO);
  EXPECT_EQ(kelo_get_log_tool_enable(), 1);
  EXPECT_EQ(std::string(KELO_LOG_LINE_SIZE, '\0'), std::string(log_msg, sizeof log_msg));
  EXPECT_EQ(std::string(KELO_LOG_STAMP_SIZE, '\0'), std::string(str_t, sizeof str_t));
}

TEST_F(Setters, LevelTakesOneToFourAndElseZero) {
  for (const int level : {1, 2, 3, 4}) {
    kelo_set_log_level(level);
    EXPECT_EQ(level, kelo_get_log_level());
  }
  for (const int level : {0, 5, 6, -1, -3, 255, 256, INT_MAX, INT_MIN}) {
    kelo_set_log_level(LOG_LVL_CRT);
    kelo_set_log_level(level);
    EXPECT_EQ(kelo_get_log_level(), 0) << level;
  }
}

TEST_F(Setters, SwitchKeepsEveryValueAndTheFileItsInverse) {
  struct Case {
    int enable;
    const char* content;
  };
  for (const Case& c : {Case{0, "1"}, {1, "0"}, {2, "0"}, {0, "1"}, {-1, "0"}, {INT_MIN, "0"}, {256, "0"}}) {
    syncs = 0;
    kelo_set_log_tool_enable(c.enable);
    EXPECT_EQ(c.enable, kelo_get_log_tool_enable());
    EXPECT_EQ(c.content, read_file(kSwitchFile)) << c.enable;
    EXPECT_EQ(syncs, 1) << c.enable;
    EXPECT_EQ(c.content, switch_file_at_sync) << "the sync comes after the write, for " << c.enable;
  }
}

TEST_F(Setters, SwitchFileIsCutToOneByte) {
  std::ofstream(kSwitchFile) << "what was here before\n";
  kelo_set_log_tool_enable(0);
  EXPECT_EQ(read_file(kSwitchFile), "1");
}

TEST_F(Setters, SwitchChangesWhenItsFileCannotBeMade) {
  ASSERT_EQ(chmod("/data", 0555), 0);
  kelo_set_log_tool_enable(0);
  EXPECT_EQ(kelo_get_log_tool_enable(), 0);
  EXPECT_NE(access(kSwitchFile, F_OK), 0);
  EXPECT_EQ(syncs, 0);
}

TEST_F(Setters, SwitchFileThatCannotBeOpenedIsLeftAlone) {
  std::ofstream(kSwitchFile) << "0";
  ASSERT_EQ(chmod(kSwitchFile, 0444), 0);
  kelo_set_log_tool_enable(0);
  EXPECT_EQ(kelo_get_log_tool_enable(), 0);
  EXPECT_EQ(read_file(kSwitchFile), "0");
  EXPECT_EQ(syncs, 0);
}

TEST_F(Setters, ThreadIdIsTheKernels) {
  EXPECT_EQ(getpid(), get_tid());
  std::thread([] {
    EXPECT_EQ(syscall(SYS_gettid), get_tid());
    EXPECT_NE(getpid(), get_tid());
  }).join();
}

// --- Threshold and scratch buffer --------------------------------------------------------------------------

constexpr std::array kLevels = {INT_MIN, -2, -1, 0, 1, 2, 3, 4, 5, 6, INT_MAX};

TEST_F(Threshold, MatrixInChannelMode) {
  for (int threshold = 0; threshold <= 4; ++threshold) {
    kelo_set_log_level(threshold);
    for (const int level : kLevels) {
      Scratch buffer;
      const bool passes = level == -1 || level >= threshold;
      EXPECT_EQ(passes ? 1 : 0, kelo_log_printf(level, buffer.data(), "f", 1, "level %d", level))
          << level << " at threshold " << threshold;
      if (passes)
        EXPECT_EQ("level " + std::to_string(level), buffer.data());
      else
        EXPECT_TRUE(buffer.untouched_from(0)) << level << " at threshold " << threshold;
    }
  }
}

TEST_F(Threshold, MatrixInLocalMode) {
  kelo_set_log_tool_enable(0);
  set_print_interface(count_line);
  for (int threshold = 0; threshold <= 4; ++threshold) {
    kelo_set_log_level(threshold);
    for (const int level : kLevels) {
      Scratch buffer;
      const bool passes = level == -1 || level >= threshold;
      lines_printed = 0;
      EXPECT_EQ(kelo_log_printf(level, buffer.data(), "f", 1, "level %d", level), 0);
      EXPECT_EQ(passes ? 1 : 0, lines_printed) << level << " at threshold " << threshold;
      EXPECT_EQ(!passes, buffer.untouched_from(0)) << level << " at threshold " << threshold;
    }
  }
}

TEST_F(Threshold, DebugIsSuppressedAtStart) {
  Scratch buffer;
  EXPECT_EQ(kelo_log_printf(LOG_LVL_DBUG, buffer.data(), "f", 1, "text"), 0);
  EXPECT_TRUE(buffer.untouched_from(0));
  EXPECT_EQ(kelo_log_printf(LOG_LVL_INFO, buffer.data(), "f", 1, "text"), 1);
}

TEST_F(Threshold, SuppressedArgumentsAreNotEvaluated) {
  int evaluated = 0;
  KELO_LOG(LOG_LVL_DBUG, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  KELO_LOG(LOG_LVL_INFO, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(channel_records().size(), 1U);
}

TEST_F(Buffer, HoldsTheMessageAndNothingElse) {
  Scratch buffer;
  EXPECT_EQ(kelo_log_printf(LOG_LVL_ERR, buffer.data(), "kelo_f", 7, "%s failed: %d\n", "lookup", -3), 1);
  EXPECT_STREQ(buffer.data(), "lookup failed: -3\n");
  EXPECT_TRUE(buffer.untouched_from(std::strlen(buffer.data()) + 1));
}

TEST_F(Buffer, EmptyMessage) {
  Scratch buffer;
  EXPECT_EQ(kelo_log_printf(LOG_LVL_ERR, buffer.data(), "f", 1, "%s", ""), 1);
  EXPECT_STREQ(buffer.data(), "");
  EXPECT_TRUE(buffer.untouched_from(1));
}

TEST_F(Buffer, IsCutAtItsSize) {
  for (const int enable : {1, 0}) {
    kelo_set_log_tool_enable(enable);
    set_print_interface(count_line);
    for (const std::size_t length : {4218U, 4219U, 4220U, 4221U, 9000U}) {
      Scratch buffer;
      const std::string message(length, 'm');
      EXPECT_EQ(enable, kelo_log_printf(LOG_LVL_ERR, buffer.data(), "f", 1, "%s", message.c_str()));
      EXPECT_EQ(message.substr(0, 4219), buffer.data()) << length;
      EXPECT_TRUE(buffer.untouched_from(std::min<std::size_t>(length, 4219) + 1)) << length;
    }
  }
}

TEST_F(Buffer, NoneDropsTheMessage) {
  EXPECT_EQ(kelo_log_printf(LOG_LVL_ERR, nullptr, "f", 1, "text"), 0);
  kelo_set_log_tool_enable(0);
  set_print_interface(count_line);
  EXPECT_EQ(kelo_log_printf(LOG_LVL_ERR, nullptr, "f", 1, "text"), 0);
  EXPECT_EQ(lines_printed, 0);
}

// --- The start of the channel ------------------------------------------------------------------------------

void log_error() {
  Scratch buffer;
  kelo_log_printf(LOG_LVL_ERR, buffer.data(), "f", 1, "text");
}

TEST_F(ChannelStart, WaitsForTheFirstMessageThatPasses) {
  Scratch buffer;
  kelo_log_printf(LOG_LVL_DBUG, buffer.data(), "f", 1, "text");
  KELO_LOG(LOG_LVL_DBUG, "text");
  (void)kelo_get_log_level();
  (void)kelo_get_log_tool_enable();
  (void)get_tid();
  set_print_interface(nullptr);
  EXPECT_EQ(own_channel().starts, 0);
  log_error();
  EXPECT_EQ(own_channel().starts, 1);
  EXPECT_FALSE(own_channel().environment_given);
}

TEST_F(ChannelStart, HappensOnce) {
  log_error();
  log_error();
  kelo_set_log_level(LOG_LVL_WRN);
  kelo_set_log_tool_enable(0);
  kelo_set_log_tool_enable(1);
  log_error();
  EXPECT_EQ(own_channel().starts, 1);
}

TEST_F(ChannelStart, ByTheLevelSetter) {
  kelo_set_log_level(LOG_LVL_WRN);
  EXPECT_EQ(own_channel().starts, 1);
  log_error();
  EXPECT_EQ(own_channel().starts, 1);
}

TEST_F(ChannelStart, ByTheSwitchSetter) {
  kelo_set_log_tool_enable(1);
  EXPECT_EQ(own_channel().starts, 1);
  log_error();
  EXPECT_EQ(own_channel().starts, 1);
}

TEST_F(ChannelStart, IsTriedAgainAfterAFailure) {
  own_channel().start_result = 0;
  Scratch buffer;
  EXPECT_EQ(kelo_log_printf(LOG_LVL_ERR, buffer.data(), "f", 1, "handed over all the same"), 1);
  EXPECT_EQ(own_channel().starts, 1);
  kelo_set_log_level(LOG_LVL_WRN);
  EXPECT_EQ(own_channel().starts, 2);
  kelo_set_log_tool_enable(1);
  EXPECT_EQ(own_channel().starts, 3);
  kelo_log_printf(LOG_LVL_INFO, buffer.data(), "f", 1, "suppressed");
  EXPECT_EQ(own_channel().starts, 3);
  own_channel().start_result = -1;  // any non-zero is success
  log_error();
  EXPECT_EQ(own_channel().starts, 4);
  log_error();
  EXPECT_EQ(own_channel().starts, 4);
}

TEST_F(ChannelStart, NeverOnceTheSwitchWasOffFirst) {
  kelo_set_log_tool_enable(0);
  set_print_interface(count_line);
  log_error();
  kelo_set_log_tool_enable(1);
  kelo_set_log_level(LOG_LVL_DBUG);
  KELO_LOG(LOG_LVL_ERR, "text");
  EXPECT_EQ(own_channel().starts, 0);
  EXPECT_EQ(channel_records().size(), 1U);
}

TEST_F(ChannelStart, NeverOnceTheSwitchWasNeitherFirst) {
  for (const int other : {2, -1}) {
    kelo_set_log_tool_enable(other);
    KELO_LOG(LOG_LVL_ERR, "text");
    kelo_set_log_tool_enable(1);
    KELO_LOG(LOG_LVL_ERR, "text");
  }
  EXPECT_EQ(own_channel().starts, 0);
  EXPECT_EQ(channel_records().size(), 4U) << "every switch but 0 hands over";
}

TEST_F(ChannelStart, SwitchOffEndsTheTries) {
  own_channel().start_result = 0;
  log_error();
  kelo_set_log_tool_enable(0);
  kelo_set_log_tool_enable(1);
  log_error();
  EXPECT_EQ(own_channel().starts, 1);
}

TEST_F(ChannelStart, MayLogAndCallTheSetters) {
  own_channel().during_start = [] {
    log_error();
    EXPECT_EQ(kelo_dm_unreg(nullptr), -1);
    kelo_set_log_level(LOG_LVL_WRN);
    kelo_set_log_tool_enable(1);
  };
  KELO_LOG(LOG_LVL_ERR, "text");
  EXPECT_EQ(own_channel().starts, 1);
  EXPECT_EQ(kelo_get_log_level(), LOG_LVL_WRN);
  ASSERT_EQ(channel_records().size(), 1U);
  EXPECT_EQ(channel_records().front().text, "text");
}

TEST_F(ChannelStart, HappensOnceAmongManyThreads) {
  own_channel().during_start = [] {  // long enough for the others to come by
    for (int i = 0; i < 1000; ++i) std::this_thread::yield();
  };
  std::latch begin(8);
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&begin, i] {
      begin.arrive_and_wait();
      if (i % 2 == 0)
        log_error();
      else
        kelo_set_log_level(LOG_LVL_WRN);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(own_channel().starts, 1);
}

// --- The hand-off to the channel ---------------------------------------------------------------------------

TEST_F(HandOff, DescriptorAndArguments) {
  const int line = __LINE__ + 1;
  KELO_LOG(LOG_LVL_ERR, "no answer from %s: %d\n", "modem", 5);
  const std::vector<ChannelRecord> records = channel_records();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(line, records[0].line);
  EXPECT_EQ(records[0].subsystem, 65);
  EXPECT_EQ(records[0].mask, 0x08U);
  EXPECT_EQ(records[0].format, "KELO-FWA[%d] %s(): %s");
  EXPECT_EQ(records[0].file, "tests/log/kelo_log_test.cpp");
  EXPECT_EQ(getpid(), records[0].process);
  EXPECT_EQ(records[0].function, "TestBody");
  EXPECT_EQ(records[0].text, "no answer from modem: 5\n");
}

TEST_F(HandOff, OneLastingDescriptorPerCallSite) {
  for (int i = 0; i < 2; ++i) KELO_LOG(LOG_LVL_ERR, "here");
  KELO_LOG(LOG_LVL_ERR, "there");
  const std::vector<ChannelRecord> records = channel_records();
  ASSERT_EQ(records.size(), 3U);
  EXPECT_EQ(records[0].site, records[1].site);
  EXPECT_NE(records[1].site, records[2].site);
}

TEST_F(HandOff, LineIsKeptToSixteenBits) {
  log_from_line_65541();
  ASSERT_EQ(channel_records().size(), 1U);
  EXPECT_EQ(channel_records()[0].line, 5);
}

TEST_F(HandOff, MessageIsCutAtTheScratchBuffer) {
  KELO_LOG(LOG_LVL_ERR, "%s", std::string(5000, 'm').c_str());
  ASSERT_EQ(channel_records().size(), 1U);
  EXPECT_EQ(channel_records()[0].text, std::string(4219, 'm'));
}

TEST_F(HandOff, FromTheLibraryItself) {
  EXPECT_EQ(kelo_dm_unreg(nullptr), -1);
  const std::vector<ChannelRecord> records = channel_records();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_LT(0, records[0].line);
  EXPECT_EQ(records[0].subsystem, 65);
  EXPECT_EQ(records[0].mask, 0x08U);
  EXPECT_EQ(records[0].format, "KELO-FWA[%d] %s(): %s");
  const std::string file = std::string(KELO_SOURCE_DIR "/") + records[0].file;
  EXPECT_TRUE(file.ends_with(".cpp") && access(file.c_str(), R_OK) == 0) << file;
  EXPECT_EQ(getpid(), records[0].process);
  EXPECT_EQ(records[0].function, "kelo_dm_unreg") << "the record keeps the name that the line shows as oem_";
  EXPECT_EQ(records[0].text, "kelo_dm_unreg param NULL\n");
}

TEST_F(HandOff, NullArgumentIsLoggedUnderTheCallersName) {
  kelo_write_msg2file_ex(nullptr, "/data/messages", "f", "text");
  EXPECT_EQ(kelo_write_msg2file(nullptr, "text"), -1);
  const std::vector<ChannelRecord> records = channel_records();
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[0].function, "kelo_write_msg2file_ex");
  EXPECT_EQ(records[0].text, "kelo_write_msg2file_ex param NULL\n");
  EXPECT_EQ(records[1].function, "kelo_write_msg2file");
  EXPECT_EQ(records[1].text, "kelo_write_msg2file param NULL\n");
  for (const ChannelRecord& record : records) {
    EXPECT_EQ(record.mask, 0x08U);
    EXPECT_EQ(getpid(), record.process);
  }
}

TEST_F(HandOff, LibraryMessageBelowTheThresholdIsSuppressed) {
  kelo_set_log_level(LOG_LVL_CRT);
  EXPECT_EQ(kelo_dm_unreg(nullptr), -1);
  EXPECT_TRUE(channel_records().empty());
}

void expect_every_level(void (*log_all)(), const char* function, const char* file) {
  static constexpr std::array<unsigned, 7> kMasks = {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0};
  kelo_set_log_level(LOG_LVL_DBUG);
  log_all();
  const std::vector<ChannelRecord> records = channel_records();
  ASSERT_EQ(kMasks.size(), records.size());
  for (std::size_t i = 0; i < kMasks.size(); ++i) {
    EXPECT_EQ(kMasks[i], records[i].mask) << i;
    EXPECT_EQ(records[i].subsystem, 65);
    EXPECT_EQ(file, records[i].file);
    EXPECT_EQ(function, records[i].function);
  }
  EXPECT_EQ(records[0].text, "plain");
  for (std::size_t i = 1; i <= 5; ++i) EXPECT_EQ("number " + std::to_string(i), records[i].text);
  EXPECT_EQ(records[6].text, "always");
}

TEST_F(HandOff, FromC99) { expect_every_level(log_from_c99, "log_from_c99", "modem/radio.c"); }

TEST_F(HandOff, FromCxx17) {
  expect_every_level(log_from_cxx17, "log_from_cxx17", "tests/log/log_macro_cxx17.cpp");
}

// --- Local mode --------------------------------------------------------------------------------------------

TEST_F(LocalMode, PrintsOnStandardOutputAndAddsNoLineEnd) {
  kelo_set_log_tool_enable(0);
  StdoutCapture capture;
  KELO_LOG(LOG_LVL_ERR, "first, ");
  const std::string first = log_msg;
  KELO_LOG(LOG_LVL_ERR, "100%% second\n");
  EXPECT_EQ(first + log_msg, capture.take());
  EXPECT_TRUE(first.ends_with(" | first, ")) << first;
  EXPECT_TRUE(std::string(log_msg).ends_with(" | 100% second\n")) << log_msg;
  EXPECT_TRUE(channel_records().empty());
}

TEST_F(LocalMode, CallbackTakesTheLineFromStandardOutput) {
  kelo_set_log_tool_enable(0);
  StdoutCapture capture;
  set_print_interface(count_line);
  KELO_LOG(LOG_LVL_ERR, "to the callback\n");
  EXPECT_EQ(lines_printed, 1);
  EXPECT_EQ(log_msg, line_given);
  set_print_interface(nullptr);
  KELO_LOG(LOG_LVL_ERR, "to standard output\n");
  EXPECT_EQ(lines_printed, 1);
  EXPECT_EQ(log_msg, capture.take());
}

TEST_F(LocalMode, LibraryMessageIsPrinted) {
  kelo_set_log_tool_enable(0);
  set_print_interface(count_line);
  EXPECT_EQ(kelo_dm_unreg(nullptr), -1);
  EXPECT_EQ(lines_printed, 1);
  EXPECT_NE(std::string::npos, std::string(log_msg).find("] | oem_dm_unreg ")) << log_msg;
  EXPECT_TRUE(std::string(log_msg).ends_with(" | kelo_dm_unreg param NULL\n")) << log_msg;
}

TEST_F(LocalMode, ChannelModeLeavesTheLineAlone) {
  kelo_set_log_tool_enable(0);
  set_print_interface(count_line);
  log_error();
  const std::string line = log_msg;
  const std::string stamp = str_t;
  kelo_set_log_tool_enable(2);
  KELO_LOG(LOG_LVL_ERR, "elsewhere");
  EXPECT_EQ(lines_printed, 1);
  EXPECT_EQ(line, log_msg);
  EXPECT_EQ(stamp, str_t);
}

// --- The callback ------------------------------------------------------------------------------------------

TEST_F(Callback, ThatLogsIsDroppedWithoutDeadlock) {
  kelo_set_log_tool_enable(0);
  static std::string seen;
  set_print_interface([](const char* line) {
    ++lines_printed;
    Scratch buffer;
    EXPECT_EQ(kelo_log_printf(LOG_LVL_ERR, buffer.data(), "f", 1, "inner"), 0);
    EXPECT_TRUE(buffer.untouched_from(0));
    EXPECT_EQ(kelo_dm_unreg(nullptr), -1);
    seen += line;
  });
  KELO_LOG(LOG_LVL_ERR, "outer");
  KELO_LOG(LOG_LVL_ERR, "outer");
  EXPECT_EQ(lines_printed, 2);
  EXPECT_EQ(std::string::npos, seen.find("inner")) << seen;
  std::thread(log_error).join();
  EXPECT_EQ(lines_printed, 3) << "the lock was given back";
}

TEST_F(Callback, MayCallEveryOtherFunction) {
  kelo_set_log_tool_enable(0);
  set_print_interface([](const char*) {
    ++lines_printed;
    kelo_set_log_level(LOG_LVL_CRT);
    EXPECT_EQ(kelo_get_log_level(), LOG_LVL_CRT);
    kelo_set_log_tool_enable(1);
    EXPECT_EQ(kelo_get_log_tool_enable(), 1);
    EXPECT_LT(0, get_tid());
    set_print_interface(nullptr);
  });
  KELO_LOG(LOG_LVL_ERR, "local");
  KELO_LOG(LOG_LVL_ERR, "suppressed by now");
  KELO_LOG(LOG_LVL_CRT, "to the channel");
  EXPECT_EQ(lines_printed, 1);
  EXPECT_EQ(own_channel().starts, 0);
  ASSERT_EQ(channel_records().size(), 1U);
  EXPECT_EQ(channel_records()[0].text, "to the channel");
}

// --- errno -------------------------------------------------------------------------------------------------

TEST_F(Errno, IsPreserved) {
  errno = EBUSY;
  KELO_LOG(LOG_LVL_ERR, "starts the channel, whose calls change errno");
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(kelo_dm_unreg(nullptr), -1);
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(channel_records().size(), 2U);

  kelo_set_log_tool_enable(0);
  set_print_interface([](const char*) { errno = EIO; });
  errno = EBUSY;
  KELO_LOG(LOG_LVL_ERR, "local");
  EXPECT_EQ(errno, EBUSY);
  Scratch buffer;
  kelo_log_printf(LOG_LVL_ERR, buffer.data(), "f", 1, "local");
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(kelo_dm_unreg(nullptr), -1);
  EXPECT_EQ(errno, EBUSY);
}

TEST_F(Errno, IsWhatTheMessageShows) {
  errno = EBUSY;
  KELO_LOG(LOG_LVL_ERR, "%m");  // the channel's start comes between
  ASSERT_EQ(channel_records().size(), 1U);
  EXPECT_EQ(std::strerror(EBUSY), channel_records()[0].text);
}

// --- Threads -----------------------------------------------------------------------------------------------

TEST_F(Threads, SuppressedMessagesAndSettersWaitForNoLine) {
  kelo_set_log_tool_enable(0);
  static std::latch in_callback(1);
  static std::latch may_leave(1);
  set_print_interface([](const char*) {
    in_callback.count_down();
    may_leave.wait();
  });
  std::thread logger(log_error);
  in_callback.wait();
  KELO_LOG(LOG_LVL_DBUG, "suppressed");
  Scratch buffer;
  EXPECT_EQ(kelo_log_printf(LOG_LVL_DBUG, buffer.data(), "f", 1, "suppressed"), 0);
  kelo_set_log_level(LOG_LVL_WRN);
  kelo_set_log_tool_enable(0);
  (void)kelo_get_log_level();
  (void)kelo_get_log_tool_enable();
  set_print_interface(nullptr);
  may_leave.count_down();
  logger.join();
}

void log_number(int thread, int number) { KELO_LOG(LOG_LVL_WRN, "thread %d number %d.", thread, number); }

std::atomic<int> malformed{0};

void check_line(const char* line) {
  ++lines_printed;
  static const std::regex kWhole(R"(.* \| (thread \d number \d+\.|kelo_dm_unreg param NULL\n))");
  if (!std::regex_match(line, kWhole)) ++malformed;
}

TEST_F(Threads, LogWhileAnotherChangesEverySetting) {
  constexpr int kThreads = 4;
  constexpr unsigned kTurns = 300;
  constexpr std::array<kelo_print_fn, 3> kReceivers = {check_line, count_line, nullptr};
  StdoutCapture capture;
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([i, &stop] {
      for (int n = 0; !stop; ++n) {
        log_number(i, n);
        if (n % 16 == 0) (void)kelo_dm_unreg(nullptr);  // logs in the library's own way
      }
    });
  }
  // Until messages have gone both ways, however the threads take turns.
  for (unsigned turn = 0; turn < kTurns || lines_printed == 0 || channel_records().empty(); ++turn) {
    kelo_set_log_level(static_cast<int>(turn % 5));
    kelo_set_log_tool_enable(static_cast<int>(turn % 2));
    set_print_interface(kReceivers[turn % kReceivers.size()]);
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  capture.take();
  EXPECT_EQ(malformed, 0);
  EXPECT_GE(1, own_channel().starts);
}

TEST_F(Threads, EveryLineIsWhole) {
  constexpr int kThreads = 4;
  constexpr int kMessages = 1000;
  kelo_set_log_tool_enable(0);
  set_print_interface(check_line);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([i] {
      for (int n = 0; n < kMessages; ++n) log_number(i, n);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(lines_printed, kThreads * kMessages);
  EXPECT_EQ(malformed, 0);
}

}  // namespace
