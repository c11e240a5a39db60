// SPDX-License-Identifier: MIT
// The characters of the GSM default alphabet as bytes of UTF-8.
#ifndef KELO_APP_COMMON_GSM_ALPHABET_HPP
#define KELO_APP_COMMON_GSM_ALPHABET_HPP

#include <array>
#include <cstdint>

namespace kelo::gsm {

inline constexpr unsigned kEscape = 27;  // it leads to the extension table

// Returns the UTF-8 bytes of a character below 0x800. A value below 256 is one byte, a greater value is two bytes with
// the first one in the high bits.
constexpr std::uint16_t utf8_bytes(char16_t character) {
  if (character < 0x80) return character;
  return static_cast<std::uint16_t>((0xC0 | character >> 6) << 8 | (0x80 | (character & 0x3F)));
}

// The bytes for each septet. The escape has those of a space.
extern const std::array<std::uint16_t, 128> kUtf8Bytes;

}  // namespace kelo::gsm

#endif  // KELO_APP_COMMON_GSM_ALPHABET_HPP
