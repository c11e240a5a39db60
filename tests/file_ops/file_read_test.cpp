// SPDX-License-Identifier: MIT
// Small files read in one call.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/file_ops.h"
#include "kelo_utils/log.h"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/file_faults.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using namespace std::string_literals;
using kelo::tests::claimed_read;
using kelo::tests::ExactBuffer;
using kelo::tests::expect_lines;
using kelo::tests::Fault;
using kelo::tests::LogCapture;
using kelo::tests::ManyDescriptors;
using kelo::tests::open_descriptors;
using kelo::tests::run_in_child;
using kelo::tests::write_file;

constexpr char kPlain[] = "oem_read_file";
constexpr char kCounted[] = "oem_read_file_with_reading_length_returned";
constexpr char kPath[] = "/tmp/state";

std::string untouched(std::size_t count) { return std::string(count, ExactBuffer::kUntouched); }

// Bytes of a file, and what a buffer of `size` holds after it was read.
struct Reading {
  std::string file;
  std::size_t size;
  std::string buffer;
  int kept;
};

const std::vector<Reading>& readings() {
  static const std::vector<Reading> all = {
      {"up\n", 16, "up\0"s + untouched(13), 2},
      {"up", 16, "up" + untouched(14), 2},
      {"up\n", 2, "up", 2},
      {"up\n", 3, "up\0"s, 2},
      {"up\n", 4, "up\0"s + untouched(1), 2},
      {"up\n", 1, "u", 1},
      {"\n", 1, "\0"s, 0},
      {"\n", 2, "\0"s + untouched(1), 0},
      {"a\n\n", 3, "a\n\0"s, 2},
      {"a\nb", 3, "a\nb", 3},
      {"a\nb", 2, "a\0"s, 1},
      {"\nab", 3, "\nab", 3},
      {"a\0\n"s, 4, "a\0\0"s + untouched(1), 2},
      {"\xFF\xFE\r\n", 4, "\xFF\xFE\r\0"s, 3},
      {"", 1, untouched(1), 0},
      {"", 16, untouched(16), 0},
      {"", 0, "", 0},
      {"up\n", 0, "", 0},
      {std::string(70000, 'x') + "\n", 70001, std::string(70000, 'x') + '\0', 70000},
      {std::string(70000, 'x') + "\n", 70000, std::string(70000, 'x'), 70000},
  };
  return all;
}

class FileRead : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_before_); }

  // A failure of either function leaves the buffer alone and says so once.
  void expect_failures(const char* path, int result, const std::string& message) {
    const ExactBuffer buffer(16);
    EXPECT_EQ(kelo_read_file(path, buffer.data(), 16), result) << path;
    expect_lines(log, kPlain, {{LOG_LVL_ERR, message}});
    EXPECT_EQ(kelo_read_file_with_reading_length_returned(path, buffer.data(), 16), -1) << path;
    expect_lines(log, kCounted, {{LOG_LVL_ERR, message}});
    EXPECT_TRUE(buffer.untouched()) << path;
  }

  LogCapture log;

 private:
  const std::set<std::string> descriptors_before_ = open_descriptors();
};

