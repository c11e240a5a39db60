/* SPDX-License-Identifier: MIT */
/* A daemon that stores one setting, when there is a storage back-end to store it. Valid C and valid C++. */
#include <stdio.h>

#include "kelo_utils/kelo_utils.h"

static kelo_dm_item items[] = {KELO_DM_TEXT_ITEM(1204, "NET_TAB", "SSID", "home"), KELO_DM_END};

int main(void) {
  char ssid[6] = "";
  kelo_dm_handle* const store = kelo_dm_reg(0);
  KELO_LOG(LOG_LVL_INFO, "daemon is up\n");
  if (store->operations.write == NULL) return puts("no storage") < 0;
  if (kelo_dm_reg_def_items(items) != 0 || kelo_dm_write(store, 1204, "cabin", 5) != 0) return 1;
  if (kelo_dm_read_db(store, 1204, ssid, 5) != 0) return 1;
  printf("SSID is %s, health is %d\n", ssid, dm_pal_check_db_health());
  return kelo_dm_unreg(store);
}
