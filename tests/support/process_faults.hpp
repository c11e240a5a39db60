// SPDX-License-Identifier: MIT
// Makes chosen process calls of the whole test program fail, the library's included, and can put a recorder
// in the place of started programs. Include it in exactly one source file of a test program.
//
// The calls are: pipe2, posix_spawnp, pidfd_open, pidfd_send_signal, poll, read, kill and waitpid.
#ifndef KELO_TESTS_SUPPORT_PROCESS_FAULTS_HPP
#define KELO_TESTS_SUPPORT_PROCESS_FAULTS_HPP

#include <poll.h>
#include <spawn.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/fault.hpp"
#include "tests/support/read_faults.hpp"

namespace kelo::tests {

inline constexpr long kPidfdSendSignal = 424;
inline constexpr long kPidfdOpen = 434;

// While it is set, the kernel has no handles of processes.
inline bool handles_are_missing = false;

// While it is set, what is started instead of a program prints the path and the arguments, each in brackets, and
// ends with 0. The shell is started nevertheless.
inline bool programs_are_recorded = false;

}  // namespace kelo::tests

// Defined here and not in a source of the support library, which every test program links. The C library's
// own declarations have reserved parameter names.
// NOLINTBEGIN(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)
extern "C" {

int pipe2(int* ends, int flags) noexcept {
  static const auto real = kelo::tests::next_call("pipe2", pipe2);
  return kelo::tests::Fault::meets("pipe2") ? -1 : real(ends, flags);
}

int posix_spawnp(pid_t* child, const char* program, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment) {
  static const auto real = kelo::tests::next_call("posix_spawnp", posix_spawnp);
  if (kelo::tests::Fault::meets("posix_spawnp")) return errno;
  if (!kelo::tests::programs_are_recorded || std::strcmp(program, "/bin/sh") == 0)
    return real(child, program, actions, attributes, arguments, environment);
  std::vector<std::string> words = {"sh", "-c", R"(printf '[%s]' "$@")", "sh", program};
  for (; *arguments != nullptr; ++arguments) words.emplace_back(*arguments);
  std::vector<char*> texts;
  texts.reserve(words.size() + 1);
  for (std::string& word : words) texts.push_back(word.data());
  texts.push_back(nullptr);
  return real(child, "/bin/sh", actions, attributes, texts.data(), environment);
}

// Handles of processes are got and used by number.
long syscall(long number, ...) noexcept {
  static const auto real = kelo::tests::next_call("syscall", syscall);
  if (number == kelo::tests::kPidfdOpen) {
    if (kelo::tests::Fault::meets("pidfd_open")) return -1;
    if (kelo::tests::handles_are_missing) {
      errno = ENOSYS;
      return -1;
    }
  }
  if (number == kelo::tests::kPidfdSendSignal && kelo::tests::Fault::meets("pidfd_send_signal")) return -1;
  std::va_list list;
  va_start(list, number);
  std::array<long, 6> words{};
  for (long& word : words) word = va_arg(list, long);
  va_end(list);
  return real(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}

int poll(pollfd* ends, nfds_t count, int milliseconds) {
  static const auto real = kelo::tests::next_call("poll", poll);
  return kelo::tests::Fault::meets("poll") ? -1 : real(ends, count, milliseconds);
}

int kill(pid_t process, int signal) noexcept {
  static const auto real = kelo::tests::next_call("kill", kill);
  return kelo::tests::Fault::meets("kill") ? -1 : real(process, signal);
}

pid_t waitpid(pid_t process, int* status, int options) {
  static const auto real = kelo::tests::next_call("waitpid", waitpid);
  return kelo::tests::Fault::meets("waitpid") ? -1 : real(process, status, options);
}

}  // extern "C"
// NOLINTEND(misc-definitions-in-headers,readability-inconsistent-declaration-parameter-name)

#endif  // KELO_TESTS_SUPPORT_PROCESS_FAULTS_HPP
