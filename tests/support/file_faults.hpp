// SPDX-License-Identifier: MIT
// Makes chosen file calls of the whole test program fail, give less or use another file, the library's
// included. Include it in exactly one source file of a test program.
//
// The calls are: open, read, pread, write, lseek, fstat, fsync and rename.
#ifndef KELO_TESTS_SUPPORT_FILE_FAULTS_HPP
#define KELO_TESTS_SUPPORT_FILE_FAULTS_HPP

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <optional>
#include <string_view>
#include <vector>

#include "tests/support/fault.hpp"

namespace kelo::tests {

// What a read or write of this thread returns without being made, while it is set.
inline thread_local std::optional<ssize_t> claimed_read;
inline thread_local std::optional<ssize_t> claimed_write;

// While it lives, this thread opens `instead` where it opens `path`. One at a time.
class Redirection {
 public:
  Redirection(std::string_view path, const char* instead) : path_(path), instead_(instead) { current = this; }
  ~Redirection() { current = nullptr; }
  Redirection(const Redirection&) = delete;
  Redirection& operator=(const Redirection&) = delete;

  static const char* of(const char* path) {
    return current != nullptr && current->path_ == path ? current->instead_ : path;
  }

 private:
  static inline thread_local Redirection* current = nullptr;

  const std::string_view path_;
  const char* const instead_;
};

// Follows the writes of this thread while it lives, none of which takes more than `most` bytes. One at a
// time.
class Writes {
 public:
  explicit Writes(std::size_t most) : most_(most) { current = this; }
  ~Writes() { current = nullptr; }
  Writes(const Writes&) = delete;
  Writes& operator=(const Writes&) = delete;

  struct Call {
    std::size_t asked;
    int status_flags;      // what the descriptor was opened with, as F_GETFL tells
    int descriptor_flags;  // the same of F_GETFD
  };
  [[nodiscard]] const std::vector<Call>& calls() const { return calls_; }

  // How much of a write that begins now is to be made.
  static std::size_t begin(int fd, std::size_t size) {
    Writes* const writes = current;
    if (writes == nullptr) return size;
    writes->calls_.push_back({size, fcntl(fd, F_GETFL), fcntl(fd, F_GETFD)});
    return std::min(size, writes->most_);
  }

 private:
  static inline thread_local Writes* current = nullptr;

  const std::size_t most_;
  std::vector<Call> calls_;
};

}  // namespace kelo::tests

// Defined here and not in a source of the support library, which every test program links. The C library's
// own declarations have reserved parameter names.
// NOLINTBEGIN(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
extern "C" {

// The library is built with wide file offsets, which have names of their own.
int open64(const char* path, int flags, ...) {
  static const auto real = kelo::tests::next_call("open64", open64);
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = va_arg(arguments, mode_t);
  va_end(arguments);
  return kelo::tests::Fault::meets("open") ? -1 : real(kelo::tests::Redirection::of(path), flags, mode);
}

ssize_t read(int fd, void* bytes, std::size_t size) {
  static const auto real = kelo::tests::next_call("read", read);
  if (kelo::tests::Fault::meets("read"))
    return kelo::tests::fail_transfer(size, [&](std::size_t part) { return real(fd, bytes, part); });
  return kelo::tests::claimed_read ? *kelo::tests::claimed_read : real(fd, bytes, size);
}

ssize_t write(int fd, const void* bytes, std::size_t size) {
  static const auto real = kelo::tests::next_call("write", write);
  const std::size_t part = kelo::tests::Writes::begin(fd, size);
  if (kelo::tests::Fault::meets("write"))
    return kelo::tests::fail_transfer(part, [&](std::size_t less) { return real(fd, bytes, less); });
  return kelo::tests::claimed_write ? *kelo::tests::claimed_write : real(fd, bytes, part);
}

ssize_t pread64(int fd, void* bytes, std::size_t size, off64_t position) {
  static const auto real = kelo::tests::next_call("pread64", pread64);
  if (kelo::tests::Fault::meets("pread"))
    return kelo::tests::fail_transfer(size,
                                      [&](std::size_t part) { return real(fd, bytes, part, position); });
  return kelo::tests::claimed_read ? *kelo::tests::claimed_read : real(fd, bytes, size, position);
}

off64_t lseek64(int fd, off64_t position, int whence) noexcept {
  static const auto real = kelo::tests::next_call("lseek64", lseek64);
  return kelo::tests::Fault::meets("lseek") ? -1 : real(fd, position, whence);
}

int fstat64(int fd, struct stat64* status) noexcept {
  static const auto real = kelo::tests::next_call("fstat64", fstat64);
  return kelo::tests::Fault::meets("fstat") ? -1 : real(fd, status);
}

int fsync(int fd) {
  static const auto real = kelo::tests::next_call("fsync", fsync);
  return kelo::tests::Fault::meets("fsync") ? -1 : real(fd);
}

int rename(const char* from, const char* to) noexcept {
  static const auto real = kelo::tests::next_call("rename", rename);
  return kelo::tests::Fault::meets("rename") ? -1 : real(from, to);
}

}  // extern "C"
// NOLINTEND(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)

#endif  // KELO_TESTS_SUPPORT_FILE_FAULTS_HPP
