// SPDX-License-Identifier: MIT
// Numbers in the texts of cells.
#ifndef KELO_SQLITE3_PARAMETERS_NUMBER_HPP
#define KELO_SQLITE3_PARAMETERS_NUMBER_HPP

#include <cstdint>

namespace kelo::params {

// Reads the decimal number at the start of `text`, independent of the locale: blanks, a sign, digits, a fraction and
// an exponent. The fraction is dropped. Returns 0 when there is no number, the greatest value when 64 bits cannot
// hold it, and the complement after a minus sign.
std::uint64_t decimal_number(const char* text);

}  // namespace kelo::params

#endif  // KELO_SQLITE3_PARAMETERS_NUMBER_HPP
