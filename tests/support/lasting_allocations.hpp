// SPDX-License-Identifier: MIT
// For tests of calls that let go of memory on purpose.
#ifndef KELO_TESTS_SUPPORT_LASTING_ALLOCATIONS_HPP
#define KELO_TESTS_SUPPORT_LASTING_ALLOCATIONS_HPP

#include "tests/support/sanitized.hpp"

#if KELO_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace kelo::tests {

// What is allocated while it lives is not reported as leaked.
class [[nodiscard]] LastingAllocations {
 public:
  LastingAllocations() { set_leak_check(false); }
  ~LastingAllocations() { set_leak_check(true); }
  LastingAllocations(const LastingAllocations&) = delete;
  LastingAllocations& operator=(const LastingAllocations&) = delete;

 private:
  static void set_leak_check([[maybe_unused]] bool on) {
#if KELO_ADDRESS_SANITIZER
    on ? __lsan_enable() : __lsan_disable();
#endif
  }
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_LASTING_ALLOCATIONS_HPP
