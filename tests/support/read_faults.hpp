// SPDX-License-Identifier: MIT
// Makes reads of the whole test program fail, the library's included. Include it in exactly one source file of a
// test program.
#ifndef KELO_TESTS_SUPPORT_READ_FAULTS_HPP
#define KELO_TESTS_SUPPORT_READ_FAULTS_HPP

#include <sys/types.h>
#include <unistd.h>

#include "tests/support/fault.hpp"

// Defined here and not in a source of the support library, which every test program links. The C library's own
// declaration has reserved parameter names.
// NOLINTNEXTLINE(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
extern "C" ssize_t read(int fd, void* bytes, std::size_t size) {
  static const auto real = kelo::tests::next_call("read", read);
  return kelo::tests::Fault::meets("read") ? -1 : real(fd, bytes, size);
}

#endif  // KELO_TESTS_SUPPORT_READ_FAULTS_HPP
