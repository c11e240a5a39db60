// Lines of a descriptor, read in large pieces and handed out without a copy.
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
  // The descriptor and the storage stay the caller's. A line of more bytes than `longest`, or than the storage
  // has, comes in pieces of that size.
  LineReader(int fd, std::span<char> storage, std::size_t longest = SIZE_MAX)
      : fd_(fd), storage_(storage), longest_(std::min(longest, storage.size())) {}

  // What has been read and not yet handed out.
  [[nodiscard]] std::string_view pending() const { return {storage_.data() + start_, count_}; }

  // Takes the first `size` bytes of that away.
  void skip(std::size_t size) { take(size); }

  // The next line with its newline, which the last one may lack. Empty at the end of the input, on a failed
  // read and without storage. It stands in the storage until the next call.
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

  // Whether any read has failed, which looks like the end of the input otherwise. A later one may succeed.
  [[nodiscard]] bool failed() const { return failed_; }

 private:
  // Puts what is pending to the front and reads behind it, where there is room as a longest line would have
  // been taken. False when there is nothing more.
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
  std::size_t start_ = 0;  // of the bytes read and not yet handed out
  std::size_t count_ = 0;
};

}  // namespace kelo::base

#endif  // KELO_BASE_LINE_READER_HPP
