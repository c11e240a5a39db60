// SPDX-License-Identifier: MIT
// All calls with which a store of files works can be made to fail: those of file_faults.hpp and the ones below. Include
// it in exactly one source file of a test program.
//
// The calls are: pwrite, ftruncate, fdatasync, fcntl (with a command of locks), stat, lstat, access, unlink, link,
// readlink, realpath, mkdir, fchmod, fchown, fopen, fwrite, syncfs, posix_spawnp and copy_file_range, which is
// what a `cp` without a process of its own calls. A call that fails is not made.
//
// While any call of the thread is to fail, its waits take no time: they move its monotonic clock on. The call "clock"
// is one that asks for the time of day: its error is the number of years that the clock jumps by.
#ifndef KELO_TESTS_SUPPORT_STORAGE_FAULTS_HPP
#define KELO_TESTS_SUPPORT_STORAGE_FAULTS_HPP

#include <spawn.h>
#include <sys/time.h>
#include <time.h>

#include <cstdint>
#include <cstdlib>

#include "tests/support/file_faults.hpp"

namespace kelo::tests {

inline constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

// What the waits of this thread would have taken.
inline thread_local std::int64_t waited_nanoseconds = 0;

// Whether a wait until a moment of the monotonic clock is over at once.
inline bool skips_wait(const timespec& now, const timespec& until) {
  if (!Fault::is_set()) return false;
  const std::int64_t seconds = until.tv_sec - now.tv_sec;
  const std::int64_t wait = seconds * kNanosecondsPerSecond + until.tv_nsec - now.tv_nsec;
  if (wait > 0) waited_nanoseconds += wait;
  return true;
}

inline void move_on(timespec& time) {
  const std::int64_t nanoseconds = time.tv_nsec + waited_nanoseconds;
  time.tv_sec += static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
  time.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
}

// Seconds that the clock of the day is wrong by in this call.
inline std::int64_t clock_jump() {
  constexpr std::int64_t kSecondsPerYear = 31'556'952;
  const int error = errno;
  const std::int64_t jump = Fault::meets("clock") ? errno * kSecondsPerYear : 0;
  errno = error;
  return jump;
}

}  // namespace kelo::tests

// Defined here and not in a source of the support library, which every test program links. The C library's
// own declarations have reserved parameter names.
// NOLINTBEGIN(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
extern "C" {

ssize_t pwrite64(int fd, const void* bytes, std::size_t size, off64_t position) {
  static const auto real = kelo::tests::next_call("pwrite64", pwrite64);
  if (kelo::tests::Fault::meets("pwrite"))
    return kelo::tests::fail_transfer(size,
                                      [&](std::size_t part) { return real(fd, bytes, part, position); });
  return real(fd, bytes, size, position);
}

int ftruncate64(int fd, off64_t size) noexcept {
  static const auto real = kelo::tests::next_call("ftruncate64", ftruncate64);
  return kelo::tests::Fault::meets("ftruncate") ? -1 : real(fd, size);
}

int fdatasync(int fd) {
  static const auto real = kelo::tests::next_call("fdatasync", fdatasync);
  return kelo::tests::Fault::meets("fdatasync") ? -1 : real(fd);
}

int syncfs(int fd) noexcept {
  static const auto real = kelo::tests::next_call("syncfs", syncfs);
  return kelo::tests::Fault::meets("syncfs") ? -1 : real(fd);
}

#ifdef __GLIBC__
#define KELO_FCNTL "fcntl64"
#else
#define KELO_FCNTL "fcntl"
#define fcntl64 fcntl
#endif
int fcntl64(int fd, int command, ...) {
  static const auto real = kelo::tests::next_call(KELO_FCNTL, fcntl64);
  va_list arguments;
  va_start(arguments, command);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  const bool locks = command == F_SETLK || command == F_GETLK || command == F_OFD_SETLK;
  return locks && kelo::tests::Fault::meets("fcntl") ? -1 : real(fd, command, argument);
}

int stat64(const char* path, struct stat64* status) noexcept {
  static const auto real = kelo::tests::next_call("stat64", stat64);
  return kelo::tests::Fault::meets("stat") ? -1 : real(path, status);
}

int lstat64(const char* path, struct stat64* status) noexcept {
  static const auto real = kelo::tests::next_call("lstat64", lstat64);
  return kelo::tests::Fault::meets("lstat") ? -1 : real(path, status);
}

int access(const char* path, int mode) noexcept {
  static const auto real = kelo::tests::next_call("access", access);
  return kelo::tests::Fault::meets("access") ? -1 : real(path, mode);
}

int unlink(const char* path) noexcept {
  static const auto real = kelo::tests::next_call("unlink", unlink);
  return kelo::tests::Fault::meets("unlink") ? -1 : real(path);
}

int link(const char* from, const char* to) noexcept {
  static const auto real = kelo::tests::next_call("link", link);
  return kelo::tests::Fault::meets("link") ? -1 : real(from, to);
}

ssize_t readlink(const char* path, char* target, std::size_t size) noexcept {
  static const auto real = kelo::tests::next_call("readlink", readlink);
  return kelo::tests::Fault::meets("readlink") ? -1 : real(path, target, size);
}

char* realpath(const char* path, char* resolved) noexcept {
  static const auto real = kelo::tests::next_call("realpath", realpath);
  return kelo::tests::Fault::meets("realpath") ? nullptr : real(path, resolved);
}

int mkdir(const char* path, mode_t mode) noexcept {
  static const auto real = kelo::tests::next_call("mkdir", mkdir);
  return kelo::tests::Fault::meets("mkdir") ? -1 : real(path, mode);
}

int fchmod(int fd, mode_t mode) noexcept {
  static const auto real = kelo::tests::next_call("fchmod", fchmod);
  return kelo::tests::Fault::meets("fchmod") ? -1 : real(fd, mode);
}

int fchown(int fd, uid_t user, gid_t group) noexcept {
  static const auto real = kelo::tests::next_call("fchown", fchown);
  return kelo::tests::Fault::meets("fchown") ? -1 : real(fd, user, group);
}

// Some C libraries have one name for both kinds of offsets, and macros for the other names.
#ifndef open64
int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return open64(path, flags, mode);
}
#endif

