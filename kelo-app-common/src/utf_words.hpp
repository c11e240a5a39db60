// Unaligned access to text in the network's encodings, and machine words seen as lanes of 16 bits.
#ifndef KELO_APP_COMMON_UTF_WORDS_HPP
#define KELO_APP_COMMON_UTF_WORDS_HPP

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace kelo::utf {

template <typename T>
T load(const std::uint8_t* from) {
  T value;
  std::memcpy(&value, from, sizeof value);
  return value;
}

template <typename T>
void store(std::uint8_t* to, T value) {
  std::memcpy(to, &value, sizeof value);
}

// What the machine handles at once: four units of UTF-16, or two on a 32-bit machine. A half word holds as
// many bytes as a word holds units.
using Word = std::uintptr_t;
using HalfWord = std::conditional_t<sizeof(Word) == 8, std::uint32_t, std::uint16_t>;
inline constexpr std::size_t kLanes = sizeof(Word) / 2;

// A word with `value` in each lane.
constexpr Word lanes(std::uint16_t value) { return static_cast<Word>(-1) / 0xFFFF * value; }

// The same for a pair of bytes, of which `first` stands at the lower address.
constexpr Word byte_pairs(std::uint8_t first, std::uint8_t second) {
  const bool little = std::endian::native == std::endian::little;
  const unsigned low = little ? first : second;
  const unsigned high = little ? second : first;
  return lanes(static_cast<std::uint16_t>(high << 8 | low));
}

// Whether no lane of `word` is 0. Every lane must be below 0x8001.
constexpr bool no_lane_is_zero(Word word) {
  return ((word + lanes(0x7FFF)) & lanes(0x8000)) == lanes(0x8000);
}

// How many bytes stand from `start` to `end`; an end that lies before its start leaves none.
inline std::size_t distance(const void* start, const void* end) {
  const auto first = reinterpret_cast<std::uintptr_t>(start);
  const auto last = reinterpret_cast<std::uintptr_t>(end);
  return last > first ? last - first : 0;
}

// Whether the pointers name a text: only an empty one may stand nowhere.
template <typename T>
bool is_text(T* const* start, const void* end) {
  return start != nullptr && (*start != nullptr || end == nullptr);
}

}  // namespace kelo::utf

#endif  // KELO_APP_COMMON_UTF_WORDS_HPP
