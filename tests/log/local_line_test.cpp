// SPDX-License-Identifier: MIT
// The local line in `log_msg`, field by field.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <regex>
#include <string>
#include <string_view>
#include <thread>

#include "kelo_utils/log.h"
#include "tests/support/bounded_fork.hpp"
#include "tests/support/c_library.hpp"

namespace {

using kelo::tests::ChildEnd;
using kelo::tests::fork_bounded;

const char* instead_of_proc;    // what opens in place of a file below /proc; null: that file itself
int proc_opens;                 // how often one was opened
const timeval* instead_of_now;  // the time of day that the library is told; null: the real one

int open_instead(const char* path, int flags, mode_t mode) {
  const bool below_proc = std::strncmp(path, "/proc/", 6) == 0;
  if (below_proc) ++proc_opens;
  const bool replaced = instead_of_proc != nullptr && below_proc;
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, replaced ? instead_of_proc : path, flags, mode));
}

}  // namespace

// The library's calls land here.
extern "C" {

int open_for_library(const char* path, int flags, ...) asm("open");
int open64_for_library(const char* path, int flags, ...) asm("open64");
int gettimeofday_for_library(timeval* now, void* zone) asm(KELO_GETTIMEOFDAY);

int open_for_library(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return open_instead(path, flags, mode);
}

int open64_for_library(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return open_instead(path, flags, mode);
}

int gettimeofday_for_library(timeval* now, void* /*zone*/) {
  if (instead_of_now != nullptr) {
    *now = *instead_of_now;
    return 0;
  }
  timespec real{};
  clock_gettime(CLOCK_REALTIME, &real);
  now->tv_sec = real.tv_sec;
  now->tv_usec = static_cast<suseconds_t>(real.tv_nsec / 1000);
  return 0;
}

}  // extern "C"

namespace {

void discard(const char* /*line*/) {}

class LocalLine : public testing::Test {
 protected:
  void SetUp() override {
    kelo_set_log_tool_enable(0);
    kelo_set_log_level(LOG_LVL_DBUG);
    set_print_interface(discard);
  }
  void TearDown() override {
    instead_of_proc = nullptr;
    instead_of_now = nullptr;
  }
};

using Form = LocalLine;
using Stamp = LocalLine;
using Tag = LocalLine;
using Name = LocalLine;
using ThreadName = LocalLine;
using Bound = LocalLine;

std::string line_of(int level, const char* function, int source_line, const std::string& text) {
  std::array<char, KELO_LOG_BUFFER_SIZE> buffer{};
  EXPECT_EQ(kelo_log_printf(level, buffer.data(), function, source_line, "%s", text.c_str()), 0);
  return log_msg;
}

// What the line should be after the stamp that it has.
std::string expected(const char* tag, const std::string& thread_name, const std::string& shown_function,
                     int source_line, const std::string& text) {
  return std::string(str_t) + " : " + tag + " | [" + std::to_string(getpid()) + " | " +
         std::to_string(get_tid()) + "-" + thread_name + "] | " + shown_function + " " +
         std::to_string(source_line) + " | " + text;
}

// As `expected`, and looks at the stamp when the line is there, whichever of the two is named first.
MATCHER_P5(IsLine, tag, thread_name, shown_function, source_line, text, "") {
  const std::string whole = expected(tag, thread_name, shown_function, source_line, text);
  *result_listener << "which is not " << testing::PrintToString(whole);
  return arg == whole;
}

void expect_zeros(std::string_view array, std::size_t from) {
  EXPECT_EQ(std::string_view::npos, array.find_first_not_of('\0', from));
}

TEST_F(Form, WholeLine) {
  prctl(PR_SET_NAME, "modem_rx");
  const std::string line = line_of(LOG_LVL_ERR, "kelo_dm_write", 97, "symLookup failed: 1203\n");
  EXPECT_EQ(line, expected("=ERR=", "modem_rx", "oem_dm_write", 97, "symLookup failed: 1203\n"));
}

TEST_F(Form, OtherThreadShowsItsOwnId) {
  std::thread([] {
    prctl(PR_SET_NAME, "second");
    const std::string line = line_of(LOG_LVL_ERR, "f", 1, "text");
    EXPECT_EQ(line, expected("=ERR=", "second", "f", 1, "text"));
    EXPECT_NE(getpid(), get_tid());
  }).join();
}

TEST_F(Form, SourceLineIsSigned) {
  prctl(PR_SET_NAME, "x");
  EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 0, ""), IsLine("=ERR=", "x", "f", 0, ""));
  EXPECT_THAT(line_of(LOG_LVL_ERR, "f", -5, ""), IsLine("=ERR=", "x", "f", -5, ""));
  EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 2147483647, ""), IsLine("=ERR=", "x", "f", 2147483647, ""));
}

