// SPDX-License-Identifier: MIT
// Logs with a limit from C++17.
#include "kelo_utils/log_rate.h"
#include "tests/additions/log_rate_macro.h"

static_assert(__cplusplus == 201703L, "this source is about C++17");

void limited_from_cxx17(int number) {
  if (number >= 0)
    KELO_LOG_LIMITED(LOG_LVL_WRN, 1000, 2, "number %d\n", number);
  else
    KELO_LOG_LIMITED(LOG_LVL_WRN, 1000, 2, "plain\n");
}
