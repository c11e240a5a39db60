// SPDX-License-Identifier: MIT
// The heap that a write and a read of an item take while they last.
#include "kelo_utils/log.h"
#include "tests/support/store_memory.hpp"

int main() {
  kelo_set_log_level(LOG_LVL_CRT);
  kelo::tests::measure_store();
}
