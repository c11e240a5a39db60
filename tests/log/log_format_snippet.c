/* SPDX-License-Identifier: MIT */
/* One call, chosen by -DCALL=NAME, for log_format_check.cmake. */
#include "kelo_utils/log.h"

#define GOOD_FUNCTION kelo_log_printf(LOG_LVL_ERR, buffer, "f", 1, "%d %s\n", 1, "one")
#define GOOD_MACRO KELO_LOG(LOG_LVL_ERR, "%d %s\n", 1, "one")
#define WRONG_TYPE_FUNCTION kelo_log_printf(LOG_LVL_ERR, buffer, "f", 1, "%d\n", "one")
#define WRONG_TYPE_MACRO KELO_LOG(LOG_LVL_ERR, "%d\n", "one")
#define MISSING_FUNCTION kelo_log_printf(LOG_LVL_ERR, buffer, "f", 1, "%d %s\n", 1)
#define MISSING_MACRO KELO_LOG(LOG_LVL_ERR, "%d %s\n", 1)
#define SURPLUS_FUNCTION kelo_log_printf(LOG_LVL_ERR, buffer, "f", 1, "%d\n", 1, 2)
#define SURPLUS_MACRO KELO_LOG(LOG_LVL_ERR, "%d\n", 1, 2)

void call(char* buffer);
void call(char* buffer) {
  (void)buffer;
  CALL;
}
