/* SPDX-License-Identifier: MIT */
/* A program with definitions of its own for the four hooks and the diagnostic channel. */
#include <stdio.h>
#include <string.h>

#include "kelo_utils/kelo_utils.h"

static int reg_calls, area_calls, version_calls, init_calls, records;

void dm_pal_reg(int32_t id, kelo_dm_operations* operations) {
  reg_calls += id == 7 && operations != NULL && operations->write == NULL;
}

int dm_pal_reg_store_area(const char* primary_dir, const char* backup_dir) {
  area_calls += strcmp(primary_dir, "/p/") == 0 && strcmp(backup_dir, "/b/") == 0;
  return 41;
}

int dm_pal_check_db_version_match(int* matched) {
  ++version_calls;
  *matched = 1;
  return 42;
}

int dm_pal_check_db_health(void) { return 43; }

int Diag_LSM_Init(char* environment) {
  init_calls += environment == NULL;
  return 1;
}

void msg_sprintf(const LogDiagDescriptor* descriptor, ...) {
  records += descriptor->subsystem == KELO_LOG_DIAG_SUBSYSTEM;
}

int main(void) {
  int matched = 0;
  const int area = kelo_dm_reg_store_area("/p/", "/b/");
  const int version = kelo_dm_check_db_version_match(&matched);
  kelo_dm_handle* const store = kelo_dm_reg(7);
  KELO_LOG(LOG_LVL_ERR, "from the program\n");
  kelo_dm_unreg(NULL); /* makes the library log */
  kelo_dm_unreg(store);
  printf("reg %d, area %d %d, version %d %d %d, health %d, init %d, records %d\n", reg_calls, area_calls,
         area, version_calls, version, matched, dm_pal_check_db_health(), init_calls, records);
  return 0;
}
