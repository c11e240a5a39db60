// SPDX-License-Identifier: MIT
// Builds text in a fixed buffer.
#include "base/text_builder.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace kelo::base {

TextBuilder& TextBuilder::print(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vprint(format, arguments);
  va_end(arguments);
  return *this;
}

TextBuilder& TextBuilder::vprint(const char* format, va_list arguments) {
  char* const end = start_ + size_;
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): print() has called va_start, which the analyzer misses
  const int length = std::vsnprintf(end, capacity_ - size_, format, arguments);
  if (length >= 0) {
    advance(static_cast<std::size_t>(length));
  } else {
    // vsnprintf() has failed, so the piece is dropped. Its length is unknown and counts as one byte.
    *end = '\0';
    ++full_size_;
  }
  return *this;
}

TextBuilder& TextBuilder::append(std::string_view text) {
  const std::size_t kept = std::min(text.size(), capacity_ - size_ - 1);
  if (kept != 0) std::memcpy(start_ + size_, text.data(), kept);
  start_[size_ + kept] = '\0';
  advance(text.size());
  return *this;
}

TextBuilder& TextBuilder::put(char character) { return append({&character, 1}); }

void TextBuilder::copy(const TextBuilder& other) {
  std::memcpy(start_, other.start_, other.size_ + 1);
  size_ = other.size_;
  full_size_ = other.full_size_;
}

void TextBuilder::advance(std::size_t length) {
  full_size_ += length;
  size_ = std::min(size_ + length, capacity_ - 1);
}

}  // namespace kelo::base
