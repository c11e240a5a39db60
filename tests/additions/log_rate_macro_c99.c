/* SPDX-License-Identifier: MIT */
/* Logs with a limit from C99. */
#include "kelo_utils/log_rate.h"

#include "tests/additions/log_rate_macro.h"

#if __STDC_VERSION__ != 199901L
#error "this source is about C99"
#endif

void limited_from_c99(int number) {
  if (number >= 0)
    KELO_LOG_LIMITED(LOG_LVL_WRN, 1000, 2, "number %d\n", number);
  else
    KELO_LOG_LIMITED(LOG_LVL_WRN, 1000, 2, "plain\n");
}
