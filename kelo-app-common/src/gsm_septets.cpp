#include <cstdint>

#include "kelo_utils/app_common.h"

namespace {

constexpr int kMostSeptets = 255;
constexpr int kOctetCounts = 256;  // the modem counts the octets of a message in eight bits

}  // namespace

int kelo_util_ussd_unpack(std::uint8_t* out, int out_max, const std::uint8_t* packed, int packed_len) {
  if (out == nullptr || packed == nullptr || packed_len <= 0) return 0;
  const int limit = out_max < 0 || out_max > kMostSeptets ? kMostSeptets : out_max;
  const int last = (packed_len - 1) % kOctetCounts;

  int count = 0;
  unsigned previous = 0;
  for (int i = 0; i <= last && count < limit; ++i) {
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
