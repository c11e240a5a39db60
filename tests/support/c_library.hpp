// SPDX-License-Identifier: MIT
// What tests see of the C library, where C libraries differ.
#ifndef KELO_TESTS_SUPPORT_C_LIBRARY_HPP
#define KELO_TESTS_SUPPORT_C_LIBRARY_HPP

#include <sys/syscall.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace kelo::tests {

#ifdef __GLIBC__
inline constexpr bool kGnuLibrary = true;
#else
inline constexpr bool kGnuLibrary = false;
#endif

// The names that calls of the library have for the linker. Some C libraries have others for times of 64 bits.
#if defined(__GLIBC__) || defined(__LP64__)
#define KELO_CLOCK_GETTIME "clock_gettime"
#define KELO_GETTIMEOFDAY "gettimeofday"
#else
#define KELO_CLOCK_GETTIME "__clock_gettime64"
#define KELO_GETTIMEOFDAY "__gettimeofday_time64"
#endif

// The system call with the C library's timespec.
#ifdef SYS_clock_gettime
inline constexpr long kClockGettime = SYS_clock_gettime;
#else
inline constexpr long kClockGettime = SYS_clock_gettime64;
#endif

// How many free descriptors popen() and system() need for the start of a process, besides those for its output.
inline constexpr std::size_t kDescriptorsOfAStart = kGnuLibrary ? 0 : 2;

// How the C library prints a null pointer.
inline std::string null_pointer_text() { return kGnuLibrary ? "(nil)" : "0"; }

inline std::string error_text(int error) { return std::strerror(error); }

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_C_LIBRARY_HPP
