/* SPDX-License-Identifier: MIT */
/* A table of default items as a C daemon writes it. */
#include "kelo_utils/data_manager.h"

static const uint8_t secret[] = {0xDE, 0xAD, 0xBE};

kelo_dm_item c_table[] = {KELO_DM_ITEM(1203, "NET_TAB", "CHANNEL", KELO_DM_TYPE_SCALAR3, 6, 4),
                          KELO_DM_TEXT_ITEM(1204, "NET_TAB", "SSID", "home"),
                          KELO_DM_BYTES_ITEM(1205, "NET_TAB", "SECRET", secret),
                          KELO_DM_ITEM(1206, "NET_TAB", "MODE", KELO_DM_TYPE_SCALAR1, -2, 1), KELO_DM_END};
