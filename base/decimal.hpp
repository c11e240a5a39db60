// SPDX-License-Identifier: MIT
// Reads decimal numbers from text.
#ifndef KELO_BASE_DECIMAL_HPP
#define KELO_BASE_DECIMAL_HPP

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <optional>

namespace kelo::base {

// Returns the number at the start of a text, or nothing when there is no digit. White space and a sign may precede the
// number. A number outside the range of int becomes the nearest int, so the result does not depend on the size of long.
inline std::optional<int> leading_decimal(const char* text) {
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  if (end == text) return {};
  return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

}  // namespace kelo::base

#endif  // KELO_BASE_DECIMAL_HPP
