// Makes chosen process calls of the whole test program fail, the library's included, and can put a recorder
// in the place of started programs. Include it in exactly one source file of a test program, whose .cmake
// file links CMAKE_DL_LIBS.
//
// The calls are: pipe2, fork, mmap, poll, read, kill, waitpid and dup2. A child keeps what its parent set up.
#ifndef KELO_TESTS_SUPPORT_PROCESS_FAULTS_HPP
#define KELO_TESTS_SUPPORT_PROCESS_FAULTS_HPP

#include <poll.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "tests/support/failing_call.hpp"

namespace kelo::tests {

// While it is set, execvp() prints the path and the arguments, each in brackets, and ends the child with 0.
inline bool programs_are_recorded = false;

inline void print_in_brackets(const char* text) {
  (void)!write(STDOUT_FILENO, "[", 1);
  (void)!write(STDOUT_FILENO, text, std::strlen(text));
  (void)!write(STDOUT_FILENO, "]", 1);
}

}  // namespace kelo::tests

// Defined here and not in a source of the support library, which every test program links. The C library's
// own declarations have reserved parameter names.
// NOLINTBEGIN(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
extern "C" {

int pipe2(int* ends, int flags) noexcept {
  static const auto real = kelo::tests::next_call("pipe2", pipe2);
  return kelo::tests::FailingCall::meets("pipe2") ? -1 : real(ends, flags);
}

pid_t fork() noexcept {
  static const auto real = kelo::tests::next_call("fork", fork);
  return kelo::tests::FailingCall::meets("fork") ? -1 : real();
}

// The library is built with wide file offsets, which have names of their own.
void* mmap64(void* address, std::size_t size, int protection, int flags, int fd, off64_t offset) noexcept {
  static const auto real = kelo::tests::next_call("mmap64", mmap64);
  return kelo::tests::FailingCall::meets("mmap") ? MAP_FAILED
                                                 : real(address, size, protection, flags, fd, offset);
}

int poll(pollfd* ends, nfds_t count, int milliseconds) {
  static const auto real = kelo::tests::next_call("poll", poll);
  return kelo::tests::FailingCall::meets("poll") ? -1 : real(ends, count, milliseconds);
}

ssize_t read(int fd, void* bytes, std::size_t size) {
  static const auto real = kelo::tests::next_call("read", read);
  return kelo::tests::FailingCall::meets("read") ? -1 : real(fd, bytes, size);
}

int kill(pid_t process, int signal) noexcept {
  static const auto real = kelo::tests::next_call("kill", kill);
  return kelo::tests::FailingCall::meets("kill") ? -1 : real(process, signal);
}

pid_t waitpid(pid_t process, int* status, int options) {
  static const auto real = kelo::tests::next_call("waitpid", waitpid);
  return kelo::tests::FailingCall::meets("waitpid") ? -1 : real(process, status, options);
}

int dup2(int from, int to) noexcept {
  static const auto real = kelo::tests::next_call("dup2", dup2);
  return kelo::tests::FailingCall::meets("dup2") ? -1 : real(from, to);
}

int execvp(const char* path, char* const* arguments) noexcept {
  static const auto real = kelo::tests::next_call("execvp", execvp);
  if (!kelo::tests::programs_are_recorded) return real(path, arguments);
  kelo::tests::print_in_brackets(path);
  for (; *arguments != nullptr; ++arguments) kelo::tests::print_in_brackets(*arguments);
  _exit(EXIT_SUCCESS);
}

}  // extern "C"
// NOLINTEND(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)

#endif  // KELO_TESTS_SUPPORT_PROCESS_FAULTS_HPP
