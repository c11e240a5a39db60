/* SPDX-License-Identifier: MIT */
/**
 * @file clock.h
 * @brief Clocks, sums of times, the uptime and dates.
 *
 * The functions keep no state.
 */
#ifndef KELO_UTILS_CLOCK_H
#define KELO_UTILS_CLOCK_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * A point in time, or a length of time.
 *
 * `seconds` is kept modulo 2^32, here and in sums. A wall clock after 2038-01-19 03:14:07 UTC therefore gives
 * negative seconds, which rise from INT32_MIN and reach 0 again in 2106; `(uint32_t)seconds` is right until
 * then. Differences modulo 2^32 are right at any date.
 */
typedef struct kelo_clk_time {
  int32_t seconds;      /**< seconds, modulo 2^32 */
  int32_t microseconds; /**< 0 to 999999 in every reading of a clock */
} kelo_clk_time;

/** A date and time of day in the Gregorian calendar. */
typedef struct mytime {
  uint16_t year;        /**< for example 2024; modulo 65536 */
  uint8_t month;        /**< 1 to 12 */
  uint8_t day;          /**< 1 to 31 */
  uint8_t hour;         /**< 0 to 23 */
  uint8_t minute;       /**< 0 to 59 */
  uint8_t second;       /**< 0 to 59: leap seconds are not counted */
  uint16_t millisecond; /**< 0 to 999 */
  uint8_t weekday;      /**< 1 (Monday) to 6 (Saturday); Sunday is 0 on some dates and 7 on others */
} mytime;

/** Days of each month of a common year, January first. */
extern KELO_API const uint8_t g_day_per_mon[12];

/**
 * Reads the monotonic clock, which does not change when the date is set.
 *
 * The clock counts from an unspecified moment, usually the boot, and only while the system is not suspended.
 *
 * @param out  receives the reading. It is zero when the clock cannot be read: "clock_gettime() failed. errno
 *             = <number> (<its text>)" is then printed on standard output. Null is logged as the error
 *             "kelo_clk_GetRelativeTime param NULL".
 * @return `out`.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API kelo_clk_time* kelo_clk_GetRelativeTime(kelo_clk_time* out);

/**
 * Reads the wall clock: seconds and microseconds since 1970-01-01 00:00:00 UTC.
 *
 * From 2038-01-19 03:14:08 UTC on the seconds are negative, see ::kelo_clk_time. With a C library whose own
 * time has 32 bits, the clock may be unreadable from that moment on.
 *
 * @param out  receives the reading. It is zero when the clock cannot be read, which is logged as critical,
 *             "CLOCK_REALTIME is not supported for Absolute time". Null is logged as the error
 *             "kelo_clk_GetAbsoluteTime param NULL".
 * @return `out`.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API kelo_clk_time* kelo_clk_GetAbsoluteTime(kelo_clk_time* out);

/**
 * Adds two times that have 0 to 999999 microseconds each, as the clocks give them.
 *
 * One second is carried when the microseconds are 1000000 or more in sum. There is never a carry of more than
 * one second, and none for negative microseconds: with microseconds outside 0 to 999999 the result is exact,
 * but not in that range. The seconds, and the microseconds after the carry, are kept modulo 2^32: INT32_MAX
 * seconds and 1 give INT32_MIN.
 *
 * @param out  receives the sum. Null is logged as the error "kelo_clk_Add param NULL".
 * @param a    a time.
 * @param b    a time.
 * @return `out`.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API kelo_clk_time* kelo_clk_Add(kelo_clk_time* out, kelo_clk_time a, kelo_clk_time b);

/**
 * Tells how long the system has been running.
 *
 * The information "info.uptime is <seconds>" is logged.
 *
 * @return seconds since boot, including the time in suspend. A part of a second counts as a whole one. The
 *         number is kept modulo 2^32 and is negative after 68 years. 0 when the kernel does not give the
 *         time.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t get_linuxuptime(void);

/**
 * Counts the days from one date to another.
 *
 * Both dates mean midnight in the standard time of the time zone (`TZ`), also in summer, so that changes to
 * and from daylight-saving time do not count. The time between the two is divided by 24 hours and truncated
 * toward 0. When a zone changed its standard time in between, the result may be one day less. The same may
 * happen before 1970, because the C library may lack the rules of the zone.
 *
 * A date is a year, a month and a day in decimal, separated by hyphens, such as "2024-1-31" or "2024-01-31".
 * White space and a sign may be before each number, and any text after the day. A month or day outside the
 * calendar is counted on: "2024-13-1" is 2025-01-01, "2024-3-0" is 2024-02-29. Numbers that are missing or
 * follow unexpected text are 0: "2024" is 2023-11-30. Numbers below -2147481748 and above 2147483647 count as
 * these limits.
 *
 * @param from  the first date. Null is logged as the error "get_days param NULL".
 * @param to    the other date. Null as for `from`.
 * @return days from `from` to `to`, INT32_MIN to INT32_MAX, negative when `to` is the earlier date; 0 when an
 *         argument is null. A date that the C library cannot represent counts as the last second of 1969 in
 *         UTC. A date after 2038-01-19 is such a date where the time of the C library has 32 bits.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. It takes the time zone lock of the C library: the child of a fork() by a program
 * with several threads must not call it. It is not for signal handlers.
 */
KELO_API int32_t get_days(const char* from, const char* to);

/**
 * Converts milliseconds since 1970-01-01 00:00:00 UTC to a date and time of day in UTC.
 *
 * The day of the week is computed by Zeller's congruence with a division that keeps the sign: Sunday is 7
 * when the sum is below 1, and 0 otherwise. 2000-01-02 is 0 and 2000-03-05 is 7, and both are Sundays: use
 * `weekday % 7`. Years above 65535 are stored modulo 65536; the other fields are right for them, too.
 *
 * @param milliseconds  milliseconds since 1970, not seconds. Every value is valid.
 * @param out           receives the date and time. Null is logged as the error "kelo_util_utc_sec_2_mytime
 *                      param NULL".
 * @param add_hour      0: no change. 1 or any other value: one hour is added first, modulo 2^64 milliseconds.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API void kelo_util_utc_sec_2_mytime(uint64_t milliseconds, mytime* out, int add_hour);

KELO_END_DECLS

#endif /* KELO_UTILS_CLOCK_H */
