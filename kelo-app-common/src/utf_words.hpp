// SPDX-License-Identifier: MIT
// Converts text one machine word at a time where its characters take the same number of bytes. Each unit of UTF-16 in
// a word has a lane of 16 bits.
#ifndef KELO_APP_COMMON_UTF_WORDS_HPP
#define KELO_APP_COMMON_UTF_WORDS_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "base/words.hpp"
#include "kelo-app-common/src/text_buffers.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace kelo::utf {

using base::kLittleEndian;
using base::LaneBytes;
using base::lanes;
using base::LargestWord;
using base::load;
using base::store;
using Unit = std::uint16_t;

// Returns a word with these two bytes in each lane. `first` has the lower address.
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

// Converts the whole source by the rules of one direction. It converts words whose characters take one or two bytes
// of UTF-8 each. Where the next word has other characters, it converts a few single characters.
template <typename Rules>
kelo_unicode_result convert_all(SourceBytes& source, TargetBytes& target, bool lenient) {
  constexpr unsigned kFewest = sizeof(LargestWord) / sizeof(Unit);
  constexpr unsigned kMost = 64;
  unsigned singles = kFewest;
  for (;;) {
    while (Rules::word(source, target)) singles = kFewest;
    for (unsigned i = 0; i < singles; ++i) {
      if (source.bytes() < Rules::kFewestBytes)
        return source.bytes() == 0 ? KELO_UNICODE_COMPLETE : KELO_UNICODE_SOURCE_EXHAUSTED;
      const kelo_unicode_result result = Rules::character(source, target, lenient);
      if (result != KELO_UNICODE_COMPLETE) return result;
    }
    // In a text of other characters, words are tried less and less often.
    singles = std::min(2 * singles, kMost);
  }
}

// The exported operation of one direction. It moves both starts to the points where the conversion has ended, and
// logs under the name `caller`.
template <typename Rules, typename From, typename To>
int convert_text(const char* caller, const From** source_start, const From* source_end, To** target_start,
                 To* target_end, int flags) {
  if (!is_valid_text(source_start, source_end) || !is_valid_text(target_start, target_end)) {
    log::param_null(caller);
    return KELO_UNICODE_SOURCE_ILLEGAL;
  }
  const auto* const from = reinterpret_cast<const std::uint8_t*>(*source_start);
  auto* const to = reinterpret_cast<std::uint8_t*>(*target_start);
  SourceBytes source{from, from + bytes_between(from, source_end)};
  TargetBytes target{to, to + bytes_between(to, target_end)};
  const kelo_unicode_result result = convert_all<Rules>(source, target, flags != KELO_UNICODE_STRICT);
  *source_start = reinterpret_cast<const From*>(source.at);
  *target_start = reinterpret_cast<To*>(target.at);
  return result;
}

}  // namespace kelo::utf

#endif  // KELO_APP_COMMON_UTF_WORDS_HPP
