// SPDX-License-Identifier: MIT
// Runs one command as a child process without a shell, captures its output and kills it when it prints nothing for
// too long.
#ifndef KELO_APP_OS_AL_SUPERVISED_CHILD_HPP
#define KELO_APP_OS_AL_SUPERVISED_CHILD_HPP

#include <cstdint>
#include <span>

namespace kelo::os {

struct SupervisedCommand {
  const char* text;              // the command line, for the log
  char* const* shell_arguments;  // make the shell start the program, if it is a script without "#!"
  char* const* arguments;        // the first is the path of the program; null after the last
  bool too_many_words;           // the program is not started
};

// The caller's output buffer. It is written only when bytes arrive, and then it is terminated. Output that does not
// fit is dropped.
class CaptureBuffer {
 public:
  // Nothing is captured if `text` is null or `size` is less than 2.
  CaptureBuffer(char* text, std::int32_t size) {
    if (text != nullptr && size > 1) room_ = {text, static_cast<std::size_t>(size) - 1};
  }

  // The room for the next bytes. The byte after it is for the terminator. It is empty when nothing more fits.
  [[nodiscard]] std::span<char> room() const { return room_; }

  // Appends the first `count` bytes of the room to the output. The room must not be empty.
  void keep(std::size_t count) {
    room_.data()[count] = '\0';
    room_ = {room_.data() + count, room_.size() - count};
  }

 private:
  std::span<char> room_;
};

// Runs the command and waits for its end. Returns true when it exited with code 0.
bool run_supervised(const SupervisedCommand& command, CaptureBuffer output, bool verbose);

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_SUPERVISED_CHILD_HPP
