// SPDX-License-Identifier: MIT
// One AT command with a limit of time of its own. The lines of the reply are collected up to its final result.
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "base/deadline.hpp"
#include "base/file.hpp"
#include "kelo-app-common/src/at_service.hpp"
#include "kelo_utils/at_exchange.h"

namespace {

using kelo::base::retry_interrupted;

constexpr std::size_t kDatagramSize = 4096;
constexpr std::size_t kFinalSize = 40;  // bytes of a line that are looked at for a final result
constexpr std::int32_t kNoResult = INT32_MIN;
constexpr std::int32_t kNoNumber = -1;

struct FinalResult {
  char text[13];
  bool has_reason;  // which is after the text
};
// In the order of their values.
constexpr std::array<FinalResult, 5> kFinalResults = {
    {{"OK", false}, {"ERROR", false}, {"+CME ERROR:", true}, {"+CMS ERROR:", true}, {"NO CARRIER", false}}};

// This replaces starts_with(), which would link the C++ run time.
bool begins_with(std::string_view line, std::string_view text) {
  return line.size() >= text.size() && std::memcmp(line.data(), text.data(), text.size()) == 0;
}

std::int32_t number_in(std::string_view reason) {
  while (!reason.empty() && reason.front() == ' ') reason.remove_prefix(1);
  std::int32_t number = 0;
  for (const char digit : reason) {
    if (digit < '0' || digit > '9' || number > 99999) return kNoNumber;
    number = 10 * number + (digit - '0');
  }
  return reason.empty() ? kNoNumber : number;
}

// Takes the bytes of a reply and puts its lines together.
class Lines {
 public:
  Lines(std::span<char> out, std::string_view command) : out_(out), command_(command) {
    if (!out_.empty()) out_[0] = '\0';
  }

  // Returns whether the reply is complete.
  bool take(std::string_view bytes) {
    for (const char byte : bytes) {
      if (byte == '\r' || byte == '\n') {
        if (end_line()) return true;
      } else if (byte != '\0') {
        append(byte);
      }
    }
    return false;
  }

  // Returns whether the line that has begun completes the reply.
  bool end_line() {
    if (line_length_ == 0) return false;
    const std::string_view head(head_.data(), std::min(line_length_, head_.size()));
    const bool is_final = find_result(head);
    if (is_final || (is_first_ && is_echo_ && line_length_ == command_.size())) {
      cut(line_start_);
    } else {
      put('\n');
      line_start_ = length_;
    }
    is_first_ = false;
    line_length_ = 0;
    return is_final;
  }

  void lose() { is_cut_ = true; }
  [[nodiscard]] std::int32_t result() const { return is_cut_ && !out_.empty() ? KELO_AT_TOO_LONG : result_; }
  [[nodiscard]] std::int32_t reason() const { return reason_; }

 private:
  void append(char byte) {
    if (line_length_ < head_.size()) head_[line_length_] = byte;
    is_echo_ = is_echo_ && line_length_ < command_.size() && command_[line_length_] == byte;
    ++line_length_;
    put(byte);
  }

  // What does not fit counts, too, until it is known whether its line is kept.
  void put(char byte) {
    if (length_ + 1 < out_.size()) {
      out_[length_] = byte;
      out_[length_ + 1] = '\0';
    } else if (byte == '\n') {
      lose();
    }
    ++length_;
  }

  void cut(std::size_t length) {
    length_ = length;
    if (length_ < out_.size()) out_[length_] = '\0';
  }

  bool find_result(std::string_view line) {
    for (std::size_t i = 0; i < kFinalResults.size(); ++i) {
      const std::string_view text(kFinalResults[i].text);
      if (!(kFinalResults[i].has_reason ? begins_with(line, text) : line == text)) continue;
      result_ = static_cast<std::int32_t>(i);
      if (kFinalResults[i].has_reason)
        reason_ = number_in({line.data() + text.size(), line.size() - text.size()});
      return true;
    }
    return false;
  }

  const std::span<char> out_;
  const std::string_view command_;
  std::array<char, kFinalSize> head_;  // of the line that has begun
  std::size_t length_ = 0;             // of all lines, also of what did not fit
  std::size_t line_start_ = 0;
  std::size_t line_length_ = 0;
  bool is_first_ = true;
  bool is_echo_ = true;  // whether the line is the beginning of the command
  bool is_cut_ = false;
  std::int32_t result_ = kNoResult;
  std::int32_t reason_ = kNoNumber;
};

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