TEST_F(Form, MessageIsTakenAsItIs) {
  prctl(PR_SET_NAME, "x");
  for (const char* const text : {"", "\n", "two\nlines", " | ", "%s %n", "\xc3\xa4\xff"})
    EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 1, text), IsLine("=ERR=", "x", "f", 1, text));
}

// --- Time stamp --------------------------------------------------------------------------------------------

TEST_F(Stamp, IsUtcAndNow) {
  setenv("TZ", "UTC-9", 1);
  tzset();
  timespec before{};
  timespec after{};
  clock_gettime(CLOCK_REALTIME, &before);
  const std::string line = line_of(LOG_LVL_ERR, "f", 1, "text");
  clock_gettime(CLOCK_REALTIME, &after);
  const std::string stamp_text(str_t, strnlen(str_t, sizeof str_t));
  static const std::regex kForm(R"((\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)\.(\d{3}))");
  std::smatch match;
  ASSERT_TRUE(std::regex_match(stamp_text, match, kForm)) << stamp_text;
  tm utc{};
  ASSERT_NE(strptime(match[1].str().c_str(), "%Y-%m-%d %H:%M:%S", &utc), nullptr);
  const long long stamp = static_cast<long long>(timegm(&utc)) * 1000 + std::stoi(match[2]);
  EXPECT_LE(static_cast<long long>(before.tv_sec) * 1000 + before.tv_nsec / 1000000, stamp);
  EXPECT_GE(static_cast<long long>(after.tv_sec) * 1000 + after.tv_nsec / 1000000, stamp);
  EXPECT_TRUE(line.starts_with(std::string(str_t) + " : ")) << line;
}

TEST_F(Stamp, CutsToMilliseconds) {
  struct Case {
    suseconds_t microseconds;
    const char* stamp;
  };
  for (const Case& c : {Case{0, "1970-01-01 00:00:00.000"},
                        {999, "1970-01-01 00:00:00.000"},
                        {1000, "1970-01-01 00:00:00.001"},
                        {99999, "1970-01-01 00:00:00.099"},
                        {999999, "1970-01-01 00:00:00.999"}}) {
    const timeval now{0, c.microseconds};
    instead_of_now = &now;
    line_of(LOG_LVL_ERR, "f", 1, "text");
    EXPECT_STREQ(c.stamp, str_t);
  }
}

TEST_F(Stamp, CalendarIsTheCLibrarys) {
  // Every 7 days and a bit from 1970 into the 22nd century, and the seconds around ends of years and leap
  // days.
  auto expect_at = [](time_t seconds) {
    const timeval now{seconds, 5000};
    instead_of_now = &now;
    line_of(LOG_LVL_ERR, "f", 1, "text");
    tm utc{};
    gmtime_r(&seconds, &utc);
    std::array<char, 64> stamp{};
    std::strftime(stamp.data(), stamp.size(), "%Y-%m-%d %H:%M:%S.005", &utc);
    EXPECT_STREQ(stamp.data(), str_t) << seconds;
  };
  const auto last = sizeof(time_t) > 4 ? static_cast<time_t>(4300000000LL) : static_cast<time_t>(2147483647);
  for (time_t seconds = 0; seconds < last - 612345; seconds += 612345) expect_at(seconds);
  for (const int year : {1972, 1999, 2000, 2001, 2024, 2026, 2038, 2100}) {
    for (const int month : {0, 1, 2, 11}) {
      tm first_of_month{};
      first_of_month.tm_year = year - 1900;
      first_of_month.tm_mon = month;
      first_of_month.tm_mday = 1;
      const time_t seconds = timegm(&first_of_month);
      if (seconds <= 0) continue;
      for (const int offset : {-1, 0}) expect_at(seconds + offset);
    }
  }
}

TEST_F(Stamp, RestOfItsArrayIsZero) {
  line_of(LOG_LVL_ERR, "f", 1, "text");
  std::memset(str_t, 'x', sizeof str_t);
  line_of(LOG_LVL_ERR, "f", 1, "text");
  EXPECT_EQ(strnlen(str_t, sizeof str_t), 23U);
  expect_zeros({str_t, sizeof str_t}, 23);
}

// --- Level tag ---------------------------------------------------------------------------------------------

