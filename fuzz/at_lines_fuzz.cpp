// SPDX-License-Identifier: MIT
// The lines of replies to AT commands, in pieces of any size, against the plainest code that finds the same.
#include "additions/at_lines.hpp"

#include <optional>

#include "fuzz/input.hpp"

namespace {

using kelo::fuzz::require;

constexpr char kUntouched = 'x';

std::string text_of(const std::vector<std::uint8_t>& bytes) { return {bytes.begin(), bytes.end()}; }

std::int32_t expected_reason(const std::string& line) {
  std::string reason = line.substr(0, kelo::at::kFinalSize).substr(std::string("+CME ERROR:").size());
  reason.erase(0, reason.find_first_not_of(' '));
  if (reason.empty() || reason.find_first_not_of("0123456789") != std::string::npos) return -1;
  reason.erase(0, std::min(reason.find_first_not_of('0'), reason.size() - 1));
  return reason.size() > 6 ? -1 : std::stoi(reason);
}

std::optional<std::int32_t> expected_result(const std::string& line) {
  if (line == "OK") return KELO_AT_OK;
  if (line == "ERROR") return KELO_AT_ERROR;
  if (line.starts_with("+CME ERROR:")) return KELO_AT_CME_ERROR;
  if (line.starts_with("+CMS ERROR:")) return KELO_AT_CMS_ERROR;
  if (line == "NO CARRIER") return KELO_AT_NO_CARRIER;
  return {};
}

struct Expected {
  std::string text;  // the lines before the final result
  std::optional<std::int32_t> result;
  std::int32_t reason = -1;
};

// The end of the reply ends a line, too.
Expected expected_of(std::string reply, const std::string& command) {
  Expected expected;
  std::erase(reply, '\0');
  bool is_first = true;
  for (std::size_t at = 0; at < reply.size();) {
    const std::size_t end = std::min(reply.find_first_of("\r\n", at), reply.size());
    const std::string line = reply.substr(at, end - at);
    at = end + 1;
    if (line.empty()) continue;
    expected.result = expected_result(line);
    if (line.starts_with("+CME ERROR:") || line.starts_with("+CMS ERROR:"))
      expected.reason = expected_reason(line);
    if (expected.result) return expected;
    if (!is_first || line != command) expected.text += line + '\n';
    is_first = false;
  }
  return expected;
}

}  // namespace

// The size of the pieces, that of the caller's buffer, the command up to its first NUL, then the reply.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input input(data, size);
  const std::size_t piece = 1 + input.byte();
  const std::size_t room = input.number(600);
  std::string command = text_of(input.bytes(input.byte()));
  command.resize(std::min(command.find('\0'), command.size()));
  const std::string reply = text_of(input.rest());

  std::vector<char> out(room + 1, kUntouched);
  kelo::at::Lines lines({out.data(), room}, command);
  bool complete = false;
  for (std::size_t at = 0; !complete && at < reply.size(); at += piece)
    complete = lines.take(std::string_view(reply).substr(at, piece));
  if (!complete) complete = lines.end_line();

  const Expected expected = expected_of(reply, command);
  require(complete == expected.result.has_value());
  require(out[room] == kUntouched);
  if (room > 0) require(out.data() == expected.text.substr(0, room - 1));
  if (!complete) return 0;
  const bool is_cut = room > 0 && expected.text.size() >= room;
  require(lines.result() == (is_cut ? KELO_AT_TOO_LONG : *expected.result));
  require(lines.reason() == expected.reason);
  return 0;
}
