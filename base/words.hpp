// SPDX-License-Identifier: MIT
// Reads and writes bytes one machine word at a time. A word consists of lanes of 16 bits; the smallest word is one
// lane.
#ifndef KELO_BASE_WORDS_HPP
#define KELO_BASE_WORDS_HPP

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace kelo::base {

using LargestWord = std::uintptr_t;

// An integer with one byte for each lane of `Word`.
template <typename Word>
using LaneBytes = std::conditional_t<sizeof(Word) == 8, std::uint32_t,
                                     std::conditional_t<sizeof(Word) == 4, std::uint16_t, std::uint8_t>>;

// Both functions accept any address. Each is a single instruction, but a build for size would still call it.
template <typename T>
[[gnu::always_inline]] inline T load(const void* from) {
  T value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

template <typename T>
[[gnu::always_inline]] inline void store(void* to, T value) {
  std::memcpy(to, &value, sizeof value);
}

inline constexpr bool kLittleEndian = std::endian::native == std::endian::little;

// Returns a word with `value` in each lane.
template <typename Word>
constexpr Word lanes(std::uint16_t value) {
  return static_cast<Word>(static_cast<Word>(-1) / 0xFFFF * value);
}

// Returns a word with `value` in each byte.
template <typename Word>
constexpr Word all_bytes(std::uint8_t value) {
  return static_cast<Word>(static_cast<Word>(-1) / 0xFF * value);
}

// Returns the lanes as bytes in the same order. Each lane must be below 0x100.
template <typename Word>
LaneBytes<Word> packed(Word word) {
  if constexpr (sizeof(Word) == 8) word = (word | word >> 8) & 0x0000FFFF0000FFFF;
  if constexpr (sizeof(Word) != 2) word |= word >> 2 * sizeof(Word);
  return static_cast<LaneBytes<Word>>(word);
}

}  // namespace kelo::base

#endif  // KELO_BASE_WORDS_HPP
