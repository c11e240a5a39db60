// SPDX-License-Identifier: MIT
// Requests to device nodes. The system has no device of ours: a stand-in answers in the place of ioctl().
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "kelo_utils/file_ops.h"
#include "kelo_utils/log.h"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/fault.hpp"
#include "tests/support/ioctl_request.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::ExactBuffer;
using kelo::tests::expect_lines;
using kelo::tests::LogCapture;
using kelo::tests::ManyDescriptors;
using kelo::tests::open_descriptors;
using kelo::tests::run_in_child;
using kelo::tests::write_file;

constexpr char kTimeCodeNode[] = "/dev/kelo_irig_b_config";
constexpr char kRequestCall[] = "oem_ioctl_file";
constexpr char kTimeCodeCall[] = "oem_irig_b_ioctl";

// Answers every request with its result and keeps what it was asked, while it lives. One at a time.
class Driver {
 public:
  explicit Driver(int result = 0, std::size_t record = 0) : result_(result), record_(record) {
    current = this;
  }
  ~Driver() { current = nullptr; }
  Driver(const Driver&) = delete;
  Driver& operator=(const Driver&) = delete;

  struct Request {
    int fd;
    std::string path;
    int status_flags;
    int descriptor_flags;
    unsigned long number;
    const void* argument;
    std::string record;  // as many bytes of the argument as the driver takes
  };
  [[nodiscard]] const std::vector<Request>& requests() const { return requests_; }

  static std::optional<int> serve(int fd, unsigned long number, void* argument) {
    Driver* const driver = current;
    if (driver == nullptr) return std::nullopt;
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    driver->requests_.push_back({fd, std::filesystem::read_symlink(link), fcntl(fd, F_GETFL),
                                 fcntl(fd, F_GETFD), number, argument,
                                 std::string(static_cast<const char*>(argument), driver->record_)});
    errno = ENOTTY;
    return driver->result_;
  }

 private:
  static inline Driver* current = nullptr;

  const int result_;
  const std::size_t record_;
  std::vector<Request> requests_;
};

