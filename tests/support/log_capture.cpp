// SPDX-License-Identifier: MIT
// Keeps the lines that the library logs.
#include "tests/support/log_capture.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <regex>
#include <sstream>

#include "kelo_utils/log.h"

namespace kelo::tests {
namespace {

std::mutex mutex;
// One line after the other, each with its terminator. A test may have let the heap run out, so it is not used.
std::array<char, std::size_t{64} << 20U> caught;
std::size_t caught_size = 0;
std::vector<LogLine> taken_apart;  // as many from the front as were asked for
std::size_t taken_apart_size = 0;  // what they take of the above

LogLine take_apart(const std::string& line) {
  static constexpr std::array<std::string_view, 5> kTags = {" DBUG", " INFO", "-WRN-", "=ERR=", "*CRT*"};
  // stamp : tag | [pid | tid-thread] | function line | message
  static const std::regex kForm(R"(^[^|]*? : (.*?) \| \[\d+ \| \d+-.*?\] \| (.*?) (-?\d+) \| ([\s\S]*)$)");
  std::smatch match;
  if (!std::regex_match(line, match, kForm)) return {-2, "line of another form", 0, line};
  const auto* tag = std::find(kTags.begin(), kTags.end(), match[1].str());
  const int level = tag == kTags.end() ? -1 : static_cast<int>(tag - kTags.begin());
  return {level, match[2], std::stoi(match[3]), match[4]};
}

// The thread that logs may have a small stack: taking a line apart waits until somebody asks.
void keep(const char* line) {
  const std::scoped_lock lock(mutex);
  const std::size_t size = std::strlen(line) + 1;
  if (size > caught.size() - caught_size) std::abort();
  std::memcpy(caught.data() + caught_size, line, size);
  caught_size += size;
}

std::vector<LogLine> caught_lines() {
  const std::scoped_lock lock(mutex);
  while (taken_apart_size < caught_size) {
    const std::string line = caught.data() + taken_apart_size;
    taken_apart.push_back(take_apart(line));
    taken_apart_size += line.size() + 1;
  }
  return taken_apart;
}

template <typename Predicate>
int count_lines(Predicate predicate) {
  const std::vector<LogLine> lines = caught_lines();
  return static_cast<int>(std::count_if(lines.begin(), lines.end(), predicate));
}

}  // namespace

std::string level_name(int level) {
  static constexpr std::array<const char*, 5> kNames = {"DBUG", "INFO", "WRN", "ERR", "CRT"};
  return level < 0 ? "NONE" : kNames.at(static_cast<std::size_t>(level));
}

std::ostream& operator<<(std::ostream& out, const LogLine& line) {
  return out << level_name(line.level) << ' ' << line.function << ' ' << line.source_line << " \""
             << line.text << '"';
}

LogCapture::LogCapture() {
  clear();
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_DBUG);
  set_print_interface(keep);
}

LogCapture::~LogCapture() {
  set_print_interface(nullptr);
  kelo_set_log_level(LOG_LVL_INFO);
}

std::vector<LogLine> LogCapture::lines() const { return caught_lines(); }

void LogCapture::clear() {
  const std::scoped_lock lock(mutex);
  caught_size = 0;
  taken_apart_size = 0;
  taken_apart.clear();
}

int LogCapture::count(int level, std::string_view text) const {
  return count_lines([=](const LogLine& line) { return line.level == level && line.text == text; });
}

int LogCapture::count(int level, std::string_view function, std::string_view text) const {
  return count_lines([=](const LogLine& line) {
    return line.level == level && line.function == function && line.text == text;
  });
}

int LogCapture::count_containing(int level, std::string_view part) const {
  return count_lines(
      [=](const LogLine& line) { return line.level == level && line.text.find(part) != std::string::npos; });
}

int LogCapture::count_matching(int level, const std::string& pattern) const {
  const std::regex form(pattern);
  return count_lines(
      [&](const LogLine& line) { return line.level == level && std::regex_match(line.text, form); });
}

std::string LogCapture::dump() const {
  std::ostringstream out;
  for (const LogLine& line : lines()) out << line << '\n';
  return out.str();
}

void expect_lines(LogCapture& log, std::string_view function,
                  const std::vector<std::pair<int, std::string>>& expected) {
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), expected.size()) << log.dump();
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].level, expected[i].first) << log.dump();
    EXPECT_EQ(lines[i].function, function);
    EXPECT_EQ(lines[i].text, expected[i].second);
  }
  log.clear();
}

}  // namespace kelo::tests
