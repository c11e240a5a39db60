// SPDX-License-Identifier: MIT
// Reads the lines of a descriptor. It reads in large pieces and returns each line without a copy.
#ifndef KELO_BASE_LINE_READER_HPP
#define KELO_BASE_LINE_READER_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "base/file.hpp"

namespace kelo::base {

class LineReader {
 public:
  // The caller keeps the descriptor and the storage. A line of more bytes than `longest`, or than the storage has, is
  // returned in pieces of that size.
  LineReader(int fd, std::span<char> storage, std::size_t longest = SIZE_MAX)
      : fd_(fd), storage_(storage), longest_(std::min(longest, storage.size())) {}

  // The bytes that have been read but not yet returned.
  [[nodiscard]] std::string_view pending() const { return {storage_.data() + start_, count_}; }

  // Drops the first `size` bytes of pending().
  void skip(std::size_t size) { take(size); }

  // Returns the next line with its newline, which the last line may lack. The result is empty at the end of the input,
  // after a failed read and without storage. It lies in the storage and is valid until the next call.
  std::string_view next() {
    if (longest_ == 0) return {};
    std::size_t searched = 0;
    for (;;) {
      const char* const pending = storage_.data() + start_;
      const std::size_t end = std::min(count_, longest_);
      if (const void* newline = std::memchr(pending + searched, '\n', end - searched))
        return take(static_cast<std::size_t>(static_cast<const char*>(newline) - pending) + 1);
      if (end == longest_) return take(longest_);
      searched = end;
      if (!read_more()) return take(count_);
    }
  }

  // Whether any read has failed. next() does not tell a failed read from the end of the input, and a later read may
  // succeed.
  [[nodiscard]] bool failed() const { return failed_; }

 private:
  // Moves the pending bytes to the front and reads after them. There is room: a line of the greatest length would have
  // been returned before. Returns false when nothing more can be read.
  bool read_more() {
    if (start_ != 0) std::memmove(storage_.data(), storage_.data() + start_, count_);
    start_ = 0;
    const ssize_t more = read_some(fd_, storage_.subspan(count_));
    if (more < 0) failed_ = true;
    if (more <= 0) return false;
    count_ += static_cast<std::size_t>(more);
    return true;
  }

  std::string_view take(std::size_t size) {
    const std::string_view line(storage_.data() + start_, size);
    start_ += size;
    count_ -= size;
    return line;
  }

  const int fd_;
  const std::span<char> storage_;
  const std::size_t longest_;
  bool failed_ = false;
  std::size_t start_ = 0;  // of the pending bytes
  std::size_t count_ = 0;
};

}  // namespace kelo::base

#endif  // KELO_BASE_LINE_READER_HPP
