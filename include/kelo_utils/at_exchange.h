/* SPDX-License-Identifier: MIT */
/**
 * @file at_exchange.h
 * @brief More about AT commands: an exchange with its own limit of time, whose lines are collected.
 *
 * These functions are optional additions to modem.h. A library that was built without them
 * (KELO_ADDITIONS=OFF) has none of them. Its CMake package and its pkg-config modules define
 * KELO_NO_ADDITIONS, with which this header declares nothing.
 */
#ifndef KELO_UTILS_AT_EXCHANGE_H
#define KELO_UTILS_AT_EXCHANGE_H

#include <stdint.h>

#include "kelo_utils/base.h"

#ifndef KELO_NO_ADDITIONS

KELO_BEGIN_DECLS

/** Results of kelo_at_exchange(): the final result of the modem, or a failure. */
enum kelo_at_result {
  KELO_AT_OK = 0,            /**< OK */
  KELO_AT_ERROR = 1,         /**< ERROR */
  KELO_AT_CME_ERROR = 2,     /**< +CME ERROR: with a reason */
  KELO_AT_CMS_ERROR = 3,     /**< +CMS ERROR: with a reason, of the commands for short messages */
  KELO_AT_NO_CARRIER = 4,    /**< NO CARRIER */
  KELO_AT_TIMED_OUT = -1,    /**< the time was over before a final result */
  KELO_AT_TOO_LONG = -2,     /**< there was a final result, but the lines before it do not fit */
  KELO_AT_BAD_ARGUMENT = -3, /**< null command or a limit below 1 */
  KELO_AT_NOT_SENT = -4      /**< there is no socket, or the command could not be sent */
};

/**
 * Sends an AT command to the service of the modem and collects the lines of its reply up to the final result.
 *
 * The command is sent as one datagram to UDP port 5555 of 127.0.0.1, as it is: its letters do not change, and
 * its line end becomes one carriage return. Datagrams from this host (from 127.0.0.0/8, from any port) are put
 * together in any number; those of other hosts are dropped. A line ends with a carriage return or a line feed.
 * Empty lines and NUL bytes are left out, and so is a first line that is the command (its echo).
 *
 * A final result is a whole line: OK, ERROR, NO CARRIER, or a line that begins with +CME ERROR: or +CMS ERROR:.
 * When the time is over, one whose line end is missing counts, too. Numeric results (ATV0) are lines like any
 * other. So are lines that the modem sends unasked while the command runs. Nothing is logged, so passwords and
 * PINs are not in the log.
 *
 * @param command     the command with its AT, with or without its line end, at most 65506 bytes.
 * @param timeout_ms  limit of time for the whole exchange in milliseconds, 1 or more.
 * @param lines       receives the lines before the final result, each with a line feed after it, and
 *                    terminated. After a time-out it has the lines that have arrived. Null: no lines are
 *                    collected, and the result is never ::KELO_AT_TOO_LONG.
 * @param size        size of `lines` in bytes. With 0 or less no lines are collected.
 * @param reason      receives the number after +CME ERROR: or +CMS ERROR:, or -1 when there is none or the
 *                    reason is a text or above 999999. It is -1 for the other final results, and unchanged
 *                    without a final result. It may be null.
 * @retval 0   ::KELO_AT_OK.
 * @retval 1   ::KELO_AT_ERROR.
 * @retval 2   ::KELO_AT_CME_ERROR.
 * @retval 3   ::KELO_AT_CMS_ERROR.
 * @retval 4   ::KELO_AT_NO_CARRIER.
 * @retval -1  ::KELO_AT_TIMED_OUT, also when no service listens.
 * @retval -2  ::KELO_AT_TOO_LONG: `lines` has what fits, or a datagram had more than 4096 bytes.
 * @retval -3  ::KELO_AT_BAD_ARGUMENT: null `command` or `timeout_ms` below 1.
 * @retval -4  ::KELO_AT_NOT_SENT.
 * @par Blocking
 * It blocks for `timeout_ms` at most. Signals neither end nor lengthen the wait.
 * @par Threads
 * Any thread may call it. Several calls may run at once, as each has a port of its own. It is not for signal
 * handlers.
 */
KELO_API int32_t kelo_at_exchange(const char* command, int32_t timeout_ms, char* lines, int32_t size,
                                  int32_t* reason);

KELO_END_DECLS

#endif /* KELO_NO_ADDITIONS */

#endif /* KELO_UTILS_AT_EXCHANGE_H */
