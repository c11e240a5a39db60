// SPDX-License-Identifier: MIT
// The settings of a small daemon with the C functions, their results checked by hand, as in by_face.cpp.
#include <cstdint>

#include "kelo_utils/kelo_utils.h"

struct Limits {
  std::int32_t low;
  std::int32_t high;
};

constexpr char kApn[] = "internet";

kelo_dm_item items[] = {
    KELO_DM_ITEM(1, "net", "channel", KELO_DM_TYPE_SCALAR3, 6, 4),
    KELO_DM_ITEM(2, "net", "visible", KELO_DM_TYPE_SCALAR1, 1, 1),
    KELO_DM_ITEM(3, "net", "limits", KELO_DM_TYPE_BUFFER, 0, 0),
    KELO_DM_ITEM(4, "net", "apn", KELO_DM_TYPE_STRING, KELO_DM_TEXT(kApn), sizeof kApn - 1),
    KELO_DM_ITEM(5, "net", "mtu", KELO_DM_TYPE_SCALAR3, 1500, 4),
    KELO_DM_ITEM(6, "net", "retries", KELO_DM_TYPE_SCALAR3, 3, 4),
    KELO_DM_ITEM(7, "net", "power", KELO_DM_TYPE_SCALAR3, 20, 4),
    KELO_DM_ITEM(8, "net", "roaming", KELO_DM_TYPE_SCALAR1, 0, 1),
    KELO_DM_END,
};

std::int32_t use(std::int32_t channel, bool visible, const Limits& limits);
std::int32_t serve();

static std::int32_t run_with(kelo_dm_handle* store) {
  std::int32_t number = 0;
  std::int32_t code = kelo_dm_get_int32(store, 1, &number);
  if (code != 0) return code;
  std::int32_t shown = 0;
  code = kelo_dm_get_bool(store, 2, &shown);
  if (code != 0) return code;
  Limits range = {};
  std::int32_t len = 0;
  code = kelo_dm_get(store, 3, &range, sizeof range, &len);
  if (code == KELO_DM_VALUE_TOO_LONG || (code == 0 && len != static_cast<std::int32_t>(sizeof range)))
    return KELO_DM_VALUE_WRONG_LENGTH;
  if (code != 0) return code;
  KELO_LOG(LOG_LVL_INFO, "channel %d, visible %d, limits %d to %d\n", number, shown, range.low, range.high);
  std::int32_t next = use(number, shown != 0, range);
  std::int32_t mtu = 0;
  next += kelo_dm_get_int32(store, 5, &mtu) == 0 ? mtu : 1500;
  std::int32_t retries = 0;
  next += kelo_dm_get_int32(store, 6, &retries) == 0 ? retries : 3;
  std::int32_t power = 0;
  next += kelo_dm_get_int32(store, 7, &power) == 0 ? power : 20;
  std::int32_t roaming = 0;
  next += kelo_dm_get_bool(store, 8, &roaming) == 0 && roaming != 0 ? 1 : 0;
  code = kelo_dm_set_int32(store, 5, next - 20);
  if (code != 0) return code;
  code = kelo_dm_set_int32(store, 7, next + 1);
  if (code != 0) return code;
  code = kelo_dm_set_int32(store, 1, next);
  if (code != 0) return code;
  code = kelo_dm_set_bool(store, 2, next > 6 ? 1 : 0);
  if (code != 0) return code;
  range = {next, next + 4};
  code = kelo_dm_write_verified(store, 3, &range, sizeof range);
  if (code != 0) return code;
  code = kelo_dm_empty(store, 2);
  return code;
}

std::int32_t serve() {
  kelo_dm_use_sqlite();
  const std::int32_t code = kelo_dm_reg_def_items(items);
  if (code != 0) {
    KELO_LOG(LOG_LVL_ERR, "the items cannot be registered: %d\n", code);
    return code;
  }
  kelo_dm_handle* const store = kelo_dm_reg(0);
  const std::int32_t result = run_with(store);
  kelo_dm_unreg(store);
  return result;
}
