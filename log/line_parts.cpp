// SPDX-License-Identifier: MIT
// Parts that several kinds of log lines have in common.
#include "log/line_parts.hpp"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kelo::log {
namespace {

// A tenth of a number of up to four digits. It is a fixed-point product, because on CPUs without a divide instruction the
// first 32-bit division adds a library function of 600 bytes.
constexpr std::uint32_t kLargestNumber = 9999;
constexpr std::uint32_t tenth_of(std::uint32_t number) { return number * 6554 >> 16; }

// The digits are put together in a number, since an array would cost the stack guard of the function.
void append_digits(base::TextBuilder& line, int number, unsigned width) {
  constexpr bool kFirstByteIsLowest = std::endian::native == std::endian::little;
  std::uint32_t digits = 0;
  auto rest = static_cast<std::uint32_t>(number);
  for (unsigned i = 0; i < width && rest <= kLargestNumber; ++i) {
    const std::uint32_t tenth = tenth_of(rest);
    const std::uint32_t digit = '0' + rest - tenth * 10;
    digits = kFirstByteIsLowest ? digits << 8 | digit : digits >> 8 | digit << 24;
    rest = tenth;
  }
  // A number that is negative or has more digits leaves a rest.
  if (rest == 0)
    line.append({reinterpret_cast<const char*>(&digits), width});
  else
    line.print("%0*d", static_cast<int>(width), number);
}

}  // namespace

void append_stamp(base::TextBuilder& line, std::initializer_list<int> fields) {
  unsigned width = 4;
  const char* separator = "-- ::.";
  for (const int field : fields) {
    append_digits(line, field, width);
    width = *separator == '.' ? 3 : 2;
    if (*separator != '\0') line.put(*separator++);
  }
}

void append_display_name(base::TextBuilder& line, const char* func) {
  static constexpr char kProduct[] = "kelo";
  if (func == nullptr) {
    line.append("(null)");  // the text that the C library prints for a null string
    return;
  }
  while (const char* match = std::strstr(func, kProduct)) {
    line.append({func, static_cast<std::size_t>(match - func)}).append("oem");
    func = match + sizeof kProduct - 1;
  }
  line.append(func);
}

}  // namespace kelo::log