TEST_F(FileRead, GivesWhatTheFileHolds) {
  for (const auto& [file, size, expected, kept] : readings()) {
    write_file(kPath, file);
    const ExactBuffer buffer(size);
    EXPECT_EQ(kelo_read_file(kPath, buffer.data(), size), 0) << file << " " << size;
    EXPECT_EQ(buffer.bytes(), expected) << file << " " << size;
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(FileRead, GivesTheSameWithItsLength) {
  for (const auto& [file, size, expected, kept] : readings()) {
    write_file(kPath, file);
    const ExactBuffer buffer(size);
    EXPECT_EQ(
        kelo_read_file_with_reading_length_returned(kPath, buffer.data(), static_cast<std::int32_t>(size)),
        kept)
        << file << " " << size;
    EXPECT_EQ(buffer.bytes(), expected) << file << " " << size;
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(FileRead, LeavesTheByteInFrontOfTheBufferAlone) {
  write_file(kPath, "");
  std::string bytes = "\n\n";
  EXPECT_EQ(kelo_read_file(kPath, bytes.data() + 1, 1), 0);
  EXPECT_EQ(kelo_read_file_with_reading_length_returned(kPath, bytes.data() + 1, 1), 0);
  EXPECT_EQ(kelo_read_file(kPath, bytes.data() + 1, 0), 0);
  EXPECT_EQ(kelo_read_file_with_reading_length_returned(kPath, bytes.data() + 1, 0), 0);
  EXPECT_EQ(bytes, "\n\n");
}

TEST_F(FileRead, RefusesNullPointers) {
  write_file(kPath, "up\n");
  const ExactBuffer buffer(16);
  EXPECT_EQ(kelo_read_file(nullptr, buffer.data(), 16), 4);
  expect_lines(log, kPlain, {{LOG_LVL_ERR, "kelo_read_file param NULL\n"}});
  EXPECT_EQ(kelo_read_file(kPath, nullptr, 16), 6);
  expect_lines(log, kPlain, {{LOG_LVL_ERR, "kelo_read_file param NULL\n"}});
  EXPECT_EQ(kelo_read_file_with_reading_length_returned(nullptr, buffer.data(), 16), -1);
  expect_lines(log, kCounted, {{LOG_LVL_ERR, "kelo_read_file_with_reading_length_returned param NULL\n"}});
  EXPECT_EQ(kelo_read_file_with_reading_length_returned(kPath, nullptr, 16), -1);
  expect_lines(log, kCounted, {{LOG_LVL_ERR, "kelo_read_file_with_reading_length_returned param NULL\n"}});
  EXPECT_TRUE(buffer.untouched());
}

TEST_F(FileRead, FailsWithoutTheFile) {
  expect_failures("/tmp/none", 4, "open /tmp/none failed.\n");
  expect_failures("", 4, "open  failed.\n");
  const std::string long_name = "/tmp/" + std::string(NAME_MAX + 1, 'n');
  expect_failures(long_name.c_str(), 4, "open " + long_name + " failed.\n");
  EXPECT_NE(access("/tmp/none", F_OK), 0) << "reading made the file";
}

TEST_F(FileRead, FailsWithAPathThatIsTooLong) {
  const std::string path = "/tmp" + std::string(PATH_MAX, '/') + "state";
  write_file(kPath, "up\n");
  const ExactBuffer buffer(16);
  EXPECT_EQ(kelo_read_file(path.c_str(), buffer.data(), 16), 4);
  EXPECT_EQ(kelo_read_file_with_reading_length_returned(path.c_str(), buffer.data(), 16), -1);
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "open /tmp///"), 2);
  EXPECT_TRUE(buffer.untouched());
}

TEST_F(FileRead, FailsWithoutThePermission) {
  write_file(kPath, "up\n");
  ASSERT_EQ(chmod(kPath, 0), 0);
  expect_failures(kPath, 4, "open /tmp/state failed.\n");
}

TEST_F(FileRead, NeedsNoPermissionToWrite) {
  write_file(kPath, "up\n");
  ASSERT_EQ(chmod(kPath, 0400), 0);
  const ExactBuffer buffer(3);
  EXPECT_EQ(kelo_read_file(kPath, buffer.data(), 3), 0);
  EXPECT_EQ(kelo_read_file_with_reading_length_returned(kPath, buffer.data(), 3), 2);
  EXPECT_EQ(buffer.bytes(), "up\0"s);
}

TEST_F(FileRead, FailsWithADirectory) { expect_failures("/tmp", 6, "read /tmp failed.\n"); }

TEST_F(FileRead, FailsWithoutDescriptors) {
  write_file(kPath, "up\n");
  kelo::tests::limit_descriptors(64);
  const ManyDescriptors many(64, 0);
  expect_failures(kPath, 4, "open /tmp/state failed.\n");
}

// Logging reads as well, so that each call has a fault of its own.
TEST_F(FileRead, FailsWhenTheReadDoes) {
  write_file(kPath, "up\n");
  const ExactBuffer buffer(16);
  {
    const Fault fault({"read", EIO});
    EXPECT_EQ(kelo_read_file(kPath, buffer.data(), 16), 6);
  }
  expect_lines(log, kPlain, {{LOG_LVL_ERR, "read /tmp/state failed.\n"}});
  {
    const Fault fault({"read", EIO});
    EXPECT_EQ(kelo_read_file_with_reading_length_returned(kPath, buffer.data(), 16), -1);
  }
  expect_lines(log, kCounted, {{LOG_LVL_ERR, "read /tmp/state failed.\n"}});
  EXPECT_TRUE(buffer.untouched());
}

TEST_F(FileRead, ReadsOnce) {
  write_file(kPath, "up\n");
  const Fault reads({.call = "read", .at = kelo::tests::kNever});
  const ExactBuffer buffer(16);
  EXPECT_EQ(kelo_read_file(kPath, buffer.data(), 16), 0);
  EXPECT_EQ(reads.seen(), 1);
  EXPECT_EQ(kelo_read_file_with_reading_length_returned(kPath, buffer.data(), 16), 2);
  EXPECT_EQ(reads.seen(), 2);
}

TEST_F(FileRead, GoesOnAfterASignal) {
  write_file(kPath, "up\n");
  for (const char* const call : {"open", "read"}) {
    const ExactBuffer buffer(16);
    const Fault plain({.call = call, .code = EINTR, .times = 3});
    EXPECT_EQ(kelo_read_file(kPath, buffer.data(), 16), 0) << call;
    EXPECT_EQ(plain.seen(), 4) << call;
    const Fault counted({.call = call, .code = EINTR, .times = 3});
    EXPECT_EQ(kelo_read_file_with_reading_length_returned(kPath, buffer.data(), 16), 2) << call;
    EXPECT_EQ(counted.seen(), 4) << call;
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(FileRead, RefusesANegativeSize) {
  write_file(kPath, "up\n");
  const ExactBuffer buffer(16);
  for (const std::int32_t size : {-1, INT32_MIN}) {
    claimed_read = 0;  // and not the -1 of the system for such a size
    EXPECT_EQ(kelo_read_file_with_reading_length_returned(kPath, buffer.data(), size), -1);
    claimed_read.reset();
    expect_lines(log, kCounted, {{LOG_LVL_ERR, "read /tmp/state failed.\n"}});
  }
  EXPECT_TRUE(buffer.untouched());
}

// No file of the kernel's own does that, but a driver can.
TEST_F(FileRead, TrustsNoCountBeyondTheBuffer) {
  write_file(kPath, "up\n");
  std::string bytes = "\n\n\n\n";
  claimed_read = 3;
  EXPECT_EQ(kelo_read_file(kPath, bytes.data(), 2), 0);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
  EXPECT_EQ(kelo_read_file_with_reading_length_returned(kPath, bytes.data(), 2), 3);
  claimed_read.reset();
  expect_lines(log, kCounted, {{LOG_LVL_ERR, "read /tmp/state failed.\n"}});
  EXPECT_EQ(bytes, "\n\n\n\n");
}

TEST_F(FileRead, GivesTheResultOfAReadThatFails) {
  write_file(kPath, "up\n");
  const ExactBuffer buffer(16);
  claimed_read = -2;
  EXPECT_EQ(kelo_read_file_with_reading_length_returned(kPath, buffer.data(), 16), -2);
  expect_lines(log, kCounted, {{LOG_LVL_ERR, "read /tmp/state failed.\n"}});
  EXPECT_EQ(kelo_read_file(kPath, buffer.data(), 16), 6);
  expect_lines(log, kPlain, {{LOG_LVL_ERR, "read /tmp/state failed.\n"}});
  claimed_read.reset();
  EXPECT_TRUE(buffer.untouched());
}

TEST_F(FileRead, TakesFromAFifoWhatIsThere) {
  ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
  std::thread writer([] { write_file("/tmp/fifo", "half\n"); });
  const ExactBuffer buffer(16);
  EXPECT_EQ(kelo_read_file_with_reading_length_returned("/tmp/fifo", buffer.data(), 16), 4);
  writer.join();
  EXPECT_EQ(buffer.bytes(), "half\0"s + untouched(11));
}

TEST_F(FileRead, WaitsOnThroughRealSignals) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
  const pthread_t reader = pthread_self();
  std::thread writer([reader] {
    pthread_kill(reader, SIGUSR1);
    const int fd = open("/tmp/fifo", O_WRONLY);
    for (int i = 0; i < 100; ++i) {
      pthread_kill(reader, SIGUSR1);
      std::this_thread::yield();
    }
    EXPECT_EQ(write(fd, "late\n", 5), 5);
    close(fd);
  });
  const ExactBuffer buffer(5);
  EXPECT_EQ(kelo_read_file("/tmp/fifo", buffer.data(), 5), 0);
  writer.join();
  EXPECT_EQ(buffer.bytes(), "late\0"s);
}

TEST_F(FileRead, ReadsFilesOfTheKernel) {
  if (kelo::tests::kEmulated) GTEST_SKIP() << kelo::tests::kNamedAsTheEmulator;
  ExactBuffer buffer(16);
  const int kept = kelo_read_file_with_reading_length_returned("/proc/self/comm", buffer.data(), 16);
  EXPECT_EQ(buffer.bytes().substr(0, static_cast<std::size_t>(kept)), "file_read_test");
  EXPECT_EQ(buffer.bytes().at(static_cast<std::size_t>(kept)), '\0');
}

TEST_F(FileRead, RefusesThePlaceOfAStandardInput) {
  write_file(kPath, "up\n");
  const auto result = run_in_child([this] {
    close(STDIN_FILENO);
    for (int i = 0; i < 2; ++i) {
      expect_failures(kPath, 4, "open /tmp/state failed.\n");
      EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "the descriptor is left open";
    }
  });
  EXPECT_EQ(result.exit_status, 0) << result.standard_output << result.standard_error;
}

TEST_F(FileRead, ServesSeveralThreadsAtOnce) {
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int id = 0; id < 4; ++id) {
    threads.emplace_back([id] {
      const std::string path = "/tmp/state" + std::to_string(id);
      write_file(path, std::string(static_cast<std::size_t>(id) + 1, 'x') + "\n");
      for (int i = 0; i < 200; ++i) {
        const ExactBuffer buffer(8);
        EXPECT_EQ(kelo_read_file_with_reading_length_returned(path.c_str(), buffer.data(), 8), id + 1);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
