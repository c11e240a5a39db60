// SPDX-License-Identifier: MIT
// Starts shell commands that are connected by a pipe.
#include "base/pipe_stream.hpp"

#include <utility>

namespace kelo::base {

PipeStream::PipeStream(const char* command, int stream, int inherited) {
  Pipe pipe;
  if (!pipe.open()) return;
  Descriptor& end_of_command = stream == STDIN_FILENO ? pipe.read_end : pipe.write_end;
  end_ = std::move(stream == STDIN_FILENO ? pipe.write_end : pipe.read_end);
  // This end is not inherited, so its number is free in the child for the duplicate of `inherited`.
  child_ = start_shell(command, {{end_of_command.get(), stream}, {inherited, end_.get()}});
  if (child_ == -1) end_.reset();
}

PipeStream::~PipeStream() {
  if (child_ == -1) return;
  const ErrnoKeeper keep;
  close();
}

int PipeStream::close() {
  end_.reset();
  return wait_for_end(std::exchange(child_, -1));
}

}  // namespace kelo::base
