// The number that a cell's text begins with.
#ifndef KELO_SQLITE3_PARAMETERS_NUMBER_HPP
#define KELO_SQLITE3_PARAMETERS_NUMBER_HPP

#include <cstdint>

namespace kelo::params {

// Reads a decimal number, whatever the locale: blanks, a sign, digits, a fraction that is dropped, an exponent.
// 0 when there is none; what is above 64 bits gives their greatest value; a minus sign gives the complement.
std::uint64_t decimal_number(const char* text);

}  // namespace kelo::params

#endif  // KELO_SQLITE3_PARAMETERS_NUMBER_HPP
