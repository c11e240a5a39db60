// SPDX-License-Identifier: MIT
// AT commands and the replies to them, against the plainest code that finds the same.
#include <array>
#include <cctype>
#include <cstring>
#include <utility>

#include "fuzz/input.hpp"
#include "kelo-app-common/src/at_reply.hpp"
#include "kelo_utils/app_common.h"

namespace {

using kelo::fuzz::require;

// A text in a block of its own size and `extra` bytes.
std::vector<char> block(const std::string& text, std::size_t extra) {
  std::vector<char> bytes(text.begin(), text.end());
  bytes.resize(text.size() + extra);
  return bytes;
}

std::string up_to_nul(const std::vector<std::uint8_t>& bytes) {
  return {bytes.begin(), std::find(bytes.begin(), bytes.end(), 0)};
}

std::string expected_command(std::string command) {
  if (command.ends_with('\n')) command.pop_back();
  if (command.ends_with('\r')) command.pop_back();
  for (char& c : command) {
    if (static_cast<unsigned char>(c) < 128) c = static_cast<char>(std::toupper(c));
  }
  return command + '\r';
}

std::string check_command(const std::string& command) {
  const std::vector<char> given = block(command, 1);
  std::vector<char> prepared(command.size() + kelo::at::kPreparedExtra);
  const std::size_t length = kelo::at::prepare_command(given.data(), prepared.data());
  require(length < prepared.size() && prepared[length] == '\0');
  require(std::string(prepared.data()) == expected_command(command));
  return prepared.data();
}

void check_echo(std::vector<char>& reply, const std::string& sent) {
  const std::vector<char> before = reply;
  const std::string text = before.data();
  const std::vector<char> command = block(sent, 1);
  const bool found = kelo::at::strip_echo({reply.data(), reply.size()}, command.data());
  std::size_t at = text.find(sent);
  require(found == (at != std::string::npos));
  if (!found) {
    require(reply == before);
    return;
  }
  at += sent.size();
  for (const char skipped : {' ', '\r', '\n'})
    at = std::min(text.find_first_not_of(skipped, at), text.size());
  require(reply == block(text.substr(at), reply.size() - (text.size() - at)));
}

using WrongPlaces = std::vector<std::pair<std::size_t, std::size_t>>;

// Whether the reply has ended, and each result in the wrong place: where its search began, and where it is.
bool expected_end(const std::string& text, WrongPlaces& wrong) {
  for (const std::string result : kelo::at::kFinalResults) {
    std::size_t start = 0;
    for (std::size_t at = text.find(result); at != std::string::npos; at = text.find(result, start)) {
      if (at == start || text[at - 1] == '\r' || text[at - 1] == '\n') return true;
      wrong.emplace_back(start, at);
      start = at + result.size();
    }
  }
  return false;
}

void check_end(const std::string& text) {
  const std::vector<char> reply = block(text, 1);
  static const char* first;  // the callbacks capture nothing
  static WrongPlaces wrong;
  static std::size_t looked_for;
  first = reply.data();
  wrong.clear();
  looked_for = 0;
  const bool ended = kelo::at::has_final_result(
      reply.data(), [](const char* result) { require(result == kelo::at::kFinalResults.at(looked_for++)); },
      [](const char* start, const char* found) { wrong.emplace_back(start - first, found - first); });
  WrongPlaces expected;
  require(ended == expected_end(text, expected) && wrong == expected);
  require(ended || looked_for == kelo::at::kFinalResults.size());
}

}  // namespace

// A command of a given length, then the reply.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo::fuzz::Input input(data, size);
  const std::string sent = check_command(up_to_nul(input.bytes(input.number(300))));
  std::vector<std::uint8_t> arrived = input.bytes(KELO_AT_REPLY_SIZE - 1);
  std::vector<char> reply(arrived.begin(), arrived.end());
  reply.resize(arrived.size() + 1);
  check_end(reply.data());
  check_echo(reply, sent);
  check_end(reply.data());
  return 0;
}
