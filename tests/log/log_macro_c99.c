/* SPDX-License-Identifier: MIT */
/* Logs at each level from C99. */
#define KELO_LOG_FILE "modem/radio.c"
#include "kelo_utils/log.h"

#include "tests/log/log_macros.h"

#if __STDC_VERSION__ != 199901L
#error "this source is about C99"
#endif

void log_from_c99(void) {
  if (kelo_get_log_level() == LOG_LVL_DBUG)
    KELO_LOG(LOG_LVL_DBUG, "plain");
  else
    KELO_LOG(LOG_LVL_EMR, "threshold is not 0");
  KELO_LOG(LOG_LVL_INFO, "number %d", 1);
  KELO_LOG(LOG_LVL_WRN, "number %d", 2);
  KELO_LOG(LOG_LVL_ERR, "number %d", 3);
  KELO_LOG(LOG_LVL_CRT, "number %d", 4);
  KELO_LOG(LOG_LVL_EMR, "number %d", 5);
  KELO_LOG(-1, "always");
}

#line 65541
void log_from_line_65541(void) { KELO_LOG(LOG_LVL_ERR, "far down"); }
