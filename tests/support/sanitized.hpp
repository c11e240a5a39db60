// SPDX-License-Identifier: MIT
// Tests run under the sanitizers as well, which show in a few places.
#ifndef KELO_TESTS_SUPPORT_SANITIZED_HPP
#define KELO_TESTS_SUPPORT_SANITIZED_HPP

namespace kelo::tests {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

// Why a test is skipped then whose child allocates while other threads of the parent did at the fork.
inline constexpr char kHeapOfSanitizer[] = "the child could inherit the lock of the sanitizer's heap";

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_SANITIZED_HPP
