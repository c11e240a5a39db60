// SPDX-License-Identifier: MIT
// The lines of the reply to an AT command, up to its final result.
#ifndef KELO_ADDITIONS_AT_LINES_HPP
#define KELO_ADDITIONS_AT_LINES_HPP

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "kelo_utils/at_exchange.h"

namespace kelo::at {

inline constexpr std::size_t kFinalSize = 40;  // bytes of a line that are looked at for a final result
inline constexpr std::int32_t kNoResult = INT32_MIN;
inline constexpr std::int32_t kNoNumber = -1;

struct FinalLine {
  char text[13];
  bool has_reason;  // which is after the text
};
// In the order of their values.
inline constexpr std::array<FinalLine, 5> kFinalLines = {
    {{"OK", false}, {"ERROR", false}, {"+CME ERROR:", true}, {"+CMS ERROR:", true}, {"NO CARRIER", false}}};

// This replaces starts_with(), which would link the C++ run time.
inline bool begins_with(std::string_view line, std::string_view text) {
  return line.size() >= text.size() && std::memcmp(line.data(), text.data(), text.size()) == 0;
}

inline std::int32_t number_in(std::string_view reason) {
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
    for (std::size_t i = 0; i < kFinalLines.size(); ++i) {
      const std::string_view text(kFinalLines[i].text);
      if (!(kFinalLines[i].has_reason ? begins_with(line, text) : line == text)) continue;
      result_ = static_cast<std::int32_t>(i);
      if (kFinalLines[i].has_reason)
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

}  // namespace kelo::at

#endif  // KELO_ADDITIONS_AT_LINES_HPP
