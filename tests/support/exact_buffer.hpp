// SPDX-License-Identifier: MIT
// A heap block of exactly the size asked for, so that the address sanitizer sees the first byte beyond it.
#ifndef KELO_TESTS_EXACT_BUFFER_HPP
#define KELO_TESTS_EXACT_BUFFER_HPP

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace kelo::tests {

class ExactBuffer {
 public:
  // What the bytes hold before anything is written to them.
  static constexpr char kUntouched = '\x5A';

  explicit ExactBuffer(std::size_t size) : size_(size), bytes_(new char[size]) {
    std::fill_n(bytes_.get(), size, kUntouched);
  }

  // Holds a text and its terminator in `size` bytes, or in just as many as it takes.
  explicit ExactBuffer(std::string_view text) : ExactBuffer(text, text.size() + 1) {}
  ExactBuffer(std::string_view text, std::size_t size) : ExactBuffer(size) {
    std::copy(text.begin(), text.end(), bytes_.get());
    bytes_[text.size()] = '\0';
  }

  [[nodiscard]] char* data() const { return bytes_.get(); }
  [[nodiscard]] std::size_t size() const { return size_; }
  // Everything in the block, terminators included.
  [[nodiscard]] std::string bytes() const { return {bytes_.get(), size_}; }
  [[nodiscard]] bool untouched() const { return bytes() == std::string(size_, kUntouched); }

 private:
  std::size_t size_;
  std::unique_ptr<char[]> bytes_;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_EXACT_BUFFER_HPP
