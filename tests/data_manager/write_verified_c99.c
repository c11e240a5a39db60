/* SPDX-License-Identifier: MIT */
/* A verified write as a C daemon calls it. */
#include "kelo_utils/data_manager.h"

int32_t write_from_c99(kelo_dm_handle* handle, int32_t id, const void* data, int32_t len);

int32_t write_from_c99(kelo_dm_handle* handle, int32_t id, const void* data, int32_t len) {
  return kelo_dm_write_verified(handle, id, data, len);
}
