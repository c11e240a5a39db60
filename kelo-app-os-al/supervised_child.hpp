// One command as a child process: started without a shell, its output captured, killed when it falls silent.
#ifndef KELO_APP_OS_AL_SUPERVISED_CHILD_HPP
#define KELO_APP_OS_AL_SUPERVISED_CHILD_HPP

#include <cstdint>
#include <span>

namespace kelo::os {

struct SupervisedCommand {
  const char* text;              // the command line, for the log
  char* const* shell_arguments;  // what has the shell start the program, which is a script of its own
  char* const* arguments;        // the program's path first, null behind the last
  bool too_many_words;           // the child gives up instead of starting the program
};

// The caller's output buffer. It is written only as bytes arrive, and terminated behind each arrival; what
// does not fit is dropped.
class CaptureBuffer {
 public:
  // A null `text`, or a size without room for a byte and its terminator, captures nothing.
  CaptureBuffer(char* text, std::int32_t size) {
    if (text != nullptr && size > 1) room_ = {text, static_cast<std::size_t>(size) - 1};
  }

  // Where the next bytes belong; the terminator's place is behind it. Empty when nothing more fits.
  [[nodiscard]] std::span<char> room() const { return room_; }

  // Takes in the first `count` bytes of the room. Not for an empty room.
  void keep(std::size_t count) {
    room_.data()[count] = '\0';
    room_ = {room_.data() + count, room_.size() - count};
  }

 private:
  std::span<char> room_;
};

// Runs the command and waits for its end. True when it exited with code 0.
bool run_supervised(const SupervisedCommand& command, CaptureBuffer output, bool verbose);

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_SUPERVISED_CHILD_HPP
