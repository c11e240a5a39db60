// Lines of a descriptor, read in large pieces and handed out without a copy.
#ifndef KELO_BASE_LINE_READER_HPP
#define KELO_BASE_LINE_READER_HPP

#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>

#include "base/file.hpp"

namespace kelo::base {

class LineReader {
 public:
  // The descriptor and the storage stay the caller's. A line of more bytes than the storage has comes in
  // pieces of that size.
  LineReader(int fd, std::span<char> storage) : fd_(fd), storage_(storage) {}

  // What has been read and not yet handed out.
  [[nodiscard]] std::string_view pending() const { return {storage_.data() + start_, count_}; }

  // Takes the first `size` bytes of that away.
  void skip(std::size_t size) { take(size); }

  // The next line with its newline, which the last one may lack. Empty at the end of the input, on a failed
  // read and without storage. It stands in the storage until the next call.
  std::string_view next() {
    if (storage_.empty()) return {};
    std::size_t searched = 0;
    for (;;) {
      const char* const pending = storage_.data() + start_;
      if (const void* newline = std::memchr(pending + searched, '\n', count_ - searched))
        return take(static_cast<std::size_t>(static_cast<const char*>(newline) - pending) + 1);
      searched = count_;
      if (!read_more()) return take(count_);
    }
  }

 private:
  // Puts what is pending to the front and reads behind it. False when there is no room, or nothing more.
  bool read_more() {
    if (start_ != 0) std::memmove(storage_.data(), storage_.data() + start_, count_);
    start_ = 0;
    if (count_ == storage_.size()) return false;
    const ssize_t more = read_some(fd_, storage_.subspan(count_));
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
  std::size_t start_ = 0;  // of the bytes read and not yet handed out
  std::size_t count_ = 0;
};

}  // namespace kelo::base

#endif  // KELO_BASE_LINE_READER_HPP
