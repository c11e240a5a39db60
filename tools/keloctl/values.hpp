// SPDX-License-Identifier: MIT
// Values of settings as text: what is shown of them, and how they are read from the command line.
#ifndef KELO_TOOLS_KELOCTL_VALUES_HPP
#define KELO_TOOLS_KELOCTL_VALUES_HPP

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/heap.hpp"

namespace kelo::ctl {

// The length of the UTF-8 character that begins at `index`, or 0 when none does.
std::size_t utf8_length(std::string_view text, std::size_t index);
// Whether a character begins there that a terminal may be given.
bool is_printable(std::string_view text, std::size_t index);

// Bytes on the heap, with a terminator after them. It is empty when memory has run out.
class Bytes {
 public:
  Bytes() = default;
  explicit Bytes(std::string_view copied);
  static Bytes of_size(std::size_t size);

  explicit operator bool() const { return bytes_ != nullptr; }
  [[nodiscard]] char* data() { return bytes_.get(); }
  [[nodiscard]] const char* c_str() const { return bytes_.get(); }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::string_view view() const { return {bytes_.get(), size_}; }
  void cut(std::size_t size);

 private:
  base::HeapPtr<char[]> bytes_;
  std::size_t size_ = 0;
};

// The number that a value of type 1 to 4 holds, in the byte order of the machine. Returns false for other sizes than 1,
// 2, 4 and 8 bytes.
bool number_of(std::string_view value, long long& number);

// The form in which a value is shown: a number for types 1 to 4, the text for type 5, and hexadecimal digits otherwise.
Bytes shown_value(int type, std::string_view value);

// Reads an even number of hexadecimal digits. The result is empty when the text holds anything else.
Bytes from_hex(std::string_view text);

// Reads a number that fits into `size` bytes, with or without a sign.
Bytes from_number(const char* text, std::size_t size);

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_VALUES_HPP
