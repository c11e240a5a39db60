/* SPDX-License-Identifier: MIT */
/**
 * @file log_rate.h
 * @brief More about the log: a limit for lines that repeat.
 *
 * These functions are optional additions to log.h. A library that was built without them
 * (KELO_ADDITIONS=OFF) has none of them. Its CMake package and its pkg-config modules define
 * KELO_NO_ADDITIONS, with which this header declares nothing.
 */
#ifndef KELO_UTILS_LOG_RATE_H
#define KELO_UTILS_LOG_RATE_H

#include <stdint.h>

#include "kelo_utils/base.h"
#include "kelo_utils/log.h"

#ifndef KELO_NO_ADDITIONS

KELO_BEGIN_DECLS

/**
 * How often lines may be logged, and what was logged and left out so far. It belongs to the caller, needs no
 * release, and may be at any place that stays until its last use. ::KELO_LOG_RATE_INIT initialises it.
 *
 * An interval begins with the first line that is logged after the end of the one before it. So twice the burst
 * may be logged within less than an interval: the last lines of one, and those of the next. The clock is
 * CLOCK_MONOTONIC, to the nanosecond: a change of the time of day has no effect. A silence of any length is
 * measured right.
 */
typedef struct kelo_log_rate {
  uint32_t interval_ms; /**< length of an interval in milliseconds; with 0 nothing but a burst of 0 limits */
  uint32_t burst;       /**< most lines in one interval; with 0 every line is left out */
  uint32_t started_s;   /**< internal: begin of the interval, in whole seconds */
  uint32_t started_ns;  /**< internal: the nanoseconds of the begin */
  uint32_t passed;      /**< internal: lines that were logged in the interval */
  uint32_t left_out;    /**< internal: lines that were left out and not told of yet, UINT32_MAX for more */
  int32_t holder;       /**< internal: id of the process in which a thread uses the record; 0 for none */
} kelo_log_rate;

/** Initialiser of a ::kelo_log_rate: at most `burst` lines in each `interval_ms` milliseconds. */
#define KELO_LOG_RATE_INIT(interval_ms, burst) \
  { (interval_ms), (burst), 0, 0, 0, 0, 0 }

/**
 * Tells whether a line may be logged now, and counts it. Programs usually call it through KELO_LOG_LIMITED().
 *
 * `errno` is preserved, and nothing is logged or allocated. A child made by fork() has a copy of the record as
 * it was, and may use it at once, whatever another thread of the parent was doing.
 *
 * @param rate      the record. With null every line may be logged.
 * @param left_out  receives the number of lines that were left out since the last one that was told of, 0 to
 *                  UINT32_MAX, which also counts for more. It is 0 when the line may not be logged. With null
 *                  the number is kept for a later call.
 * @retval 1        the line may be logged.
 * @retval 0        the line is to be left out.
 * @par Blocking
 * It does not block, but for the few assignments of another thread that uses the same record.
 * @par Threads
 * Any thread may call it at any time. Threads may share a record: each line is counted once. The record must
 * not be in memory that processes share. It is not for signal handlers.
 */
KELO_API int32_t kelo_log_rate_allows(kelo_log_rate* rate, uint32_t* left_out);

/**
 * KELO_LOG_LIMITED(level, interval_ms, burst, format, ...): logs one message as KELO_LOG() does, but from this
 * place in the source at most `burst` messages in `interval_ms` milliseconds.
 *
 * The other messages are left out. The next one that is logged has a line of the same level before it, which
 * does not count. Another thread may log between the two:
 *
 *     12 lines like the next one were left out
 *
 * `interval_ms` and `burst` are integer constant expressions, 0 to UINT32_MAX, as in ::kelo_log_rate. The
 * remaining arguments are evaluated only when the message is logged. A message below the threshold is not
 * counted. All threads that come to this place share its limit. In a header of C++, an inline function has one
 * limit, and in a static function each source has its own.
 * @par Blocking
 * It blocks while another thread writes a line.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
#define KELO_LOG_LIMITED(level, interval_ms, burst, ...)                                     \
  do {                                                                                       \
    if (kelo_log_passes(level)) {                                                            \
      static kelo_log_rate kelo_log_rate_ = KELO_LOG_RATE_INIT(interval_ms, burst);          \
      uint32_t kelo_log_left_out_;                                                           \
      if (kelo_log_rate_allows(&kelo_log_rate_, &kelo_log_left_out_) != 0) {                 \
        if (kelo_log_left_out_ != 0)                                                         \
          KELO_LOG(level, "%u lines like the next one were left out\n", kelo_log_left_out_); \
        KELO_LOG(level, __VA_ARGS__);                                                        \
      }                                                                                      \
    }                                                                                        \
  } while (0)

KELO_END_DECLS

#endif /* KELO_NO_ADDITIONS */

#endif /* KELO_UTILS_LOG_RATE_H */
