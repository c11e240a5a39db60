// SPDX-License-Identifier: MIT
// The checksum of the first bits of a value. Whole bytes are looked up in a table.
#include "data_manager/checksum.hpp"

#include <climits>
#include <cstdint>
#include <span>

#include "kelo_utils/data_manager.h"

namespace {

constexpr std::uint32_t kPolynomial = 0x04C11DB7;
constexpr std::uint32_t kTopBit = 0x80000000;

constexpr std::uint32_t shift_bit(std::uint32_t crc) {
  return (crc & kTopBit) != 0 ? crc << 1 ^ kPolynomial : crc << 1;
}

constexpr std::uint32_t crc_of_byte(std::uint32_t byte) {
  std::uint32_t crc = byte << 24;
  for (int bit = 0; bit < CHAR_BIT; ++bit) crc = shift_bit(crc);
  return crc;
}

}  // namespace

#define KELO_CRC_4(i) crc_of_byte(i), crc_of_byte((i) + 1), crc_of_byte((i) + 2), crc_of_byte((i) + 3)
#define KELO_CRC_16(i) KELO_CRC_4(i), KELO_CRC_4((i) + 4), KELO_CRC_4((i) + 8), KELO_CRC_4((i) + 12)
#define KELO_CRC_64(i) KELO_CRC_16(i), KELO_CRC_16((i) + 16), KELO_CRC_16((i) + 32), KELO_CRC_16((i) + 48)

constexpr std::uint32_t kelo_dm_crc32_table[256] = {KELO_CRC_64(0), KELO_CRC_64(64), KELO_CRC_64(128),
                                                    KELO_CRC_64(192)};

std::int32_t kelo::dm::checksum(const void* data, std::uint16_t bit_count, std::uint32_t seed) {
  const auto* const bytes = static_cast<const std::uint8_t*>(data);
  const unsigned whole_bytes = bit_count / CHAR_BIT;
  std::uint32_t crc = seed;
  for (const std::uint8_t byte : std::span(bytes, whole_bytes))
    crc = kelo_dm_crc32_table[byte ^ crc >> 24] ^ crc << 8;
  const unsigned rest = bit_count % CHAR_BIT;
  if (rest != 0) {  // otherwise the next byte is outside the caller's data
    const std::uint32_t last = bytes[whole_bytes];
    for (unsigned bit = 0; bit < rest; ++bit) crc = shift_bit(crc ^ (last << (24 + bit) & kTopBit));
  }
  return static_cast<std::int32_t>(crc);
}

std::int32_t kelo_dm_Crc32Calc(const void* data, std::uint16_t bit_count, std::uint32_t seed) {
  return data == nullptr ? -1 : kelo::dm::checksum(data, bit_count, seed);
}
