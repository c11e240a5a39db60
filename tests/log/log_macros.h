/* SPDX-License-Identifier: MIT */
/* The macro as used by C99 and C++17 sources, every level in one function each. */
#ifndef KELO_TESTS_LOG_MACROS_H
#define KELO_TESTS_LOG_MACROS_H

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/* Each logs "plain" at level 0, then "number N" for N from 1 to 5 at that level, then "always" at level -1.
 */
void log_from_c99(void);
void log_from_cxx17(void);

/* Logs once, on the source line of its name. */
void log_from_line_65541(void);

KELO_END_DECLS

#endif /* KELO_TESTS_LOG_MACROS_H */
