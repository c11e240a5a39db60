// SPDX-License-Identifier: MIT
// Runs one command as a child process, captures its output and kills it when it prints nothing for too long.
#include "kelo-app-os-al/supervised_child.hpp"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/child.hpp"
#include "base/file.hpp"
#include "log/library_log.hpp"

// All messages about a supervised command carry this function name.
#define STAGE_LOG(level, ...) KELO_LOG_AS("kelo_ds_exec_internal", level, __VA_ARGS__)

namespace kelo::os {
namespace {

using base::ChildFiles;
using base::Descriptor;
using base::Pipe;
using base::read_some;

constexpr int kOutputTimeoutMilliseconds = 2000;

// The C library may have no functions for these system calls. New calls have the same number on every machine, above
// the first number of the machine's kind of calls.
#ifndef __mips__
constexpr long kFirstCall = 0;
#else
constexpr long kFirstCall = _MIPS_SIM == 1 ? 4000 : _MIPS_SIM == 2 ? 6000 : 5000;  // O32, N32, 64
#endif
constexpr long kPidfdSendSignal = kFirstCall + 424;
constexpr long kPidfdOpen = kFirstCall + 434;
#ifdef SYS_pidfd_open
static_assert(kPidfdOpen == SYS_pidfd_open && kPidfdSendSignal == SYS_pidfd_send_signal);
#endif

bool open_logged(Pipe& pipe) {
  const bool opened = pipe.open();
  STAGE_LOG(LOG_LVL_DBUG, "ret=%d\n", opened ? 0 : -1);
  return opened;
}

// A child, and the reason why it could not run the program.
struct Start {
  pid_t child;
  int error;  // of the failed exec, or 0
};

// If the program cannot be started, the child is a shell that exits with code 255. If no process can be created,
// there is no child.
Start start(const SupervisedCommand& command, ChildFiles files) {
  int error = 0;
  if (!command.too_many_words) {
    pid_t child = base::start_program(command.arguments[0], command.arguments, files);
    if (child == -1 && errno == ENOEXEC)
      child = base::start_program("/bin/sh", command.shell_arguments, files);
    error = errno;
    if (child != -1 || error == EAGAIN || error == ENOMEM) return {child, 0};
  }
  return {base::start_shell("exit 255", files), error};
}

// Reads and drops what has arrived. Returns false at the end of the output.
bool discard(int fd) {
  std::array<char, 4096> unwanted;
  return read_some(fd, unwanted) > 0;
}

// Reads what has arrived into the caller's buffer. Returns false at the end of the output.
bool capture(int fd, CaptureBuffer& output) {
  const std::span<char> room = output.room();
  if (room.empty()) return discard(fd);
  const ssize_t count = read_some(fd, room);
  if (count <= 0) return false;
  output.keep(static_cast<std::size_t>(count));
  return true;
}

// Supervises a running child in the parent.
class Supervisor {
 public:
  Supervisor(pid_t child, Descriptor watch, Descriptor output)
      : child_(child),
        process_(static_cast<int>(syscall(kPidfdOpen, child, 0))),
        watch_(std::move(watch)),
        output_(std::move(output)) {}

  // Captures the output until both pipes have ended. Returns false when the child was killed because nothing arrived
  // in time, or when the wait failed and the child still runs. In these cases the calling process must reap the
  // child.
  bool follow(CaptureBuffer& captured) {
    while (watch_ || output_) {
      // poll() and not select(), which cannot name descriptors from 1024 on; the messages still say select().
      std::array<pollfd, 2> ends = {{{watch_.get(), POLLIN, 0}, {output_.get(), POLLIN, 0}}};
      const int ready = poll(ends.data(), ends.size(), kOutputTimeoutMilliseconds);
      if (ready == -1) {
        if (!may_wait_again(errno)) return false;
        continue;
      }
      if (ready == 0) {
        kill_after_timeout();
        return false;
      }
      if (ends[0].revents != 0 && !discard(watch_.get())) watch_.reset();
      if (ends[1].revents != 0 && !capture(output_.get(), captured)) output_.reset();
    }
    return true;
  }

