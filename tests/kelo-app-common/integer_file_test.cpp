// SPDX-License-Identifier: MIT
// Files that hold one decimal integer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/file_faults.hpp"
#include "tests/support/log_capture.hpp"

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" int close(int fd) {
  static const auto real = kelo::tests::next_call("close", close);
  const bool fails = kelo::tests::Fault::meets("close");
  const int result = real(fd);
  if (fails) errno = EIO;
  return fails ? -1 : result;
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace {

using namespace std::string_literals;

using kelo::tests::claimed_write;
using kelo::tests::expect_lines;
using kelo::tests::Fault;
using kelo::tests::LogCapture;
using kelo::tests::open_descriptors;
using kelo::tests::read_file;
using kelo::tests::write_file;
using kelo::tests::Writes;

constexpr char kPath[] = "/tmp/switch";
constexpr char kGet[] = "oem_util_get_file_int_value";
constexpr char kSet[] = "oem_util_set_file_int_value";

class IntegerFile : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ(open_descriptors(), descriptors_before_);
    EXPECT_TRUE(log.lines().empty()) << log.dump();
  }

  // Expects this value of a file that holds `contents`, and its text in the log.
  void expect_value(const std::string& contents, std::int32_t value, const std::string& text) {
    write_file(kPath, contents);
    EXPECT_EQ(kelo_util_get_file_int_value(kPath), value) << contents;
    expect_lines(log, kGet, {{LOG_LVL_DBUG, "read content:" + text + "\n"}});
  }
  void expect_value(const std::string& contents, std::int32_t value) {
    expect_value(contents, value, contents);
  }

  void expect_absent(const char* path) {
    EXPECT_EQ(kelo_util_get_file_int_value(path), 0) << path;
    expect_lines(log, kGet, {{LOG_LVL_ERR, "Not exist file="s + path + "\n"}});
    EXPECT_EQ(kelo_util_set_file_int_value(path, 5), 7) << path;
    expect_lines(log, kSet, {{LOG_LVL_ERR, "Not exist file="s + path + "\n"}});
  }

  // Expects that the value -1234 is not written.
  void expect_not_written(const std::string& path, int written, int error) {
    EXPECT_EQ(kelo_util_set_file_int_value(path.c_str(), -1234), 7);
    expect_lines(log, kSet,
                 {{LOG_LVL_ERR, "fwrite() failed, only [" + std::to_string(written) +
                                    "] written, total_len=[5], reason=[" + std::strerror(error) + "]" +
                                    std::to_string(error)}});
  }

  LogCapture log;

 private:
  const std::set<std::string> descriptors_before_ = open_descriptors();
};

TEST_F(IntegerFile, IsReadToTheEndOfTheNumber) {
  expect_value("42\n", 42);
  expect_value("42", 42);
  expect_value("0\n", 0);
  expect_value("-5", -5);
  expect_value("+5", 5);
  expect_value(" \t\r\n\v\f 7 8\n", 7);
  expect_value("12abc", 12);
  expect_value("1.9", 1);
  expect_value("010", 10);
  expect_value("0x10", 0);
}

TEST_F(IntegerFile, IsZeroWithoutANumberAtItsStart) {
  for (const char* const contents : {"x", "on", "\n", "-", "+", "- 5", "--5", "+-5", ".5", "x5"})
    expect_value(contents, 0);
}

TEST_F(IntegerFile, IsZeroWithoutContents) {
  write_file(kPath, "");
  EXPECT_EQ(kelo_util_get_file_int_value(kPath), 0);
  EXPECT_EQ(kelo_util_get_file_int_value("/dev/null"), 0);
  EXPECT_EQ(kelo_util_get_file_int_value("/tmp"), 0) << "a directory";
}

TEST_F(IntegerFile, KeepsToTheRangeOf32Bits) {
  expect_value("2147483647", INT32_MAX);
  expect_value("2147483648", INT32_MAX);
  expect_value("4294967295", INT32_MAX);
  expect_value("4294967297", INT32_MAX);
  expect_value("-2147483648", INT32_MIN);
  expect_value("-2147483649", INT32_MIN);
  expect_value("-4294967297", INT32_MIN);
  expect_value("18446744073709551617", INT32_MAX);
  expect_value(std::string(200, '9'), INT32_MAX);
  expect_value("-" + std::string(200, '9'), INT32_MIN);
}

TEST_F(IntegerFile, EndsAtANulByte) {
  expect_value("1\0002"s, 1, "1");
  expect_value("\00012"s, 0, "");
  expect_value("12\0"s, 12, "12");
}

