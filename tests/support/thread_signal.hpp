// SPDX-License-Identifier: MIT
// A signal with a value for one thread, as pthread_sigqueue() sends it. Not every C library has that function.
#ifndef KELO_TESTS_SUPPORT_THREAD_SIGNAL_HPP
#define KELO_TESTS_SUPPORT_THREAD_SIGNAL_HPP

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kelo::tests {

// `thread` is the kernel's id of a thread of this process. Returns 0, or -1 with errno.
inline int queue_signal(pid_t thread, int number, void* value) {
  siginfo_t info{};
  info.si_signo = number;
  info.si_code = SI_QUEUE;
  // Tests replace getpid().
  info.si_pid = static_cast<pid_t>(syscall(SYS_getpid));
  info.si_uid = getuid();
  info.si_value.sival_ptr = value;
  return static_cast<int>(syscall(SYS_rt_tgsigqueueinfo, info.si_pid, thread, number, &info));
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_THREAD_SIGNAL_HPP