  // Waits until the child has ended. Returns true when it exited with code 0.
  [[nodiscard]] bool reap() const {
    const int status = base::wait_for_end(child_);
    const bool waited = status != -1;
    if (waited && WIFEXITED(status)) {
      STAGE_LOG(LOG_LVL_INFO, "[cpid:%d] Process exited normally with rc=%d\n", child_, WEXITSTATUS(status));
      return WEXITSTATUS(status) == 0;
    }
    STAGE_LOG(LOG_LVL_INFO, "(): [cpid:%d] wait_pid = %d\n", child_, waited ? 1 : 0);
    return false;
  }

 private:
  [[nodiscard]] bool may_wait_again(int error) const {
    STAGE_LOG(LOG_LVL_INFO, "[cpid:%d] Failed to select() -> %d:%s\n", child_, error, std::strerror(error));
    if (error != EINTR) return false;
    STAGE_LOG(LOG_LVL_INFO, "(): select() was interrupted, continuing");
    return true;
  }

  // The calling process may already have reaped the child, and the process id may then belong to another process. The
  // process descriptor always refers to the child. Without a descriptor the child is killed only if it can still be
  // waited for.
  [[nodiscard]] bool kill_child() const {
    if (process_) return syscall(kPidfdSendSignal, process_.get(), SIGKILL, nullptr, 0) == 0;
    siginfo_t state;
    return waitid(P_PID, static_cast<id_t>(child_), &state, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           kill(child_, SIGKILL) == 0;
  }

  void kill_after_timeout() const {
    if (!kill_child()) {
      STAGE_LOG(LOG_LVL_INFO, "[cpid:%d] ds_exec tried kill(); failed with error %d - %s\n", child_, errno,
                std::strerror(errno));
    } else {
      STAGE_LOG(LOG_LVL_INFO, "[cpid:%d] ds_exec kill()ed pid %d with SIGKILL\n", child_, child_);
    }
  }

  const pid_t child_;
  const Descriptor process_;  // refers to the child; empty on kernels without process descriptors
  Descriptor watch_;
  Descriptor output_;
};

// Logs why the program could not be started. This precedes the message about the exit code.
void log_start_failure(const SupervisedCommand& command, int error) {
  if (command.too_many_words) STAGE_LOG(LOG_LVL_INFO, "(): command is too long\n");
  if (error != 0) STAGE_LOG(LOG_LVL_INFO, "exec() failed: %d:%s\nDying\n", error, std::strerror(error));
}

}  // namespace

bool run_supervised(const SupervisedCommand& command, CaptureBuffer output, bool verbose) {
  if (verbose) STAGE_LOG(LOG_LVL_INFO, "(): Executing command \"%s\"\n", command.text);

  // Nothing is written to the watch pipe. It ends when the child and all processes that have inherited it have ended.
  Pipe watch;
  Pipe printed;
  if (!open_logged(watch) || !open_logged(printed)) return false;
  const base::ChildSignalBlock block;
  const int print = printed.write_end.get();
  const Start started = start(command, {{print, STDOUT_FILENO},
                                        {print, STDERR_FILENO},
                                        // That number is not used otherwise in the child.
                                        {watch.write_end.get(), watch.read_end.get()}});
  const pid_t child = started.child;
  if (child == -1) return false;
  STAGE_LOG(LOG_LVL_INFO, "[cpid:%d] Spawned child PID(%d) command:\"%s\"\n", child, child, command.text);
  watch.write_end.reset();
  printed.write_end.reset();

  Supervisor supervisor(child, std::move(watch.read_end), std::move(printed.read_end));
  if (!supervisor.follow(output)) return false;
  log_start_failure(command, started.error);
  return supervisor.reap();
}

}  // namespace kelo::os
