// SPDX-License-Identifier: MIT
// Reads decimal numbers from the texts of cells.
#include "sqlite3/src/parameters/number.hpp"

#include <limits>

#include "base/division.hpp"

namespace kelo::params {
namespace {

constexpr std::uint64_t kGreatest = std::numeric_limits<std::uint64_t>::max();

bool is_digit(char character) { return character >= '0' && character <= '9'; }
bool is_blank(char character) { return character == ' ' || (character >= '\t' && character <= '\r'); }

bool fits(std::uint64_t number, char digit) {
  return number < kGreatest / 10 ||
         (number == kGreatest / 10 && static_cast<std::uint64_t>(digit - '0') <= kGreatest % 10);
}

std::uint64_t with_digit(std::uint64_t number, char digit) {
  return number * 10 + static_cast<std::uint64_t>(digit - '0');
}

// Skips a sign and returns whether it is a minus.
bool take_sign(const char*& text) {
  const bool minus = *text == '-';
  if (minus || *text == '+') ++text;
  return minus;
}

// Returns the exponent after the digits, or 0 when there is none. It stops growing when no 64-bit number can need
// more.
int exponent_of(const char* text) {
  constexpr int kFarBeyond = 100'000'000;
  if (*text != 'e' && *text != 'E') return 0;
  const bool minus = take_sign(++text);
  int exponent = 0;
  for (; is_digit(*text); ++text)
    if (exponent < kFarBeyond) exponent = exponent * 10 + (*text - '0');
  return minus ? -exponent : exponent;
}

// The first digits of a number, as many as fit into 64 bits. The number is multiplied by ten to the power.
struct Digits {
  std::uint64_t number = 0;
  int power = 0;
  bool cut = false;  // there are digits that did not fit
};

Digits take_digits(const char*& text) {
  Digits digits;
  int after_point = 0;
  for (;; ++text) {
    if (*text == '.' && after_point == 0) {
      after_point = 1;
      continue;
    }
    if (!is_digit(*text)) return digits;
    digits.cut = digits.cut || !fits(digits.number, *text);
    if (!digits.cut) digits.number = with_digit(digits.number, *text);
    digits.power += (digits.cut ? 1 : 0) - after_point;
  }
}

std::uint64_t value_of(const Digits& digits, int power) {
  std::uint64_t number = digits.number;
  // The digits that did not fit make the number greater than 64 bits can hold.
  if (power > 0 && digits.cut) return kGreatest;
  for (; power > 0 && number != 0; --power) {
    if (!fits(number, '0')) return kGreatest;
    number = with_digit(number, '0');
  }
  for (; power < 0 && number != 0; ++power) base::divide_in_place(number, 10);
  return number;
}

}  // namespace

std::uint64_t decimal_number(const char* text) {
  while (is_blank(*text)) ++text;
  const bool minus = take_sign(text);
  const Digits digits = take_digits(text);
  const std::uint64_t number = value_of(digits, digits.power + exponent_of(text));
  return minus ? 0 - number : number;
}

}  // namespace kelo::params
