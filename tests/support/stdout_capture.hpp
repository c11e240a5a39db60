// SPDX-License-Identifier: MIT
// Collects what is printed on standard output, the library's prints included, until it is taken.
#ifndef KELO_TESTS_STDOUT_CAPTURE_HPP
#define KELO_TESTS_STDOUT_CAPTURE_HPP

#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace kelo::tests {

class StdoutCapture {
 public:
  StdoutCapture() : kept_(dup(STDOUT_FILENO)), file_(std::tmpfile()) {
    std::fflush(stdout);
    if (kept_ < 0 || file_ == nullptr || dup2(fileno(file_), STDOUT_FILENO) < 0) std::abort();
  }
  ~StdoutCapture() {
    restore();
    std::fclose(file_);
  }
  StdoutCapture(const StdoutCapture&) = delete;
  StdoutCapture& operator=(const StdoutCapture&) = delete;

  // Ends the collecting and returns the text.
  std::string take() {
    restore();
    std::rewind(file_);
    std::string text;
    std::array<char, 256> piece;
    while (const std::size_t length = std::fread(piece.data(), 1, piece.size(), file_))
      text.append(piece.data(), length);
    return text;
  }

 private:
  void restore() {
    if (kept_ < 0) return;
    std::fflush(stdout);
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
    kept_ = -1;
  }

  int kept_;
  std::FILE* file_;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_STDOUT_CAPTURE_HPP
