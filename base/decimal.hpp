// Decimal numbers in text.
#ifndef KELO_BASE_DECIMAL_HPP
#define KELO_BASE_DECIMAL_HPP

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <optional>

namespace kelo::base {

// The number at the start of a text, behind white space, with a sign or without; nothing where no digit is.
// One beyond the range of an int is the nearest that it has: the same on every machine, however wide its long.
inline std::optional<int> leading_decimal(const char* text) {
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end == text) return {};
  return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

}  // namespace kelo::base

#endif  // KELO_BASE_DECIMAL_HPP
