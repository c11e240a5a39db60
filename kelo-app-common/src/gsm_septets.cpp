// SPDX-License-Identifier: MIT
// Unpacks the septets of GSM messages.
#include <cstdint>

#include "base/words.hpp"
#include "kelo_utils/app_common.h"

namespace {

constexpr int kMostSeptets = 255;
constexpr int kOctetCounts = 256;  // the octet count of a message has eight bits

// Seven octets contain eight septets.
constexpr int kGroupOctets = 7;
constexpr int kGroupSeptets = 8;

// Converts four septets in the low 28 bits to the bytes of a word.
std::uint32_t spread(std::uint32_t septets) {
  const std::uint32_t pairs = (septets & 0x3FFF) | (septets & 0x0FFFC000) << 2;
  return (pairs & 0x007F007F) | (pairs & 0x3F803F80) << 1;
}

void unpack_group(const std::uint8_t* octets, std::uint8_t* out) {
  const auto first = kelo::base::load<std::uint32_t>(octets);
  const auto second = kelo::base::load<std::uint32_t>(octets + 3) >> 4;
  kelo::base::store(out, spread(first));
  kelo::base::store(out + 4, spread(second));
}

}  // namespace

int kelo_util_ussd_unpack(std::uint8_t* out, int out_max, const std::uint8_t* packed, int packed_len) {
  if (out == nullptr || packed == nullptr || packed_len <= 0) return 0;
  const int limit = out_max < 0 || out_max > kMostSeptets ? kMostSeptets : out_max;
  const int last = (packed_len - 1) % kOctetCounts;

  int count = 0;
  int i = 0;
  if constexpr (kelo::base::kLittleEndian) {
    // The last octet may contain padding, which only the loop below handles.
    for (; i + kGroupOctets <= last && count + kGroupSeptets <= limit; i += kGroupOctets) {
      unpack_group(packed + i, out + count);
      count += kGroupSeptets;
    }
  }
  unsigned previous = 0;
  for (; i <= last && count < limit; ++i) {
    const unsigned octet = packed[i];
    const unsigned carried = static_cast<unsigned>(count) % 8;  // bits of `previous` not yet in a septet
    out[count++] = static_cast<std::uint8_t>(((octet << carried) & 0x7F) | (previous >> (8 - carried)));
    if (carried == 6) {
      const unsigned eighth = octet >> 1;
      const bool padding = i == last && eighth == '\r';
      if (padding || count == limit) break;
      out[count++] = static_cast<std::uint8_t>(eighth);
    }
    previous = octet;
  }
  return count;
}
