// SPDX-License-Identifier: MIT
// Makes and frees handles, and calls the hooks of the storage back-end that concern the whole storage.
#include <cstdint>
#include <cstdlib>

#include "base/heap.hpp"
#include "data_manager/registry.hpp"
#include "kelo_utils/data_manager.h"
#include "log/library_log.hpp"

kelo_dm_handle* kelo_dm_reg(std::int32_t id) {
  kelo_dm_handle* const handle = kelo::base::zeroed<kelo_dm_handle>().release();
  if (handle == nullptr) kelo::dm::fatal();
  handle->id = id;
  dm_pal_reg(id, &handle->operations);
  return handle;
}

int kelo_dm_unreg(kelo_dm_handle* handle) {
  if (handle == nullptr) return kelo::log::param_null(__func__);
  std::free(handle);
  return 0;
}

int kelo_dm_reg_store_area(const char* primary_dir, const char* backup_dir) {
  return dm_pal_reg_store_area(primary_dir, backup_dir);
}

int kelo_dm_check_db_version_match(int* matched) { return dm_pal_check_db_version_match(matched); }
