// SPDX-License-Identifier: MIT
// Logs at each level from C++17.
#include "kelo_utils/log.h"
#include "tests/log/log_macros.h"

static_assert(__cplusplus == 201703L, "this source is about C++17");

void log_from_cxx17() {
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
