// SPDX-License-Identifier: MIT
// Traces a program and all that it starts, one storage call at a time.
#include "tools/crash/recorder.hpp"

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "tools/crash/storage_calls.hpp"

namespace kelo::crash {
namespace {

[[noreturn]] void run_traced(const std::function<void()>& body) {
  ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
  raise(SIGSTOP);
  body();
  std::fflush(nullptr);
  _exit(0);
}

void let_go_on(pid_t process, int status) {
  const int signal = WSTOPSIG(status);
  // Stops that the tracing itself causes are not passed on; a new process starts with a SIGSTOP of its own.
  const bool own_stop = signal == (SIGTRAP | 0x80) || signal == SIGTRAP || signal == SIGSTOP;
  ptrace(PTRACE_SYSCALL, process, nullptr, own_stop ? 0 : signal);
}

int follow_all(pid_t first, StorageCalls& calls) {
  int exit_status = -1;
  for (;;) {
    int status = 0;
    const pid_t process = waitpid(-1, &status, __WALL);
    if (process < 0) {
      if (errno == EINTR) continue;
      return exit_status;
    }
    if (!WIFSTOPPED(status)) {
      if (process == first && WIFEXITED(status)) exit_status = WEXITSTATUS(status);
      continue;
    }
    if (WSTOPSIG(status) == (SIGTRAP | 0x80)) {
      // No other process goes on before the call has ended, so that the recorded order is the real one.
      const TracedProcess traced(process);
      if (const auto call = traced.entered_call()) calls.follow(traced, *call);
    }
    let_go_on(process, status);
  }
}

}  // namespace

Recording record(const Folders& folders, const std::function<void()>& body) {
  StorageCalls calls(folders);
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) run_traced(body);
  if (child < 0) {
    std::perror("fork");
    std::abort();
  }
  int status = 0;
  waitpid(child, &status, 0);
  ptrace(PTRACE_SETOPTIONS, child, nullptr,
         PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE |
             PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL);
  ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
  const int exit_status = follow_all(child, calls);
  Recording recording = calls.take();
  recording.exit_status = exit_status;
  return recording;
}

}  // namespace kelo::crash
