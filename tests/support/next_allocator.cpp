// SPDX-License-Identifier: MIT
// The allocator of a C library without further names for it: of the test programs, those link this that replace it.
#include <dlfcn.h>

#include <cstddef>
#include <cstdlib>

#include "tests/support/before_sanitizer.hpp"

#ifdef KELO_NEXT_ALLOCATOR_IS_LOOKED_UP

namespace {

template <typename Function>
Function* find(const char* name) {
  void* const found = dlsym(RTLD_NEXT, name);
  if (found == nullptr) std::abort();
  return reinterpret_cast<Function*>(found);
}

}  // namespace

// It is called before the constructors of the program, and so has no guarded statics.
extern "C" {

void* next_malloc(std::size_t size) {
  static void* (*real)(std::size_t);
  if (real == nullptr) real = find<void*(std::size_t)>("malloc");
  return real(size);
}

void* next_calloc(std::size_t count, std::size_t size) {
  static void* (*real)(std::size_t, std::size_t);
  if (real == nullptr) real = find<void*(std::size_t, std::size_t)>("calloc");
  return real(count, size);
}

void* next_realloc(void* block, std::size_t size) {
  static void* (*real)(void*, std::size_t);
  if (real == nullptr) real = find<void*(void*, std::size_t)>("realloc");
  return real(block, size);
}

void next_free(void* block) {
  static void (*real)(void*);
  if (real == nullptr) real = find<void(void*)>("free");
  real(block);
}

}  // extern "C"

#endif  // KELO_NEXT_ALLOCATOR_IS_LOOKED_UP
