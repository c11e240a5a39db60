// SPDX-License-Identifier: MIT
// AT commands while other hosts send datagrams to the daemon's port: from a network namespace of its own, at the
// other end of a real link.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/before_sanitizer.hpp"
#include "tests/support/c_library.hpp"
#include "tests/support/interfaces.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/socket_faults.hpp"

namespace {

// How much later than it is the library's monotonic clock shows.
int seconds_ahead = 0;

}  // namespace

extern "C" {

int clock_gettime_for_library(clockid_t clock, timespec* now) asm(KELO_CLOCK_GETTIME);

// Asks the kernel itself: a sanitizer's run time calls it before anything can be looked up.
KELO_BEFORE_SANITIZER int clock_gettime_for_library(clockid_t clock, timespec* now) {
  const auto result = static_cast<int>(syscall(kelo::tests::kClockGettime, clock, now));
  if (clock == CLOCK_MONOTONIC) now->tv_sec += seconds_ahead;
  return result;
}

}  // extern "C"

namespace {

using kelo::tests::LogCapture;
using kelo::tests::Waits;
using namespace std::string_literals;

constexpr char kNear[] = "10.9.8.1";
constexpr char kFar[] = "10.9.8.2";
constexpr char kStray[] = "\r\nSTRAY\r\nOK\r\n";

sockaddr_in address_of(const char* host, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = port;
  EXPECT_EQ(inet_pton(AF_INET, host, &address.sin_addr), 1);
  return address;
}

void send_text(int fd, const std::string& text, const sockaddr_in& to) {
  EXPECT_EQ(sendto(fd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to),
            static_cast<ssize_t>(text.size()));
}

// A process in another network namespace, joined to this one by a link. It sends a stray datagram to each port
// that it is told.
class OtherHost {
 public:
  OtherHost() {
    EXPECT_EQ(pipe2(ports_.data(), O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(done_.data(), O_CLOEXEC), 0);
    kelo::tests::bring_up("lo");
    kelo::tests::add_veth_pair("near", "far");
    process_ = fork();
    if (process_ == 0) _exit(serve());
    wait_until_done();
    kelo::tests::move_to_namespace_of("far", process_);
    kelo::tests::bring_up("near");
    kelo::tests::add_address("near", kNear, 24);
    send_to(0);  // makes its end ready
  }
  ~OtherHost() {
    kelo::tests::remove_interface("near");
    for (const int fd : {ports_[0], ports_[1], done_[0], done_[1]}) close(fd);
    int status = 0;
    EXPECT_EQ(waitpid(process_, &status, 0), process_);
    EXPECT_EQ(status, 0);
  }
  OtherHost(const OtherHost&) = delete;
  OtherHost& operator=(const OtherHost&) = delete;

  // Returns when the datagram is on its way; a port of 0 has none.
  void send_to(std::uint16_t port) {
    EXPECT_EQ(write(ports_[1], &port, sizeof port), static_cast<ssize_t>(sizeof port));
    wait_until_done();
  }

 private:
  int serve() {
    close(ports_[1]);
    if (unshare(CLONE_NEWNET) != 0) return 1;
    tell();
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    std::uint16_t port = 0;
    bool is_up = false;
    while (read(ports_[0], &port, sizeof port) == static_cast<ssize_t>(sizeof port)) {
      if (!is_up) {
        kelo::tests::bring_up("far");
        kelo::tests::add_address("far", kFar, 24);
      }
      is_up = true;
      if (port != 0) send_text(fd, kStray, address_of(kNear, port));
      tell();
    }
    return testing::Test::HasFailure() ? 1 : 0;
  }

  void tell() const { EXPECT_EQ(write(done_[1], "", 1), 1); }
  void wait_until_done() const {
    char byte = 0;
    EXPECT_EQ(read(done_[0], &byte, 1), 1);
  }

  std::array<int, 2> ports_{};
  std::array<int, 2> done_{};
  pid_t process_ = -1;
};

// A modem that calls `before_answer` with the daemon's port, in its own byte order, before it answers OK.
class TappedModem {
 public:
  explicit TappedModem(std::function<void(std::uint16_t port)> before_answer)
      : before_answer_(std::move(before_answer)) {
    const sockaddr_in address = address_of("127.0.0.1", htons(5555));
    EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    thread_ = std::thread([this] { serve(); });
  }
  ~TappedModem() {
    thread_.join();
    close(fd_);
  }
  TappedModem(const TappedModem&) = delete;
  TappedModem& operator=(const TappedModem&) = delete;

 private:
  void serve() {
    std::array<char, 100> command{};
    sockaddr_in daemon{};
    socklen_t length = sizeof daemon;
    auto* const sender = reinterpret_cast<sockaddr*>(&daemon);
    EXPECT_GT(recvfrom(fd_, command.data(), command.size(), 0, sender, &length), 0);
    before_answer_(daemon.sin_port);
    send_text(fd_, "AT\r\r\nOK\r\n", daemon);
  }

  const std::function<void(std::uint16_t)> before_answer_;
  const int fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  std::thread thread_;
};

// The whole buffer.
std::string buffer_of_command() {
  char* const reply = kelo_util_send_at("AT");
  std::string bytes(reply, KELO_AT_REPLY_SIZE);
  std::free(reply);
  return bytes;
}

TEST(AtChannelStrangers, AreNotPartOfTheReply) {
  OtherHost other;
  const LogCapture log;
  const TappedModem modem([&other](std::uint16_t port) {
    for (int i = 0; i < 5; ++i) other.send_to(port);  // more than there are attempts
  });
  EXPECT_TRUE(buffer_of_command() == "OK\r\n" + std::string(KELO_AT_REPLY_SIZE - 4, '\0')) << log.dump();
  EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "recvfrom["), 1) << log.dump();
  EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "recvfrom[1,0] 9 bytes:[9, AT"), 1) << log.dump();
}

TEST(AtChannelStrangers, DoNotRestartTheTimeOfAnAttempt) {
  constexpr int kSecondsLater = 7;
  OtherHost other;
  std::atomic<bool> strayed{false};
  const TappedModem modem([&](std::uint16_t port) {
    other.send_to(port);
    while (!strayed) usleep(1000);
  });
  Waits waits;
  waits.before = [&](int number) {
    if (number == 1) seconds_ahead = kSecondsLater;
    if (number == 2) strayed = true;
  };
  EXPECT_EQ(buffer_of_command().substr(0, 5), "OK\r\n\0"s);
  seconds_ahead = 0;
  const std::vector<int>& given = waits.milliseconds();
  ASSERT_EQ(given.size(), 2U);
  EXPECT_EQ(given[0], 20000);
  EXPECT_LE(given[1], 20000 - 1000 * kSecondsLater);
}

TEST(AtChannelStrangers, DoNotKeepAnAttemptFromItsEnd) {
  OtherHost other;
  std::atomic<bool> over{false};
  const TappedModem modem([&](std::uint16_t port) {
    for (int i = 0; i < 5; ++i) other.send_to(port);
    while (!over) usleep(1000);
  });
  const LogCapture log;
  Waits waits;
  waits.before = [&](int number) {
    if (number == 1) seconds_ahead = 20;
    if (number == 2) over = true;
  };
  EXPECT_EQ(buffer_of_command().substr(0, 11), "AT\r\r\nOK\r\n\0\0"s)
      << "an echo in the second attempt is part of the reply";
  seconds_ahead = 0;
  EXPECT_EQ(waits.milliseconds().at(1), 20000);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "select fail:ret=0\n"), 1) << log.dump();
}

}  // namespace
