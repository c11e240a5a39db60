// SPDX-License-Identifier: MIT
// For functions a sanitizer's run time calls too early for its own instrumentation.
#ifndef KELO_TESTS_SUPPORT_BEFORE_SANITIZER_HPP
#define KELO_TESTS_SUPPORT_BEFORE_SANITIZER_HPP

#include <features.h>

#include "tests/support/sanitized.hpp"

// The thread sanitizer's run time allocates, frees and starts threads before it can follow a thread.
#define KELO_BEFORE_SANITIZER __attribute__((no_sanitize("thread")))

// The C library's allocator behind one that takes its place, under the name that needs no look-up: a
// sanitizer's run time allocates before it can look anything up. A C library without such names is asked
// (next_allocator.cpp).
#if KELO_SANITIZED
#define KELO_NEXT_ALLOCATOR(name) __asm__("__interceptor_" name)
#elif defined(__GLIBC__)
#define KELO_NEXT_ALLOCATOR(name) __asm__("__libc_" name)
#else
#define KELO_NEXT_ALLOCATOR(name)
#define KELO_NEXT_ALLOCATOR_IS_LOOKED_UP
#endif

#endif  // KELO_TESTS_SUPPORT_BEFORE_SANITIZER_HPP
