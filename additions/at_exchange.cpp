// SPDX-License-Identifier: MIT
// One AT command with a limit of time of its own. The lines of the reply are collected up to its final result.
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "additions/at_lines.hpp"
#include "base/deadline.hpp"
#include "base/file.hpp"
#include "kelo-app-common/src/at_service.hpp"
#include "kelo_utils/at_exchange.h"

namespace {

using kelo::at::Lines;
using kelo::base::retry_interrupted;

constexpr std::size_t kDatagramSize = 4096;

bool send_command(int fd, std::string_view command) {
  sockaddr_in service = kelo::at::service_address();
  char line_end = '\r';
  // The parameter types ask for writable data, but nothing writes to it.
  std::array<iovec, 2> parts = {{{const_cast<char*>(command.data()), command.size()}, {&line_end, 1}}};
  msghdr message{};
  message.msg_name = &service;
  message.msg_namelen = sizeof service;
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  return retry_interrupted([&] { return sendmsg(fd, &message, 0); }) ==
         static_cast<ssize_t>(command.size() + 1);
}

// Receives datagrams until the reply is complete. Returns false when the time is over.
bool receive(int fd, const kelo::base::Deadline& end, Lines& lines) {
  std::array<char, kDatagramSize> datagram;
  for (;;) {
    const int left = end.milliseconds_left();
    if (left == 0) return lines.end_line();
    pollfd socket = {fd, POLLIN, 0};
    if (poll(&socket, 1, left) <= 0) continue;
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    const ssize_t received = recvfrom(fd, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_TRUNC,
                                      reinterpret_cast<sockaddr*>(&sender), &length);
    if (received < 0 || !kelo::at::is_of_this_host(sender)) continue;
    const auto size = static_cast<std::size_t>(received);
    if (size > datagram.size()) lines.lose();
    if (lines.take({datagram.data(), std::min(size, datagram.size())})) return true;
  }
}

}  // namespace

std::int32_t kelo_at_exchange(const char* command, std::int32_t timeout_ms, char* lines, std::int32_t size,
                              std::int32_t* reason) {
  const bool collects = lines != nullptr && size >= 1;
  if (collects) lines[0] = '\0';
  if (command == nullptr || timeout_ms < 1) return KELO_AT_BAD_ARGUMENT;
  std::string_view text(command);
  while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) text.remove_suffix(1);
  const kelo::base::Deadline end(static_cast<unsigned>(timeout_ms));
  // The socket is not connected: a service that is missing must lead to a time-out, and a service may answer from any
  // port.
  const kelo::base::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket || !send_command(socket.get(), text)) return KELO_AT_NOT_SENT;
  Lines collected(collects ? std::span(lines, static_cast<std::size_t>(size)) : std::span<char>(), text);
  if (!receive(socket.get(), end, collected)) return KELO_AT_TIMED_OUT;
  if (reason != nullptr) *reason = collected.reason();
  return collected.result();
}
