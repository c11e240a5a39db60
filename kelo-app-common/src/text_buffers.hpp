// Buffers of text as callers describe them: lengths and pointers that may be wrong.
#ifndef KELO_APP_COMMON_TEXT_BUFFERS_HPP
#define KELO_APP_COMMON_TEXT_BUFFERS_HPP

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>

namespace kelo::utf {

// No array is larger than this: a size beyond is a negative number of the caller's.
inline std::size_t readable_length(std::size_t length) { return length <= PTRDIFF_MAX ? length : 0; }

// How much of an output buffer is used: lengths are reported as an int.
inline std::size_t usable_size(std::size_t size) {
  return std::min<std::size_t>(readable_length(size), INT_MAX);
}

// Whether the pointers name a text: only an empty one may stand nowhere.
template <typename T>
bool is_text(T* const* start, const void* end) {
  return start != nullptr && (*start != nullptr || end == nullptr);
}

// How many bytes stand from `start` to `end`; an end that lies before its start leaves none.
inline std::size_t distance(const void* start, const void* end) {
  const auto first = reinterpret_cast<std::uintptr_t>(start);
  const auto last = reinterpret_cast<std::uintptr_t>(end);
  return last > first ? last - first : 0;
}

// The bytes not converted yet.
struct Source {
  const std::uint8_t* at;
  const std::uint8_t* end;

  [[nodiscard]] std::size_t bytes() const { return static_cast<std::size_t>(end - at); }
};

// The bytes not written yet.
struct Target {
  std::uint8_t* at;
  std::uint8_t* end;

  [[nodiscard]] std::size_t room() const { return static_cast<std::size_t>(end - at); }
};

}  // namespace kelo::utf

#endif  // KELO_APP_COMMON_TEXT_BUFFERS_HPP
