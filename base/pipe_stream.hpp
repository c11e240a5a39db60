// A shell command at the other end of a pipe.
#ifndef KELO_BASE_PIPE_STREAM_HPP
#define KELO_BASE_PIPE_STREAM_HPP

#include <cstdio>
#include <span>
#include <utility>

#include "base/file.hpp"

namespace kelo::base {

// Owns what popen() starts: its end closes the pipe and waits for the command. The stream is never read or
// written as such, so that a signal whose handler does not restart a read costs none of the output.
class [[nodiscard]] PipeStream {
 public:
  // The command's standard output is read here, or its standard input written. Empty with errno set when it
  // cannot be started.
  static PipeStream reading(const char* command) { return PipeStream(popen(command, "re")); }
  static PipeStream writing(const char* command) { return PipeStream(popen(command, "we")); }

  PipeStream(const PipeStream&) = delete;
  PipeStream& operator=(const PipeStream&) = delete;
  ~PipeStream() {
    if (stream_ == nullptr) return;
    const ErrnoKeeper keep;
    close();
  }

  explicit operator bool() const { return stream_ != nullptr; }
  [[nodiscard]] int descriptor() const { return fileno(stream_); }

  // Reads until the room is full or the output has ended, and returns how many bytes there are.
  [[nodiscard]] std::size_t read(std::span<char> room) const { return read_all(descriptor(), room); }

  // Closes the pipe and waits for the command. Its wait status, or -1 with errno set. Leaves the owner empty.
  int close() { return pclose(std::exchange(stream_, nullptr)); }

 private:
  explicit PipeStream(std::FILE* stream) : stream_(stream) {}

  std::FILE* stream_;
};

}  // namespace kelo::base

#endif  // KELO_BASE_PIPE_STREAM_HPP
