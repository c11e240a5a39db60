// SPDX-License-Identifier: MIT
// Reads values as numbers and truth values, and writes numbers as values.
#include <algorithm>
#include <array>
#include <cinttypes>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/text_builder.hpp"
#include "kelo_utils/ini.h"

namespace {

using FoundNumber = std::array<char, 64>;
using NumberText =
    kelo::base::FixedText<128>;  // enough for a number of the file and the decimal point of the locale

// The characters of a decimal number, which may follow white space and may be an infinity or "nan".
constexpr char kDecimal[] = " \t\n\v\f\r+-.0123456789eEinfatyINFATY";

bool read_number(const char* section, const char* key, const char* filename, FoundNumber& text) {
  return ini_gets(section, key, nullptr, text.data(), static_cast<int>(text.size()), filename) != 0;
}

// Converts a text with a "." to a number. strtof() expects the decimal point of the locale, so the "." is replaced.
float decimal(FoundNumber& text) {
  text[std::strspn(text.data(), kDecimal)] = '\0';
  char* const point = std::strchr(text.data(), '.');
  if (point == nullptr) return std::strtof(text.data(), nullptr);
  *point = '\0';
  const NumberText around("%.1f", 0.0);
  const NumberText localised("%s%.*s%s", text.data(), static_cast<int>(around.size()) - 2, around.c_str() + 1,
                             point + 1);
  return std::strtof(localised.c_str(), nullptr);
}

// Replaces the decimal point of the locale by a ".". The text has six digits after it.
NumberText with_plain_point(const NumberText& localised) {
  const char* const text = localised.c_str();
  return NumberText("%.*s.%s", static_cast<int>(std::strspn(text, "-0123456789")), text,
                    text + localised.size() - 6);
}

}  // namespace

std::int32_t ini_getl(const char* section, const char* key, std::int32_t def_value, const char* filename) {
  FoundNumber text;
  if (!read_number(section, key, filename, text)) return def_value;
  const bool hexadecimal = text[1] == 'x' || text[1] == 'X';
  const long number = std::strtol(text.data(), nullptr, hexadecimal ? 16 : 10);
  return static_cast<std::int32_t>(std::clamp<long>(number, INT32_MIN, INT32_MAX));
}

float ini_getf(const char* section, const char* key, float def_value, const char* filename) {
  FoundNumber text;
  return read_number(section, key, filename, text) ? decimal(text) : def_value;
}

int ini_getbool(const char* section, const char* key, int def_value, const char* filename) {
  std::array<char, 2> first{};
  ini_gets(section, key, nullptr, first.data(), static_cast<int>(first.size()), filename);
  switch (first[0]) {
    case 'T':
    case 't':
    case 'Y':
    case 'y':
    case '1':
      return 1;
    case 'F':
    case 'f':
    case 'N':
    case 'n':
    case '0':
      return 0;
    default:
      return def_value;
  }
}

int ini_putl(const char* section, const char* key, std::int32_t value, const char* filename) {
  return ini_puts(section, key, NumberText("%" PRId32, value).c_str(), filename);
}

int ini_putf(const char* section, const char* key, float value, const char* filename) {
  const NumberText text("%f", static_cast<double>(value));
  if (!std::isfinite(value)) return ini_puts(section, key, text.c_str(), filename);
  return ini_puts(section, key, with_plain_point(text).c_str(), filename);
}
