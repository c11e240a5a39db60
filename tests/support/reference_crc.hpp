// SPDX-License-Identifier: MIT
// The checksum of stored values, bit by bit and on its own: what the library's is compared with.
#ifndef KELO_TESTS_REFERENCE_CRC_HPP
#define KELO_TESTS_REFERENCE_CRC_HPP

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kelo::tests {

// CRC-32 with the polynomial 0x04C11DB7, most significant bit first, from 0, over the first
// (size modulo 65536) bits of the value; as the signed number in the `crc` column.
inline std::int32_t reference_crc(std::string_view value) {
  std::uint32_t crc = 0;
  const std::size_t bits = value.size() & 0xFFFF;
  for (std::size_t bit = 0; bit < bits; ++bit) {
    const auto byte = static_cast<unsigned char>(value[bit / 8]);
    const std::uint32_t incoming = (byte >> (7 - bit % 8)) & 1U;
    const std::uint32_t outgoing = crc >> 31;
    crc = (crc << 1) ^ ((incoming ^ outgoing) != 0 ? 0x04C11DB7U : 0U);
  }
  return static_cast<std::int32_t>(crc);
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_REFERENCE_CRC_HPP
