// SPDX-License-Identifier: MIT
// Builds text in a fixed buffer.
#ifndef KELO_BASE_TEXT_BUILDER_HPP
#define KELO_BASE_TEXT_BUILDER_HPP

#include <cstdarg>
#include <cstddef>
#include <span>
#include <string_view>

#include "kelo_utils/base.h"

namespace kelo::base {

// Writes one piece after another into a buffer of the caller. Text that does not fit is cut, and the buffer is always
// terminated. The functions are out of line, so that a call takes no more code than a call of printf().
class TextBuilder {
 public:
  // Starts with an empty text. The buffer must have at least one byte; its size includes the terminator.
  explicit TextBuilder(std::span<char> buffer) : start_(buffer.data()), capacity_(buffer.size()) {
    *start_ = '\0';
  }

  // A copy would write into the same buffer without changing the size of the original.
  TextBuilder(const TextBuilder&) = delete;
  TextBuilder& operator=(const TextBuilder&) = delete;
  ~TextBuilder() = default;

  // The arguments must not point into the buffer.
  TextBuilder& print(const char* format, ...) KELO_PRINTF(2, 3);
  TextBuilder& vprint(const char* format, va_list arguments) KELO_PRINTF(2, 0);
  TextBuilder& append(std::string_view text);
  TextBuilder& put(char character);

  [[nodiscard]] const char* c_str() const { return start_; }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::string_view view() const { return {start_, size_}; }

  // The length that the text would have in a buffer that is large enough.
  [[nodiscard]] std::size_t full_size() const { return full_size_; }
  // Whether text was cut. A piece that printf() could not format counts as cut, too.
  [[nodiscard]] bool cut() const { return full_size_ != size_; }

 protected:
  // Copies another text, whose buffer has the same size.
  void copy(const TextBuilder& other);

 private:
  void advance(std::size_t length);

  char* const start_;
  const std::size_t capacity_;
  std::size_t size_ = 0;
  std::size_t full_size_ = 0;
};

// A text with a buffer of its own. `Size` includes the terminator.
template <std::size_t Size>
class FixedText : public TextBuilder {
 public:
  FixedText() : TextBuilder(std::span<char>(text_, Size)) {}
  KELO_PRINTF(2, 3) explicit FixedText(const char* format, ...) : FixedText() {
    va_list arguments;
    va_start(arguments, format);
    vprint(format, arguments);
    va_end(arguments);
  }
  FixedText(const FixedText& other) : FixedText() { copy(other); }
  FixedText& operator=(const FixedText&) = delete;
  ~FixedText() = default;

 private:
  char text_[Size];
};

}  // namespace kelo::base

#endif  // KELO_BASE_TEXT_BUILDER_HPP