std::FILE* fopen(const char* path, const char* mode) {
  static const auto real = kelo::tests::next_call("fopen", fopen);
  return kelo::tests::Fault::meets("fopen") ? nullptr : real(path, mode);
}

int posix_spawnp(pid_t* child, const char* program, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment) {
  static const auto real = kelo::tests::next_call("posix_spawnp", posix_spawnp);
  if (kelo::tests::Fault::meets("posix_spawnp")) return errno;
  return real(child, program, actions, attributes, arguments, environment);
}

#ifndef fopen64
std::FILE* fopen64(const char* path, const char* mode) {
  static const auto real = kelo::tests::next_call("fopen64", fopen64);
  return kelo::tests::Fault::meets("fopen") ? nullptr : real(path, mode);
}
#endif

std::size_t fwrite(const void* bytes, std::size_t size, std::size_t count, std::FILE* stream) {
  static const auto real = kelo::tests::next_call("fwrite", fwrite);
  return kelo::tests::Fault::meets("fwrite") ? 0 : real(bytes, size, count, stream);
}

ssize_t copy_file_range(int from, off64_t* read_at, int to, off64_t* write_at, std::size_t size,
                        unsigned int flags) {
  static const auto real = kelo::tests::next_call("copy_file_range", copy_file_range);
  if (!kelo::tests::Fault::meets("copy_file_range")) return real(from, read_at, to, write_at, size, flags);
  // Half of a copy of at most so many bytes is one that ends too early; then the disk is full.
  constexpr std::size_t kPart = 4096;
  return errno == kelo::tests::kShortTransfer
             ? real(from, read_at, to, write_at, std::min(size, kPart), flags)
             : -1;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  static const auto real = kelo::tests::next_call("clock_gettime", clock_gettime);
  const int result = real(clock, time);
  if (!kelo::tests::Fault::is_set() || result != 0) return result;
  if (clock == CLOCK_MONOTONIC) kelo::tests::move_on(*time);
  if (clock == CLOCK_REALTIME) time->tv_sec += static_cast<time_t>(kelo::tests::clock_jump());
  return result;
}

int gettimeofday(timeval* __restrict time, void* __restrict zone) noexcept {
  static const auto real = kelo::tests::next_call("gettimeofday", gettimeofday);
  const int result = real(time, zone);
  if (kelo::tests::Fault::is_set()) time->tv_sec += static_cast<time_t>(kelo::tests::clock_jump());
  return result;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* wait, timespec* left) {
  static const auto real = kelo::tests::next_call("clock_nanosleep", clock_nanosleep);
  timespec now{};
  clock_gettime(clock, &now);
  if (flags == TIMER_ABSTIME && kelo::tests::skips_wait(now, *wait)) return 0;
  return real(clock, flags, wait, left);
}

int usleep(useconds_t microseconds) {
  static const auto real = kelo::tests::next_call("usleep", usleep);
  return kelo::tests::Fault::is_set() ? 0 : real(microseconds);
}

}  // extern "C"
// NOLINTEND(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)

#endif  // KELO_TESTS_SUPPORT_STORAGE_FAULTS_HPP
