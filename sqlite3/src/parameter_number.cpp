#include "sqlite3/src/parameter_number.hpp"

#include <limits>

namespace kelo::params {
namespace {

constexpr std::uint64_t kGreatest = std::numeric_limits<std::uint64_t>::max();

bool is_digit(char character) { return character >= '0' && character <= '9'; }
bool is_blank(char character) { return character == ' ' || (character >= '\t' && character <= '\r'); }

bool appendable(std::uint64_t number, char digit) {
  return number <= (kGreatest - static_cast<std::uint64_t>(digit - '0')) / 10;
}

void append(std::uint64_t& number, char digit) {
  number = appendable(number, digit) ? number * 10 + static_cast<std::uint64_t>(digit - '0') : kGreatest;
}

// Takes a minus or plus sign off the front.
bool take_sign(const char*& text) {
  const bool minus = *text == '-';
  if (minus || *text == '+') ++text;
  return minus;
}

// The power of ten behind the digits, 0 without one; far beyond what 64 bits hold it stays where it is.
int exponent_of(const char* text) {
  constexpr int kFarBeyond = 1000;
  if (*text != 'e' && *text != 'E') return 0;
  const bool minus = take_sign(++text);
  int exponent = 0;
  for (; is_digit(*text); ++text)
    if (exponent < kFarBeyond) exponent = exponent * 10 + (*text - '0');
  return minus ? -exponent : exponent;
}

std::uint64_t scaled(std::uint64_t number, int exponent) {
  for (; exponent > 0 && number != 0 && number != kGreatest; --exponent) append(number, '0');
  for (; exponent < 0 && number != 0; ++exponent) number /= 10;
  return number;
}

}  // namespace

std::uint64_t decimal_number(const char* text) {
  while (is_blank(*text)) ++text;
  const bool minus = take_sign(text);
  std::uint64_t number = 0;
  for (; is_digit(*text); ++text) append(number, *text);
  int fraction_digits = 0;
  if (*text == '.') {
    // Digits that no longer fit cannot count: an exponent great enough for them gives the greatest value.
    for (++text; is_digit(*text); ++text) {
      if (!appendable(number, *text)) continue;
      append(number, *text);
      ++fraction_digits;
    }
  }
  number = scaled(number, exponent_of(text) - fraction_digits);
  return minus ? 0 - number : number;
}

}  // namespace kelo::params
