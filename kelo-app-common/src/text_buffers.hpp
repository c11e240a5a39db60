// SPDX-License-Identifier: MIT
// Checks text buffers that callers describe by lengths and pointers, which may be wrong.
#ifndef KELO_APP_COMMON_TEXT_BUFFERS_HPP
#define KELO_APP_COMMON_TEXT_BUFFERS_HPP

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>

namespace kelo::utf {

// Returns 0 for a length that no array can have. It is a negative number that the caller has converted.
inline std::size_t valid_length(std::size_t length) { return length <= PTRDIFF_MAX ? length : 0; }

// Returns the size up to which an output buffer is used. It is at most INT_MAX, because lengths are returned as int.
inline std::size_t output_limit(std::size_t size) {
  return std::min<std::size_t>(valid_length(size), INT_MAX);
}

// Whether the pointers are valid. The start of a text may be null only when its end is null, too.
template <typename T>
bool is_valid_text(T* const* start, const void* end) {
  return start != nullptr && (*start != nullptr || end == nullptr);
}

// Returns the number of bytes from `start` to `end`, or 0 when the end is before the start.
inline std::size_t bytes_between(const void* start, const void* end) {
  const auto first = reinterpret_cast<std::uintptr_t>(start);
  const auto last = reinterpret_cast<std::uintptr_t>(end);
  return last > first ? last - first : 0;
}

// The bytes that are not yet converted.
struct SourceBytes {
  const std::uint8_t* at;
  const std::uint8_t* end;

  [[nodiscard]] std::size_t bytes() const { return static_cast<std::size_t>(end - at); }
};

// The part of the output that is not yet written.
struct TargetBytes {
  std::uint8_t* at;
  std::uint8_t* end;

  [[nodiscard]] std::size_t room() const { return static_cast<std::size_t>(end - at); }
};

}  // namespace kelo::utf

#endif  // KELO_APP_COMMON_TEXT_BUFFERS_HPP
