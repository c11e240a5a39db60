// SPDX-License-Identifier: MIT
// Divides one 32-bit word after the other, as one divides digit by digit with pencil and paper.
#include "base/division.hpp"

namespace kelo::base {
namespace {

constexpr bool kCpuDivides = sizeof(void*) == 8;

// Divides a word that follows `rest`, the remainder of the words before it. Returns the word of the quotient and leaves
// the new remainder in `rest`. CPUs that divide do not call it.
[[maybe_unused]] std::uint32_t divide_word(std::uint32_t& rest, std::uint32_t word, std::uint32_t divisor) {
  for (int bit = 0; bit < 32; ++bit) {
    rest = rest << 1 | word >> 31;
    word <<= 1;
    if (rest >= divisor) {
      rest -= divisor;
      ++word;
    }
  }
  return word;
}

}  // namespace

std::uint32_t divide_in_place(std::uint64_t& number, std::uint32_t divisor) {
  std::uint32_t rest = 0;
  if constexpr (kCpuDivides) {
    rest = static_cast<std::uint32_t>(number % divisor);
    number /= divisor;
  } else {
    const auto high = static_cast<std::uint32_t>(number >> 32);
    std::uint32_t high_quotient = 0;
    if (high < divisor) {
      rest = high;  // the usual case
    } else {
      high_quotient = divide_word(rest, high, divisor);
    }
    number =
        std::uint64_t{high_quotient} << 32 | divide_word(rest, static_cast<std::uint32_t>(number), divisor);
  }
  return rest;
}

std::uint32_t remainder(std::uint32_t number, std::uint32_t divisor) {
  std::uint64_t dividend = number;
  return divide_in_place(dividend, divisor);
}

}  // namespace kelo::base
