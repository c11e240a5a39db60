// SPDX-License-Identifier: MIT
// Opens, reads, writes and closes descriptors, and syncs directories.
#include "base/file.hpp"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string_view>

#include "base/text_builder.hpp"

namespace kelo::base {
namespace {

// Blocks SIGPIPE in this thread while it exists.
class PipeSignalHold {
 public:
  PipeSignalHold() {
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signal_, &before_);
    // A signal can be pending here only if the caller has blocked it. The caller then waits for that signal, so take()
    // must leave it.
    if (sigismember(&before_, SIGPIPE) == 1) sigpending(&pending_);
  }
  ~PipeSignalHold() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  PipeSignalHold(const PipeSignalHold&) = delete;
  PipeSignalHold& operator=(const PipeSignalHold&) = delete;

  // Removes the signal that a failed write has raised.
  void take() const {
    const ErrnoKeeper keep;
    constexpr timespec kNow{};
    if (sigismember(&pending_, SIGPIPE) == 0) {
      retry_interrupted([&] { return sigtimedwait(&signal_, nullptr, &kNow); });
    }
  }

 private:
  sigset_t signal_;
  sigset_t before_;
  sigset_t pending_{};
};

}  // namespace

void Descriptor::reset() {
  if (fd_ < 0) return;
  const ErrnoKeeper keep;
  ::close(std::exchange(fd_, -1));
}

Descriptor open_file(const char* path, int flags, mode_t mode) {
  return Descriptor(retry_interrupted([=] { return ::open(path, flags | O_CLOEXEC, mode); }));
}

ssize_t read_some(int fd, std::span<char> room) {
  return retry_interrupted([=] { return ::read(fd, room.data(), room.size()); });
}

std::size_t read_all(int fd, std::span<char> room) {
  std::size_t count = 0;
  while (count < room.size()) {
    const ssize_t more = read_some(fd, {room.data() + count, room.size() - count});
    if (more <= 0) break;
    count += static_cast<std::size_t>(more);
  }
  return count;
}

std::size_t write_all(int fd, std::span<const char> data) {
  std::size_t count = 0;
  while (count < data.size()) {
    const std::size_t left = data.size() - count;
    const ssize_t more = retry_interrupted([=] { return ::write(fd, data.data() + count, left); });
    // A driver may accept nothing and report no error, so a repeated call could loop forever.
    if (more <= 0) break;
    count += std::min(static_cast<std::size_t>(more), left);
  }
  return count;
}

std::size_t write_all_unsignalled(int fd, std::span<const char> data) {
  const PipeSignalHold pipe_signal;
  const std::size_t count = write_all(fd, data);
  if (count < data.size() && errno == EPIPE) pipe_signal.take();
  return count;
}

bool sync_directory_of(const char* path) {
  const char* const slash = std::strrchr(path, '/');
  FixedText<PATH_MAX> directory;
  directory.append(slash == nullptr ? "."
                                    : std::string_view(path, static_cast<std::size_t>(slash + 1 - path)));
  if (directory.cut()) {
    errno = ENAMETOOLONG;
    return false;
  }
  const Descriptor opened = open_file(directory.c_str(), O_RDONLY | O_DIRECTORY);
  if (!opened) return false;
  const int result = retry_interrupted([&] { return ::fsync(opened.get()); });
  return result == 0 || errno == EINVAL || errno == ENOTSUP;
}

}  // namespace kelo::base
