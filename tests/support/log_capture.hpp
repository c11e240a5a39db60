// SPDX-License-Identifier: MIT
// Collects the library's log lines, taken apart, while it is alive.
#ifndef KELO_TESTS_LOG_CAPTURE_HPP
#define KELO_TESTS_LOG_CAPTURE_HPP

#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelo::tests {

struct LogLine {
  int level;  // -1 for a line without one of the five served tags
  std::string function;
  int source_line;
  std::string text;
};

// "ERR" for LOG_LVL_ERR and so on; "NONE" for -1.
std::string level_name(int level);
std::ostream& operator<<(std::ostream& out, const LogLine& line);

// From construction to destruction every line of every level is kept. One at a time in a process.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  [[nodiscard]] std::vector<LogLine> lines() const;
  void clear();

  // How often this text was logged at this level, under any function name.
  [[nodiscard]] int count(int level, std::string_view text) const;
  // The same, under this function name (its "oem" form).
  [[nodiscard]] int count(int level, std::string_view function, std::string_view text) const;
  // How many lines of this level hold `part` somewhere.
  [[nodiscard]] int count_containing(int level, std::string_view part) const;
  // How many lines of this level match the regular expression as a whole ("[%d]" holds a source line).
  [[nodiscard]] int count_matching(int level, const std::string& pattern) const;
  // Everything caught, for a failure message.
  [[nodiscard]] std::string dump() const;
};

// Expects exactly these lines of one function (its "oem" form), each a level and a text, and clears them.
void expect_lines(LogCapture& log, std::string_view function,
                  const std::vector<std::pair<int, std::string>>& expected);

}  // namespace kelo::tests

#endif  // KELO_TESTS_LOG_CAPTURE_HPP
