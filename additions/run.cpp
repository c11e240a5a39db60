// SPDX-License-Identifier: MIT
// Runs a program without a shell, with a limit of time for all of it, and tells how it ended.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <span>

#include "base/child.hpp"
#include "base/deadline.hpp"
#include "base/file.hpp"
#include "kelo-app-os-al/supervised_child.hpp"
#include "kelo_utils/run.h"

namespace {

using kelo::base::Deadline;
using kelo::base::Descriptor;
using kelo::os::CaptureBuffer;

// The C library may have no function for this system call. Its number is the same on every machine.
constexpr long kPidfdOpen = 434;
constexpr int kLookMilliseconds = 50;  // between two looks at a child that no descriptor refers to

enum class State : std::uint8_t { running, ended, unknown };

// The child is not reaped here, so that its number and that of its group stay its own.
State state_of(pid_t child) {
  siginfo_t info{};
  if (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) != 0) return State::unknown;
  return info.si_pid != 0 ? State::ended : State::running;
}

// Reads what has arrived. Returns false at the end of the output.
bool capture(int fd, CaptureBuffer& output) {
  std::array<char, 1024> unwanted;
  const std::span<char> room = output.room();
  const ssize_t count = kelo::base::read_some(fd, room.empty() ? std::span<char>(unwanted) : room);
  if (count > 0 && !room.empty()) output.keep(static_cast<std::size_t>(count));
  return count > 0;
}

// Waits at most `milliseconds` for output or for the end of the child, and captures output. Returns false when nothing
// arrived.
bool wait_and_capture(Descriptor& printed, int process, int milliseconds, CaptureBuffer& output) {
  std::array<pollfd, 2> ends = {{{printed.get(), POLLIN, 0}, {process, POLLIN, 0}}};
  if (poll(ends.data(), ends.size(), milliseconds) <= 0) return false;
  if (ends[0].revents != 0 && !capture(printed.get(), output)) printed.reset();
  return ends[0].revents != 0;
}

// Captures the output until the child has ended or the time is over.
State follow(pid_t child, Descriptor& printed, const Deadline& end, CaptureBuffer output) {
  const Descriptor process(static_cast<int>(syscall(kPidfdOpen, child, 0)));
  State state = State::running;
  for (;;) {
    const int left = end.milliseconds_left();
    if (left == 0) return state_of(child);
    wait_and_capture(printed, process.get(), process ? left : std::min(left, kLookMilliseconds), output);
    state = state_of(child);
    if (state != State::running) break;
  }
  // What the child has printed is still in the pipe. Other processes may have the pipe as well and go on printing.
  while (printed && end.milliseconds_left() > 0 && wait_and_capture(printed, -1, 0, output)) {
  }
  return state;
}

std::int32_t result_of(int status, std::int32_t& code) {
  if (status == -1) return KELO_RUN_UNKNOWN_END;
  if (WIFEXITED(status)) {
    code = WEXITSTATUS(status);
    return KELO_RUN_EXITED;
  }
  code = WTERMSIG(status);
  return KELO_RUN_KILLED;
}

bool are_valid(const char* const* arguments, std::int32_t timeout_ms) {
  return arguments != nullptr && arguments[0] != nullptr && arguments[0][0] != '\0' && timeout_ms >= 1;
}

}  // namespace

std::int32_t kelo_run(const char* const* arguments, std::int32_t timeout_ms, char* output,
                      std::int32_t output_size, std::int32_t* code) {
  if (output != nullptr && output_size >= 1) output[0] = '\0';
  if (!are_valid(arguments, timeout_ms)) return KELO_RUN_BAD_ARGUMENT;
  const Deadline end(static_cast<unsigned>(timeout_ms));
  kelo::base::Pipe printed;
  if (!printed.open()) return KELO_RUN_NOT_STARTED;
  const Descriptor nothing = kelo::base::open_file("/dev/null", O_RDONLY);
  const kelo::base::ChildSignalBlock block;
  // The parameter type of exec asks for writable text, but nothing writes to it.
  const pid_t child = kelo::base::start_group(arguments[0], const_cast<char* const*>(arguments),
                                              {{nothing.get(), STDIN_FILENO},
                                               {printed.write_end.get(), STDOUT_FILENO},
                                               {printed.write_end.get(), STDERR_FILENO}});
  if (child == -1) return errno == ENOENT || errno == ENOTDIR ? KELO_RUN_NOT_FOUND : KELO_RUN_NOT_STARTED;
  printed.write_end.reset();
  const State state = follow(child, printed.read_end, end, {output, output_size});
  if (state == State::running) {
    kill(-child, SIGKILL);
    kill(child, SIGKILL);  // it may have left its group
  }
  std::int32_t ended_with = 0;
  const std::int32_t result = result_of(kelo::base::wait_for_end(child), ended_with);
  if (state == State::running) return KELO_RUN_TIMED_OUT;
  if (code != nullptr && result != KELO_RUN_UNKNOWN_END) *code = ended_with;
  return result;
}
