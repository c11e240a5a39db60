// SPDX-License-Identifier: MIT
// Converts between hexadecimal text, bytes and integers.
#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

#include "base/words.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace {

using kelo::base::all_bytes;
using kelo::base::kLittleEndian;
using kelo::base::LaneBytes;
using kelo::base::lanes;
using kelo::base::LargestWord;
using kelo::base::load;
using kelo::base::packed;
using kelo::base::store;

constexpr std::array<char, 16> kDigits = {'0', '1', '2', '3', '4', '5', '6', '7',
                                          '8', '9', 'A', 'B', 'C', 'D', 'E', 'F'};

constexpr unsigned kBase = 16;
constexpr unsigned kNoDigit = 255;

// Returns the value of a character as a digit: 0 to 9 for digits, and 10 to 35 for upper-case and lower-case letters.
unsigned digit_value(char character) {
  const unsigned digit = static_cast<unsigned char>(character) - unsigned{'0'};
  if (digit < 10) return digit;
  const unsigned letter = (static_cast<unsigned char>(character) | 0x20U) - unsigned{'a'};
  return letter < 26 ? 10 + letter : kNoDigit;
}

bool is_hex_digit(char character) { return digit_value(character) < kBase; }

// Whether all characters of a word are hexadecimal digits.
bool are_hex_digits(LargestWord characters) {
  constexpr auto kAbove = all_bytes<LargestWord>(0x80);
  // The sum has the highest bit of a byte set if its character is `first` or greater.
  const auto from = [](LargestWord word, char first) {
    return word + all_bytes<LargestWord>(static_cast<std::uint8_t>(0x80 - first));
  };
  const LargestWord small = characters | all_bytes<LargestWord>(0x20);
  const LargestWord digits = from(characters, '0') ^ from(characters, '9' + 1);
  const LargestWord letters = from(small, 'a') ^ from(small, 'f' + 1);
  // A character that is not ASCII changes the sum of the next byte, but it is rejected by its own highest bit.
  return ((digits | letters) & ~characters & kAbove) == kAbove;
}

// Returns the number of hexadecimal digits at the start of `length` characters.
std::size_t count_digits(const char* text, std::size_t length) {
  std::size_t count = 0;
  while (length - count >= sizeof(LargestWord) && are_hex_digits(load<LargestWord>(text + count)))
    count += sizeof(LargestWord);
  while (count < length && is_hex_digit(text[count])) ++count;
  return count;
}

// Converts the pairs of digits of a word to bytes.
template <typename Word>
LaneBytes<Word> bytes_of_pairs(Word digits) {
  const auto letters = static_cast<Word>(digits >> 6 & all_bytes<Word>(1));  // bit 6 is set in letters only
  const auto values = static_cast<Word>((digits & all_bytes<Word>(0x0F)) + letters * 9);
  const auto pairs = static_cast<Word>(kLittleEndian ? values << 4 | values >> 8 : values | values >> 4);
  return packed<Word>(static_cast<Word>(pairs & lanes<Word>(0xFF)));
}

// Converts `pairs` pairs of digits to bytes. The bytes may be written over the digits.
void read_pairs(const char* digits, std::size_t pairs, std::uint8_t* out) {
  constexpr std::size_t kPairs = sizeof(LargestWord) / 2;
  for (; pairs >= kPairs; pairs -= kPairs, digits += 2 * kPairs, out += kPairs)
    store(out, bytes_of_pairs(load<LargestWord>(digits)));
  for (; pairs > 0; --pairs, digits += 2) *out++ = bytes_of_pairs(load<std::uint16_t>(digits));
}

// Whether the digits of `count` bytes and a terminator fit into `size` bytes, and the number of digits into an int.
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
  if (bytes == nullptr || text == nullptr) return kelo::log::param_null(__func__);
  if (!digits_fit(count, size)) return -1;
  return write_digits({bytes, count}, text);
}

int kelo_hex_BinaryToString(const std::uint8_t* bytes, std::uint32_t count, char* text, std::uint32_t size) {
  if (bytes == nullptr || text == nullptr) return kelo::log::param_null(__func__);
  if (!digits_fit(count, size)) {
    KELO_LOG(LOG_LVL_ERR, "Hex string array (%u) is too small to convert (%u) bytes\n", size, count);
    return -1;
  }
  return write_digits({bytes, count}, text);
}

int kelo_hex_StringToBinary(const char* text, std::uint32_t length, std::uint8_t* bytes, std::uint32_t size) {
  if (text == nullptr || bytes == nullptr) return kelo::log::param_null(__func__);
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
  // The digits may lack a terminator, and there may be one among them.
  const std::size_t pairs = count_digits(text, strnlen(text, length)) / 2;
  read_pairs(text, pairs, bytes);
  if (pairs != count) {
    KELO_LOG(LOG_LVL_DBUG, "Invalid string to convert (%.*s)\n",
             static_cast<int>(std::min<std::uint32_t>(length, KELO_LOG_LINE_SIZE)), text);
    return -1;
  }
  return static_cast<int>(count);
}

int kelo_hex_HexaToInteger(const char* text) {
  constexpr std::uint32_t kLargestPrefix = INT_MAX / kBase;  // one more digit still fits
  if (text == nullptr) return kelo::log::param_null(__func__);
  std::uint32_t value = 0;
  for (; *text != '\0'; ++text) {
    if (!is_hex_digit(*text) || value > kLargestPrefix) return -1;
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
  const std::size_t length = std::strlen(text);
  if (length % 2 != 0 || count_digits(text, length) != length) return -1;
  read_pairs(text, length / 2, bytes);
  return 0;
}
