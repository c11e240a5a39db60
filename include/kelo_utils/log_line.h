/* SPDX-License-Identifier: MIT */
/**
 * @file log_line.h
 * @brief More about the log: a plain function for other languages.
 *
 * These functions are optional additions to log.h. A library that was built without them
 * (KELO_ADDITIONS=OFF) has none of them. Its CMake package and its pkg-config modules define
 * KELO_NO_ADDITIONS, with which this header declares nothing.
 */
#ifndef KELO_UTILS_LOG_LINE_H
#define KELO_UTILS_LOG_LINE_H

#include "kelo_utils/base.h"
#include "kelo_utils/log.h"

#ifndef KELO_NO_ADDITIONS

KELO_BEGIN_DECLS

/**
 * Logs one finished text, as KELO_LOG() logs a formatted one. It is for languages that cannot use a macro or a
 * variable number of arguments.
 *
 * The message becomes a local line or a record of the diagnostic channel. The record has the empty text as
 * its source path. The channel gets a descriptor that is valid only during the call, so a program with a
 * channel of its own copies what it keeps. The function allocates nothing, and preserves `errno`.
 *
 * @param level     -1 or a ::kelo_log_level, as for kelo_log_printf(). The record of another level has an empty
 *                  mask.
 * @param function  name to show as that of the calling function. Null is shown as "(null)".
 * @param line      source line to show. The record has it modulo 65536.
 * @param text      the message, with its own line end. It is no format: a percent sign is shown. It is cut at
 *                  4219 characters. Null is shown as "(null)".
 * @par Blocking
 * It blocks while another thread writes a line, and for as long as the diagnostic channel does.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void kelo_log_line(int level, const char* function, int line, const char* text);

KELO_END_DECLS

#endif /* KELO_NO_ADDITIONS */

#endif /* KELO_UTILS_LOG_LINE_H */
