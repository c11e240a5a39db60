// SPDX-License-Identifier: MIT
// kelo_log_line(): one message without a macro and without a format.
#include "kelo_utils/log_line.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/log/own_channel.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::channel_records;
using kelo::tests::ChannelRecord;
using kelo::tests::LogCapture;
using kelo::tests::LogLine;

std::string printed;
void keep_line(const char* line) { printed = line; }

TEST(LogLine, BecomesALocalLine) {
  const LogCapture log;
  kelo_log_line(LOG_LVL_WRN, "kelo_main", 42, "100 % of %s\n");
  const std::vector<LogLine> lines = log.lines();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].level, LOG_LVL_WRN);
  EXPECT_EQ(lines[0].function, "oem_main");
  EXPECT_EQ(lines[0].source_line, 42);
  EXPECT_EQ(lines[0].text, "100 % of %s\n");
}

TEST(LogLine, BelowTheThresholdIsDropped) {
  kelo_set_log_tool_enable(0);
  set_print_interface(keep_line);
  kelo_set_log_level(LOG_LVL_WRN);
  for (const int level : {LOG_LVL_DBUG, LOG_LVL_INFO}) kelo_log_line(level, "f", 1, "dropped\n");
  EXPECT_EQ(printed, "");
  for (const int level : {-1, static_cast<int>(LOG_LVL_WRN), static_cast<int>(LOG_LVL_EMR)}) {
    printed.clear();
    kelo_log_line(level, "f", 1, "shown\n");
    EXPECT_TRUE(printed.ends_with("| f 1 | shown\n")) << level << ": " << printed;
  }
}

TEST(LogLine, NullTextsAreShown) {
  kelo_set_log_tool_enable(0);
  set_print_interface(keep_line);
  kelo_log_line(LOG_LVL_ERR, nullptr, 7, nullptr);
  EXPECT_TRUE(printed.ends_with("| (null) 7 | (null)")) << printed;
  kelo_log_line(LOG_LVL_ERR, "", 7, "");
  EXPECT_TRUE(printed.ends_with("|  7 | ")) << printed;
}

TEST(LogLine, BecomesARecordOfTheChannel) {
  const struct {
    int level;
    std::uint32_t mask;
  } levels[] = {{-1, 0}, {LOG_LVL_INFO, 2}, {LOG_LVL_EMR, 32}, {6, 0}, {40, 0}};
  std::size_t count = 0;
  for (const auto& [level, mask] : levels) {
    kelo_log_line(level, "kelo_main", 65536 + 3, "text %d");
    const std::vector<ChannelRecord> records = channel_records();
    ASSERT_EQ(records.size(), ++count);
    const ChannelRecord& record = records.back();
    EXPECT_EQ(record.line, 3);
    EXPECT_EQ(record.subsystem, KELO_LOG_DIAG_SUBSYSTEM);
    EXPECT_EQ(record.mask, mask) << level;
    EXPECT_EQ(record.format, KELO_LOG_DIAG_FORMAT);
    EXPECT_EQ(record.process, getpid());
    EXPECT_EQ(record.file, "");
    EXPECT_EQ(record.function, "kelo_main");
    EXPECT_EQ(record.text, "text %d");
  }
  kelo_log_line(LOG_LVL_ERR, nullptr, 1, nullptr);
  EXPECT_EQ(channel_records().back().function, "(null)");
  EXPECT_EQ(channel_records().back().text, "(null)");
}

TEST(LogLine, LongTextIsCut) {
  constexpr std::size_t kMost = KELO_LOG_BUFFER_SIZE - 1;
  for (const std::size_t size : {kMost - 1, kMost, kMost + 1}) {
    const std::string text(size, 'x');
    kelo_log_line(LOG_LVL_ERR, "f", 1, text.c_str());
    EXPECT_EQ(channel_records().back().text, text.substr(0, kMost));
  }
}

int lines_printed = 0;
void count_line(const char* /*line*/) {
  ++lines_printed;
  errno = EPIPE;
}

TEST(LogLine, PreservesErrnoAndAllocatesNothing) {
  kelo_set_log_tool_enable(0);
  set_print_interface(count_line);
  kelo_log_line(LOG_LVL_ERR, "f", 1, "the first line of a thread reads its name\n");
  const kelo::tests::FailingHeap heap(0);
  errno = ENOSPC;
  kelo_log_line(LOG_LVL_ERR, "f", 1, "text\n");
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(lines_printed, 2);
}

}  // namespace
