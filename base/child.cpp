// SPDX-License-Identifier: MIT
// Starts programs as children and waits for them.
#include "base/child.hpp"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace kelo::base {
namespace {

constexpr int kFirstFree = STDERR_FILENO + 1;  // the lowest descriptor that is not a standard stream

using SignalBits = std::uint32_t;  // one bit for each signal below 32
constexpr SignalBits bit_of(int signal) { return SignalBits{1} << signal; }

sigset_t set_of(SignalBits signals) {
  sigset_t set;
  sigemptyset(&set);
  for (int signal = 1; signal < 32; ++signal) {
    if ((signals & bit_of(signal)) != 0) sigaddset(&set, signal);
  }
  return set;
}

constexpr std::array kInterrupts = {SIGINT, SIGQUIT};
// These flags have no meaning for the signals of the keyboard, so they can mark the action that is set here.
constexpr int kIgnoredHere = SA_NOCLDSTOP | SA_NOCLDWAIT;

bool ignored_by_program(const struct sigaction& action) {
  return action.sa_handler == SIG_IGN && (action.sa_flags & kIgnoredHere) != kIgnoredHere;
}

// While an object of this class exists, the process ignores the signals of the keyboard. When several threads have
// such objects at once, the first destructor restores the actions. A shared count would need a lock, and a forked
// child could inherit that lock held.
class InterruptsIgnored {
 public:
  InterruptsIgnored() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    ignore.sa_flags = kIgnoredHere;
    for (std::size_t i = 0; i < kInterrupts.size(); ++i) {
      sigaction(kInterrupts[i], nullptr, &before_[i]);
      if (!ignored_by_program(before_[i])) sigaction(kInterrupts[i], &ignore, &before_[i]);
    }
  }
  ~InterruptsIgnored() {
    for (std::size_t i = 0; i < kInterrupts.size(); ++i) {
      if (before_[i].sa_handler != SIG_IGN) sigaction(kInterrupts[i], &before_[i], nullptr);
    }
  }
  InterruptsIgnored(const InterruptsIgnored&) = delete;
  InterruptsIgnored& operator=(const InterruptsIgnored&) = delete;

 private:
  std::array<struct sigaction, kInterrupts.size()> before_;
};

// The signals that a child starts with the default action. It ignores a signal of the keyboard only if the program
// itself does. Another thread can change the action between this call and the start, so an action that is not ignored
// now counts as well.
SignalBits default_in_child() {
  SignalBits signals = bit_of(SIGPIPE) | bit_of(SIGCHLD);
  for (const int signal : kInterrupts) {
    struct sigaction now {};
    sigaction(signal, nullptr, &now);
    if (!ignored_by_program(now)) signals |= bit_of(signal);
  }
  return signals;
}

// Takes ownership of `fd` and returns it with a number above those of the standard streams.
Descriptor above_standard_streams(int fd) {
  Descriptor given(fd);
  if (fd >= kFirstFree) return given;
  return Descriptor(fcntl(fd, F_DUPFD_CLOEXEC, kFirstFree));
}

}  // namespace

ChildSignalBlock::ChildSignalBlock() {
  const sigset_t child = set_of(bit_of(SIGCHLD));
  pthread_sigmask(SIG_BLOCK, &child, &before_);
}

ChildSignalBlock::~ChildSignalBlock() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

bool Pipe::open() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
  read_end = above_standard_streams(ends[0]);
  write_end = above_standard_streams(ends[1]);
  return read_end && write_end;
}

namespace {

// Without the additions it has one caller, and a call would only cost.
#ifndef KELO_ADDITIONS
[[gnu::always_inline]] inline
#endif
    pid_t
    start(const char* program, char* const* arguments, ChildFiles files, short further_flags) {
  // A fresh attribute object has an empty signal mask. The C libraries allocate nothing in it, so it is not destroyed.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(
      &attributes, static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | further_flags));
  const sigset_t set = set_of(default_in_child());
  posix_spawnattr_setsigdefault(&attributes, &set);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  int error = 0;
  for (const auto& [descriptor, number] : files) {
    if (descriptor >= 0 && error == 0) error = posix_spawn_file_actions_adddup2(&actions, descriptor, number);
  }
  pid_t child = -1;
  if (error == 0) error = posix_spawnp(&child, program, &actions, &attributes, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error == 0) return child;
  errno = error;
  return -1;
}

}  // namespace

pid_t start_program(const char* program, char* const* arguments, ChildFiles files) {
  return start(program, arguments, files, 0);
}

#ifdef KELO_ADDITIONS
pid_t start_group(const char* program, char* const* arguments, ChildFiles files) {
  return start(program, arguments, files, POSIX_SPAWN_SETPGROUP);
}
#endif

pid_t start_shell(const char* command, ChildFiles files) {
  // The parameter type asks for writable text, but nothing writes to it.
  const std::array<char*, 4> arguments = {const_cast<char*>("sh"), const_cast<char*>("-c"),
                                          const_cast<char*>(command), nullptr};
  return start_program("/bin/sh", arguments.data(), files);
}

int wait_for_end(pid_t child) {
  int status = 0;
  return retry_interrupted([&] { return waitpid(child, &status, 0); }) == -1 ? -1 : status;
}

int run_shell(const char* command, int inherited) {
  const ChildSignalBlock block;
  const InterruptsIgnored interrupts;
  // Only a duplicate is inherited. This descriptor reserves a number for it that is not used otherwise in the child.
  const Descriptor reserved = inherited < 0 ? Descriptor() : open_file("/", O_PATH);
  const pid_t child = start_shell(command, {{inherited, reserved.get()}});
  return child == -1 ? -1 : wait_for_end(child);
}

}  // namespace kelo::base
