// SPDX-License-Identifier: MIT
// A heap that runs out on demand: malloc, calloc and realloc of the whole test program, the library included,
// fail from a chosen call on, all of them or some. Include it in exactly one source file of a test program.
#ifndef KELO_TESTS_SUPPORT_FAILING_HEAP_HPP
#define KELO_TESTS_SUPPORT_FAILING_HEAP_HPP

#include <cerrno>
#include <climits>
#include <cstddef>

#include "tests/support/before_sanitizer.hpp"

namespace kelo::tests {

// The calls are counted per thread, so the threads of a sanitizer or of gtest cannot take part.
inline thread_local bool heap_fails = false;
inline thread_local int heap_calls_left = 0;
inline thread_local int heap_failures_left = 0;

// While it lives, the calling thread's heap serves `calls` more allocations; the next `failures` fail.
class FailingHeap {
 public:
  explicit FailingHeap(int calls, int failures = INT_MAX) {
    heap_calls_left = calls;
    heap_failures_left = failures;
    heap_fails = true;
  }
  ~FailingHeap() { heap_fails = false; }
  FailingHeap(const FailingHeap&) = delete;
  FailingHeap& operator=(const FailingHeap&) = delete;
};

KELO_BEFORE_SANITIZER inline bool heap_has_run_out() {
  if (!heap_fails) return false;
  if (heap_calls_left > 0) {
    --heap_calls_left;
    return false;
  }
  if (heap_failures_left == 0) return false;
  --heap_failures_left;
  errno = ENOMEM;
  return true;
}

extern "C" {
void* next_malloc(std::size_t size) KELO_NEXT_ALLOCATOR("malloc");
void* next_calloc(std::size_t count, std::size_t size) KELO_NEXT_ALLOCATOR("calloc");
void* next_realloc(void* block, std::size_t size) KELO_NEXT_ALLOCATOR("realloc");
}

}  // namespace kelo::tests

// Defined here and not in a source of the support library, which every test program links. The C library's
// own declarations have reserved parameter names.
// NOLINTBEGIN(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
extern "C" {

KELO_BEFORE_SANITIZER void* malloc(std::size_t size) {
  return kelo::tests::heap_has_run_out() ? nullptr : kelo::tests::next_malloc(size);
}

KELO_BEFORE_SANITIZER void* calloc(std::size_t count, std::size_t size) {
  if (kelo::tests::heap_has_run_out()) return nullptr;
  // Some C libraries call malloc() for it.
  const bool fails = kelo::tests::heap_fails;
  kelo::tests::heap_fails = false;
  void* const block = kelo::tests::next_calloc(count, size);
  kelo::tests::heap_fails = fails;
  return block;
}

KELO_BEFORE_SANITIZER void* realloc(void* block, std::size_t size) {
  if (kelo::tests::heap_has_run_out()) return nullptr;
  const bool fails = kelo::tests::heap_fails;
  kelo::tests::heap_fails = false;
  void* const resized = kelo::tests::next_realloc(block, size);
  kelo::tests::heap_fails = fails;
  return resized;
}

}  // extern "C"
// NOLINTEND(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)

#endif  // KELO_TESTS_SUPPORT_FAILING_HEAP_HPP
