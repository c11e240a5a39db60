// SPDX-License-Identifier: MIT
// The default hooks of the data manager, which do nothing: without a back-end there is no storage.
// They are weak and alone in this file, so that a program can define any of them. This works with the shared library and
// with the archive.
#include <cstdint>

#include "kelo_utils/data_manager.h"

__attribute__((weak)) void dm_pal_reg(std::int32_t /*id*/, kelo_dm_operations* /*operations*/) {}

__attribute__((weak)) int dm_pal_reg_store_area(const char* /*primary_dir*/, const char* /*backup_dir*/) {
  return 0;
}

__attribute__((weak)) int dm_pal_check_db_version_match(int* /*matched*/) { return 0; }

__attribute__((weak)) int dm_pal_check_db_health() { return 0; }
