// SPDX-License-Identifier: MIT
// Texts for the hexadecimal helpers.
#ifndef KELO_TESTS_SUPPORT_HEX_TEXT_HPP
#define KELO_TESTS_SUPPORT_HEX_TEXT_HPP

#include <string>

namespace kelo::tests {

inline bool is_digits(const std::string& text) {
  return text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

inline std::string pair_of(int first, int second) {
  return {static_cast<char>(first), static_cast<char>(second)};
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_HEX_TEXT_HPP
