// SPDX-License-Identifier: MIT
// Values that tell which item and which write they are of, so that a value read is known to be whole, and how
// old it is.
#ifndef KELO_TESTS_SUPPORT_NUMBERED_VALUE_HPP
#define KELO_TESTS_SUPPORT_NUMBERED_VALUE_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace kelo::tests {

inline constexpr std::size_t kShortestValue = 8;
inline constexpr std::size_t kLongestValue = 3000;

inline std::uint32_t mixed(std::uint32_t item, std::uint32_t number) {
  std::uint32_t bits = item * 0x9E3779B1U ^ (number + 1) * 0x85EBCA77U;
  bits ^= bits >> 15;
  bits *= 0x2C1B3C6DU;
  return bits ^ bits >> 13;
}

// A sum that notices bytes that changed and bytes that changed places.
inline std::uint16_t sum_of(std::string_view bytes) {
  std::uint32_t sum = 1;
  for (const char byte : bytes) sum = (sum * 257 + static_cast<unsigned char>(byte)) % 65521;
  return static_cast<std::uint16_t>(sum);
}

// The value of an item's write: item (1 byte), number (3 bytes), length (2 bytes), sum of all other bytes (2
// bytes), then bytes that follow from item and number. A quarter of the values has no such bytes.
inline std::string numbered_value(std::uint32_t item, std::uint32_t number) {
  const std::uint32_t bits = mixed(item, number);
  const std::size_t length =
      bits % 4 == 0 ? kShortestValue : kShortestValue + bits / 4 % (kLongestValue - kShortestValue + 1);
  std::string value(length, '\0');
  const std::uint32_t head = item << 24 | (number & 0xFFFFFF);
  const auto size = static_cast<std::uint16_t>(length);
  std::memcpy(value.data(), &head, sizeof head);
  std::memcpy(value.data() + 4, &size, sizeof size);
  for (std::size_t i = kShortestValue; i < length; ++i) value[i] = static_cast<char>((bits >> i % 24) ^ i);
  const std::uint16_t sum = sum_of(value);
  std::memcpy(value.data() + 6, &sum, sizeof sum);
  return value;
}

// The number of the write whose whole value of `item` begins `bytes`; nothing when that is no such value.
inline std::optional<std::uint32_t> number_of(std::uint32_t item, std::string_view bytes) {
  std::uint32_t head = 0;
  if (bytes.size() < kShortestValue) return {};
  std::memcpy(&head, bytes.data(), sizeof head);
  const std::uint32_t number = head & 0xFFFFFF;
  if (!bytes.starts_with(numbered_value(item, number))) return {};
  return number;
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_NUMBERED_VALUE_HPP
