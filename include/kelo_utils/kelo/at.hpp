/* SPDX-License-Identifier: MIT */
/**
 * @file at.hpp
 * @brief The C++ face: AT commands to the modem, with their replies as text.
 *
 *     const auto reply = kelo::at_exchange("AT+CSQ", std::chrono::seconds(3));
 *     if (reply) show(reply.value().lines);
 *     else if (reply.code() == KELO_AT_CME_ERROR) report(reply.value().reason);
 */
#ifndef KELO_UTILS_KELO_AT_HPP
#define KELO_UTILS_KELO_AT_HPP

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "kelo_utils/at_exchange.h"
#include "kelo_utils/kelo/result.hpp"
#include "kelo_utils/kelo/run.hpp"
#include "kelo_utils/modem.h"

namespace kelo {

#ifndef KELO_NO_ADDITIONS

/** What the modem has replied. */
struct AtReply {
  std::string lines;        /**< the lines before the final result, each with a line feed after it */
  std::int32_t reason = -1; /**< the number after +CME ERROR: or +CMS ERROR:; -1 when there is none */
};

/**
 * Sends an AT command and collects the lines of its reply, as kelo_at_exchange() does.
 * @param command     the command with its AT, with or without its line end. Null is refused.
 * @param limit       limit of time for the whole exchange, 1 ms or more.
 * @param most_lines  bytes of lines to keep, less than INT32_MAX.
 * @return success for the final result OK; any other ::kelo_at_result is the code. The value has the lines, also
 *         after another final result, a time-out or a reply that is too long.
 * @par Blocking
 * It blocks for `limit` at most.
 * @par Threads
 * Any thread may call it. Several calls may run at once. It is not for signal handlers.
 */
inline Result<AtReply> at_exchange(const char* command, std::chrono::milliseconds limit,
                                   std::int32_t most_lines = kMostOutput) {
  return Result<AtReply>::filled_by([&](AtReply& reply) {
    return face_detail::capture(reply.lines, most_lines, [&](char* text, std::int32_t size) {
      return kelo_at_exchange(command, face_detail::milliseconds_of(limit), text, size, &reply.reason);
    });
  });
}

#endif /* KELO_NO_ADDITIONS */

/**
 * Sends an AT command and waits for the whole reply, as kelo_util_send_at() does. The command and the reply are
 * logged, with the passwords and PINs in them.
 * @param command  the command with its AT, with or without its line end.
 * @return the reply as the modem has sent it, without the echo; "\r\nERROR\r\n" for a call that fails.
 * @par Blocking
 * It blocks for up to 60 seconds.
 * @par Threads
 * Any thread may call it. Several calls may run at once. It is not for signal handlers.
 */
inline std::string send_at(const char* command) {
  struct Free {
    void operator()(char* text) const { std::free(text); }
  };
  const std::unique_ptr<char, Free> reply(kelo_util_send_at(command));
  return reply.get();
}

}  // namespace kelo

#endif /* KELO_UTILS_KELO_AT_HPP */
