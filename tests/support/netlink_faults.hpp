// SPDX-License-Identifier: MIT
// Makes chosen netlink and epoll calls of the whole test program fail, the library's included, follows them,
// and can answer in the kernel's place. Include it in exactly one source file of a test program.
//
// The calls are: socket, bind, send, recvmsg, epoll_create1, epoll_ctl and epoll_wait.
#ifndef KELO_TESTS_SUPPORT_NETLINK_FAULTS_HPP
#define KELO_TESTS_SUPPORT_NETLINK_FAULTS_HPP

#include <linux/netlink.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/fault.hpp"

namespace kelo::tests {

// The calls of this thread while it lives. One at a time.
class NetlinkCalls {
 public:
  NetlinkCalls() {
    sent.reserve(256);  // so that a call is followed when the heap has run out
    current_ = this;
  }
  ~NetlinkCalls() { current_ = nullptr; }
  NetlinkCalls(const NetlinkCalls&) = delete;
  NetlinkCalls& operator=(const NetlinkCalls&) = delete;

  static NetlinkCalls* current() { return current_; }

  // Each is called once, with the socket.
  std::function<void(int)> after_bind;
  std::function<void(int)> before_send;
  // Called before the first wait for events; set anew in there, before the next one.
  std::function<void()> before_wait;

  // While `answers` is set, recvmsg() takes the datagram as one that came from this port id.
  bool answers = false;
  std::string datagram;
  std::uint32_t sender = 0;

  // What the first wait for events gives, unless it is empty.
  std::vector<epoll_event> events;

  // Waits are cut to a few milliseconds.
  bool in_haste = false;

  // The last arguments of each call.
  int socket_domain = 0;
  int socket_type = 0;
  int socket_protocol = 0;
  sockaddr_nl bound{};
  std::string sent;
  timeval receive_time{-1, -1};
  int epoll_flags = 0;
  std::uint32_t awaited_events = 0;
  int most_events = 0;
  int wait_milliseconds = 0;
  int waits = 0;

  struct Receive {
    int flags;
    std::size_t room;
  };
  std::array<Receive, 16> receives{};
  std::size_t receive_count = 0;

  ssize_t answer(msghdr& message, int flags) {
    const iovec& room = *message.msg_iov;
    receives[receive_count++ % receives.size()] = {flags, room.iov_len};
    if (Fault::meets("recvmsg")) return -1;
    sockaddr_nl from{};
    from.nl_family = AF_NETLINK;
    from.nl_pid = sender;
    std::memcpy(message.msg_name, &from, std::min<std::size_t>(message.msg_namelen, sizeof from));
    message.msg_namelen = sizeof from;
    const std::size_t copied = std::min(room.iov_len, datagram.size());
    if (copied != 0) std::memcpy(room.iov_base, datagram.data(), copied);
    return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? datagram.size() : copied);
  }

 private:
  static inline thread_local NetlinkCalls* current_ = nullptr;
};

template <typename... Arguments>
void call_once(std::function<void(Arguments...)>& hook, Arguments... arguments) {
  if (const auto called = std::exchange(hook, {})) called(arguments...);
}

}  // namespace kelo::tests

// Defined here and not in a source of the support library, which every test program links. The C library's
// own declarations have reserved parameter names.
// NOLINTBEGIN(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  static const auto real = kelo::tests::next_call("socket", socket);
  if (auto* const calls = kelo::tests::NetlinkCalls::current()) {
    calls->socket_domain = domain;
    calls->socket_type = type;
    calls->socket_protocol = protocol;
  }
  return kelo::tests::Fault::meets("socket") ? -1 : real(domain, type, protocol);
}

int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
  static const auto real = kelo::tests::next_call("bind", bind);
  auto* const calls = kelo::tests::NetlinkCalls::current();
  if (calls != nullptr)
    std::memcpy(&calls->bound, address, std::min<std::size_t>(length, sizeof calls->bound));
  if (kelo::tests::Fault::meets("bind")) return -1;
  const int result = real(fd, address, length);
  if (calls != nullptr && result == 0) kelo::tests::call_once(calls->after_bind, fd);
  return result;
}

ssize_t send(int fd, const void* bytes, std::size_t size, int flags) {
  static const auto real = kelo::tests::next_call("send", send);
  if (auto* const calls = kelo::tests::NetlinkCalls::current()) {
    calls->sent.assign(static_cast<const char*>(bytes), size);
    kelo::tests::call_once(calls->before_send, fd);
  }
  return kelo::tests::Fault::meets("send") ? -1 : real(fd, bytes, size, flags);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
  static const auto real = kelo::tests::next_call("recvmsg", recvmsg);
  auto* const calls = kelo::tests::NetlinkCalls::current();
  if (calls != nullptr && calls->answers) return calls->answer(*message, flags);
  return kelo::tests::Fault::meets("recvmsg") ? -1 : real(fd, message, flags);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept {
  static const auto real = kelo::tests::next_call("setsockopt", setsockopt);
  auto* const calls = kelo::tests::NetlinkCalls::current();
  if (calls == nullptr || level != SOL_SOCKET || name != SO_RCVTIMEO)
    return real(fd, level, name, value, size);
  std::memcpy(&calls->receive_time, value, sizeof calls->receive_time);
  const timeval haste{0, 1000};
  return real(fd, level, name, calls->in_haste ? &haste : value, size);
}

int epoll_create1(int flags) noexcept {
  static const auto real = kelo::tests::next_call("epoll_create1", epoll_create1);
  if (auto* const calls = kelo::tests::NetlinkCalls::current()) calls->epoll_flags = flags;
  return kelo::tests::Fault::meets("epoll_create1") ? -1 : real(flags);
}

int epoll_ctl(int epoll, int operation, int fd, epoll_event* event) noexcept {
  static const auto real = kelo::tests::next_call("epoll_ctl", epoll_ctl);
  if (auto* const calls = kelo::tests::NetlinkCalls::current()) calls->awaited_events = event->events;
  return kelo::tests::Fault::meets("epoll_ctl") ? -1 : real(epoll, operation, fd, event);
}

int epoll_wait(int epoll, epoll_event* events, int most, int milliseconds) {
  static const auto real = kelo::tests::next_call("epoll_wait", epoll_wait);
  auto* const calls = kelo::tests::NetlinkCalls::current();
  if (calls != nullptr) {
    ++calls->waits;
    calls->most_events = most;
    calls->wait_milliseconds = milliseconds;
    kelo::tests::call_once(calls->before_wait);
  }
  if (kelo::tests::Fault::meets("epoll_wait")) return -1;
  if (calls != nullptr && !calls->events.empty()) {
    const auto given = std::exchange(calls->events, {});
    std::copy(given.begin(), given.end(), events);
    return static_cast<int>(given.size());
  }
  return real(epoll, events, most, calls != nullptr && calls->in_haste ? 1 : milliseconds);
}

}  // extern "C"
// NOLINTEND(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)

#endif  // KELO_TESTS_SUPPORT_NETLINK_FAULTS_HPP
