// UTF-8 into UTF-16.
#include <array>
#include <bit>
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
using kelo::utf::no_lane_is_zero;
using kelo::utf::Source;
using kelo::utf::store;
using kelo::utf::Target;
using kelo::utf::Unit;

// ---- Runs ----

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

// Whether all of it is characters of two bytes. A lead byte of C0 or C1 starts none.
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

bool is_trail(std::uint8_t byte) { return (byte & 0xC0) == 0x80; }
bool is_surrogate(std::uint32_t code) { return (code & 0xFFFFF800) == 0xD800; }

void convert_three_byte_run(Source& source, Target& target) {
  Source from = source;
  Target to = target;
  while (from.bytes >= 3 && to.room >= 2) {
    const std::uint8_t* const bytes = from.at;
    if ((bytes[0] & 0xF0) != 0xE0 || !is_trail(bytes[1]) || !is_trail(bytes[2])) break;
    const unsigned unit = (bytes[0] & 0x0FU) << 12 | (bytes[1] & 0x3FU) << 6 | (bytes[2] & 0x3FU);
    if (unit < 0x800 || is_surrogate(unit)) break;
    store(to.at, static_cast<Unit>(unit));
    from.skip(3);
    to.skip(2);
  }
  source = from;
  target = to;
}

// ---- One character at a time ----

// How many bytes follow the first one, by the number of leading one bits in it. Bytes that start no character
// have numbers too: they tell an ill-formed source from one that is cut off.
constexpr std::array<std::uint8_t, 9> kTrailCounts = {0, 0, 1, 2, 3, 4, 5, 5, 5};

struct Form {
  std::uint32_t lead_bits;  // of the first byte's
  std::uint32_t least;      // a smaller code has a shorter form
};
// By the number of bytes that follow.
constexpr std::array<Form, 4> kForms = {{{0x7F, 0}, {0x1F, 0x80}, {0x0F, 0x800}, {0x07, 0x10000}}};

constexpr std::uint32_t kLastCode = 0x10FFFF;

struct Character {
  kelo_unicode_result result;
  std::uint32_t code;
  std::size_t bytes;
};
constexpr Character kIllegal = {KELO_UNICODE_SOURCE_ILLEGAL, 0, 0};

// The character at the start of `source`, which is not empty.
Character decode(const Source& source) {
  const std::uint8_t lead = source.at[0];
  const std::size_t trails = kTrailCounts[static_cast<std::size_t>(std::countl_one(lead))];
  if (trails >= source.bytes) return {KELO_UNICODE_SOURCE_EXHAUSTED, 0, 0};
  if (is_trail(lead) || trails >= kForms.size()) return kIllegal;

  std::uint32_t code = lead & kForms[trails].lead_bits;
  for (std::size_t i = 1; i <= trails; ++i) {
    if (!is_trail(source.at[i])) return kIllegal;
    code = code << 6 | (source.at[i] & 0x3F);
  }
  if (code < kForms[trails].least || is_surrogate(code) || code > kLastCode) return kIllegal;
  return {KELO_UNICODE_COMPLETE, code, trails + 1};
}

void append(std::uint32_t unit, Target& target) {
  store(target.at, static_cast<std::uint16_t>(unit));
  target.skip(2);
}

// Appends a character, or leaves the target as it is when not all of its units fit.
bool encode(std::uint32_t code, Target& target) {
  const bool is_pair = code > 0xFFFF;
  if (target.room < (is_pair ? 4 : 2)) return false;
  if (is_pair) append(0xD800 + ((code - 0x10000) >> 10), target);
  append(is_pair ? 0xDC00 + (code & 0x3FF) : code, target);
  return true;
}

// Alike in both modes: the lenient one lets unpaired units of UTF-16 through, which this source has none of.
kelo_unicode_result convert_character(Source& source, Target& target, bool /*lenient*/) {
  const Character character = decode(source);
  if (character.result != KELO_UNICODE_COMPLETE) return character.result;
  if (!encode(character.code, target)) return KELO_UNICODE_TARGET_EXHAUSTED;
  source.skip(character.bytes);
  return KELO_UNICODE_COMPLETE;
}

struct Rules {
  template <typename Word>
  static constexpr auto one_byte =
      kelo::utf::convert_run<LaneBytes<Word>, Word, is_ascii<LaneBytes<Word>>, unpacked<Word>>;
  template <typename Word>
  static constexpr auto two_bytes =
      kelo::utf::convert_run<Word, Word, is_two_bytes_each<Word>, units_of_pairs<Word>>;
  static constexpr auto three_bytes = convert_three_byte_run;
  static constexpr auto character = convert_character;
};

}  // namespace

int kelo_util_ConvertUTF8toUTF16(const std::uint8_t** source_start, const std::uint8_t* source_end,
                                 std::uint16_t** target_start, std::uint16_t* target_end, int flags) {
  return kelo::utf::convert_text<Rules>(__func__, source_start, source_end, target_start, target_end, flags);
}
