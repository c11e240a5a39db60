// SPDX-License-Identifier: MIT
// Reads a settings file line by line.
#ifndef KELO_INI_LINES_HPP
#define KELO_INI_LINES_HPP

#include <fcntl.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <string_view>

#include "base/line_reader.hpp"
#include "kelo_utils/ini.h"

namespace kelo::ini {

// The flags for opening a settings file. If the path is a pipe, opening it does not wait, and it reads as an empty
// file.
inline constexpr int kReading = O_RDONLY | O_NONBLOCK;

// Reads one line after another. There is no current line before the first call of next(). An object cannot be copied,
// because it contains pointers into itself.
class Lines {
 public:
  // The caller keeps the descriptor.
  explicit Lines(int fd) : reader_(fd, storage_, kLongest) {}
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;
  ~Lines() = default;

  // Moves to the next line. Returns false at the end of the file and after a failed read.
  bool next();

  // The text of the line up to its first zero byte. It is valid until the next call of next().
  [[nodiscard]] std::string_view text() const { return text_; }

  // The positions in the file where the line begins and where the next line begins. At the end of the file both are the
  // size of the file.
  [[nodiscard]] off_t begin() const { return begin_; }
  [[nodiscard]] off_t end() const { return end_; }

  // Whether the line ends with a newline. At the end of the file this refers to the last line.
  [[nodiscard]] bool complete() const { return complete_; }

  // The size of the last chunk so far. A chunk consists of as many whole lines as fit into a line buffer.
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