TEST_F(Tag, OfEachLevel) {
  prctl(PR_SET_NAME, "x");
  struct Case {
    int level;
    const char* tag;
  };
  for (const Case& c : {Case{-1, "(null)"},
                        {0, " DBUG"},
                        {1, " INFO"},
                        {2, "-WRN-"},
                        {3, "=ERR="},
                        {4, "*CRT*"},
                        {5, "(null)"},
                        {6, "(null)"},
                        {2147483647, "(null)"}})
    EXPECT_THAT(line_of(c.level, "f", 1, "text"), IsLine(c.tag, "x", "f", 1, "text")) << c.level;
}

// --- Function name -----------------------------------------------------------------------------------------

TEST_F(Name, ShowsTheProductAsOem) {
  prctl(PR_SET_NAME, "x");
  struct Case {
    const char* function;
    const char* shown;
  };
  for (const Case& c : {Case{"kelo_dm_write", "oem_dm_write"},
                        {"kelo_x_kelo", "oem_x_oem"},
                        {"kelo", "oem"},
                        {"kelokelo", "oemoem"},
                        {"kekelo", "keoem"},
                        {"kelkelo", "keloem"},
                        {"keloelo", "oemelo"},
                        {"kekelolo", "keoemlo"},
                        {"xkelo", "xoem"},
                        {"kkelo", "koem"},
                        {"kel", "kel"},
                        {"k", "k"},
                        {"keloke", "oemke"},
                        {"KELO_x", "KELO_x"},
                        {"Kelo", "Kelo"},
                        {"sqlite_reg", "sqlite_reg"},
                        {"operator()", "operator()"},
                        {"", ""},
                        {nullptr, "(null)"}})
    EXPECT_THAT(line_of(LOG_LVL_ERR, c.function, 1, "kelo text"),
                IsLine("=ERR=", "x", c.shown, 1, "kelo text"));
}

TEST_F(Name, CallersTextIsNotChanged) {
  std::string function = "kelo_x_kelo";
  line_of(LOG_LVL_ERR, function.c_str(), 1, "text");
  EXPECT_EQ(function, "kelo_x_kelo");
}

TEST_F(Name, LongOnesAreCutWithTheLine) {
  prctl(PR_SET_NAME, "x");
  for (const std::size_t times : {100U, 1000U, 1300U, 1337U, 1338U, 1339U, 1340U, 1341U, 1365U, 3000U}) {
    std::string function;
    std::string shown;
    for (std::size_t i = 0; i < times; ++i) {
      function += "kelo";
      shown += "oem";
    }
    const std::string line = line_of(LOG_LVL_ERR, function.c_str(), 1, "text");
    EXPECT_EQ(line, expected("=ERR=", "x", shown, 1, "text").substr(0, KELO_LOG_LINE_SIZE - 1)) << times;
  }
}

// --- Thread name -------------------------------------------------------------------------------------------

TEST_F(ThreadName, AsTheKernelHasIt) {
  struct Case {
    const char* set;
    const char* shown;
  };
  for (const Case& c : {Case{"modem_rx", "modem_rx"},
                        {"fifteen-letters", "fifteen-letters"},
                        {"sixteen--letters", "sixteen--letter"},
                        {"", ""},
                        {"a | b] c", "a | b] c"},
                        {"one\ntwo", "one"},
                        {"\n", ""},
                        {"%s%n", "%s%n"}}) {
    prctl(PR_SET_NAME, c.set);
    EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 1, "text"), IsLine("=ERR=", c.shown, "f", 1, "text"));
  }
}

// A thread that has not logged yet.
void in_new_thread(void (*body)()) { std::thread(body).join(); }

TEST_F(ThreadName, WithoutItsFileIsNull) {
  in_new_thread([] {
    instead_of_proc = "/nowhere";
    EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 1, "text"), IsLine("=ERR=", "NULL", "f", 1, "text"));
    EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 1, "text"), IsLine("=ERR=", "NULL", "f", 1, "text"));
  });
}

TEST_F(ThreadName, ThatCannotBeReadIsNull) {
  in_new_thread([] {
    instead_of_proc = "/dev/null";  // opens, and ends at once
    EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 1, "text"), IsLine("=ERR=", "NULL", "f", 1, "text"));
    instead_of_proc = "/tmp";  // opens, and reading fails
    EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 1, "text"), IsLine("=ERR=", "NULL", "f", 1, "text"));
  });
}

TEST_F(ThreadName, IsShownOnceItsFileIsThere) {
  in_new_thread([] {
    prctl(PR_SET_NAME, "late");
    instead_of_proc = "/nowhere";
    line_of(LOG_LVL_ERR, "f", 1, "text");
    instead_of_proc = nullptr;
    EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 1, "text"), IsLine("=ERR=", "late", "f", 1, "text"));
  });
}

