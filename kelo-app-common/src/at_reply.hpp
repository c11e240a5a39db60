// SPDX-License-Identifier: MIT
// The texts of an AT exchange: the command as it is sent, its echo in the reply, and the final result of the reply.
#ifndef KELO_APP_COMMON_AT_REPLY_HPP
#define KELO_APP_COMMON_AT_REPLY_HPP

#include <array>
#include <cstddef>
#include <cstring>
#include <span>

namespace kelo::at {

// The final results, as words and as numbers, in the order of the search.
constexpr std::array<const char*, 8> kFinalResults = {"ERROR", "OK\r\n", "0\r",        "3\r",
                                                      "3",     "4\r",    "NO CARRIER", "+CME ERROR:"};

// The number of bytes that a prepared command needs in addition to the length of the command.
inline constexpr std::size_t kPreparedExtra = 2;

// Writes the command as it is sent: in upper case and with one carriage return at the end. `prepared` must have
// kPreparedExtra bytes more than the length of the command. Returns the length of the prepared command.
std::size_t prepare_command(const char* command, char* prepared);

// Removes the echo of the sent command, everything before it and the line ends after it from the reply. The rest of the
// buffer is filled with zeros. Returns false when the reply contains no echo.
bool strip_echo(std::span<char> reply, const char* sent);

// Whether a final result at `found` ends the reply: it must be at the start of a line or where its search began.
bool ends_reply(const char* search_start, const char* found);

// Whether the reply contains a final result that ends it. Calls `on_search` before it searches for a result, and
// `on_misplaced` for each result that does not end the reply. It is inline, so that calls of the callbacks are direct.
inline bool has_final_result(const char* reply, void (*on_search)(const char* result),
                             void (*on_misplaced)(const char* search_start, const char* found)) {
  for (const char* const result : kFinalResults) {
    on_search(result);
    const char* search_start = reply;
    while (const char* const found = std::strstr(search_start, result)) {
      if (ends_reply(search_start, found)) return true;
      on_misplaced(search_start, found);
      search_start = found + std::strlen(result);
    }
  }
  return false;
}

}  // namespace kelo::at

#endif  // KELO_APP_COMMON_AT_REPLY_HPP
