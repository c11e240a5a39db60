// SPDX-License-Identifier: MIT
// Copies text into a buffer of limited size. All results of the settings files reach the caller through it.
#ifndef KELO_INI_BOUNDED_COPY_HPP
#define KELO_INI_BOUNDED_COPY_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "ini/assertion.hpp"

namespace kelo::ini {

// Whether the two memory areas share a byte.
inline bool overlap(std::span<const char> one, std::span<const char> other) {
  const auto start = reinterpret_cast<std::uintptr_t>(one.data());
  const auto other_start = reinterpret_cast<std::uintptr_t>(other.data());
  return start < other_start + other.size() && other_start < start + one.size();
}

// Copies the part of the text that fits and terminates it. Returns the number of characters copied.
inline std::size_t ini_strncpy(std::span<char> destination, std::string_view source) {
  assert(!destination.empty());
  assert(!overlap(destination, {source.data(), source.size()}));
  const std::size_t length = std::min(source.size(), destination.size() - 1);
  if (length != 0) std::memcpy(destination.data(), source.data(), length);
  destination[length] = '\0';
  return length;
}

}  // namespace kelo::ini

#endif  // KELO_INI_BOUNDED_COPY_HPP
