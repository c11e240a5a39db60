// SPDX-License-Identifier: MIT
// Composes the local log line: time stamp, tag, process and thread, function, source line and message.
#ifndef KELO_LOG_LOCAL_LINE_HPP
#define KELO_LOG_LOCAL_LINE_HPP

namespace kelo::log {

struct Message {
  int process;
  int level;
  const char* func;
  int line;
  const char* text;
};

// Composes the line of `message` and returns it. The line is in the exported `log_msg` and the time stamp in `str_t`,
// unless the program has objects of its own with these names. The caller must hold the log lock while it uses the line.
const char* compose_local_line(const Message& message);

}  // namespace kelo::log

#endif  // KELO_LOG_LOCAL_LINE_HPP