TEST_F(ThreadName, IsReadFromTheFileInTheFirstLineOfEachThread) {
  for (int thread = 0; thread < 3; ++thread) {
    in_new_thread([] {
      proc_opens = 0;
      for (const char* const name : {"first", "second", "", "fifteen-letters", "one\ntwo"}) {
        prctl(PR_SET_NAME, name);
        const std::string shown = std::string(name).substr(0, std::strcspn(name, "\n"));
        EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 1, "text"), IsLine("=ERR=", shown, "f", 1, "text"));
      }
      EXPECT_EQ(proc_opens, 1);
    });
  }
}

TEST_F(ThreadName, OfAnotherThreadIsSeenAtOnce) {
  in_new_thread([] {
    line_of(LOG_LVL_ERR, "f", 1, "text");
    const pthread_t self = pthread_self();
    std::thread([self] { pthread_setname_np(self, "from_outside"); }).join();
    EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 1, "text"), IsLine("=ERR=", "from_outside", "f", 1, "text"));
  });
}

// Both of the main thread and of another one, which is the child's first.
TEST_F(ThreadName, AndNumbersOfAChildAreItsOwn) {
  static constexpr auto kFork = [] {
    prctl(PR_SET_NAME, "parent");
    line_of(LOG_LVL_ERR, "f", 1, "text");
    for (const char* const proc : {static_cast<const char*>(nullptr), "/nowhere"}) {
      EXPECT_EQ(fork_bounded([proc] {
                  proc_opens = 0;
                  instead_of_proc = proc;
                  prctl(PR_SET_NAME, "child");
                  const std::string line = line_of(LOG_LVL_ERR, "f", 1, "text");
                  return getpid() == get_tid() && proc_opens == 1 &&
                         line == expected("=ERR=", proc == nullptr ? "child" : "NULL", "f", 1, "text");
                }),
                ChildEnd::good);
    }
    EXPECT_THAT(line_of(LOG_LVL_ERR, "f", 1, "text"), IsLine("=ERR=", "parent", "f", 1, "text"));
  };
  kFork();
  in_new_thread(kFork);
}

TEST_F(ThreadName, LeavesNoDescriptorOpen) {
  const int before = dup(STDOUT_FILENO);
  close(before);
  line_of(LOG_LVL_ERR, "f", 1, "text");
  instead_of_proc = "/dev/null";
  line_of(LOG_LVL_ERR, "f", 1, "text");
  const int after = dup(STDOUT_FILENO);
  close(after);
  EXPECT_EQ(before, after);
}

// --- The bound of the line ---------------------------------------------------------------------------------

TEST_F(Bound, LineIsCutAt4095Characters) {
  prctl(PR_SET_NAME, "x");
  const std::size_t frame = line_of(LOG_LVL_ERR, "f", 1, "").size();
  for (const std::size_t length : {4094U, 4095U, 4096U, 4097U}) {
    const std::string text(length - frame - 1, 'm');
    std::memset(log_msg, 'x', sizeof log_msg);
    const std::string line = line_of(LOG_LVL_ERR, "f", 1, text + '\n');
    EXPECT_EQ(std::min<std::size_t>(length, 4095), line.size());
    EXPECT_EQ(line, expected("=ERR=", "x", "f", 1, text + '\n').substr(0, 4095));
    EXPECT_EQ(log_msg[KELO_LOG_LINE_SIZE - 1], '\0');
  }
}

TEST_F(Bound, MessageIsCutFirst) {
  prctl(PR_SET_NAME, "x");
  const std::string line = line_of(LOG_LVL_ERR, "f", 1, std::string(9000, 'm'));
  EXPECT_EQ(line, expected("=ERR=", "x", "f", 1, std::string(4219, 'm')).substr(0, 4095));
}

TEST_F(Bound, RestOfTheArrayIsZero) {
  line_of(LOG_LVL_ERR, "f", 1, std::string(4000, 'm'));
  const std::string line = line_of(LOG_LVL_ERR, "f", 1, "short");
  expect_zeros({log_msg, sizeof log_msg}, line.size());
}

TEST_F(Bound, LineMayQuoteTheLineBefore) {
  prctl(PR_SET_NAME, "x");
  const std::string before = line_of(LOG_LVL_ERR, "f", 1, "before");
  std::array<char, KELO_LOG_BUFFER_SIZE> buffer{};
  kelo_log_printf(LOG_LVL_ERR, buffer.data(), "f", 2, "last: %s", log_msg);
  EXPECT_EQ(log_msg, expected("=ERR=", "x", "f", 2, "last: " + before));
}

}  // namespace
