// SPDX-License-Identifier: MIT
// A shell command that is connected by a pipe.
#ifndef KELO_BASE_PIPE_STREAM_HPP
#define KELO_BASE_PIPE_STREAM_HPP

#include <sys/types.h>

#include <span>

#include "base/child.hpp"
#include "base/file.hpp"

namespace kelo::base {

// Does what popen() does. The destructor closes the pipe and waits for the command. The class uses no C stream: a
// stream would lose output when a signal interrupts a read. The thread that creates an object must also destroy it,
// because SIGCHLD is blocked in that thread meanwhile.
class [[nodiscard]] PipeStream {
 public:
  // Starts a command whose standard output is read, or whose standard input is written. The result is empty, with errno
  // set, when the command cannot be started. The command inherits the descriptor `inherited`, unless that is -1.
  static PipeStream reading(const char* command, int inherited = -1) {
    return {command, STDOUT_FILENO, inherited};
  }
  static PipeStream writing(const char* command) { return {command, STDIN_FILENO, -1}; }

  PipeStream(const PipeStream&) = delete;
  PipeStream& operator=(const PipeStream&) = delete;
  ~PipeStream();

  explicit operator bool() const { return child_ != -1; }
  [[nodiscard]] int descriptor() const { return end_.get(); }

  // Reads until `room` is full or the output has ended. Returns the number of bytes read.
  [[nodiscard]] std::size_t read(std::span<char> room) const { return read_all(descriptor(), room); }

  // Closes the pipe, waits for the command and returns its wait status, or -1 with errno set. The object is empty
  // afterwards.
  int close();

 private:
  PipeStream(const char* command, int stream, int inherited);

  const ChildSignalBlock block_;
  Descriptor end_;
  pid_t child_ = -1;
};

}  // namespace kelo::base

#endif  // KELO_BASE_PIPE_STREAM_HPP
