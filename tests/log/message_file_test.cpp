// SPDX-License-Identifier: MIT
// Messages that the shell appends to a file.
#include <gtest/gtest.h>
#include <sys/time.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/c_library.hpp"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/leaves_nothing.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

const timeval* instead_of_now;  // the time of day that the library is told; null: the real one

}  // namespace

// The library's calls land here.
extern "C" int gettimeofday_for_library(timeval* now, void* zone) asm(KELO_GETTIMEOFDAY);
extern "C" int gettimeofday_for_library(timeval* now, void* /*zone*/) {
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

namespace {

using kelo::tests::CallTrace;
using kelo::tests::ExactBuffer;
using kelo::tests::expect_lines;
using kelo::tests::FailingHeap;
using kelo::tests::Fault;
using kelo::tests::read_file;

constexpr char kPath[] = "/tmp/messages";
constexpr char kStamp[] = "[2026-03-01 12:34:56.789]";
constexpr timeval kNow = {1772368496, 789999};

// Each test begins without the file, at a fixed time, in UTC.
class MessageFile : public kelo::tests::LeavesNothing {
 protected:
  MessageFile() {
    std::filesystem::remove_all(kPath);
    instead_of_now = &kNow;
    setenv("TZ", "UTC0", 1);
  }
  void TearDown() override {
    instead_of_now = nullptr;
    unsetenv("TZ");
    LeavesNothing::TearDown();
  }

  static std::string stamp() { return kStamp; }
};

// The one command that was run.
std::string command_of(const CallTrace& trace) {
  return trace.calls().size() == 1 && trace.calls()[0].function == "system" ? trace.calls()[0].text
                                                                            : "not one: " + trace.dump();
}

TEST_F(MessageFile, MessageIsAppendedAfterItsStamp) {
  EXPECT_EQ(kelo_write_msg2file(kPath, "first"), 0);
  EXPECT_EQ(kelo_write_msg2file(kPath, "second one"), 0);
  EXPECT_EQ(kelo_write_msg2file(kPath, ""), 0);
  EXPECT_EQ(read_file(kPath), stamp() + "first\n" + stamp() + "second one\n" + stamp() + "\n");
}

TEST_F(MessageFile, CommandIsLoggedAndRunAsAnyOther) {
  const CallTrace trace;
  EXPECT_EQ(kelo_write_msg2file(kPath, "text"), 0);
  const std::string command = "echo \"" + stamp() + "text\" >> /tmp/messages";
  EXPECT_EQ(command_of(trace), command);
  expect_lines(log, "oem_system_call",
               {{LOG_LVL_DBUG, "System call: " + command + "\n"},
                {LOG_LVL_DBUG, "run shell script successfully result=0.\n"}});
}

TEST_F(MessageFile, NullArgumentsAreRefused) {
  const CallTrace trace;
  EXPECT_EQ(kelo_write_msg2file(nullptr, "text"), -1);
  expect_lines(log, "oem_write_msg2file", {{LOG_LVL_ERR, "kelo_write_msg2file param NULL\n"}});
  EXPECT_EQ(kelo_write_msg2file(kPath, nullptr), -1);
  expect_lines(log, "oem_write_msg2file", {{LOG_LVL_ERR, "kelo_write_msg2file param NULL\n"}});
  const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
  const char* volatile none = nullptr;  // out of sight of the compiler's own check
  kelo_write_msg2file_ex(nullptr, kPath, "f", "text");
  kelo_write_msg2file_ex(buffer.data(), nullptr, "f", "text");
  kelo_write_msg2file_ex(buffer.data(), kPath, "f", none, 1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_write_msg2file_ex", "kelo_write_msg2file_ex param NULL\n"), 3);
  EXPECT_EQ(log.lines().size(), 3U) << log.dump();
  EXPECT_TRUE(buffer.untouched());
  EXPECT_TRUE(trace.calls().empty()) << trace.dump();
}

// --- The stamp

struct Moment {
  const char* zone;
  timeval time;
  const char* shown;
};

TEST_F(MessageFile, StampIsLocalTimeWithMillisecondsCut) {
  const std::vector<Moment> moments = {
      {"UTC0", {0, 0}, "1970-01-01 00:00:00.000"},
      {"UTC-9", kNow, "2026-03-01 21:34:56.789"},
      {"XST3:30", kNow, "2026-03-01 09:04:56.789"},
      {"UTC0", {1772368496, 999}, "2026-03-01 12:34:56.000"},
      {"UTC0", {1772368496, 1000}, "2026-03-01 12:34:56.001"},
      {"UTC0", {1772368496, 999999}, "2026-03-01 12:34:56.999"},
      {"UTC+1", {1767225599, 5000}, "2025-12-31 22:59:59.005"},
      {"UTC-1", {1767225599, 5000}, "2026-01-01 00:59:59.005"},
      // The hour that summer time skips.
      {"CET-1CEST,M3.5.0,M10.5.0/3", {1774745999, 0}, "2026-03-29 01:59:59.000"},
      {"CET-1CEST,M3.5.0,M10.5.0/3", {1774746000, 0}, "2026-03-29 03:00:00.000"},
      {"UTC0", {2147483647, 0}, "2038-01-19 03:14:07.000"},
  };
  for (const Moment& moment : moments) {
    instead_of_now = &moment.time;
    setenv("TZ", moment.zone, 1);
    std::filesystem::remove(kPath);
    const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
    EXPECT_EQ(kelo_write_msg2file(kPath, "m"), 0);
    kelo_write_msg2file_ex(buffer.data(), kPath, "f", "m");
    std::string expected = "[";
    expected.append(moment.shown).append("]m\n[").append(moment.shown).append("]f: m\n");
    EXPECT_EQ(read_file(kPath), expected);
  }
}

TEST_F(MessageFile, StampIsThePresentTime) {
  instead_of_now = nullptr;
  const std::time_t before = std::time(nullptr);
  EXPECT_EQ(kelo_write_msg2file(kPath, ""), 0);
  const std::time_t after = std::time(nullptr);
  tm shown{};
  ASSERT_NE(strptime(read_file(kPath).c_str(), "[%Y-%m-%d %H:%M:%S", &shown), nullptr);
  const std::time_t stamped = timegm(&shown);
  EXPECT_LE(before - 1, stamped);
  EXPECT_LE(stamped, after);
}

// --- The shell

TEST_F(MessageFile, ShellInterpretsTheMessage) {
  setenv("NUMBER", "17", 1);
  const std::vector<std::pair<const char*, const char*>> messages = {
      {"n=$NUMBER", "n=17"},   {"$((1+2))", "3"}, {"`printf %s a`b", "ab"}, {"$(printf %s c)d", "cd"},
      {"a\"b  c\"d", "ab cd"}, {"it's", "it's"},  {"\\$NUMBER", "$NUMBER"}, {"a; b | c > d", "a; b | c > d"},
  };
  std::string expected;
  const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
  for (const auto& [message, shown] : messages) {
    EXPECT_EQ(kelo_write_msg2file(kPath, message), 0);
    kelo_write_msg2file_ex(buffer.data(), kPath, "f", "%s", message);
    EXPECT_EQ(read_file(kPath), stamp() + shown + "\n" + stamp() + "f: " + shown + "\n");
    EXPECT_STREQ(buffer.data(), message);
    std::filesystem::remove(kPath);
  }
}

TEST_F(MessageFile, ShellInterpretsThePath) {
  setenv("TARGET", kPath, 1);
  EXPECT_EQ(kelo_write_msg2file("$TARGET", "a"), 0);
  EXPECT_EQ(kelo_write_msg2file("/tmp/messages b", "a"), 0);
  EXPECT_EQ(kelo_write_msg2file("'/tmp/messages'; exit 3", "a"), 3 * 256);
  EXPECT_EQ(read_file(kPath), stamp() + "a\n" + stamp() + "a b\n" + stamp() + "a\n");
}

TEST_F(MessageFile, ResultIsThatOfTheCommand) {
  EXPECT_EQ(kelo_write_msg2file(kPath, "\"; exit 7; \""), 7 * 256);
  EXPECT_EQ(kelo_write_msg2file(kPath, "$(kill -9 $$)"), 9);
  // What the shell says of a file that it cannot open.
  std::filesystem::create_directory(kPath);
  constexpr std::string_view kSame = "echo \"x\" >> /tmp/messages";
  const int refused = kelo_system_call(kSame.data(), kSame.size());
  EXPECT_GT(refused, 255);
  EXPECT_EQ(kelo_write_msg2file(kPath, "text"), refused);
  EXPECT_EQ(kelo_write_msg2file("/nowhere/messages", "text"), refused);
  EXPECT_FALSE(std::filesystem::exists("/nowhere"));
}

TEST_F(MessageFile, ShellThatCannotBeStartedIsReported) {
  const Fault fault({.call = "system", .code = -1, .times = kelo::tests::kEveryTime});
  EXPECT_EQ(kelo_write_msg2file(kPath, "text"), -1);
  const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
  kelo_write_msg2file_ex(buffer.data(), kPath, "f", "text");
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_system_call", "system error!\n"), 2) << log.dump();
  EXPECT_EQ(fault.failed(), 2);
  EXPECT_FALSE(std::filesystem::exists(kPath));
}

// --- Bounds

TEST_F(MessageFile, CommandIsCutAt2047Characters) {
  const std::string path = "/tmp/messages";
  for (const std::size_t over : {0U, 1U, 2U}) {
    std::filesystem::remove(kPath);
    const std::string message(2011 - path.size() + over, 'm');
    const CallTrace trace;
    EXPECT_EQ(kelo_write_msg2file(path.c_str(), message.c_str()), 0);
    const std::string whole = std::string("echo \"").append(stamp()).append(message).append("\" >> " + path);
    EXPECT_EQ(command_of(trace), whole.substr(0, 2047));
    // The file of the shorter name is written.
    const std::string cut = path.substr(0, path.size() - over);
    EXPECT_EQ(read_file(cut), stamp() + message + "\n");
    std::filesystem::remove(cut);
  }
}

TEST_F(MessageFile, MessageThatLosesItsQuoteIsRefusedByTheShell) {
  for (const std::size_t length : {2047U - 31U, 2047U, 2048U, 5000U, 100000U}) {
    const CallTrace trace;
    const std::string message(length, 'm');
    EXPECT_GT(kelo_write_msg2file(kPath, message.c_str()), 255);
    EXPECT_EQ(command_of(trace), ("echo \"" + stamp() + message).substr(0, 2047));
  }
  EXPECT_FALSE(std::filesystem::exists(kPath));
}

// --- With a format

TEST_F(MessageFile, FormattedMessageCarriesTheFunction) {
  const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
  const CallTrace trace;
  kelo_write_msg2file_ex(buffer.data(), kPath, "kelo_dm_write", "%s %d%%", "battery", 5);
  EXPECT_STREQ(buffer.data(), "battery 5%");
  EXPECT_EQ(read_file(kPath), stamp() + "oem_dm_write: battery 5%\n");
  EXPECT_EQ(command_of(trace), "echo \"" + stamp() + "oem_dm_write: battery 5%\" >> /tmp/messages");
  // Nothing is written after the terminator.
  EXPECT_EQ(buffer.bytes().substr(11), std::string(KELO_LOG_BUFFER_SIZE - 11, ExactBuffer::kUntouched));
}

TEST_F(MessageFile, FunctionIsShownByItsOtherName) {
  const std::vector<std::pair<const char*, const char*>> names = {
      {"main", "main"},      {"kelo_a_kelo", "oem_a_oem"}, {"kelokelo", "oemoem"},
      {"kelkelo", "keloem"}, {"Kelo_kel", "Kelo_kel"},     {"", ""},
  };
  const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
  std::string expected;
  for (const auto& [name, shown] : names) {
    kelo_write_msg2file_ex(buffer.data(), kPath, name, "kelo");
    expected += stamp() + shown + ": kelo\n";
  }
  EXPECT_EQ(read_file(kPath), expected);
}

TEST_F(MessageFile, NullFunctionAppendsAnEmptyLine) {
  const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
  const CallTrace trace;
  kelo_write_msg2file_ex(buffer.data(), kPath, nullptr, "%d", 12);
  EXPECT_EQ(command_of(trace), "echo \"\" >> /tmp/messages");
  EXPECT_EQ(read_file(kPath), "\n");
  EXPECT_STREQ(buffer.data(), "12");
}

TEST_F(MessageFile, FormattedMessageIsCutAt4219Characters) {
  for (const std::size_t length : {4218U, 4219U, 4220U, 4221U, 20000U}) {
    const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
    const std::string message(length, 'm');
    const std::string kept = message.substr(0, 4219);
    std::filesystem::remove(kPath);
    kelo_write_msg2file_ex(buffer.data(), kPath, "f", "%s", message.c_str());
    EXPECT_EQ(buffer.data(), kept);
    EXPECT_EQ(read_file(kPath), stamp() + "f: " + kept + "\n");
    std::filesystem::remove(kPath);
    kelo_write_msg2file_ex(buffer.data(), kPath, "f", message.c_str(), 0);
    EXPECT_EQ(read_file(kPath), stamp() + "f: " + kept + "\n") << "as the format itself";
  }
}

TEST_F(MessageFile, LineIsCutAt8439Characters) {
  const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
  const std::string message(4000, 'm');
  const std::size_t rest = 8439 - stamp().size() - 2 - message.size();
  for (const std::size_t length : {rest, rest + 1, rest + 2, rest + 3000, rest + 100000}) {
    std::filesystem::remove(kPath);
    const std::string name(length, 'n');
    kelo_write_msg2file_ex(buffer.data(), kPath, name.c_str(), "%s", message.c_str());
    EXPECT_EQ(read_file(kPath), stamp().append(name).append(": " + message).substr(0, 8439) + "\n");
  }
}

TEST_F(MessageFile, FormattedCommandIsCutAt12659Characters) {
  const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
  const std::string name(10000, 'n');
  const std::string begin = "echo \"" + (stamp() + name).substr(0, 8439) + "\" >> ";
  for (const std::size_t over : {0U, 1U, 5U}) {
    // The blanks are the shell's to skip; what is cut is the end of the file's name.
    const std::string file = kPath;
    const std::string path = std::string(12659 - begin.size() - file.size() + over, ' ') + file;
    const CallTrace trace;
    kelo_write_msg2file_ex(buffer.data(), path.c_str(), name.c_str(), "m");
    EXPECT_EQ(command_of(trace), (begin + path).substr(0, 12659));
    const std::string cut = file.substr(0, file.size() - over);
    EXPECT_EQ(read_file(cut), (stamp() + name).substr(0, 8439) + "\n");
    std::filesystem::remove(cut);
  }
}

TEST_F(MessageFile, MessageThatCannotBeFormattedIsLeftOut) {
  const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
  constexpr std::array<wchar_t, 2> kNoCharacter = {static_cast<wchar_t>(0x7fffffff), L'\0'};
  kelo_write_msg2file_ex(buffer.data(), kPath, "f", "half%ls", kNoCharacter.data());
  EXPECT_STREQ(buffer.data(), "");
  EXPECT_EQ(read_file(kPath), stamp() + "f: \n");
}

TEST_F(MessageFile, WithoutMemoryNothingIsRun) {
  kelo_write_msg2file(kPath, "the C library takes what it keeps for the time zone");
  std::filesystem::remove(kPath);
  log.clear();
  const CallTrace trace;
  for (const int served : {0, 1}) {
    const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
    {
      const FailingHeap heap(served);
      kelo_write_msg2file_ex(buffer.data(), kPath, "f", "m%d", served);
    }
    EXPECT_EQ(buffer.data(), "m" + std::to_string(served));
  }
  EXPECT_TRUE(trace.calls().empty()) << trace.dump();
  EXPECT_TRUE(log.lines().empty()) << log.dump();
  EXPECT_FALSE(std::filesystem::exists(kPath));
}

TEST_F(MessageFile, LinesOfThreadsAreWhole) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int own = 0; own < 4; ++own)
    threads.emplace_back([own] {
      const ExactBuffer buffer(KELO_LOG_BUFFER_SIZE);
      for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(kelo_write_msg2file(kPath, "plain"), 0);
        kelo_write_msg2file_ex(buffer.data(), kPath, "f", "thread %d", own);
      }
    });
  for (std::thread& thread : threads) thread.join();
  std::string lines = read_file(kPath);
  int plain = 0;
  int formatted = 0;
  while (!lines.empty()) {
    const std::string line = lines.substr(0, lines.find('\n') + 1);
    lines.erase(0, line.size());
    if (line == stamp() + "plain\n") ++plain;
    if (line.starts_with(stamp() + "f: thread ") && line.size() == stamp().size() + 12) ++formatted;
  }
  EXPECT_EQ(plain, 40);
  EXPECT_EQ(formatted, 40);
}

}  // namespace
