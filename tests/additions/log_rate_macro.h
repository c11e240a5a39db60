/* SPDX-License-Identifier: MIT */
/* The macro as used by C99 and C++17 sources. */
#ifndef KELO_TESTS_ADDITIONS_LOG_RATE_MACRO_H
#define KELO_TESTS_ADDITIONS_LOG_RATE_MACRO_H

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/* Each logs "number N" as a warning, at most twice in 1000 milliseconds. */
void limited_from_c99(int number);
void limited_from_cxx17(int number);

KELO_END_DECLS

#endif /* KELO_TESTS_ADDITIONS_LOG_RATE_MACRO_H */
