// SPDX-License-Identifier: MIT
// The watch log's record, its switch and its time source.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kelo_utils/log.h"
#include "tests/support/child_process.hpp"
#include "tests/support/stdout_capture.hpp"
#include "tests/support/watch_log.hpp"

namespace {

using namespace std::string_literals;
using kelo::tests::Fault;
using kelo::tests::kWatchA;
using kelo::tests::kWatchB;
using kelo::tests::kWatchFolder;
using kelo::tests::kWatchOption;
using kelo::tests::read_file;
using kelo::tests::run_in_child;
using kelo::tests::StdoutCapture;
using kelo::tests::WatchedOpen;
using kelo::tests::WatchLog;
using kelo::tests::write_file;

bool written() { return std::filesystem::exists(kWatchA) || std::filesystem::exists(kWatchB); }

// --- The record

TEST_F(WatchLog, RecordIsUptimeNameLineAndText) {
  EXPECT_EQ(oem_watch("main", 42, "text"), 0);
  EXPECT_EQ(read_file(kWatchA), "[123.46] main:42 text\n");
  EXPECT_FALSE(std::filesystem::exists(kWatchB));
}

TEST_F(WatchLog, RecordsFollowOneAnother) {
  EXPECT_EQ(oem_watch("first", 1, "%s-%d%%", "a", 5), 0);
  set_uptime("124.00 99.00\n");
  EXPECT_EQ(oem_watch("kelo_second", -2, "%s", ""), 0);
  EXPECT_EQ(oem_watch("", INT_MIN, "line\nend\n"), 0);
  EXPECT_EQ(read_file(kWatchA),
            "[123.46] first:1 a-5%\n[124.00] kelo_second:-2 \n[124.00] :-2147483648 line\nend\n\n");
}

TEST_F(WatchLog, NullNameIsShown) {
  EXPECT_EQ(oem_watch(nullptr, 7, "text"), 0);
  EXPECT_EQ(read_file(kWatchA), "[123.46] (null):7 text\n");
}

TEST_F(WatchLog, NullFormatIsRefused) {
  const char* volatile none = nullptr;  // out of sight of the compiler's own check
  EXPECT_EQ(oem_watch("main", 42, none, 1), 0);
  EXPECT_FALSE(written());
  kelo::tests::expect_lines(log, "oem_watch", {{LOG_LVL_ERR, "oem_watch param NULL\n"}});
}

TEST_F(WatchLog, RecordOfAnyLengthIsWhole) {
  std::string expected;
  for (const std::size_t length : {4000U, 4074U, 4075U, 4076U, 4219U, 4220U, 4221U, 8192U, 100000U}) {
    const std::string text(length, 'x');
    EXPECT_EQ(oem_watch("main", 1234, "%s", text.c_str()), 0);
    expected += "[123.46] main:1234 " + text + "\n";
    const std::string format = std::string(length, 'f') + "%d";
    EXPECT_EQ(oem_watch(format.c_str(), 5, format.c_str(), 6), 0);
    expected += "[123.46] " + format + ":5 " + std::string(length, 'f') + "6\n";
  }
  EXPECT_EQ(read_file(kWatchA), expected);
}

TEST_F(WatchLog, BytesOfAnyValueAreKept) {
  EXPECT_EQ(oem_watch("n\xff", 1, "a%cb\xc3\x28", 0), 0);
  EXPECT_EQ(read_file(kWatchA), "[123.46] n\xff:1 a\0b\xc3\x28\n"s);
}

TEST_F(WatchLog, IsIndependentOfThresholdAndLogTool) {
  kelo_set_log_level(LOG_LVL_CRT);
  StdoutCapture output;
  EXPECT_EQ(oem_watch("main", 42, "text"), 0);
  EXPECT_EQ(output.take(), "");
  EXPECT_EQ(read_file(kWatchA), "[123.46] main:42 text\n");
}

TEST_F(WatchLog, FileIsMadeWithTheRightsThatTheProcessGrants) {
  const mode_t before = umask(0027);
  EXPECT_EQ(oem_watch("main", 42, "text"), 0);
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(kWatchA, &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

// --- The time source

TEST_F(WatchLog, UptimeIsRoundedToHundredths) {
  const std::vector<std::pair<std::string, std::string>> uptimes = {
      {"0.00 0.00\n", "0.00"}, {"59.994 1", "59.99"},
      {"59.996 1", "60.00"},   {"4294967.29 8589934.58\n", "4294967.29"},
      {"7", "7.00"},           {"  \t5.5\n", "5.50"},
      {"-1.5 2", "-1.50"},     {"1e3 2", "1000.00"},
      {"8.25,9", "8.25"},      {".5", "0.50"},
      {"3.x", "3.00"},         {"100000000000.01 5", "100000000000.01"},
  };
  std::string expected;
  for (const auto& [text, shown] : uptimes) {
    set_uptime(text);
    EXPECT_EQ(oem_watch("f", 1, "t"), 0) << text;
    expected += "[" + shown + "] f:1 t\n";
  }
  EXPECT_EQ(read_file(kWatchA), expected);
}

TEST_F(WatchLog, UptimeWithoutANumberWritesNothing) {
  for (const std::string_view text : {"", "\n", "text", "x1.5", ".", "- 5"}) {
    set_uptime(text);
    EXPECT_EQ(oem_watch("f", 1, "t"), 0) << text;
    EXPECT_FALSE(written()) << text;
  }
}

TEST_F(WatchLog, UptimeIsThatOfTheKernel) {
  kelo::tests::uptime_is_chosen = false;
  const auto now = [] {
    double seconds = -1;
    std::ifstream("/proc/uptime") >> seconds;
    return seconds;
  };
  const double before = now();
  EXPECT_EQ(oem_watch("f", 1, "t"), 0);
  const double after = now();
  const double stamp = std::strtod(read_file(kWatchA).c_str() + 1, nullptr);
  EXPECT_LE(before, stamp);
  EXPECT_LE(stamp, after);
}

TEST_F(WatchLog, UptimeThatCannotBeReadWritesNothing) {
  {
    const Fault fault({.call = "open", .code = EACCES, .at = 2});
    EXPECT_EQ(oem_watch("f", 1, "t"), 0);
    EXPECT_EQ(fault.seen(), 2);
  }
  {
    const Fault fault({"read", EIO});
    EXPECT_EQ(oem_watch("f", 1, "t"), 0);
    EXPECT_EQ(fault.seen(), 1);
  }
  EXPECT_FALSE(written());
}

// --- The switch

struct Option {
  std::string text;
  bool on;
};

TEST_F(WatchLog, OptionThatBeginsWithZeroSwitchesOff) {
  const std::vector<Option> options = {
      {"0", false},
      {"0\n", false},
      {" 0", false},
      {"00", false},
      {"-0", false},
      {"+0", false},
      {"0x5", false},
      {"0 5", false},
      {"0.9", false},
      {"\t\n\v\f\r 0", false},
      {std::string(128, '0') + "5", false},
      {std::string(128, ' ') + "5", false},
      {"0\0005"s, false},
      // No number counts as zero.
      {"text", false},
      {"\n", false},
      {" ", false},
      {"\0"s, false},
      {"x5", false},
      {"- 5", false},
      {"--5", false},
      {"\0005"s, false},
      {"5", true},
      {"1\n", true},
      {"", true},
      {"-1", true},
      {"+3", true},
      {"05", true},
      {" \t5", true},
      {"5x", true},
      {"10", true},
      {"4294967296", true},
      {"18446744073709551616", true},
      {"-99999999999999999999999", true},
      {std::string(127, '0') + "5", true},
      {std::string(127, ' ') + "55", true},
  };
  for (const Option& option : options) {
    write_file(kWatchOption, option.text);
    std::filesystem::remove(kWatchA);
    EXPECT_EQ(oem_watch("f", 1, "t"), 0) << option.text;
    EXPECT_EQ(written(), option.on) << option.text;
  }
}

TEST_F(WatchLog, OptionIsReadForEachRecord) {
  EXPECT_EQ(oem_watch("f", 1, "t"), 0);
  write_file(kWatchOption, "0");
  EXPECT_EQ(oem_watch("f", 2, "t"), 0);
  write_file(kWatchOption, "1");
  EXPECT_EQ(oem_watch("f", 3, "t"), 0);
  EXPECT_EQ(read_file(kWatchA), "[123.46] f:1 t\n[123.46] f:3 t\n");
}

TEST_F(WatchLog, SwitchedOffTouchesNothing) {
  write_file(kWatchOption, "0");
  make_file(kWatchA, 2000000);
  make_file(kWatchB, 2000000);
  std::vector<WatchedOpen> opens;
  kelo::tests::watched_opens = &opens;
  EXPECT_EQ(oem_watch("f", 1, "t"), 0);
  kelo::tests::watched_opens = nullptr;
  ASSERT_EQ(opens.size(), 1U);
  EXPECT_EQ(opens[0].path, kWatchOption);
  EXPECT_EQ(std::filesystem::file_size(kWatchA), 2000000U);
  EXPECT_EQ(std::filesystem::file_size(kWatchB), 2000000U);
}

TEST_F(WatchLog, OptionThatCannotBeReadLeavesTheWatchOn) {
  std::filesystem::create_directory(kWatchOption);
  EXPECT_EQ(oem_watch("directory", 1, "t"), 0);
  std::filesystem::remove(kWatchOption);
  write_file(kWatchOption, "0");
  {
    const Fault fault({"open", EACCES});
    EXPECT_EQ(oem_watch("open", 2, "t"), 0);
  }
  {
    const Fault fault({"read", EIO});
    EXPECT_EQ(oem_watch("read", 3, "t"), 0);
  }
  EXPECT_EQ(read_file(kWatchA), "[123.46] directory:1 t\n[123.46] open:2 t\n[123.46] read:3 t\n");
}

TEST_F(WatchLog, InterruptedReadsAreRepeated) {
  write_file(kWatchOption, "0");
  const Fault fault({.call = "read", .code = EINTR, .times = 2});
  EXPECT_EQ(oem_watch("f", 1, "t"), 0);
  EXPECT_EQ(fault.seen(), 3);
  EXPECT_FALSE(written());
}

// --- What fails

TEST_F(WatchLog, MissingFolderIsNotMade) {
  std::filesystem::remove_all("/data/oem");
  EXPECT_EQ(oem_watch("f", 1, "t"), 0);
  EXPECT_FALSE(std::filesystem::exists("/data/oem"));
}

TEST_F(WatchLog, FileThatCannotBeOpenedGetsNothing) {
  std::filesystem::create_directory(kWatchA);
  EXPECT_EQ(oem_watch("f", 1, "t"), 0);
  EXPECT_TRUE(std::filesystem::is_empty(kWatchA));
  EXPECT_FALSE(std::filesystem::exists(kWatchB));
  std::filesystem::remove(kWatchA);
  write_file(kWatchA, "old\n");
  ASSERT_EQ(chmod(kWatchA, 0444), 0);
  EXPECT_EQ(oem_watch("f", 1, "t"), 0);
  EXPECT_EQ(read_file(kWatchA), "old\n");
  ASSERT_EQ(chmod(kWatchA, 0644), 0);
  {
    const Fault fault({"fopen", ENOMEM});
    EXPECT_EQ(oem_watch("f", 1, "t"), 0);
    EXPECT_EQ(fault.seen(), 1);
  }
  EXPECT_EQ(read_file(kWatchA), "old\n");
}

TEST_F(WatchLog, FullDeviceIsTheResultOfClosing) {
  std::filesystem::create_symlink("/dev/full", kWatchA);
  StdoutCapture output;
  EXPECT_EQ(oem_watch("f", 1, "t"), EOF);
  EXPECT_EQ(oem_watch("f", 1, "%s", std::string(10000, 'x').c_str()), EOF);
  EXPECT_EQ(output.take(), "");
  EXPECT_FALSE(std::filesystem::exists(kWatchB));
}

TEST_F(WatchLog, ErrnoIsKept) {
  const auto keeps = [] {
    errno = EXDEV;
    oem_watch("f", 1, "t");
    return errno == EXDEV;
  };
  EXPECT_TRUE(keeps()) << "written";
  write_file(kWatchOption, "0");
  EXPECT_TRUE(keeps()) << "off";
  std::filesystem::remove(kWatchOption);
  set_uptime("x");
  EXPECT_TRUE(keeps()) << "no uptime";
  set_uptime("5");
  std::filesystem::remove(kWatchA);
  std::filesystem::create_symlink("/dev/full", kWatchA);
  EXPECT_TRUE(keeps()) << "full device";
  std::filesystem::remove_all(kWatchFolder);
  EXPECT_TRUE(keeps()) << "no folder";
}

TEST_F(WatchLog, EveryDescriptorClosesOnExec) {
  const auto ended = run_in_child([] {
    make_file(kWatchA, kelo::tests::kFull);
    make_file(kWatchB, kelo::tests::kFull);
    write_file(kWatchOption, "1");
    std::vector<WatchedOpen> opens;
    kelo::tests::watched_opens = &opens;
    EXPECT_EQ(oem_watch("f", 1, "t"), 0);
    kelo::tests::watched_opens = nullptr;
    std::vector<std::string> paths;
    for (const WatchedOpen& opened : opens) {
      paths.push_back(opened.path);
      EXPECT_TRUE(opened.closes_on_exec) << opened.path;
    }
    EXPECT_EQ(paths, (std::vector<std::string>{kWatchOption, "/proc/uptime", kWatchA, kWatchA}));
  });
  EXPECT_EQ(ended.exit_status, 0) << ended.standard_output;
}

}  // namespace
