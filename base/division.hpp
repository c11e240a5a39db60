// SPDX-License-Identifier: MIT
// Divisions for CPUs without a divide instruction. There each `/` and `%` calls the compiler's library, whose function
// for 64 bits takes 300 bytes and the one for 32 bits 600.
#ifndef KELO_BASE_DIVISION_HPP
#define KELO_BASE_DIVISION_HPP

#include <cstdint>

namespace kelo::base {

// Divides a number by a constant as a fixed-point product, which takes one instruction. The product is exact while the
// number times the rounding error of the factor is below 2^32.
template <std::uint32_t Divisor, std::uint32_t Greatest>
constexpr std::uint32_t divide(std::uint32_t number) {
  constexpr std::uint64_t kOne = std::uint64_t{1} << 32;
  constexpr std::uint64_t kFactor = (kOne + Divisor - 1) / Divisor;
  static_assert(Greatest * (kFactor * Divisor - kOne) < kOne);
  return static_cast<std::uint32_t>(number * kFactor >> 32);
}

// Divides `number` in place and returns the remainder. The divisor must be from 1 to 2^31.
std::uint32_t divide_in_place(std::uint64_t& number, std::uint32_t divisor);

// Returns the remainder alone. The divisor must be from 1 to 2^31.
std::uint32_t remainder(std::uint32_t number, std::uint32_t divisor);

}  // namespace kelo::base

#endif  // KELO_BASE_DIVISION_HPP
