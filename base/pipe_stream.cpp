// Starts shell commands at the other end of a pipe.
#include "base/pipe_stream.hpp"

#include <utility>

namespace kelo::base {

PipeStream::PipeStream(const char* command, int stream, int inherited) {
  Pipe pipe;
  if (!pipe.open()) return;
  Descriptor& theirs = stream == STDIN_FILENO ? pipe.read_end : pipe.write_end;
  end_ = std::move(stream == STDIN_FILENO ? pipe.write_end : pipe.read_end);
  // Nothing else of the child has the number of this end, which its program does not get.
  child_ = start_shell(command, {{theirs.get(), stream}, {inherited, end_.get()}});
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
