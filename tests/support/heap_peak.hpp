// SPDX-License-Identifier: MIT
// How much of the heap the whole program, the library and SQLite included, has at most during a call. Include it in
// exactly one source file of a program. A sanitizer's heap is not counted.
#ifndef KELO_TESTS_SUPPORT_HEAP_PEAK_HPP
#define KELO_TESTS_SUPPORT_HEAP_PEAK_HPP

#include <malloc.h>

#include <atomic>
#include <cstddef>

#include "tests/support/before_sanitizer.hpp"
#include "tests/support/c_library.hpp"
#include "tests/support/sanitized.hpp"

namespace kelo::tests {

inline constexpr bool kHeapIsCounted = !kSanitized;

inline std::atomic<long> heap_bytes{0};
inline std::atomic<long> heap_peak{0};

struct HeapUse {
  long peak;  // most bytes at any moment of the call, beyond those before it
  long kept;  // bytes after the call, beyond those before it
};

template <typename Call>
HeapUse heap_use(const Call& call) {
  const long before = heap_bytes;
  heap_peak = before;
  call();
  return {heap_peak - before, heap_bytes - before};
}

#if !KELO_SANITIZED
inline void* count_block(void* block, long old_size) {
  if (block == nullptr) return nullptr;
  const long now = heap_bytes += static_cast<long>(malloc_usable_size(block)) - old_size;
  long peak = heap_peak;
  while (peak < now && !heap_peak.compare_exchange_weak(peak, now)) {
  }
  return block;
}

extern "C" {
void* next_malloc(std::size_t size) KELO_NEXT_ALLOCATOR("malloc");
void* next_calloc(std::size_t count, std::size_t size) KELO_NEXT_ALLOCATOR("calloc");
void* next_realloc(void* block, std::size_t size) KELO_NEXT_ALLOCATOR("realloc");
void next_free(void* block) KELO_NEXT_ALLOCATOR("free");
}
#endif

}  // namespace kelo::tests

#if !KELO_SANITIZED
// Defined here and not in a source of the support library, which every test program links. The C library's
// own declarations have reserved parameter names.
// NOLINTBEGIN(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
extern "C" {

void* malloc(std::size_t size) { return kelo::tests::count_block(kelo::tests::next_malloc(size), 0); }

void* calloc(std::size_t count, std::size_t size) {
  void* const block = kelo::tests::next_calloc(count, size);
  // Other C libraries call malloc(), which counts the block.
  return kelo::tests::kGnuLibrary ? kelo::tests::count_block(block, 0) : block;
}

void* realloc(void* block, std::size_t size) {
  const auto old_size = static_cast<long>(malloc_usable_size(block));
  return kelo::tests::count_block(kelo::tests::next_realloc(block, size), old_size);
}

void free(void* block) {
  kelo::tests::heap_bytes -= static_cast<long>(malloc_usable_size(block));
  kelo::tests::next_free(block);
}

}  // extern "C"
// NOLINTEND(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
#endif

#endif  // KELO_TESTS_SUPPORT_HEAP_PEAK_HPP
