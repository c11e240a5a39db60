// SPDX-License-Identifier: MIT
// What conversions of text are compared with: the C library's iconv, and character by character arithmetic.
#ifndef KELO_TESTS_UNICODE_ORACLE_HPP
#define KELO_TESTS_UNICODE_ORACLE_HPP

#include <iconv.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/exact_buffer.hpp"

namespace kelo::tests {

inline constexpr const char* kHostUtf16 =
    std::endian::native == std::endian::little ? "UTF-16LE" : "UTF-16BE";

// One conversion of iconv, opened once.
class Iconv {
 public:
  Iconv(const char* to, const char* from) : handle_(iconv_open(to, from)) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-cstyle-cast,performance-no-int-to-ptr): POSIX's failure value
    if (handle_ == (iconv_t)-1) std::abort();
  }
  ~Iconv() { iconv_close(handle_); }
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;

  // The converted text; what iconv refuses is cut off, and seen in errno.
  [[nodiscard]] std::string convert(std::string_view text) const {
    std::string converted(3 * text.size() + 4, '\0');
    char* source = const_cast<char*>(text.data());
    std::size_t source_left = text.size();
    char* target = converted.data();
    std::size_t room = converted.size();
    errno = 0;
    iconv(handle_, nullptr, nullptr, nullptr, nullptr);
    iconv(handle_, &source, &source_left, &target, &room);
    converted.resize(converted.size() - room);
    return converted;
  }

 private:
  iconv_t handle_;
};

// The bytes of 16-bit units, in the machine's order.
inline std::string bytes_of_unit(std::uint16_t unit) {
  return {reinterpret_cast<const char*>(&unit), sizeof unit};
}
inline std::string bytes_of(const std::vector<std::uint16_t>& units) {
  std::string bytes;
  for (const std::uint16_t unit : units) bytes += bytes_of_unit(unit);
  return bytes;
}

// The units of a code point; a surrogate is its own unit.
inline std::vector<std::uint16_t> utf16_of(std::uint32_t code) {
  if (code < 65536) return {static_cast<std::uint16_t>(code)};
  const std::uint32_t offset = code - 65536;
  return {static_cast<std::uint16_t>(55296 + offset / 1024),
          static_cast<std::uint16_t>(56320 + offset % 1024)};
}

// The bytes of a code point; surrogates have the three that their number gives.
inline std::string utf8_of(std::uint32_t code) {
  if (code < 128) return {static_cast<char>(code)};
  std::string bytes;
  std::uint32_t lead_room = 64;  // how many numbers the first byte can hold
  do {
    bytes += static_cast<char>(128 + code % 64);
    code /= 64;
    lead_room /= 2;
  } while (code >= lead_room);
  bytes += static_cast<char>(256 - 2 * lead_room + code);
  std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

inline bool is_surrogate(std::uint32_t code) { return code >= 0xD800 && code <= 0xDFFF; }

// A block of exactly these bytes, without a terminator.
inline ExactBuffer exactly(std::string_view bytes) {
  ExactBuffer buffer(bytes.size());
  std::copy(bytes.begin(), bytes.end(), buffer.data());
  return buffer;
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_UNICODE_ORACLE_HPP
