// UTF-16 into UTF-8.
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
using kelo::utf::Source;
using kelo::utf::store;
using kelo::utf::Target;
using kelo::utf::Unit;

// ---- Runs ----

template <typename Word>
bool is_ascii(Word units) {
  return (units & lanes<Word>(0xFF80)) == 0;
}

template <typename Word>
LaneBytes<Word> packed(Word units) {
  if constexpr (sizeof(Word) == 8) units = (units | units >> 8) & 0x0000FFFF0000FFFF;
  if constexpr (sizeof(Word) != 2) units |= units >> 2 * sizeof(Word);
  return static_cast<LaneBytes<Word>>(units);
}

template <typename Word>
bool takes_two_bytes_each(Word units) {
  return (units & lanes<Word>(0xF800)) == 0 &&
         no_lane_is_zero<Word>(static_cast<Word>(units & lanes<Word>(0x0780)));
}

template <typename Word>
Word two_bytes_each(Word units) {
  const auto leads = static_cast<Word>(units >> 6 & lanes<Word>(0x1F));
  const auto trails = static_cast<Word>(units & lanes<Word>(0x3F));
  return static_cast<Word>(byte_pairs<Word>(0xC0, 0x80) |
                           (kLittleEndian ? trails << 8 | leads : leads << 8 | trails));
}

bool is_surrogate(unsigned unit) { return (unit & 0xF800) == 0xD800; }

std::uint8_t trail(std::uint32_t bits) { return static_cast<std::uint8_t>(0x80 | (bits & 0x3F)); }

void put_three_bytes(std::uint32_t code, std::uint8_t* to) {
  to[0] = static_cast<std::uint8_t>(0xE0 | code >> 12);
  to[1] = trail(code >> 6);
  to[2] = trail(code);
}

void convert_three_byte_run(Source& source, Target& target) {
  Source from = source;
  Target to = target;
  while (from.bytes >= 2 && to.room >= 3) {
    const unsigned unit = load<Unit>(from.at);
    if (unit < 0x800 || is_surrogate(unit)) break;
    put_three_bytes(unit, to.at);
    from.skip(2);
    to.skip(3);
  }
  source = from;
  target = to;
}

// ---- One character at a time ----

bool is_high_surrogate(unsigned unit) { return (unit & 0xFC00) == 0xD800; }
bool is_low_surrogate(unsigned unit) { return (unit & 0xFC00) == 0xDC00; }

struct Character {
  kelo_unicode_result result;
  std::uint32_t code;
  std::size_t units;
};

// The character at the start of `source`, which holds half a unit at least.
Character decode(const Source& source, bool lenient) {
  if (source.bytes < 2) return {KELO_UNICODE_SOURCE_EXHAUSTED, 0, 0};
  const unsigned unit = load<Unit>(source.at);
  if (!is_surrogate(unit)) return {KELO_UNICODE_COMPLETE, unit, 1};
  if (is_high_surrogate(unit)) {
    if (source.bytes < 4) return {KELO_UNICODE_SOURCE_EXHAUSTED, 0, 0};
    const unsigned next = load<Unit>(source.at + 2);
    if (is_low_surrogate(next)) {
      return {KELO_UNICODE_COMPLETE, 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00), 2};
    }
  }
  if (!lenient) return {KELO_UNICODE_SOURCE_ILLEGAL, 0, 0};
  return {KELO_UNICODE_COMPLETE, unit, 1};
}

// Appends a character, or leaves the target as it is when not all of its bytes fit.
bool encode(std::uint32_t code, Target& target) {
  const std::size_t size = code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
  if (size > target.room) return false;
  std::uint8_t* const to = target.at;
  switch (size) {
    case 1:
      to[0] = static_cast<std::uint8_t>(code);
      break;
    case 2:
      store(to, two_bytes_each(static_cast<Unit>(code)));
      break;
    case 3:
      put_three_bytes(code, to);
      break;
    default:
      to[0] = static_cast<std::uint8_t>(0xF0 | code >> 18);
      to[1] = trail(code >> 12);
      to[2] = trail(code >> 6);
      to[3] = trail(code);
      break;
  }
  target.skip(size);
  return true;
}

kelo_unicode_result convert_character(Source& source, Target& target, bool lenient) {
  const Character character = decode(source, lenient);
  if (character.result != KELO_UNICODE_COMPLETE) return character.result;
  if (!encode(character.code, target)) return KELO_UNICODE_TARGET_EXHAUSTED;
  source.skip(2 * character.units);
  return KELO_UNICODE_COMPLETE;
}

struct Rules {
  template <typename Word>
  static constexpr auto one_byte =
      kelo::utf::convert_run<Word, LaneBytes<Word>, is_ascii<Word>, packed<Word>>;
  template <typename Word>
  static constexpr auto two_bytes =
      kelo::utf::convert_run<Word, Word, takes_two_bytes_each<Word>, two_bytes_each<Word>>;
  static constexpr auto three_bytes = convert_three_byte_run;
  static constexpr auto character = convert_character;
};

}  // namespace

int kelo_util_ConvertUTF16toUTF8(const std::uint16_t** source_start, const std::uint16_t* source_end,
                                 std::uint8_t** target_start, std::uint8_t* target_end, int flags) {
  return kelo::utf::convert_text<Rules>(__func__, source_start, source_end, target_start, target_end, flags);
}
