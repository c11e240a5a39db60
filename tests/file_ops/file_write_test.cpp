// SPDX-License-Identifier: MIT
// Small files written in one call.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/file_ops.h"
#include "kelo_utils/log.h"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/file_faults.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::claimed_write;
using kelo::tests::expect_lines;
using kelo::tests::Fault;
using kelo::tests::LogCapture;
using kelo::tests::ManyDescriptors;
using kelo::tests::open_descriptors;
using kelo::tests::read_file;
using kelo::tests::run_in_child;
using kelo::tests::write_file;
using kelo::tests::Writes;

constexpr char kPath[] = "/tmp/state";

struct Operation {
  int (*write)(const char* path, const void* data, std::size_t length);
  std::string name;
  std::string logged_name;
  int sync;
  bool creates;
};

std::ostream& operator<<(std::ostream& out, const Operation& operation) { return out << operation.name; }

class FileWrite : public testing::TestWithParam<Operation> {
 protected:
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_before_); }

  static int put(const std::string& path, const std::string& text) {
    // A copy of exactly that size, so that a read beyond it is seen.
    const std::vector<char> bytes(text.begin(), text.end());
    return GetParam().write(path.c_str(), text.empty() ? "x" : bytes.data(), bytes.size());
  }

  void expect_line(const std::string& message) {
    expect_lines(log, GetParam().logged_name, {{LOG_LVL_ERR, message}});
  }

  LogCapture log;

 private:
  const std::set<std::string> descriptors_before_ = open_descriptors();
};

const std::string& pattern() {
  static const std::string bytes = [] {
    std::string made;
    for (int i = 0; made.size() < 300000; ++i) made += std::to_string(i) + (i % 7 == 0 ? '\0' : '\n');
    return made;
  }();
  return bytes;
}

