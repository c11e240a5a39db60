// SPDX-License-Identifier: MIT
// Tests run under the sanitizers as well, which show in a few places.
#ifndef KELO_TESTS_SUPPORT_SANITIZED_HPP
#define KELO_TESTS_SUPPORT_SANITIZED_HPP

// The macros are for declarations that only one kind of build can have. Other code uses the constants.
#ifdef __SANITIZE_ADDRESS__
#define KELO_ADDRESS_SANITIZER 1
#else
#define KELO_ADDRESS_SANITIZER 0
#endif
#ifdef __SANITIZE_THREAD__
#define KELO_THREAD_SANITIZER 1
#else
#define KELO_THREAD_SANITIZER 0
#endif
#define KELO_SANITIZED (KELO_ADDRESS_SANITIZER || KELO_THREAD_SANITIZER)

namespace kelo::tests {

inline constexpr bool kSanitized = KELO_SANITIZED;
inline constexpr bool kThreadSanitizer = KELO_THREAD_SANITIZER == 1;

// Why a test is skipped then whose child allocates while other threads of the parent did at the fork.
inline constexpr char kHeapOfSanitizer[] = "the child could inherit the lock of the sanitizer's heap";

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_SANITIZED_HPP
