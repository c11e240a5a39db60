// Values as numbers and truth values, and numbers as values.
#include <algorithm>
#include <array>
#include <cinttypes>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kelo_utils/ini.h"

namespace {

using NumberText = std::array<char, 64>;

// What may stand in a decimal number, infinity and the like included, behind white space.
constexpr char kDecimal[] = " \t\n\v\f\r+-.0123456789eEinfatyINFATY";

bool read_number(const char* section, const char* key, const char* filename, NumberText& text) {
  return ini_gets(section, key, nullptr, text.data(), static_cast<int>(text.size()), filename) != 0;
}

// Converts with the locale's decimal point, wherever the text has a ".".
float decimal(NumberText& text) {
  text[std::strspn(text.data(), kDecimal)] = '\0';
  char* const point = std::strchr(text.data(), '.');
  if (point == nullptr) return std::strtof(text.data(), nullptr);
  *point = '\0';
  std::array<char, 16> around;
  const int length = std::snprintf(around.data(), around.size(), "%.1f", 0.0);
  std::array<char, std::tuple_size_v<NumberText> + around.size()> localised;
  std::snprintf(localised.data(), localised.size(), "%s%.*s%s", text.data(), length - 2, around.data() + 1,
                point + 1);
  return std::strtof(localised.data(), nullptr);
}

// Puts a "." in the place of the locale's decimal point, in a text with six digits behind it.
void use_plain_point(NumberText& text, std::size_t length) {
  char* const point = text.data() + std::strspn(text.data(), "-0123456789");
  char* const fraction = text.data() + length - 6;
  *point = '.';
  std::memmove(point + 1, fraction, 7);
}

}  // namespace

std::int32_t ini_getl(const char* section, const char* key, std::int32_t def_value, const char* filename) {
  NumberText text;
  if (!read_number(section, key, filename, text)) return def_value;
  const bool hexadecimal = text[1] == 'x' || text[1] == 'X';
  const long long number = std::strtoll(text.data(), nullptr, hexadecimal ? 16 : 10);
  return static_cast<std::int32_t>(std::clamp<long long>(number, INT32_MIN, INT32_MAX));
}

float ini_getf(const char* section, const char* key, float def_value, const char* filename) {
  NumberText text;
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
  NumberText text;
  std::snprintf(text.data(), text.size(), "%" PRId32, value);
  return ini_puts(section, key, text.data(), filename);
}

int ini_putf(const char* section, const char* key, float value, const char* filename) {
  NumberText text;
  const int length = std::snprintf(text.data(), text.size(), "%f", static_cast<double>(value));
  if (std::isfinite(value)) use_plain_point(text, static_cast<std::size_t>(length));
  return ini_puts(section, key, text.data(), filename);
}