TEST_F(IntegerFile, IsReadUpTo256Bytes) {
  expect_value(std::string(253, ' ') + "123", 123);
  expect_value(std::string(254, ' ') + "123", 12, std::string(254, ' ') + "12");
  expect_value(std::string(255, ' ') + "123", 1, std::string(255, ' ') + "1");
  expect_value(std::string(256, ' ') + "123", 0, std::string(256, ' '));
  expect_value(std::string(257, ' ') + "123", 0, std::string(256, ' '));
  for (const std::size_t length : {255U, 256U, 257U, 100000U}) {
    expect_value(std::string(length, '1'), INT32_MAX, std::string(std::min<std::size_t>(length, 256), '1'));
    expect_value(std::string(length, '0'), 0, std::string(std::min<std::size_t>(length, 256), '0'));
  }
}

TEST_F(IntegerFile, IsReadInPieces) {
  ASSERT_EQ(mkfifo(kPath, 0600), 0);
  std::thread writer([] {
    const int fd = open(kPath, O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(write(fd, "1", 1), 1);
    // The reader asks for more before this is there, or after it: the result is the same.
    std::this_thread::yield();
    EXPECT_EQ(write(fd, "2", 1), 1);
    close(fd);
  });
  EXPECT_EQ(kelo_util_get_file_int_value(kPath), 12);
  writer.join();
  log.clear();
}

TEST_F(IntegerFile, IsReadAfterASignal) {
  write_file(kPath, "12");
  const Fault fault({.call = "read", .code = EINTR, .times = 2});
  EXPECT_EQ(kelo_util_get_file_int_value(kPath), 12);
  log.clear();
}

TEST_F(IntegerFile, IsZeroWhenTheReadFails) {
  write_file(kPath, "12");
  const Fault fault({"read", EIO});
  EXPECT_EQ(kelo_util_get_file_int_value(kPath), 0);
  EXPECT_EQ(fault.seen(), 1);
}

TEST_F(IntegerFile, KeepsWhatWasReadBeforeAFailure) {
  write_file(kPath, "12");
  const Fault fault({.call = "read", .code = EIO, .at = 2});
  EXPECT_EQ(kelo_util_get_file_int_value(kPath), 12);
  log.clear();
}

TEST_F(IntegerFile, RefusesANullPath) {
  EXPECT_EQ(kelo_util_get_file_int_value(nullptr), 0);
  expect_lines(log, kGet, {{LOG_LVL_ERR, "Not exist file\n"}});
  EXPECT_EQ(kelo_util_set_file_int_value(nullptr, 5), 7);
  expect_lines(log, kSet, {{LOG_LVL_ERR, "Not exist file\n"}});
}

TEST_F(IntegerFile, IsAbsentWhereItCannotBeOpened) {
  expect_absent("/tmp/none/switch");
  expect_absent("");
  write_file(kPath, "42");
  ASSERT_EQ(chmod(kPath, 0), 0);
  expect_absent(kPath);
  ASSERT_EQ(chmod(kPath, 0600), 0);
  EXPECT_EQ(read_file(kPath), "42");
  EXPECT_EQ(kelo_util_get_file_int_value("/tmp/none"), 0);
  expect_lines(log, kGet, {{LOG_LVL_ERR, "Not exist file=/tmp/none\n"}});
  EXPECT_FALSE(std::filesystem::exists("/tmp/none")) << "reading makes none";
  EXPECT_EQ(kelo_util_set_file_int_value("/tmp", 5), 7);
  expect_lines(log, kSet, {{LOG_LVL_ERR, "Not exist file=/tmp\n"}});
}

TEST_F(IntegerFile, HoldsNothingButTheNumber) {
  const std::pair<std::int32_t, std::string> cases[] = {
      {-5, "-5"}, {0, "0"}, {42, "42"}, {INT32_MAX, "2147483647"}, {INT32_MIN, "-2147483648"}};
  for (const auto& [value, text] : cases) {
    write_file(kPath, std::string(100, 'x'));
    EXPECT_EQ(kelo_util_set_file_int_value(kPath, value), 0);
    EXPECT_EQ(read_file(kPath), text);
    EXPECT_EQ(kelo_util_get_file_int_value(kPath), value);
    log.clear();
  }
}

TEST_F(IntegerFile, IsMadeByASet) {
  for (const mode_t mask : {0U, 022U}) {
    umask(mask);
    std::filesystem::remove(kPath);
    EXPECT_EQ(kelo_util_set_file_int_value(kPath, 1), 0);
    struct stat status {};
    ASSERT_EQ(stat(kPath, &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0666U & ~mask);
  }
  ASSERT_EQ(chmod(kPath, 0240), 0);
  EXPECT_EQ(kelo_util_set_file_int_value(kPath, 1), 0);
  struct stat status {};
  ASSERT_EQ(stat(kPath, &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0240U) << "and keeps the mode of one that is there";
}

TEST_F(IntegerFile, IsWrittenAtOnceAndForcedToTheStorage) {
  const Writes writes(SIZE_MAX);
  const Fault second({.call = "fsync", .code = EIO, .at = 2});
  EXPECT_EQ(kelo_util_set_file_int_value(kPath, -1234), 0);
  ASSERT_EQ(writes.calls().size(), 1U);
  EXPECT_EQ(writes.calls().front().asked, 5U);
  EXPECT_EQ(writes.calls().front().descriptor_flags, FD_CLOEXEC);
  EXPECT_EQ(second.seen(), 1);
}

TEST_F(IntegerFile, IsWrittenAfterShortWritesAndSignals) {
  const Writes writes(2);
  const Fault fault({.call = "write", .code = EINTR, .at = 2, .times = 3});
  EXPECT_EQ(kelo_util_set_file_int_value(kPath, -1234), 0);
  EXPECT_EQ(read_file(kPath), "-1234");
  EXPECT_EQ(writes.calls().size(), 6U);
}

TEST_F(IntegerFile, IsNotWrittenWhenAWriteFails) {
  {
    const Fault fault({"write", EIO});
    expect_not_written(kPath, 0, EIO);
    EXPECT_EQ(fault.seen(), 1);
  }
  EXPECT_EQ(read_file(kPath), "");
  {
    const Writes writes(2);
    const Fault fault({.call = "write", .code = ENOSPC, .at = 3});
    expect_not_written(kPath, 4, ENOSPC);
  }
  EXPECT_EQ(read_file(kPath), "-123");
  expect_not_written("/dev/full", 0, ENOSPC);
}

TEST_F(IntegerFile, IsNotForcedToTheStorageWhenAWriteFails) {
  claimed_write = 0;
  const Fault fault({"fsync", EIO});
  expect_not_written(kPath, 0, 0);
  EXPECT_EQ(fault.seen(), 0);
  claimed_write.reset();
}

TEST_F(IntegerFile, IsNotWrittenWhereNothingIsTaken) {
  claimed_write = 0;
  expect_not_written(kPath, 0, 0);
  claimed_write = 100;  // a driver may claim to have taken more than there was
  EXPECT_EQ(kelo_util_set_file_int_value(kPath, 5), 0);
  claimed_write.reset();
}

TEST_F(IntegerFile, IsNotWrittenWhenItCannotBeForcedToTheStorage) {
  for (const int error : {EIO, ENOSPC, EDQUOT, EROFS, EBADF}) {
    const Fault fault({"fsync", error});
    expect_not_written(kPath, 5, error);
    EXPECT_EQ(fault.seen(), 1);
  }
}

TEST_F(IntegerFile, IsForcedToTheStorageAfterASignal) {
  const Fault fault({.call = "fsync", .code = EINTR, .times = 2});
  EXPECT_EQ(kelo_util_set_file_int_value(kPath, 5), 0);
  EXPECT_EQ(fault.seen(), 3);
}

TEST_F(IntegerFile, NeedsNoStorage) {
  for (const int error : {EINVAL, ENOTSUP}) {
    const Fault fault({"fsync", error});
    EXPECT_EQ(kelo_util_set_file_int_value(kPath, 5), 0);
    EXPECT_EQ(fault.seen(), 1);
  }
}

TEST_F(IntegerFile, IsNotWrittenWhenTheClosingFails) {
  const Fault fault({"close", EIO});
  expect_not_written(kPath, 5, EIO);
}

TEST_F(IntegerFile, IsAlsoAPipeAndADevice) {
  EXPECT_EQ(kelo_util_set_file_int_value("/dev/null", 5), 0);
  ASSERT_EQ(mkfifo(kPath, 0600), 0);
  const int reader = open(kPath, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  EXPECT_EQ(kelo_util_set_file_int_value(kPath, 512), 0);
  std::string text(8, '.');
  EXPECT_EQ(read(reader, text.data(), text.size()), 3);
  EXPECT_EQ(text, "512.....");
  close(reader);
}

TEST_F(IntegerFile, IsAlsoASwitchOfTheKernel) {
  constexpr char kSwitch[] = "/proc/self/oom_score_adj";
  const std::int32_t before = kelo_util_get_file_int_value(kSwitch);
  EXPECT_EQ(std::to_string(before) + "\n", read_file(kSwitch));
  EXPECT_EQ(kelo_util_set_file_int_value(kSwitch, 555), 0);
  EXPECT_EQ(kelo_util_get_file_int_value(kSwitch), 555);
  log.clear();
  expect_not_written("/proc/self/oom_score_adj", 0, EINVAL);
}

}  // namespace
