// SPDX-License-Identifier: MIT
// Converts UTF-8 to UTF-16.
#include <cstddef>
#include <cstdint>

#include "kelo-app-common/src/text_buffers.hpp"
#include "kelo-app-common/src/utf_words.hpp"
#include "kelo_utils/app_common.h"

namespace {

using kelo::utf::byte_pairs;
using kelo::utf::kLittleEndian;
using kelo::utf::LaneBytes;
using kelo::utf::lanes;
using kelo::utf::LargestWord;
using kelo::utf::load;
using kelo::utf::no_lane_is_zero;
using kelo::utf::SourceBytes;
using kelo::utf::store;
using kelo::utf::TargetBytes;
using kelo::utf::Unit;

// ---- Words ----

template <typename Bytes>
bool is_ascii(Bytes bytes) {
  return (bytes & static_cast<Bytes>(static_cast<Bytes>(-1) / 0xFF * 0x80)) == 0;
}

template <typename Word>
Word unpacked(LaneBytes<Word> ascii) {
  Word units = ascii;
  if constexpr (sizeof(Word) == 8) units = (units | units << 16) & 0x0000FFFF0000FFFF;
  if constexpr (sizeof(Word) != 2) units = (units | units << 8) & lanes<Word>(0xFF);
  return units;
}

// Whether the word consists of characters of two bytes. The lead bytes C0 and C1 are not valid.
template <typename Word>
bool is_two_bytes_each(Word pairs) {
  return (pairs & byte_pairs<Word>(0xE0, 0xC0)) == byte_pairs<Word>(0xC0, 0x80) &&
         no_lane_is_zero<Word>(static_cast<Word>(pairs & byte_pairs<Word>(0x1E, 0)));
}

template <typename Word>
Word units_of_pairs(Word pairs) {
  const auto leads = static_cast<Word>((kLittleEndian ? pairs : pairs >> 8) & lanes<Word>(0x1F));
  const auto trails = static_cast<Word>((kLittleEndian ? pairs >> 8 : pairs) & lanes<Word>(0x3F));
  return static_cast<Word>(leads << 6 | trails);
}

// If the next characters all take one byte, or all take two, converts as many as fill a word of the target.
bool convert_word(SourceBytes& source, TargetBytes& target) {
  if (source.bytes() < sizeof(LargestWord) || target.room() < sizeof(LargestWord)) return false;
  const auto ascii = load<LaneBytes<LargestWord>>(source.at);
  if (is_ascii(ascii)) {
    store(target.at, unpacked<LargestWord>(ascii));
    source.at += sizeof ascii;
  } else {
    const auto pairs = load<LargestWord>(source.at);
    if (!is_two_bytes_each(pairs)) return false;
    store(target.at, units_of_pairs(pairs));
    source.at += sizeof pairs;
  }
  target.at += sizeof(LargestWord);
  return true;
}

// ---- One character at a time ----

constexpr std::uint32_t kLastCode = 0x10FFFF;

bool is_surrogate(std::uint32_t code) { return (code & 0xFFFFF800) == 0xD800; }

// Whether all these bytes are in the range 80 to BF.
template <typename... Byte>
bool are_trails(Byte... byte) {
  return (((byte ^ 0x80U) | ...) & 0xC0) == 0;
}

// It is inlined, because a call would keep the pointers of both texts in memory and not in registers.
[[gnu::always_inline]] inline kelo_unicode_result put_unit(std::uint32_t code, std::size_t size,
                                                           SourceBytes& source, TargetBytes& target) {
  if (target.room() < sizeof(Unit)) return KELO_UNICODE_TARGET_EXHAUSTED;
  store(target.at, static_cast<Unit>(code));
  target.at += sizeof(Unit);
  source.at += size;
  return KELO_UNICODE_COMPLETE;
}

kelo_unicode_result put_pair(std::uint32_t code, SourceBytes& source, TargetBytes& target) {
  if (target.room() < 2 * sizeof(Unit)) return KELO_UNICODE_TARGET_EXHAUSTED;
  store(target.at, static_cast<Unit>(0xD7C0 + (code >> 10)));
  store(target.at + sizeof(Unit), static_cast<Unit>(0xDC00 + (code & 0x3FF)));
  target.at += 2 * sizeof(Unit);
  source.at += 4;
  return KELO_UNICODE_COMPLETE;
}

// Converts the next character. The source must not be empty. The mode has no effect: the lenient mode accepts
// unpaired surrogates of UTF-16, and UTF-8 has none. Lead bytes that are not valid have a length, too: it decides
// whether the source is ill-formed or incomplete.
kelo_unicode_result convert_character(SourceBytes& source, TargetBytes& target, bool /*lenient*/) {
  const std::uint8_t* const at = source.at;
  const std::size_t left = source.bytes();
  const std::uint32_t lead = at[0];
  if (lead < 0x80) return put_unit(lead, 1, source, target);
  if (lead < 0xC0) return KELO_UNICODE_SOURCE_ILLEGAL;
  if (lead < 0xE0) {
    if (left < 2) return KELO_UNICODE_SOURCE_EXHAUSTED;
    if (lead < 0xC2 || !are_trails(at[1])) return KELO_UNICODE_SOURCE_ILLEGAL;
    return put_unit((lead & 0x1F) << 6 | (at[1] & 0x3FU), 2, source, target);
  }
  if (lead < 0xF0) {
    if (left < 3) return KELO_UNICODE_SOURCE_EXHAUSTED;
    const std::uint32_t code = (lead & 0x0F) << 12 | (at[1] & 0x3FU) << 6 | (at[2] & 0x3FU);
    if (!are_trails(at[1], at[2]) || code < 0x800 || is_surrogate(code)) return KELO_UNICODE_SOURCE_ILLEGAL;
    return put_unit(code, 3, source, target);
  }
  if (left < (lead < 0xF8 ? 4U : lead < 0xFC ? 5U : 6U)) return KELO_UNICODE_SOURCE_EXHAUSTED;
  const std::uint32_t code =
      (lead & 0x0F) << 18 | (at[1] & 0x3FU) << 12 | (at[2] & 0x3FU) << 6 | (at[3] & 0x3FU);
  if (!are_trails(at[1], at[2], at[3]) || code < 0x10000 || code > kLastCode)
    return KELO_UNICODE_SOURCE_ILLEGAL;
  return put_pair(code, source, target);
}

struct Rules {
  static constexpr std::size_t kFewestBytes = 1;
  static constexpr auto word = convert_word;
  static constexpr auto character = convert_character;
};

}  // namespace

int kelo_util_ConvertUTF8toUTF16(const std::uint8_t** source_start, const std::uint8_t* source_end,
                                 std::uint16_t** target_start, std::uint16_t* target_end, int flags) {
  return kelo::utf::convert_text<Rules>(__func__, source_start, source_end, target_start, target_end, flags);
}
