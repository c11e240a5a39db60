#include "kelo-app-os-al/supervised_child.hpp"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/child.hpp"
#include "base/file.hpp"
#include "log/library_log.hpp"

// Log lines of a supervised command carry the name of this stage, whatever step they come from.
#define STAGE_LOG(level, ...) KELO_LOG_AS("kelo_ds_exec_internal", level, __VA_ARGS__)

namespace kelo::os {
namespace {

using base::ChildFiles;
using base::Descriptor;
using base::Pipe;
using base::read_some;

constexpr int kSilenceMilliseconds = 2000;

// Calls that the C library need not know. They have these numbers on every machine.
constexpr long kSignalHandle = 424;  // pidfd_send_signal
constexpr long kOpenHandle = 434;    // pidfd_open

bool open_logged(Pipe& pipe) {
  const bool opened = pipe.open();
  STAGE_LOG(LOG_LVL_DBUG, "ret=%d\n", opened ? 0 : -1);
  return opened;
}

// A child, and why it never became the program.
struct Start {
  pid_t child;
  int error;  // of the failed exec; 0 where there was none
};

// A program that cannot be started shows as a child that ends with code 255. Without a process there is no child.
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

bool discard(int fd) {
  std::array<char, 4096> unwanted;
  return read_some(fd, unwanted) > 0;
}

// Reads what has arrived, straight into its place. False at the end of the output.
bool capture(int fd, CaptureBuffer& output) {
  const std::span<char> room = output.room();
  if (room.empty()) return discard(fd);
  const ssize_t count = read_some(fd, room);
  if (count <= 0) return false;
  output.keep(static_cast<std::size_t>(count));
  return true;
}

// Supervises a running child from the parent's side.
class Supervisor {
 public:
  Supervisor(pid_t child, Descriptor watch, Descriptor output)
      : child_(child),
        handle_(static_cast<int>(syscall(kOpenHandle, child, 0))),
        watch_(std::move(watch)),
        output_(std::move(output)) {}

  // Captures until both pipes have ended. False when the child was given up: killed for its silence, or left
  // running because it could not be waited for. Nobody reaps it here then: that is the calling process's.
  bool follow(CaptureBuffer& captured) {
    while (watch_ || output_) {
      // poll() and not select(), which cannot name descriptors from 1024 on; the messages keep their words.
      std::array<pollfd, 2> ends = {{{watch_.get(), POLLIN, 0}, {output_.get(), POLLIN, 0}}};
      const int ready = poll(ends.data(), ends.size(), kSilenceMilliseconds);
      if (ready == -1) {
        if (!may_wait_again(errno)) return false;
        continue;
      }
      if (ready == 0) {
        kill_silent();
        return false;
      }
      if (ends[0].revents != 0 && !discard(watch_.get())) watch_.reset();
      if (ends[1].revents != 0 && !capture(output_.get(), captured)) output_.reset();
    }
    return true;
  }

  // Waits for the child's end. True when it exited with code 0.
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

  // Whoever reaps every child of the process may have reaped this one, and its number may be another's: a handle
  // stays that of the child. Without one, a child that is not there to be waited for is not killed.
  [[nodiscard]] bool kill_child() const {
    if (handle_) return syscall(kSignalHandle, handle_.get(), SIGKILL, nullptr, 0) == 0;
    siginfo_t state;
    return waitid(P_PID, static_cast<id_t>(child_), &state, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           kill(child_, SIGKILL) == 0;
  }

  void kill_silent() const {
    if (!kill_child()) {
      STAGE_LOG(LOG_LVL_INFO, "[cpid:%d] ds_exec tried kill(); failed with error %d - %s\n", child_, errno,
                std::strerror(errno));
    } else {
      STAGE_LOG(LOG_LVL_INFO, "[cpid:%d] ds_exec kill()ed pid %d with SIGKILL\n", child_, child_);
    }
  }

  const pid_t child_;
  const Descriptor handle_;  // of the process; empty where the kernel has none to give
  Descriptor watch_;
  Descriptor output_;
};

// Says what a child that never became the program would have said, before its exit code is logged.
void log_start_failure(const SupervisedCommand& command, int error) {
  if (command.too_many_words) STAGE_LOG(LOG_LVL_INFO, "(): command is too long\n");
  if (error != 0) STAGE_LOG(LOG_LVL_INFO, "exec() failed: %d:%s\nDying\n", error, std::strerror(error));
}

}  // namespace

bool run_supervised(const SupervisedCommand& command, CaptureBuffer output, bool verbose) {
  if (verbose) STAGE_LOG(LOG_LVL_INFO, "(): Executing command \"%s\"\n", command.text);

  // Nothing is ever written to the watch pipe: its end says that the child and all that inherited it are
  // gone.
  Pipe watch;
  Pipe printed;
  if (!open_logged(watch) || !open_logged(printed)) return false;
  const base::ChildSignalBlock block;
  const int print = printed.write_end.get();
  const Start started = start(command, {{print, STDOUT_FILENO},
                                        {print, STDERR_FILENO},
                                        // Nothing else of the child has that number.
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
