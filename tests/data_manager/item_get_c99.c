/* SPDX-License-Identifier: MIT */
/* The value of an item as a C daemon asks for it. */
#include "kelo_utils/data_manager.h"

int32_t get_from_c99(kelo_dm_handle* handle, int32_t id, void* buf, int32_t size, int32_t* len);

int32_t get_from_c99(kelo_dm_handle* handle, int32_t id, void* buf, int32_t size, int32_t* len) {
  return kelo_dm_get(handle, id, buf, size, len);
}
