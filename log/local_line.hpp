// The local log line: time stamp, tag, process and thread, function, source line, message.
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

// Composes the line of `message` and returns it: the exported `log_msg`, with the time stamp in `str_t`, unless these
// names are found at objects of the program's own. The caller holds the log lock as long as it uses the line.
const char* compose_local_line(const Message& message);

}  // namespace kelo::log

#endif  // KELO_LOG_LOCAL_LINE_HPP
