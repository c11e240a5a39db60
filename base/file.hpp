// Owning descriptors and streams, and the one loop that repeats an interrupted system call. Every folder uses
// them, so that what is longer than a line is out of line: that makes the library smaller.
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

// Keeps errno as it was on construction, so that logging and cleanup never change what a caller sees.
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
  // Closes it, and tells whether the file had taken all that was written. It was opened.
  [[nodiscard]] bool close() { return ::close(std::exchange(fd_, -1)) == 0; }
  // Closes it, if there is one, and keeps errno.
  void reset();

 private:
  int fd_ = -1;
};

// Opens `path` close-on-exec; an empty Descriptor with errno set on failure.
Descriptor open_file(const char* path, int flags, mode_t mode = 0);

// Reads what there is, at most `room`; 0 at the end, -1 with errno set on failure.
ssize_t read_some(int fd, std::span<char> room);

// Reads until the room is full, the input has ended or a read fails, and returns how many bytes there are.
std::size_t read_all(int fd, std::span<char> room);

// Writes until all is written, nothing more is taken or a write fails, which sets errno. Returns how many
// bytes are written. A pipe whose reader has left is a write that fails, and raises no signal.
std::size_t write_all(int fd, std::span<const char> data);

// Brings the name of a file to the storage: syncs the directory that holds it. False with errno set when that
// failed. A file system that cannot sync a directory keeps its names without, which is a success.
bool sync_directory_of(const char* path);

struct StreamCloser {
  void operator()(std::FILE* stream) const { std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

}  // namespace kelo::base

#endif  // KELO_BASE_FILE_HPP