TEST_P(FileWrite, WritesOverTheStartOfTheFile) {
  const struct {
    std::string before;
    std::string text;
    std::string after;
  } cases[] = {{"100", "1", "100"},        {"100", "2", "200"},
               {"100", "23", "230"},       {"100", "234", "234"},
               {"100", "2345", "2345"},    {"", "x", "x"},
               {"100", "", "100"},         {"", "", ""},
               {"100\n", "7\n", "7\n0\n"}, {"abc", std::string(2, '\0'), std::string("\0\0c", 3)}};
  for (const auto& [before, text, after] : cases) {
    write_file(kPath, before);
    EXPECT_EQ(put(kPath, text), 0) << before << " " << text;
    EXPECT_EQ(read_file(kPath), after) << before << " " << text;
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_P(FileWrite, WritesALargeFileAtOnce) {
  write_file(kPath, "");
  const Writes writes(SIZE_MAX);
  EXPECT_EQ(put(kPath, pattern()), 0);
  EXPECT_EQ(writes.calls().size(), 1U);
  EXPECT_EQ(read_file(kPath), pattern());
}

TEST_P(FileWrite, KeepsTheModeOfAFileThatIsThere) {
  write_file(kPath, "100");
  ASSERT_EQ(chmod(kPath, 0240), 0);
  umask(0);
  EXPECT_EQ(put(kPath, "1"), 0);
  struct stat status {};
  ASSERT_EQ(stat(kPath, &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0240U) << "written with write permission alone";
}

TEST_P(FileWrite, MakesAFileOrRefusesTo) {
  for (const mode_t mask : {0U, 022U, 0777U}) {
    umask(mask);
    const int result = put("/tmp/new", "text");
    if (!GetParam().creates) {
      EXPECT_EQ(result, 4);
      expect_line("open /tmp/new failed.\n");
      EXPECT_FALSE(std::filesystem::exists("/tmp/new"));
      continue;
    }
    EXPECT_EQ(result, 0);
    struct stat status {};
    ASSERT_EQ(stat("/tmp/new", &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0777U & ~mask);
    EXPECT_EQ(status.st_size, 4);
    ASSERT_EQ(chmod("/tmp/new", 0600), 0);
    EXPECT_EQ(read_file("/tmp/new"), "text");
    ASSERT_TRUE(std::filesystem::remove("/tmp/new"));
  }
}

TEST_P(FileWrite, MakesAnEmptyFileOutOfNothing) {
  EXPECT_EQ(put("/tmp/new", ""), GetParam().creates ? 0 : 4);
  EXPECT_EQ(std::filesystem::exists("/tmp/new"), GetParam().creates);
}

TEST_P(FileWrite, SynchronisesWhereItSaysSo) {
  write_file(kPath, "100");
  const Writes writes(SIZE_MAX);
  EXPECT_EQ(put(kPath, "1"), 0);
  ASSERT_EQ(writes.calls().size(), 1U);
  const auto [asked, status_flags, descriptor_flags] = writes.calls().front();
  EXPECT_EQ(status_flags & O_ACCMODE, O_WRONLY);
  EXPECT_EQ(status_flags & O_SYNC, GetParam().sync) << "O_SYNC holds the bit of O_DSYNC and one of its own";
  EXPECT_EQ(status_flags & (O_APPEND | O_NONBLOCK), 0);
  EXPECT_EQ(descriptor_flags, FD_CLOEXEC);
}

TEST_P(FileWrite, RefusesNullPointers) {
  write_file(kPath, "100");
  const std::string message = GetParam().name + " param NULL\n";
  EXPECT_EQ(GetParam().write(nullptr, "1", 1), 4);
  expect_line(message);
  for (const std::size_t length : {0U, 1U}) {
    EXPECT_EQ(GetParam().write(kPath, nullptr, length), 7);
    expect_line(message);
    EXPECT_EQ(GetParam().write("/tmp/new", nullptr, length), 7);
    expect_line(message);
  }
  EXPECT_EQ(GetParam().write(nullptr, nullptr, 1), 4);
  expect_line(message);
  EXPECT_EQ(read_file(kPath), "100");
  EXPECT_FALSE(std::filesystem::exists("/tmp/new"));
}

TEST_P(FileWrite, FailsWhereNoFileCanBe) {
  const std::string long_name = "/tmp/" + std::string(NAME_MAX + 1, 'n');
  for (const std::string& path :
       {std::string("/tmp/none/state"), std::string(), std::string("/tmp"), long_name}) {
    EXPECT_EQ(put(path, "1"), 4) << path;
    expect_line("open " + path + " failed.\n");
  }
}

TEST_P(FileWrite, FailsWithAPathThatIsTooLong) {
  const std::string path = "/tmp" + std::string(PATH_MAX, '/') + "state";
  write_file(kPath, "100");
  EXPECT_EQ(put(path, "2"), 4);
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "open /tmp///"), 1);
  EXPECT_EQ(read_file(kPath), "100");
}

TEST_P(FileWrite, FailsWithoutThePermission) {
  write_file(kPath, "100");
  ASSERT_EQ(chmod(kPath, 0444), 0);
  EXPECT_EQ(put(kPath, "2"), 4);
  expect_line("open /tmp/state failed.\n");
  EXPECT_EQ(read_file(kPath), "100");
}

TEST_P(FileWrite, FailsWithoutDescriptors) {
  write_file(kPath, "100");
  kelo::tests::limit_descriptors(64);
  {
    const ManyDescriptors many(64, 0);
    EXPECT_EQ(put(kPath, "2"), 4);
  }
  expect_line("open /tmp/state failed.\n");
  EXPECT_EQ(read_file(kPath), "100");
}

TEST_P(FileWrite, FailsWithADeviceThatIsFull) {
  EXPECT_EQ(put("/dev/full", "1"), 7);
  expect_line("write /dev/full failed.\n");
  EXPECT_EQ(put("/dev/full", ""), 0) << "nothing to write";
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_P(FileWrite, FailsWhenALaterWriteDoes) {
  write_file(kPath, "abcdef");
  const Fault fault({.call = "write", .code = EIO, .at = 2});
  const Writes writes(2);
  EXPECT_EQ(put(kPath, "12345"), 7);
  expect_line("write /tmp/state failed.\n");
  EXPECT_EQ(fault.seen(), 2) << "a failed write is not repeated";
  EXPECT_EQ(read_file(kPath), "12cdef");
}

TEST_P(FileWrite, FailsWithAFileThatMayNotGrow) {
  const auto result = run_in_child([this] {
    write_file(kPath, "ab");
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {5, 5};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(put(kPath, "12345"), 0);
    EXPECT_EQ(put(kPath, "abcdefg"), 7);
    expect_line("write /tmp/state failed.\n");
    EXPECT_EQ(read_file(kPath), "abcde");
  });
  EXPECT_EQ(result.exit_status, 0) << result.standard_output << result.standard_error;
}

TEST_P(FileWrite, GoesOnAfterAShortWrite) {
  for (std::size_t most = 1; most <= 6; ++most) {
    write_file(kPath, "abcdefgh");
    const Writes writes(most);
    EXPECT_EQ(put(kPath, "12345"), 0);
    EXPECT_EQ(read_file(kPath), "12345fgh") << most;
    ASSERT_EQ(writes.calls().size(), (5 + most - 1) / most);
    for (std::size_t i = 0; i < writes.calls().size(); ++i)
      EXPECT_EQ(writes.calls()[i].asked, 5 - i * most) << "asks for all that is left";
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_P(FileWrite, GoesOnAfterASignal) {
  write_file(kPath, "abcdefgh");
  {
    const Writes writes(2);
    const Fault fault({.call = "write", .code = EINTR, .at = 2, .times = 3});
    EXPECT_EQ(put(kPath, "12345"), 0);
    EXPECT_EQ(fault.seen(), 6);
  }
  const Fault fault({.call = "open", .code = EINTR, .times = 3});
  EXPECT_EQ(put(kPath, "123456"), 0);
  EXPECT_EQ(fault.seen(), 4);
  EXPECT_EQ(read_file(kPath), "123456gh");
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_P(FileWrite, GivesUpADeviceThatTakesNothing) {
  write_file(kPath, "100");
  const Fault writes({.call = "write", .at = kelo::tests::kNever});
  claimed_write = 0;
  EXPECT_EQ(put(kPath, "1"), 7);
  EXPECT_EQ(put(kPath, ""), 0);
  claimed_write.reset();
  expect_line("write /tmp/state failed.\n");
  EXPECT_EQ(writes.seen(), 1) << "nothing to write is no write";
}

TEST_P(FileWrite, TrustsNoCountBeyondTheData) {
  write_file(kPath, "100");
  const Fault writes({.call = "write", .at = kelo::tests::kNever});
  claimed_write = 3;
  EXPECT_EQ(put(kPath, "12"), 0);
  claimed_write.reset();
  EXPECT_EQ(writes.seen(), 1);
}

// A reader that interrupts the writer before each of its small steps: writes end early, or not begun.
void read_slowly(int fd, pthread_t writer, std::string& taken) {
  std::array<char, 4096> room;
  for (;;) {
    pthread_kill(writer, SIGUSR1);
    std::this_thread::yield();
    const ssize_t count = ::read(fd, room.data(), room.size());
    if (count <= 0) return;
    taken.append(room.data(), static_cast<std::size_t>(count));
  }
}

void catch_signals() {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
}

TEST_P(FileWrite, FillsAFifoWithASlowReaderThroughSignals) {
  catch_signals();
  ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
  std::string taken;
  const pthread_t writer = pthread_self();
  std::thread reader([&] {
    pthread_kill(writer, SIGUSR1);
    const int fd = open("/tmp/fifo", O_RDONLY);
    read_slowly(fd, writer, taken);
    close(fd);
  });
  const Writes writes(SIZE_MAX);
  EXPECT_EQ(put("/tmp/fifo", pattern()), 0);
  reader.join();
  EXPECT_TRUE(taken == pattern()) << taken.size() << " of " << pattern().size();
  EXPECT_GT(writes.calls().size(), 1U) << "no write was cut short";
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_P(FileWrite, FillsAPipeWithASlowReaderThroughSignals) {
  catch_signals();
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  std::string taken;
  const pthread_t writer = pthread_self();
  std::thread reader([&] { read_slowly(ends[0], writer, taken); });
  const Writes writes(SIZE_MAX);
  EXPECT_EQ(put("/dev/fd/" + std::to_string(ends[1]), pattern()), 0);
  close(ends[1]);
  reader.join();
  close(ends[0]);
  EXPECT_TRUE(taken == pattern()) << taken.size() << " of " << pattern().size();
  EXPECT_GT(writes.calls().size(), 1U) << "no write was cut short";
}

// Where a SIGPIPE would end the process, as it does unless something is done about it.
TEST_P(FileWrite, FailsWhenTheReaderLeaves) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  std::thread reader([&] {
    std::array<char, 100> room;
    EXPECT_EQ(::read(ends[0], room.data(), room.size()), 100);
    close(ends[0]);
  });
  const std::string path = "/dev/fd/" + std::to_string(ends[1]);
  EXPECT_EQ(put(path, pattern()), 7);
  reader.join();
  close(ends[1]);
  expect_line("write " + path + " failed.\n");
}

// Writes to a pipe whose reader has left.
void write_to_nobody(const Operation& operation) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  close(ends[0]);
  EXPECT_EQ(operation.write(("/dev/fd/" + std::to_string(ends[1])).c_str(), "text", 4), 7);
  close(ends[1]);
}

bool is_pending(int signal) {
  sigset_t pending{};
  sigpending(&pending);
  return sigismember(&pending, signal) == 1;
}

TEST_P(FileWrite, LeavesTheSignalsOfTheThreadAsTheyWere) {
  sigset_t set{};
  sigset_t before{};
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);

  write_to_nobody(GetParam());
  pthread_sigmask(SIG_BLOCK, &set, &before);
  EXPECT_EQ(sigismember(&before, SIGPIPE), 0);

  write_to_nobody(GetParam());
  EXPECT_FALSE(is_pending(SIGPIPE)) << "one that the caller would wait for was raised";

  pthread_kill(pthread_self(), SIGPIPE);
  write_to_nobody(GetParam());
  EXPECT_TRUE(is_pending(SIGPIPE)) << "the caller's own was taken";

  const timespec now{};
  EXPECT_EQ(sigtimedwait(&set, nullptr, &now), SIGPIPE);
  EXPECT_FALSE(is_pending(SIGPIPE));
}

TEST_P(FileWrite, RefusesThePlaceOfAStandardInput) {
  const auto result = run_in_child([this] {
    write_file(kPath, "100");
    close(STDIN_FILENO);
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(put(kPath, "2"), 4);
      expect_line("open /tmp/state failed.\n");
      EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "the descriptor is left open";
    }
    EXPECT_EQ(read_file(kPath), "100");
  });
  EXPECT_EQ(result.exit_status, 0) << result.standard_output << result.standard_error;
}

TEST_P(FileWrite, SetsAFileOfTheKernel) {
  EXPECT_EQ(put("/proc/self/comm", "renamed"), 0);
  EXPECT_EQ(read_file("/proc/self/comm"), "renamed\n");
}

INSTANTIATE_TEST_SUITE_P(All, FileWrite,
                         testing::Values(Operation{kelo_write_file, "kelo_write_file", "oem_write_file", 0,
                                                   false},
                                         Operation{kelo_write_file_sync, "kelo_write_file_sync",
                                                   "oem_write_file_sync", O_DSYNC, false},
                                         Operation{kelo_write_file_sync_create, "kelo_write_file_sync_create",
                                                   "oem_write_file_sync_create", O_DSYNC, true}),
                         [](const testing::TestParamInfo<Operation>& each) { return each.param.name; });

}  // namespace
