// Hexadecimal text, bytes and integers.
#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

constexpr std::array<char, 16> kDigits = {'0', '1', '2', '3', '4', '5', '6', '7',
                                          '8', '9', 'A', 'B', 'C', 'D', 'E', 'F'};

constexpr unsigned kBase = 16;
constexpr unsigned kNoDigit = 255;

// What each byte counts as a digit: 0 to 9, and 10 to 35 for the letters of either case.
constexpr std::array<std::uint8_t, 256> kDigitValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNoDigit);
  for (unsigned i = 0; i < 10; ++i) values['0' + i] = static_cast<std::uint8_t>(i);
  for (unsigned i = 0; i < 26; ++i) {
    values['a' + i] = static_cast<std::uint8_t>(10 + i);
    values['A' + i] = static_cast<std::uint8_t>(10 + i);
  }
  return values;
}();

unsigned digit_value(char character) { return kDigitValues[static_cast<unsigned char>(character)]; }

bool is_hex_digit(char character) { return digit_value(character) < kBase; }

// The second digit is not looked at behind a first that is none: that one may be the end of the text.
std::optional<std::uint8_t> byte_value(const char* pair) {
  if (!is_hex_digit(pair[0]) || !is_hex_digit(pair[1])) return std::nullopt;
  return static_cast<std::uint8_t>(digit_value(pair[0]) * kBase + digit_value(pair[1]));
}

// Whether the digits of so many bytes and a terminator fit, and their number into the result.
bool digits_fit(std::uint32_t count, std::uint32_t size) {
  const std::uint64_t digits = 2 * std::uint64_t{count};
  return digits < size && digits <= INT_MAX;
}

int write_digits(std::span<const std::uint8_t> bytes, char* text) {
  char* end = text;
  for (const std::uint8_t byte : bytes) {
    *end++ = kDigits[byte / kBase];
    *end++ = kDigits[byte % kBase];
  }
  *end = '\0';
  return static_cast<int>(end - text);
}

}  // namespace

char DecToHex(int value) {
  return value >= 0 && value < static_cast<int>(kBase) ? kDigits[static_cast<std::size_t>(value)] : '\0';
}

int hex_BinaryToString(const std::uint8_t* bytes, std::uint32_t count, char* text, std::uint32_t size) {
  if (bytes == nullptr || text == nullptr) {
    kelo::log::param_null(__func__);
    return -1;
  }
  if (!digits_fit(count, size)) return -1;
  return write_digits({bytes, count}, text);
}

int kelo_hex_BinaryToString(const std::uint8_t* bytes, std::uint32_t count, char* text, std::uint32_t size) {
  if (bytes == nullptr || text == nullptr) {
    kelo::log::param_null(__func__);
    return -1;
  }
  if (!digits_fit(count, size)) {
    KELO_LOG(LOG_LVL_ERR, "Hex string array (%u) is too small to convert (%u) bytes\n", size, count);
    return -1;
  }
  return write_digits({bytes, count}, text);
}

int kelo_hex_StringToBinary(const char* text, std::uint32_t length, std::uint8_t* bytes, std::uint32_t size) {
  if (text == nullptr || bytes == nullptr) {
    kelo::log::param_null(__func__);
    return -1;
  }
  if (length % 2 != 0) {
    KELO_LOG(LOG_LVL_DBUG, "The input stringLength=%u is not a multiple of 2\n", length);
    return -1;
  }
  const std::uint32_t count = length / 2;
  if (size < count) {
    KELO_LOG(LOG_LVL_DBUG, "The stringLength (%u) is too long to convert into a byte array of length (%u)\n",
             length, size);
    return -1;
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::optional<std::uint8_t> byte = byte_value(text + std::size_t{2} * i);
    if (!byte) {
      // Nothing promises a terminator behind the digits.
      KELO_LOG(LOG_LVL_DBUG, "Invalid string to convert (%.*s)\n",
               static_cast<int>(std::min<std::uint32_t>(length, KELO_LOG_LINE_SIZE)), text);
      return -1;
    }
    bytes[i] = *byte;
  }
  return static_cast<int>(count);
}

int kelo_hex_HexaToInteger(const char* text) {
  constexpr std::uint32_t kLastWithRoom = INT_MAX / kBase;
  if (text == nullptr) {
    kelo::log::param_null(__func__);
    return -1;
  }
  std::uint32_t value = 0;
  for (; *text != '\0'; ++text) {
    if (!is_hex_digit(*text) || value > kLastWithRoom) return -1;
    value = value * kBase + digit_value(*text);
  }
  return static_cast<int>(value);
}

int htoi(const char* text) {
  if (text == nullptr) {
    kelo::log::param_null(__func__);
    return 0;
  }
  if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) text += 2;
  std::uint32_t value = 0;
  for (unsigned digit = digit_value(*text); digit != kNoDigit; digit = digit_value(*++text))
    value = value * kBase + digit;
  return static_cast<int>(value);
}

int kelo_change_hexstr_to_str(const char* text, std::uint8_t* bytes) {
  if (text == nullptr || bytes == nullptr) return -1;
  std::size_t length = 0;
  while (is_hex_digit(text[length])) ++length;
  if (text[length] != '\0' || length % 2 != 0) return -1;
  for (std::size_t i = 0; i < length / 2; ++i) bytes[i] = byte_value(text + 2 * i).value_or(0);
  return 0;
}
