// UTF-16 into UTF-8.
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "kelo-app-common/src/utf_words.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace {

using kelo::utf::byte_pairs;
using kelo::utf::distance;
using kelo::utf::HalfWord;
using kelo::utf::kLanes;
using kelo::utf::lanes;
using kelo::utf::load;
using kelo::utf::store;
using kelo::utf::Word;

// The units not converted yet, counted in bytes: the last of them may be half a unit.
struct Source {
  const std::uint8_t* at;
  std::size_t bytes;

  [[nodiscard]] std::size_t units() const { return bytes / 2; }
  [[nodiscard]] unsigned unit(std::size_t index) const { return load<std::uint16_t>(at + 2 * index); }
  void skip_units(std::size_t count) {
    at += 2 * count;
    bytes -= 2 * count;
  }
};

struct Target {
  std::uint8_t* at;
  std::size_t room;

  void skip(std::size_t count) {
    at += count;
    room -= count;
  }
};

// ---- A word at a time ----

HalfWord packed(Word ascii) {
  if constexpr (kLanes == 4) ascii = (ascii | ascii >> 8) & 0x0000FFFF0000FFFF;
  return static_cast<HalfWord>(ascii | ascii >> (kLanes == 4 ? 16 : 8));
}

void convert_ascii_words(Source& source, Target& target) {
  const std::size_t units = std::min(source.units(), target.room);
  std::size_t done = 0;
  for (; units - done >= kLanes; done += kLanes) {
    const Word word = load<Word>(source.at + 2 * done);
    if ((word & lanes(0xFF80)) != 0) break;
    store(target.at + done, packed(word));
  }
  source.skip_units(done);
  target.skip(done);
}

bool takes_two_bytes_each(Word word) {
  return (word & lanes(0xF800)) == 0 && kelo::utf::no_lane_is_zero(word & lanes(0x0780));
}

Word two_bytes_each(Word word) {
  const Word leads = word >> 6 & lanes(0x1F);
  const Word trails = word & lanes(0x3F);
  const bool little = std::endian::native == std::endian::little;
  return byte_pairs(0xC0, 0x80) | (little ? trails << 8 | leads : leads << 8 | trails);
}

void convert_two_byte_words(Source& source, Target& target) {
  const std::size_t units = std::min(source.units(), target.room / 2);
  std::size_t done = 0;
  for (; units - done >= kLanes; done += kLanes) {
    const Word word = load<Word>(source.at + 2 * done);
    if (!takes_two_bytes_each(word)) break;
    store(target.at + 2 * done, two_bytes_each(word));
  }
  source.skip_units(done);
  target.skip(2 * done);
}

// ---- One character at a time ----

bool is_surrogate(unsigned unit) { return (unit & 0xF800) == 0xD800; }
bool is_high_surrogate(unsigned unit) { return (unit & 0xFC00) == 0xD800; }
bool is_low_surrogate(unsigned unit) { return (unit & 0xFC00) == 0xDC00; }

struct Character {
  kelo_unicode_result result;
  std::uint32_t code;
  std::size_t units;
};

// The character at the start of `source`, which holds half a unit at least.
Character decode(const Source& source, bool lenient) {
  if (source.units() == 0) return {KELO_UNICODE_SOURCE_EXHAUSTED, 0, 0};
  const unsigned unit = source.unit(0);
  if (!is_surrogate(unit)) return {KELO_UNICODE_COMPLETE, unit, 1};
  if (is_high_surrogate(unit)) {
    if (source.units() < 2) return {KELO_UNICODE_SOURCE_EXHAUSTED, 0, 0};
    const unsigned next = source.unit(1);
    if (is_low_surrogate(next)) {
      return {KELO_UNICODE_COMPLETE, 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00), 2};
    }
  }
  if (!lenient) return {KELO_UNICODE_SOURCE_ILLEGAL, 0, 0};
  return {KELO_UNICODE_COMPLETE, unit, 1};
}

std::uint8_t trail(std::uint32_t bits) { return static_cast<std::uint8_t>(0x80 | (bits & 0x3F)); }

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
      to[0] = static_cast<std::uint8_t>(0xC0 | code >> 6);
      to[1] = trail(code);
      break;
    case 3:
      to[0] = static_cast<std::uint8_t>(0xE0 | code >> 12);
      to[1] = trail(code >> 6);
      to[2] = trail(code);
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
  source.skip_units(character.units);
  return KELO_UNICODE_COMPLETE;
}

kelo_unicode_result convert(Source& source, Target& target, bool lenient) {
  while (source.bytes != 0) {
    convert_ascii_words(source, target);
    convert_two_byte_words(source, target);
    for (std::size_t i = 0; i < kLanes && source.bytes != 0; ++i) {
      const kelo_unicode_result result = convert_character(source, target, lenient);
      if (result != KELO_UNICODE_COMPLETE) return result;
    }
  }
  return KELO_UNICODE_COMPLETE;
}

}  // namespace

int kelo_util_ConvertUTF16toUTF8(const std::uint16_t** source_start, const std::uint16_t* source_end,
                                 std::uint8_t** target_start, std::uint8_t* target_end, int flags) {
  if (!kelo::utf::is_text(source_start, source_end) || !kelo::utf::is_text(target_start, target_end)) {
    KELO_LOG(LOG_LVL_ERR, "%s param NULL\n", __func__);
    return KELO_UNICODE_SOURCE_ILLEGAL;
  }
  Source source{reinterpret_cast<const std::uint8_t*>(*source_start), distance(*source_start, source_end)};
  Target target{*target_start, distance(*target_start, target_end)};
  const kelo_unicode_result result = convert(source, target, flags != KELO_UNICODE_STRICT);
  *source_start = reinterpret_cast<const std::uint16_t*>(source.at);
  *target_start = target.at;
  return result;
}
