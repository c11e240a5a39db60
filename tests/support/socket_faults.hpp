// SPDX-License-Identifier: MIT
// Makes chosen socket calls of the whole test program fail, the library's included, and follows its waits.
// Include it in exactly one source file of a test program.
//
// The calls are: socket, sendto, recvfrom, poll and ioctl.
#ifndef KELO_TESTS_SUPPORT_SOCKET_FAULTS_HPP
#define KELO_TESTS_SUPPORT_SOCKET_FAULTS_HPP

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdarg>
#include <functional>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "tests/support/fault.hpp"
#include "tests/support/ioctl_request.hpp"

namespace kelo::tests {

// The sockets of this thread: what the last one was opened as, and the lowest number that one is given.
inline thread_local int last_socket_type = 0;
inline thread_local int lowest_socket = 0;

// The waits of this thread while it lives, counted from 1. One at a time.
class Waits {
 public:
  // Of the waits of these numbers the silent ones see nothing arrive: they end at once, as if their time were
  // over. False alarms end at once as if something had arrived.
  explicit Waits(std::set<int> silent = {}, std::set<int> false_alarms = {})
      : silent_(std::move(silent)), false_alarms_(std::move(false_alarms)) {
    current = this;
  }
  ~Waits() { current = nullptr; }
  Waits(const Waits&) = delete;
  Waits& operator=(const Waits&) = delete;

  // How long each was to be, in milliseconds.
  [[nodiscard]] const std::vector<int>& milliseconds() const { return milliseconds_; }

  // Called before a wait of the number begins.
  std::function<void(int number)> before = [](int) {};

  // What a wait that begins now is to return; nothing for one that is real.
  static std::optional<int> begin(int milliseconds) {
    Waits* const waits = current;
    if (waits == nullptr) return std::nullopt;
    waits->milliseconds_.push_back(milliseconds);
    const int number = static_cast<int>(waits->milliseconds_.size());
    waits->before(number);
    if (waits->silent_.count(number) != 0) return 0;
    if (waits->false_alarms_.count(number) != 0) return 1;
    return std::nullopt;
  }

 private:
  static inline thread_local Waits* current = nullptr;

  const std::set<int> silent_;
  const std::set<int> false_alarms_;
  std::vector<int> milliseconds_;
};

}  // namespace kelo::tests

// Defined here and not in a source of the support library, which every test program links. The C library's
// own declarations have reserved parameter names.
// NOLINTBEGIN(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  static const auto real = kelo::tests::next_call("socket", socket);
  if (kelo::tests::Fault::meets("socket")) return -1;
  kelo::tests::last_socket_type = type;
  const int fd = real(domain, type, protocol);
  if (fd < 0 || fd >= kelo::tests::lowest_socket) return fd;
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, kelo::tests::lowest_socket);
  close(fd);
  return moved;
}

ssize_t sendto(int fd, const void* bytes, std::size_t size, int flags, const sockaddr* to, socklen_t length) {
  static const auto real = kelo::tests::next_call("sendto", sendto);
  return kelo::tests::Fault::meets("sendto") ? -1 : real(fd, bytes, size, flags, to, length);
}

ssize_t recvfrom(int fd, void* bytes, std::size_t size, int flags, sockaddr* from, socklen_t* length) {
  static const auto real = kelo::tests::next_call("recvfrom", recvfrom);
  return kelo::tests::Fault::meets("recvfrom") ? -1 : real(fd, bytes, size, flags, from, length);
}

int poll(pollfd* descriptors, nfds_t count, int milliseconds) {
  static const auto real = kelo::tests::next_call("poll", poll);
  const std::optional<int> result = kelo::tests::Waits::begin(milliseconds);
  if (kelo::tests::Fault::meets("poll")) return -1;
  return result ? *result : real(descriptors, count, milliseconds);
}

int ioctl(int fd, kelo::tests::IoctlRequest request, ...) noexcept {
  static const auto real = kelo::tests::next_call("ioctl", ioctl);
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return kelo::tests::Fault::meets("ioctl") ? -1 : real(fd, request, argument);
}

}  // extern "C"
// NOLINTEND(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)

#endif  // KELO_TESTS_SUPPORT_SOCKET_FAULTS_HPP
