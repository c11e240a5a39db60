// SPDX-License-Identifier: MIT
// The checksum that is stored with each item.
#ifndef KELO_DATA_MANAGER_CHECKSUM_HPP
#define KELO_DATA_MANAGER_CHECKSUM_HPP

#include <cstdint>

namespace kelo::dm {

// Returns the checksum of the first `bit_count` bits of `data`, which must not be null.
std::int32_t checksum(const void* data, std::uint16_t bit_count, std::uint32_t seed);

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_CHECKSUM_HPP
