// Text put together in a fixed buffer.
#ifndef KELO_BASE_TEXT_BUILDER_HPP
#define KELO_BASE_TEXT_BUILDER_HPP

#include <cstdarg>
#include <cstddef>
#include <span>
#include <string_view>

#include "kelo_utils/base.h"

namespace kelo::base {

// Writes piece after piece into a buffer of the caller's. What does not fit is cut; the buffer is terminated
// at every moment. The functions are out of line, so that a call is as small as one of printf().
class TextBuilder {
 public:
  // Begins an empty text. The buffer is not empty, and its size is the room for the text and its terminator.
  explicit TextBuilder(std::span<char> buffer) : start_(buffer.data()), capacity_(buffer.size()) {
    *start_ = '\0';
  }

  // A copy would write on in the same buffer, unknown to the first one.
  TextBuilder(const TextBuilder&) = delete;
  TextBuilder& operator=(const TextBuilder&) = delete;
  ~TextBuilder() = default;

  // No argument may be a part of the buffer.
  TextBuilder& print(const char* format, ...) KELO_PRINTF(2, 3);
  TextBuilder& vprint(const char* format, va_list arguments) KELO_PRINTF(2, 0);
  TextBuilder& append(std::string_view text);
  TextBuilder& put(char character);

  [[nodiscard]] const char* c_str() const { return start_; }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::string_view view() const { return {start_, size_}; }

  // How long the text would be in a buffer that is large enough.
  [[nodiscard]] std::size_t full_size() const { return full_size_; }
  // Whether that is more than there is. A piece that printf() could not format counts as cut, too.
  [[nodiscard]] bool cut() const { return full_size_ != size_; }

 protected:
  // Becomes a copy of another text in a buffer of the same size.
  void copy(const TextBuilder& other);

 private:
  void advance(std::size_t length);

  char* const start_;
  const std::size_t capacity_;
  std::size_t size_ = 0;
  std::size_t full_size_ = 0;
};

// The same with a buffer of its own, of `Size` bytes with the terminator.
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
