#include "kelo-app-os-al/supervised_child.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "base/file.hpp"
#include "log/library_log.hpp"

// Log lines of a supervised command carry the name of this stage, whatever step they come from.
#define STAGE_LOG(level, ...) KELO_LOG_AS("kelo_ds_exec_internal", level, __VA_ARGS__)

namespace kelo::os {
namespace {

using base::Descriptor;
using base::read_some;
using base::retry_interrupted;

constexpr int kSilenceMilliseconds = 2000;
constexpr int kGaveUpBeforeExec = 255;

// The error of a failed exec, on a page that the child shares with its parent. The child of a fork in a
// many-threaded daemon must not log, as another thread may have held any lock of the process: it leaves the
// number here and the parent logs. Unlike a pipe this costs no descriptor, and the program cannot forge it.
struct Unmapper {
  void operator()(int* page) const { munmap(page, sizeof *page); }
};
using ExecError = std::unique_ptr<int, Unmapper>;

ExecError share_exec_error() {
  void* const page = mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return ExecError(page == MAP_FAILED ? nullptr : static_cast<int*>(page));
}

// In a process without standard streams a pipe may be given their numbers, which the child puts its output
// on.
Descriptor clear_of_standard_streams(int fd) {
  Descriptor given(fd);
  if (fd > STDERR_FILENO) return given;
  return Descriptor(fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

struct Pipe {
  Descriptor read_end;
  Descriptor write_end;

  bool open() {
    std::array<int, 2> ends{};
    int result = pipe2(ends.data(), O_CLOEXEC);
    if (result == 0) {
      read_end = clear_of_standard_streams(ends[0]);
      write_end = clear_of_standard_streams(ends[1]);
      if (!read_end || !write_end) result = -1;
    }
    STAGE_LOG(LOG_LVL_DBUG, "ret=%d\n", result);
    return result == 0;
  }
};

// The child, from the fork on: calls that are safe in a signal handler, and execvp, which neither allocates
// nor locks. All descriptors of this side but the watch pipe's write end close as the program starts.
[[noreturn]] void become_program(const SupervisedCommand& command, int watch, int output, int* exec_error) {
  const auto put_output_on = [output](int stream) {
    return retry_interrupted([=] { return dup2(output, stream); }) != -1;
  };
  if (!command.too_many_words && fcntl(watch, F_SETFD, 0) != -1 && put_output_on(STDOUT_FILENO) &&
      put_output_on(STDERR_FILENO)) {
    execvp(command.arguments[0], command.arguments);
    std::atomic_ref(*exec_error).store(errno, std::memory_order_relaxed);
  }
  _exit(kGaveUpBeforeExec);
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
      : child_(child), watch_(std::move(watch)), output_(std::move(output)) {}

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
    int status = 0;
    const bool waited = retry_interrupted([&] { return waitpid(child_, &status, 0); }) == child_;
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

  void kill_silent() const {
    if (kill(child_, SIGKILL) == -1) {
      STAGE_LOG(LOG_LVL_INFO, "[cpid:%d] ds_exec tried kill(); failed with error %d - %s\n", child_, errno,
                std::strerror(errno));
    } else {
      STAGE_LOG(LOG_LVL_INFO, "[cpid:%d] ds_exec kill()ed pid %d with SIGKILL\n", child_, child_);
    }
  }

  const pid_t child_;
  Descriptor watch_;
  Descriptor output_;
};

// Says what a child that never became the program would have said, before its exit code is logged.
void log_start_failure(const SupervisedCommand& command, int* exec_error) {
  if (command.too_many_words) STAGE_LOG(LOG_LVL_INFO, "(): command is too long\n");
  if (const int error = std::atomic_ref(*exec_error).load(std::memory_order_relaxed))
    STAGE_LOG(LOG_LVL_INFO, "exec() failed: %d:%s\nDying\n", error, std::strerror(error));
}

}  // namespace

bool run_supervised(const SupervisedCommand& command, CaptureBuffer output, bool verbose) {
  const ExecError exec_error = share_exec_error();
  if (!exec_error) return false;
  if (verbose) STAGE_LOG(LOG_LVL_INFO, "(): Executing command \"%s\"\n", command.text);

  // Nothing is ever written to the watch pipe: its end says that the child and all that inherited it are
  // gone.
  Pipe watch;
  Pipe printed;
  if (!watch.open() || !printed.open()) return false;
  const pid_t child = fork();
  if (child == -1) return false;
  if (child == 0) become_program(command, watch.write_end.get(), printed.write_end.get(), exec_error.get());
  STAGE_LOG(LOG_LVL_INFO, "[cpid:%d] Spawned child PID(%d) command:\"%s\"\n", child, child, command.text);
  watch.write_end.reset();
  printed.write_end.reset();

  Supervisor supervisor(child, std::move(watch.read_end), std::move(printed.read_end));
  if (!supervisor.follow(output)) return false;
  log_start_failure(command, exec_error.get());
  return supervisor.reap();
}

}  // namespace kelo::os
