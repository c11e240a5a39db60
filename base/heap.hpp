// SPDX-License-Identifier: MIT
// Owning pointers to C heap blocks. The library never uses operator new, because it must not need the C++ run time.
#ifndef KELO_BASE_HEAP_HPP
#define KELO_BASE_HEAP_HPP

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <type_traits>

namespace kelo::base {

struct FreeDeleter {
  void operator()(void* block) const { std::free(block); }
};

template <typename T>
using HeapPtr = std::unique_ptr<T, FreeDeleter>;

// Returns a zero-filled block of `count` elements, or null when memory runs out or the size would overflow.
template <typename T>
HeapPtr<T[]> zeroed_array(std::size_t count) {
  static_assert(std::is_trivial_v<T>);
  // NOLINTNEXTLINE(bugprone-sizeof-expression): an array of pointers is intended
  return HeapPtr<T[]>(static_cast<T*>(std::calloc(count, sizeof(T))));
}

// Returns a zero-filled object, or null when memory runs out.
template <typename T>
HeapPtr<T> zeroed() {
  static_assert(std::is_trivial_v<T>);
  return HeapPtr<T>(static_cast<T*>(std::calloc(1, sizeof(T))));
}

}  // namespace kelo::base

#endif  // KELO_BASE_HEAP_HPP
