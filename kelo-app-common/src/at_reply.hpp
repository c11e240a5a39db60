// The text of an AT exchange: what is sent, the echo of it in the reply, and the final result that ends one.
#ifndef KELO_APP_COMMON_AT_REPLY_HPP
#define KELO_APP_COMMON_AT_REPLY_HPP

#include <array>
#include <cstddef>
#include <cstring>
#include <span>

namespace kelo::at {

// Final results in words and as numbers, in the order in which they are looked for.
constexpr std::array<const char*, 8> kFinalResults = {"ERROR", "OK\r\n", "0\r",        "3\r",
                                                      "3",     "4\r",    "NO CARRIER", "+CME ERROR:"};

// How many characters more than the command itself what is sent for it takes, terminator included.
inline constexpr std::size_t kPreparedExtra = 2;

// Writes the command as it is sent, in upper case and ended by one carriage return, into a buffer of its
// length and kPreparedExtra bytes. Returns the length of what was written.
std::size_t prepare_command(const char* command, char* prepared);

// Removes everything up to the end of the sent command's echo, and the line ends behind it, from the reply in
// the buffer and fills up with zeros. False when the reply holds no echo.
bool strip_echo(std::span<char> reply, const char* sent);

// Whether a final result at `found` ends the reply: one that stands at the start of a line does, and so does
// one right where the search began.
bool ends_reply(const char* search_start, const char* found);

// Looks for a final result that ends the reply. Says which one it looks for with on_result(result), and tells
// of each that does not end the reply with on_wrong_place(search_start, found).
template <typename OnResult, typename OnWrongPlace>
bool has_final_result(const char* reply, OnResult on_result, OnWrongPlace on_wrong_place) {
  for (const char* const result : kFinalResults) {
    on_result(result);
    const char* search_start = reply;
    while (const char* const found = std::strstr(search_start, result)) {
      if (ends_reply(search_start, found)) return true;
      on_wrong_place(search_start, found);
      search_start = found + std::strlen(result);
    }
  }
  return false;
}

}  // namespace kelo::at

#endif  // KELO_APP_COMMON_AT_REPLY_HPP
