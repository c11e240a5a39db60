/* SPDX-License-Identifier: MIT */
/* A daemon that defines one of the hooks itself and takes the SQLite back-end for the others. Exit status: 0, or the
 * line of the first claim that failed. */
#include <string.h>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/settings.h"
#include "kelo_utils/sqlite.h"

static int own_health_calls;

int dm_pal_check_db_health(void) {
  ++own_health_calls;
  return 0;
}

#define CLAIM(condition)               \
  do {                                 \
    if (!(condition)) return __LINE__; \
  } while (0)

int main(void) {
  static kelo_dm_item items[] = {KELO_DM_TEXT_ITEM(7, "net", "apn", "internet"), KELO_DM_END};
  char value[16];
  int32_t len = 0;
  kelo_dm_handle* handle;

  kelo_dm_use_sqlite();
  CLAIM(dm_pal_check_db_health() == 0 && own_health_calls == 1);
  CLAIM(kelo_dm_reg_store_area("/tmp/", "/tmp/") == 0);
  CLAIM(strcmp(DB_CONFIG, "/tmp/config.db") == 0);
  handle = kelo_dm_reg(0);
  CLAIM(handle->operations.write != NULL && handle->operations.read != NULL);
  CLAIM(kelo_dm_reg_def_items(items) == 0);
  CLAIM(kelo_dm_get(handle, 7, value, (int32_t)sizeof value, &len) == 0);
  CLAIM(len == 8 && own_health_calls > 1);
  CLAIM(kelo_dm_write_verified(handle, 7, "lan", 3) == 0);
  CLAIM(kelo_dm_get(handle, 7, value, (int32_t)sizeof value, &len) == 0);
  CLAIM(len == 3 && memcmp(value, "lan", 3) == 0);
  CLAIM(kelo_dm_unreg(handle) == 0);
  return 0;
}
