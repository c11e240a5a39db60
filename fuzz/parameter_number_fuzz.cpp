// SPDX-License-Identifier: MIT
// The reader of numbers in the cells of a parameter database, compared with the C library's.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/input.hpp"
#include "sqlite3/src/parameters/number.hpp"

using kelo::fuzz::require;

namespace {

constexpr double kTwoTo64 = 18446744073709551616.0;

// The same text as a floating-point number, its leading sign taken off. Hexadecimal numbers, infinity
// and the other forms that the C library's reader knows begin with letters, or with a 0x that is cut here.
double magnitude_of(const std::string& text) {
  std::size_t begin = text.find_first_not_of(" \t\n\v\f\r");
  if (begin == std::string::npos) return 0;
  if (text[begin] == '-' || text[begin] == '+') ++begin;
  std::string digits = text.substr(begin);
  digits.resize(std::min(digits.find_first_not_of("0123456789.eE+-"), digits.size()));
  return digits.empty() || digits[0] == '+' || digits[0] == '-' ? 0 : std::strtod(digits.c_str(), nullptr);
}

bool is_negative(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(" \t\n\v\f\r");
  return begin != std::string::npos && text[begin] == '-';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = kelo::fuzz::Input(data, size).text();
  const std::uint64_t number = kelo::params::decimal_number(text.c_str());
  const std::uint64_t magnitude = is_negative(text) ? 0 - number : number;
  const double expected = magnitude_of(text);
  // Of 64 bits a floating-point number has the first 53.
  if (expected >= kTwoTo64) {
    require(magnitude > UINT64_MAX - 2048);
  } else {
    // A fraction is dropped.
    require(static_cast<double>(magnitude) <= expected * (1 + 1e-15));
    require(static_cast<double>(magnitude) > expected * (1 - 1e-15) - 1);
  }
  return 0;
}