class DeviceControl : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_before_); }

  LogCapture log;

 private:
  const std::set<std::string> descriptors_before_ = open_descriptors();
};

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" int ioctl(int fd, kelo::tests::IoctlRequest request, ...) noexcept {
  static const auto real = kelo::tests::next_call("ioctl", ioctl);
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const std::optional<int> result =
      Driver::serve(fd, std::make_unsigned_t<kelo::tests::IoctlRequest>(request), argument);
  return result ? *result : real(fd, request, argument);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace {

// --- Any request to any node

TEST_F(DeviceControl, AsksARealFile) {
  ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
  const int fd = open("/tmp/fifo", O_RDWR);
  ASSERT_EQ(write(fd, "12345", 5), 5);
  int waiting = -1;
  EXPECT_EQ(kelo_ioctl_file("/tmp/fifo", FIONREAD, &waiting), 0);
  close(fd);
  EXPECT_EQ(waiting, 5);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(DeviceControl, ReportsARequestThatARealFileDoesNotKnow) {
  write_file("/tmp/node", "");
  EXPECT_EQ(kelo_ioctl_file("/tmp/node", TIOCSTI, nullptr), -1);
  expect_lines(log, kRequestCall, {{LOG_LVL_ERR, "ioctl cmd " + std::to_string(TIOCSTI) + " failed.\n"}});
}

TEST_F(DeviceControl, HandsTheRequestOver) {
  write_file("/tmp/node", "");
  int argument = 7;
  const std::vector<std::pair<unsigned long, void*>> requests = {
      {0, &argument}, {1, nullptr}, {0x40325A1E, &argument}, {0x80045430, nullptr}, {ULONG_MAX, &argument}};
  const Driver driver;
  for (const auto& [number, pointer] : requests) EXPECT_EQ(kelo_ioctl_file("/tmp/node", number, pointer), 0);
  ASSERT_EQ(driver.requests().size(), requests.size());
  for (std::size_t i = 0; i < requests.size(); ++i) {
    const Driver::Request& request = driver.requests()[i];
    EXPECT_EQ(request.number,
              static_cast<std::make_unsigned_t<kelo::tests::IoctlRequest>>(requests[i].first));
    EXPECT_EQ(request.argument, requests[i].second);
    EXPECT_EQ(request.path, "/tmp/node");
    EXPECT_EQ(request.status_flags & (O_ACCMODE | O_NONBLOCK | O_APPEND), O_RDWR);
    EXPECT_EQ(request.descriptor_flags, FD_CLOEXEC);
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(DeviceControl, FailsWithEveryResultThatIsNotZero) {
  write_file("/tmp/node", "");
  const std::vector<std::pair<unsigned long, std::string>> requests = {{0, "0"},
                                                                       {1, "1"},
                                                                       {0x40325A1E, "1077041694"},
                                                                       {LONG_MAX, std::to_string(LONG_MAX)},
                                                                       {ULONG_MAX, "-1"}};
  for (const int result : {-1, 1, -2, INT_MAX, INT_MIN}) {
    const Driver driver(result);
    for (const auto& [number, text] : requests) {
      EXPECT_EQ(kelo_ioctl_file("/tmp/node", number, nullptr), -1) << result;
      expect_lines(log, kRequestCall, {{LOG_LVL_ERR, "ioctl cmd " + text + " failed.\n"}});
    }
    EXPECT_EQ(driver.requests().size(), requests.size()) << "a request is made once";
  }
}

TEST_F(DeviceControl, AsksNothingWithoutTheNode) {
  write_file("/tmp/read-only", "");
  ASSERT_EQ(chmod("/tmp/read-only", 0444), 0);
  write_file("/tmp/write-only", "");
  ASSERT_EQ(chmod("/tmp/write-only", 0222), 0);
  const std::string long_name = "/tmp/" + std::string(NAME_MAX + 1, 'n');
  const Driver driver;
  for (const std::string& path : {std::string("/tmp/none"), std::string(), std::string("/tmp"),
                                  std::string("/tmp/read-only"), std::string("/tmp/write-only"), long_name}) {
    EXPECT_EQ(kelo_ioctl_file(path.c_str(), 1, nullptr), 4) << path;
    expect_lines(log, kRequestCall, {{LOG_LVL_ERR, "open " + path + " failed.\n"}});
  }
  EXPECT_EQ(kelo_ioctl_file(nullptr, 1, nullptr), 4);
  expect_lines(log, kRequestCall, {{LOG_LVL_ERR, "kelo_ioctl_file param NULL\n"}});
  EXPECT_TRUE(driver.requests().empty());
  EXPECT_FALSE(std::filesystem::exists("/tmp/none"));
}

TEST_F(DeviceControl, RefusesThePlaceOfAStandardInput) {
  write_file("/tmp/node", "");
  const auto result = run_in_child([this] {
    const Driver driver;
    close(STDIN_FILENO);
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(kelo_ioctl_file("/tmp/node", 1, nullptr), 4);
      expect_lines(log, kRequestCall, {{LOG_LVL_ERR, "open /tmp/node failed.\n"}});
    }
    EXPECT_TRUE(driver.requests().empty());
  });
  EXPECT_EQ(result.exit_status, 0) << result.standard_output << result.standard_error;
}

// --- The IRIG-B time-code device

std::string record_bytes() {
  std::string bytes;
  for (int i = 0; i < KELO_IRIG_B_CONFIG_SIZE; ++i) bytes += static_cast<char>(i * 5);
  return bytes;
}

TEST_F(DeviceControl, ConfiguresTheTimeCode) {
  write_file(kTimeCodeNode, "");
  const ExactBuffer record(record_bytes(), KELO_IRIG_B_CONFIG_SIZE + 1);
  const Driver driver(0, 50);
  EXPECT_EQ(kelo_irig_b_ioctl(record.data()), 0);
  ASSERT_EQ(driver.requests().size(), 1U);
  const Driver::Request& request = driver.requests().front();
  EXPECT_EQ(request.number, 1077041694U);
  EXPECT_EQ(request.path, kTimeCodeNode);
  EXPECT_EQ(request.argument, record.data());
  EXPECT_EQ(request.record, record_bytes());
  EXPECT_EQ(request.status_flags & (O_ACCMODE | O_NONBLOCK | O_APPEND), O_RDWR);
  EXPECT_EQ(request.descriptor_flags, FD_CLOEXEC);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(DeviceControl, GivesTheResultOfTheTimeCodeDriver) {
  write_file(kTimeCodeNode, "");
  for (const int result : {-1, 1, -5, INT_MAX, INT_MIN}) {
    const Driver driver(result);
    EXPECT_EQ(kelo_irig_b_ioctl(record_bytes().data()), result);
    expect_lines(log, kTimeCodeCall, {{LOG_LVL_ERR, "ioctl cmd fail.\r\n"}});
    EXPECT_EQ(driver.requests().size(), 1U);
  }
}

TEST_F(DeviceControl, FailsWithANodeThatIsNoDevice) {
  write_file(kTimeCodeNode, "");
  EXPECT_EQ(kelo_irig_b_ioctl(record_bytes().data()), -1);
  expect_lines(log, kTimeCodeCall, {{LOG_LVL_ERR, "ioctl cmd fail.\r\n"}});
}

TEST_F(DeviceControl, RefusesANullRecordWithoutTouchingTheNode) {
  const Driver driver;
  EXPECT_EQ(kelo_irig_b_ioctl(nullptr), -1);
  expect_lines(log, kTimeCodeCall, {{LOG_LVL_DBUG, "input error.\r\n"}});
  write_file(kTimeCodeNode, "");
  EXPECT_EQ(kelo_irig_b_ioctl(nullptr), -1);
  expect_lines(log, kTimeCodeCall, {{LOG_LVL_DBUG, "input error.\r\n"}});
  EXPECT_TRUE(driver.requests().empty());
}

TEST_F(DeviceControl, FailsWithoutTheTimeCodeNode) {
  const Driver driver;
  const std::vector<std::pair<int, std::string>> line = {
      {LOG_LVL_DBUG, "open /dev/kelo_irig_b_config fail.\r\n"}};
  EXPECT_EQ(kelo_irig_b_ioctl(record_bytes().data()), -1);
  expect_lines(log, kTimeCodeCall, line);
  write_file(kTimeCodeNode, "");
  for (const mode_t mode : {0444U, 0222U}) {
    ASSERT_EQ(chmod(kTimeCodeNode, mode), 0);
    EXPECT_EQ(kelo_irig_b_ioctl(record_bytes().data()), -1);
    expect_lines(log, kTimeCodeCall, line);
  }
  ASSERT_EQ(chmod(kTimeCodeNode, 0600), 0);
  kelo::tests::limit_descriptors(64);
  {
    const ManyDescriptors many(64, 0);
    EXPECT_EQ(kelo_irig_b_ioctl(record_bytes().data()), -1);
  }
  expect_lines(log, kTimeCodeCall, line);
  EXPECT_TRUE(driver.requests().empty());
}

TEST_F(DeviceControl, ConfiguresTheTimeCodeWithoutAStandardInput) {
  write_file(kTimeCodeNode, "");
  const auto result = run_in_child([this] {
    const Driver driver;
    close(STDIN_FILENO);
    EXPECT_EQ(kelo_irig_b_ioctl(record_bytes().data()), 0);
    ASSERT_EQ(driver.requests().size(), 1U);
    EXPECT_EQ(driver.requests().front().fd, STDIN_FILENO);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "the descriptor is left open";
    EXPECT_TRUE(log.lines().empty()) << log.dump();
  });
  EXPECT_EQ(result.exit_status, 0) << result.standard_output << result.standard_error;
}

}  // namespace
