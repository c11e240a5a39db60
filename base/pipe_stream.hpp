// A shell command at the other end of a pipe.
#ifndef KELO_BASE_PIPE_STREAM_HPP
#define KELO_BASE_PIPE_STREAM_HPP

#include <sys/types.h>

#include <span>

#include "base/child.hpp"
#include "base/file.hpp"

namespace kelo::base {

// Does what popen() does: its end closes the pipe and waits for the command. There is no stream, so that a
// signal whose handler does not restart a read costs none of the output. To be destroyed by the thread that
// made it, whose SIGCHLD is blocked meanwhile.
class [[nodiscard]] PipeStream {
 public:
  // The command's standard output is read here, or its standard input written. Empty with errno set when it
  // cannot be started. The command keeps the descriptor `inherited`, unless that is -1.
  static PipeStream reading(const char* command, int inherited = -1) {
    return {command, STDOUT_FILENO, inherited};
  }
  static PipeStream writing(const char* command) { return {command, STDIN_FILENO, -1}; }

  PipeStream(const PipeStream&) = delete;
  PipeStream& operator=(const PipeStream&) = delete;
  ~PipeStream();

  explicit operator bool() const { return child_ != -1; }
  [[nodiscard]] int descriptor() const { return end_.get(); }

  // Reads until the room is full or the output has ended, and returns how many bytes there are.
  [[nodiscard]] std::size_t read(std::span<char> room) const { return read_all(descriptor(), room); }

  // Closes the pipe and waits for the command. Its wait status, or -1 with errno set. Leaves the owner empty.
  int close();

 private:
  PipeStream(const char* command, int stream, int inherited);

  const ChildSignalBlock block_;
  Descriptor end_;
  pid_t child_ = -1;
};

}  // namespace kelo::base

#endif  // KELO_BASE_PIPE_STREAM_HPP
