// The checksum that is kept with each record.
#ifndef KELO_DATA_MANAGER_CHECKSUM_HPP
#define KELO_DATA_MANAGER_CHECKSUM_HPP

#include <cstdint>

namespace kelo::dm {

// Of the first `bit_count` bits of `data`, which is not null.
std::int32_t checksum(const void* data, std::uint16_t bit_count, std::uint32_t seed);

}  // namespace kelo::dm

#endif  // KELO_DATA_MANAGER_CHECKSUM_HPP
