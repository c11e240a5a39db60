// SPDX-License-Identifier: MIT
// The texts of an AT exchange.
#include "kelo-app-common/src/at_reply.hpp"

#include <algorithm>

namespace kelo::at {
namespace {

// Converts ASCII letters only and does not depend on the locale.
char to_upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

}  // namespace

std::size_t prepare_command(const char* command, char* prepared) {
  std::size_t length = std::strlen(command);
  for (const char line_end : {'\n', '\r'}) {
    if (length > 0 && command[length - 1] == line_end) --length;
  }
  std::transform(command, command + length, prepared, to_upper);
  prepared[length++] = '\r';
  prepared[length] = '\0';
  return length;
}

bool strip_echo(std::span<char> reply, const char* sent) {
  const char* const echo = std::strstr(reply.data(), sent);
  if (echo == nullptr) return false;
  const char* rest = echo + std::strlen(sent);
  for (const char skipped : {' ', '\r', '\n'}) {
    while (*rest == skipped) ++rest;
  }
  const std::size_t length = std::strlen(rest);
  std::memmove(reply.data(), rest, length);
  std::fill(reply.begin() + static_cast<std::ptrdiff_t>(length), reply.end(), '\0');
  return true;
}

bool ends_reply(const char* search_start, const char* found) {
  return found == search_start || found[-1] == '\r' || found[-1] == '\n';
}

}  // namespace kelo::at
