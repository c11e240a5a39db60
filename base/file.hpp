// SPDX-License-Identifier: MIT
// Owning descriptors and streams, and the loop that repeats an interrupted system call. All folders use them, so
// functions of more than a line are out of line: that makes the library smaller.
#ifndef KELO_BASE_FILE_HPP
#define KELO_BASE_FILE_HPP

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <span>
#include <utility>

namespace kelo::base {

// Repeats `call` while it fails with EINTR.
template <typename Call>
auto retry_interrupted(Call call) -> decltype(call()) {
  decltype(call()) result;
  do {
    result = call();
  } while (result == -1 && errno == EINTR);
  return result;
}

// Saves errno and restores it at the end of the scope, so that logging and cleanup do not change it for the caller.
class [[nodiscard]] ErrnoKeeper {
 public:
  ErrnoKeeper() : saved_(errno) {}
  ~ErrnoKeeper() { errno = saved_; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  int saved_;
};

class [[nodiscard]] Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { reset(); }

  explicit operator bool() const { return fd_ >= 0; }
  [[nodiscard]] int get() const { return fd_; }
  // Closes an open descriptor. Returns false when close() reports that written data could not be stored.
  [[nodiscard]] bool close() { return ::close(std::exchange(fd_, -1)) == 0; }
  // Closes the descriptor, if it is open, and leaves errno unchanged.
  void reset();

 private:
  int fd_ = -1;
};

// Opens `path` close-on-exec. Returns an empty Descriptor with errno set on failure.
Descriptor open_file(const char* path, int flags, mode_t mode = 0);

// Reads what is available, at most the size of `room`. Returns 0 at the end of the input and -1 with errno set on
// failure.
ssize_t read_some(int fd, std::span<char> room);

// Reads until `room` is full, the input has ended or a read fails. Returns the number of bytes read.
std::size_t read_all(int fd, std::span<char> room);

// Writes until all is written, the file accepts nothing more or a write fails, which sets errno. Returns the number of
// bytes written.
std::size_t write_all(int fd, std::span<const char> data);

// Does the same for a file that may be a pipe: writing to a pipe without a reader fails and raises no signal.
std::size_t write_all_unsignalled(int fd, std::span<const char> data);

// Syncs the directory that holds `path`, so that the name of the file is on the storage. Returns false with errno set
// on failure. A file system that cannot sync directories stores names without a sync, so that counts as a success.
bool sync_directory_of(const char* path);

struct StreamCloser {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

}  // namespace kelo::base

#endif  // KELO_BASE_FILE_HPP
