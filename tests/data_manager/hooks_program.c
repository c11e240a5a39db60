/* SPDX-License-Identifier: MIT */
/* A daemon that defines the four hooks itself. Exit status: 0, or the line of the first claim that failed. */
#include <stddef.h>

#include "kelo_utils/data_manager.h"

static int32_t reg_id;
static kelo_dm_operations* reg_operations;
static const char* area[2];
static int* matched_argument;

static int own_write(uint32_t id, kelo_dm_item_desc* item, const void* data, int len) {
  (void)id, (void)item, (void)data, (void)len;
  return 41;
}

void dm_pal_reg(int32_t id, kelo_dm_operations* operations) {
  reg_id = id;
  reg_operations = operations;
  operations->write = own_write;
}

int dm_pal_reg_store_area(const char* primary_dir, const char* backup_dir) {
  area[0] = primary_dir;
  area[1] = backup_dir;
  return 42;
}

int dm_pal_check_db_version_match(int* matched) {
  matched_argument = matched;
  return 43;
}

int dm_pal_check_db_health(void) { return 44; }

#define CLAIM(condition)               \
  do {                                 \
    if (!(condition)) return __LINE__; \
  } while (0)

int main(void) {
  static kelo_dm_item items[] = {KELO_DM_ITEM(7, "TAB", "KEY", KELO_DM_TYPE_SCALAR3, 0, 4), KELO_DM_END};
  static const char primary[] = "/a/";
  static const char backup[] = "/b/";
  int matched = 5;
  kelo_dm_handle* handle;

  CLAIM(kelo_dm_reg_store_area(primary, backup) == 42);
  CLAIM(area[0] == primary && area[1] == backup);
  CLAIM(kelo_dm_reg_store_area(NULL, NULL) == 42);
  CLAIM(area[0] == NULL && area[1] == NULL);
  CLAIM(kelo_dm_check_db_version_match(&matched) == 43);
  CLAIM(matched_argument == &matched && matched == 5);
  CLAIM(kelo_dm_check_db_version_match(NULL) == 43);
  CLAIM(matched_argument == NULL);
  CLAIM(dm_pal_check_db_health() == 44);

  handle = kelo_dm_reg(-6);
  CLAIM(reg_id == -6 && reg_operations == &handle->operations);
  CLAIM(kelo_dm_reg_def_items(items) == 0);
  CLAIM(kelo_dm_write(handle, 7, "x", 1) == 41);
  CLAIM(kelo_dm_unreg(handle) == 0);
  return 0;
}
