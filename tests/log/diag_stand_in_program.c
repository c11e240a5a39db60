/* SPDX-License-Identifier: MIT */
/* A daemon that logs one message of each level to the library's own channel. Exit status: 0, or 1 when errno changed. */
#include <errno.h>

#include "kelo_utils/log.h"

int main(void) {
  errno = EBUSY;
  kelo_set_log_level(LOG_LVL_DBUG);
  KELO_LOG(LOG_LVL_DBUG, "debug\n");
  KELO_LOG(LOG_LVL_INFO, "information");
  KELO_LOG(-1, "always\n");
  KELO_LOG(LOG_LVL_WRN, "warning\n");
  KELO_LOG(LOG_LVL_ERR, "error\n");
  KELO_LOG(LOG_LVL_CRT, "critical\n");
  KELO_LOG(LOG_LVL_EMR, "emergency\n");
  return errno == EBUSY ? 0 : 1;
}
