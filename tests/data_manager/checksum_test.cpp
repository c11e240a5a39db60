// SPDX-License-Identifier: MIT
// The checksum agrees with a division bit by bit, for every length and place of the data.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "kelo_utils/data_manager.h"

namespace {

constexpr std::uint32_t kPolynomial = 0x04C11DB7;
constexpr std::size_t kMostBits = 65535;

// The division one bit at a time, straight from its definition.
std::uint32_t divide(const std::vector<std::uint8_t>& data, std::size_t bit_count, std::uint32_t crc) {
  for (std::size_t i = 0; i < bit_count; ++i) {
    const bool bit = (data[i / 8] >> (7 - i % 8) & 1) != 0;
    const bool top = (crc >> 31) != 0;
    crc <<= 1;
    if (bit != top) crc ^= kPolynomial;
  }
  return crc;
}

std::vector<std::uint8_t> random_bytes(std::size_t count) {
  std::mt19937 generator(1203);
  std::uniform_int_distribution<int> byte(0, 255);
  std::vector<std::uint8_t> bytes(count);
  for (std::uint8_t& b : bytes) b = static_cast<std::uint8_t>(byte(generator));
  return bytes;
}

std::uint32_t checksum(const void* data, std::size_t bit_count, std::uint32_t seed) {
  return static_cast<std::uint32_t>(kelo_dm_Crc32Calc(data, static_cast<std::uint16_t>(bit_count), seed));
}

TEST(Checksum, TableHoldsTheRemainderOfEveryByte) {
  EXPECT_EQ(kelo_dm_crc32_table[0], 0U);
  EXPECT_EQ(kelo_dm_crc32_table[1], kPolynomial);
  EXPECT_EQ(kelo_dm_crc32_table[255], 0xB1F740B4U);
  for (unsigned byte = 0; byte < 256; ++byte) {
    const std::vector<std::uint8_t> one = {static_cast<std::uint8_t>(byte)};
    EXPECT_EQ(divide(one, 8, 0), kelo_dm_crc32_table[byte]) << byte;
  }
}

TEST(Checksum, NullDataIsMinusOne) {
  EXPECT_EQ(kelo_dm_Crc32Calc(nullptr, 8, 0), -1);
  EXPECT_EQ(kelo_dm_Crc32Calc(nullptr, 0, 7), -1);
}

TEST(Checksum, NoBitsLeaveTheSeed) {
  const std::uint8_t byte = 0xFF;
  EXPECT_EQ(checksum(&byte, 0, 0), 0U);
  EXPECT_EQ(checksum(&byte, 0, 0xDEADBEEF), 0xDEADBEEFU);
}

TEST(Checksum, OneByteIsItsTableEntry) {
  const std::uint8_t byte = 0x01;
  EXPECT_EQ(kelo_dm_Crc32Calc(&byte, 8, 0), 0x04C11DB7);
}

// The published check values of two catalogued variants that differ in the seed and a final inversion only.
TEST(Checksum, KnownCheckValues) {
  constexpr std::string_view kDigits = "123456789";
  EXPECT_EQ(checksum(kDigits.data(), 72, 0xFFFFFFFF), 0x0376E6E7U);
  EXPECT_EQ(~checksum(kDigits.data(), 72, 0), 0x765E7680U);
}

TEST(Checksum, EveryBitCountUpTo4096) {
  const std::vector<std::uint8_t> data = random_bytes(512);
  for (std::size_t bits = 0; bits <= 4096; ++bits)
    for (const std::uint32_t seed : {0U, 1U, 0xFFFFFFFFU, 0x80000000U})
      ASSERT_EQ(divide(data, bits, seed), checksum(data.data(), bits, seed))
          << bits << " bits, seed " << seed;
}

TEST(Checksum, LongestBitCount) {
  const std::vector<std::uint8_t> data = random_bytes(8192);
  EXPECT_EQ(divide(data, kMostBits, 0), checksum(data.data(), kMostBits, 0));
  EXPECT_EQ(divide(data, kMostBits - 7, 5), checksum(data.data(), kMostBits - 7, 5));
}

TEST(Checksum, PartsMakeTheWhole) {
  const std::vector<std::uint8_t> data = random_bytes(64);
  const std::uint32_t first = checksum(data.data(), 24 * std::size_t{8}, 9);
  EXPECT_EQ(checksum(data.data(), 512, 9), checksum(data.data() + 24, 40 * std::size_t{8}, first));
}

TEST(Checksum, PartialByteCountsFromItsTop) {
  const std::uint8_t high = 0x80;
  EXPECT_EQ(checksum(&high, 1, 0), kPolynomial);
  const std::uint8_t low = 0x7F;
  EXPECT_EQ(checksum(&low, 1, 0), 0U);
}

// The address sanitizer sees a read beyond a block of exactly the bytes that hold the bits.
TEST(Checksum, ReadsOnlyTheBytesThatHoldTheBits) {
  for (std::size_t bits = 1; bits <= 64; ++bits) {
    const std::size_t bytes = (bits + 7) / 8;
    const std::unique_ptr<std::uint8_t[]> exact(new std::uint8_t[bytes]);
    std::memset(exact.get(), 0xA5, bytes);
    const std::vector<std::uint8_t> copy(bytes, 0xA5);
    EXPECT_EQ(divide(copy, bits, 0), checksum(exact.get(), bits, 0)) << bits;
  }
  const std::unique_ptr<std::uint8_t[]> none(new std::uint8_t[0]);
  EXPECT_EQ(checksum(none.get(), 0, 3), 3U);
}

// Stored records carry the checksum of as many bits as they have bytes.
TEST(Checksum, ByteCountTakenAsBitCountCoversAnEighth) {
  const std::string value = "sixteen bytes...";
  std::string changed_behind = value;
  changed_behind[2] = 'X';
  std::string changed_inside = value;
  changed_inside[1] = 'X';
  EXPECT_EQ(checksum(value.data(), value.size(), 0), checksum(changed_behind.data(), value.size(), 0));
  EXPECT_NE(checksum(value.data(), value.size(), 0), checksum(changed_inside.data(), value.size(), 0));
}

}  // namespace
