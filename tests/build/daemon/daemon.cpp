// SPDX-License-Identifier: MIT
// A daemon that stores one setting and is told of its change, when there is a storage back-end to store it.
#include <cstdio>
#include <string>

#include "kelo_utils/kelo_utils.h"

static kelo_dm_item items[] = {KELO_DM_TEXT_ITEM(1204, "NET_TAB", "SSID", "home"), KELO_DM_END};
static std::string announced;

int main() {
  kelo_dm_handle* const store = kelo_dm_reg(0);
  KELO_LOG(LOG_LVL_INFO, "daemon is up\n");
  if (store->operations.write == nullptr) return std::puts("no storage") < 0;
  kelo_dm_reg_event_callback([](std::int32_t, const void* data, std::int32_t len) {
    announced.assign(static_cast<const char*>(data), static_cast<std::size_t>(len));
    return 0;
  });
  if (kelo_dm_reg_def_items(items) != 0 || kelo_dm_write(store, 1204, "cabin", 5) != 0) return 1;
  std::printf("SSID is %s, health is %d\n", announced.c_str(), dm_pal_check_db_health());
  return kelo_dm_unreg(store);
}
