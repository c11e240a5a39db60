// SPDX-License-Identifier: MIT
// Converts UTF-16 to UTF-8.
#include <array>
#include <cstddef>
#include <cstdint>

#include "kelo-app-common/src/text_buffers.hpp"
#include "kelo-app-common/src/utf_words.hpp"
#include "kelo_utils/app_common.h"

namespace {

using kelo::base::packed;
using kelo::utf::byte_pairs;
using kelo::utf::kLittleEndian;
using kelo::utf::lanes;
using kelo::utf::LargestWord;
using kelo::utf::load;
using kelo::utf::no_lane_is_zero;
using kelo::utf::SourceBytes;
using kelo::utf::store;
using kelo::utf::TargetBytes;
using kelo::utf::Unit;

// ---- Words ----

// Whether all units take one byte, or whether all take two. The units must be below 0x800.
bool is_ascii(LargestWord units) { return (units & lanes<LargestWord>(0xFF80)) == 0; }
bool takes_two_bytes_each(LargestWord units) {
  return no_lane_is_zero<LargestWord>(units & lanes<LargestWord>(0x0780));
}

LargestWord two_bytes_each(LargestWord units) {
  const LargestWord leads = units >> 6 & lanes<LargestWord>(0x1F);
  const LargestWord trails = units & lanes<LargestWord>(0x3F);
  return byte_pairs<LargestWord>(0xC0, 0x80) | (kLittleEndian ? trails << 8 | leads : leads << 8 | trails);
}

// Writes units of which some take one byte and others two, and returns the end. Two bytes are written for each unit
// except a last one of one byte: the next unit overwrites the second byte of a unit that takes only one.
std::uint8_t* write_mixed(LargestWord units, LargestWord pairs, std::uint8_t* to) {
  constexpr unsigned kBits = 8 * sizeof(Unit);
  constexpr unsigned kUnits = sizeof(LargestWord) / sizeof(Unit);
  for (unsigned i = 0; i < kUnits; ++i) {
    const unsigned shift = kBits * (kLittleEndian ? i : kUnits - 1 - i);
    const auto unit = static_cast<Unit>(units >> shift);
    const bool is_single = unit < 0x80;
    if (is_single && i == kUnits - 1) {
      *to = static_cast<std::uint8_t>(unit);
    } else {
      const auto single = static_cast<Unit>(kLittleEndian ? unit : unit << 8);
      store(to, is_single ? single : static_cast<Unit>(pairs >> shift));
    }
    to += is_single ? 1 : 2;
  }
  return to;
}

// If all units of the next word take at most two bytes each and their bytes certainly fit, converts the word.
bool convert_word(SourceBytes& source, TargetBytes& target) {
  if (source.bytes() < sizeof(LargestWord) || target.room() < sizeof(LargestWord)) return false;
  const auto units = load<LargestWord>(source.at);
  if ((units & lanes<LargestWord>(0xF800)) != 0) return false;
  source.at += sizeof units;
  if (is_ascii(units)) {
    store(target.at, packed(units));
    target.at += sizeof packed(units);
    return true;
  }
  const LargestWord pairs = two_bytes_each(units);
  if (takes_two_bytes_each(units)) {
    store(target.at, pairs);
    target.at += sizeof pairs;
  } else {
    target.at = write_mixed(units, pairs, target.at);
  }
  return true;
}

// ---- One character at a time ----

bool is_surrogate(unsigned unit) { return unit - 0xD800 < 0x800; }
bool is_low_surrogate(unsigned unit) { return (unit & 0xFC00) == 0xDC00; }

std::uint32_t trail(std::uint32_t bits) { return 0x80 | (bits & 0x3F); }

// Returns a number whose bytes have this order in memory.
std::uint32_t joined(std::uint32_t first, std::uint32_t second) {
  return kLittleEndian ? first | second << 8 : first << 8 | second;
}
std::uint32_t joined(std::uint32_t first, std::uint32_t second, std::uint32_t third, std::uint32_t fourth) {
  const std::uint32_t head = joined(first, second);
  const std::uint32_t tail = joined(third, fourth);
  return kLittleEndian ? head | tail << 16 : head << 16 | tail;
}

// If all `bytes` fit, writes them and skips `units` units of the source.
template <typename... Byte>
kelo_unicode_result put(SourceBytes& source, std::size_t units, TargetBytes& target, Byte... bytes) {
  constexpr std::size_t kSize = sizeof...(bytes);
  const std::array<std::uint32_t, kSize> byte = {bytes...};
  if (target.room() < kSize) return KELO_UNICODE_TARGET_EXHAUSTED;
  if constexpr (kSize == 4) {
    store(target.at, joined(byte[0], byte[1], byte[2], byte[3]));
  } else {
    if constexpr (kSize >= 2) store(target.at, static_cast<std::uint16_t>(joined(byte[0], byte[1])));
    if constexpr (kSize != 2) target.at[kSize - 1] = static_cast<std::uint8_t>(byte[kSize - 1]);
  }
  target.at += kSize;
  source.at += units * sizeof(Unit);
  return KELO_UNICODE_COMPLETE;
}

kelo_unicode_result put_pair(unsigned high, unsigned low, SourceBytes& source, TargetBytes& target) {
  const std::uint32_t code = 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
  return put(source, 2, target, 0xF0 | code >> 18, trail(code >> 12), trail(code >> 6), trail(code));
}

// Converts the next character. After a character of three bytes it also converts the following characters of three
// bytes, because they often come in sequence. The source must contain at least one unit.
kelo_unicode_result convert_character(SourceBytes& source, TargetBytes& target, bool lenient) {
  unsigned unit = load<Unit>(source.at);
  if (unit < 0x80) return put(source, 1, target, unit);
  if (unit < 0x800) return put(source, 1, target, 0xC0 | unit >> 6, trail(unit));
  if (is_surrogate(unit)) {
    if (unit < 0xDC00) {  // the first of a pair
      if (source.bytes() < 2 * sizeof(Unit)) return KELO_UNICODE_SOURCE_EXHAUSTED;
      const unsigned next = load<Unit>(source.at + sizeof(Unit));
      if (is_low_surrogate(next)) return put_pair(unit, next, source, target);
    }
    if (!lenient) return KELO_UNICODE_SOURCE_ILLEGAL;
  }
  kelo_unicode_result result = KELO_UNICODE_COMPLETE;
  do {
    result = put(source, 1, target, 0xE0 | unit >> 12, trail(unit >> 6), trail(unit));
    if (result != KELO_UNICODE_COMPLETE || source.bytes() < sizeof(Unit)) break;
    unit = load<Unit>(source.at);
  } while (unit >= 0x800 && !is_surrogate(unit));
  return result;
}

struct Rules {
  static constexpr std::size_t kFewestBytes = sizeof(Unit);
  static constexpr auto word = convert_word;
  static constexpr auto character = convert_character;
};

}  // namespace

int kelo_util_ConvertUTF16toUTF8(const std::uint16_t** source_start, const std::uint16_t* source_end,
                                 std::uint8_t** target_start, std::uint8_t* target_end, int flags) {
  return kelo::utf::convert_text<Rules>(__func__, source_start, source_end, target_start, target_end, flags);
}
