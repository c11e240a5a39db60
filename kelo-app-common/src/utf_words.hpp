// Runs of like characters, converted a machine word at a time. A word holds a number of units of UTF-16, each
// in a lane of 16 bits; the smallest word is a single unit.
#ifndef KELO_APP_COMMON_UTF_WORDS_HPP
#define KELO_APP_COMMON_UTF_WORDS_HPP

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "kelo-app-common/src/text_buffers.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace kelo::utf {

using LargestWord = std::uintptr_t;
using Unit = std::uint16_t;

// As many bytes as `Word` has lanes.
template <typename Word>
using LaneBytes = std::conditional_t<sizeof(Word) == 8, std::uint32_t,
                                     std::conditional_t<sizeof(Word) == 4, std::uint16_t, std::uint8_t>>;

// Text may stand at any address.
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

inline constexpr bool kLittleEndian = std::endian::native == std::endian::little;

// A word with `value` in each lane.
template <typename Word>
constexpr Word lanes(Unit value) {
  return static_cast<Word>(static_cast<Word>(-1) / 0xFFFF * value);
}

// The same for two bytes, of which `first` stands at the lower address.
template <typename Word>
constexpr Word byte_pairs(std::uint8_t first, std::uint8_t second) {
  const unsigned low = kLittleEndian ? first : second;
  const unsigned high = kLittleEndian ? second : first;
  return lanes<Word>(static_cast<Unit>(high << 8 | low));
}

// Whether no lane of `word` is 0. Every lane must be below 0x8001.
template <typename Word>
constexpr bool no_lane_is_zero(Word word) {
  return ((word + lanes<Word>(0x7FFF)) & lanes<Word>(0x8000)) == lanes<Word>(0x8000);
}

// Converts one `In` after the other to an `Out` while `takes` holds for it.
template <typename In, typename Out, bool (*takes)(In), Out (*converted)(In)>
void convert_run(Source& source, Target& target) {
  Source from = source;
  Target to = target;
  while (from.bytes >= sizeof(In) && to.room >= sizeof(Out)) {
    const In in = load<In>(from.at);
    if (!takes(in)) break;
    store<Out>(to.at, converted(in));
    from.skip(sizeof(In));
    to.skip(sizeof(Out));
  }
  source = from;
  target = to;
}

// Converts the whole source by the rules of one direction: runs of characters of one, two and three bytes in
// UTF-8, and single characters, which may be any.
template <typename Rules>
kelo_unicode_result convert_all(Source& source, Target& target, bool lenient) {
  for (;;) {
    std::size_t left = 0;
    do {  // a blank between two words is the usual case
      Rules::template one_byte<LargestWord>(source, target);
      Rules::template one_byte<Unit>(source, target);
      left = source.bytes;
      Rules::template two_bytes<LargestWord>(source, target);
      Rules::template two_bytes<Unit>(source, target);
    } while (source.bytes != left);
    Rules::three_bytes(source, target);
    if (source.bytes == 0) return KELO_UNICODE_COMPLETE;
    const kelo_unicode_result result = Rules::character(source, target, lenient);
    if (result != KELO_UNICODE_COMPLETE) return result;
  }
}

// The exported operation of one direction, which logs under the name `caller`: moves both starts to where the
// conversion ended.
template <typename Rules, typename From, typename To>
int convert_text(const char* caller, const From** source_start, const From* source_end, To** target_start,
                 To* target_end, int flags) {
  if (!is_text(source_start, source_end) || !is_text(target_start, target_end)) {
    log::param_null(caller);
    return KELO_UNICODE_SOURCE_ILLEGAL;
  }
  Source source{reinterpret_cast<const std::uint8_t*>(*source_start), distance(*source_start, source_end)};
  Target target{reinterpret_cast<std::uint8_t*>(*target_start), distance(*target_start, target_end)};
  const kelo_unicode_result result = convert_all<Rules>(source, target, flags != KELO_UNICODE_STRICT);
  *source_start = reinterpret_cast<const From*>(source.at);
  *target_start = reinterpret_cast<To*>(target.at);
  return result;
}

}  // namespace kelo::utf

#endif  // KELO_APP_COMMON_UTF_WORDS_HPP
