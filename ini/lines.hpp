// A settings file, line by line.
#ifndef KELO_INI_LINES_HPP
#define KELO_INI_LINES_HPP

#include <fcntl.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "base/line_reader.hpp"
#include "kelo_utils/ini.h"

namespace kelo::ini {

// How a settings file is opened for its lines. Nobody waits at a pipe in its place, which reads as an empty file.
inline constexpr int kReading = O_RDONLY | O_NONBLOCK;

// Stands before the first line at first. Holds a view of itself, and so stays where it is made.
class Lines {
 public:
  // The descriptor stays the caller's.
  explicit Lines(int fd) : reader_(fd, storage_, kLongest) {}
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;
  ~Lines() = default;

  // Moves to the next line. False at the end of the file, or of what can be read of it.
  bool next() {
    begin_ = end_;
    const std::string_view line = reader_.next();
    text_ = {line.data(), strnlen(line.data(), line.size())};
    if (line.empty()) return false;
    end_ += static_cast<off_t>(line.size());
    complete_ = line.back() == '\n';
    chunk_ = chunk_ + line.size() <= INI_BUFFERSIZE ? chunk_ + line.size() : line.size();
    return true;
  }

  // The text of the line, up to its first zero byte. It stands until the next move.
  [[nodiscard]] std::string_view text() const { return text_; }

  // Where the line begins in the file, and where the next one does. At the end of the file both are its size.
  [[nodiscard]] off_t begin() const { return begin_; }
  [[nodiscard]] off_t end() const { return end_; }

  // Whether the line, or the last one at the end of the file, ends with a newline.
  [[nodiscard]] bool complete() const { return complete_; }

  // Bytes in the last chunk so far, where chunks are as many whole lines as a line buffer holds.
  [[nodiscard]] std::size_t chunk() const { return chunk_; }

  // Whether a read has failed.
  [[nodiscard]] bool failed() const { return reader_.failed(); }

 private:
  static constexpr std::size_t kLongest = INI_BUFFERSIZE - 1;  // bytes, newline included

  std::array<char, std::size_t{4} * INI_BUFFERSIZE> storage_;
  base::LineReader reader_;
  std::string_view text_;
  off_t begin_ = 0;
  off_t end_ = 0;
  bool complete_ = false;
  std::size_t chunk_ = 0;
};

}  // namespace kelo::ini

#endif  // KELO_INI_LINES_HPP
