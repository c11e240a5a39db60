/* SPDX-License-Identifier: MIT */
/*
 * A daemon with settings: it registers its items with their defaults, reads them by id, and stores a new value.
 *
 * The store is in /data. The library makes its databases, which survive a power cut at any moment.
 *
 * Build: cc -o settings_daemon settings_daemon.c $(pkg-config --cflags --libs kelo_utils_sqlite)
 *
 * Prints:
 *   at the start: APN internet, MTU 1500, roaming no
 *   a new APN is stored: 0
 *   a text is no MTU: -6
 *   after a restart: APN fixed.wireless, MTU 1430, roaming no
 */
#include <kelo_utils/kelo_utils.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

enum { WAN_MTU = 2001, WAN_ROAMING = 2002, WAN_APN = 2003 };

/* The registry keeps pointers into the table: it is static and not const. */
static kelo_dm_item items[] = {
    KELO_DM_ITEM(WAN_MTU, "wan", "mtu", KELO_DM_TYPE_SCALAR3, 1500, 4),
    KELO_DM_ITEM(WAN_ROAMING, "wan", "roaming", KELO_DM_TYPE_SCALAR1, 0, 1),
    KELO_DM_TEXT_ITEM(WAN_APN, "wan", "apn", "internet"),
    KELO_DM_END,
};

static kelo_dm_handle* start(void) {
  kelo_dm_handle* store = kelo_dm_reg(0); /* completes a write that a power cut interrupted */
  kelo_dm_reg_def_items(items);
  kelo_dm_construct_def_database(0);
  return store;
}

static void show(const char* when, kelo_dm_handle* store) {
  char apn[64];
  uint32_t mtu = 0;
  int32_t roaming = 0;
  /* A get gives the stored value, or else the default. Its result tells when there is neither. */
  if (kelo_dm_get_text(store, WAN_APN, apn, sizeof apn) != 0) return;
  if (kelo_dm_get_uint32(store, WAN_MTU, &mtu) != 0) return;
  if (kelo_dm_get_bool(store, WAN_ROAMING, &roaming) != 0) return;
  printf("%s: APN %s, MTU %u, roaming %s\n", when, apn, (unsigned)mtu, roaming ? "yes" : "no");
}

/* The first life of the daemon. */
static int configure(void) {
  kelo_dm_handle* store = start();
  show("at the start", store);
  /* A set whose result is 0 is on the flash, and was read back. */
  printf("a new APN is stored: %d\n", (int)kelo_dm_set_text(store, WAN_APN, "fixed.wireless"));
  if (kelo_dm_set_uint32(store, WAN_MTU, 1430) != 0) return EXIT_FAILURE;
  printf("a text is no MTU: %d\n", (int)kelo_dm_set_text(store, WAN_MTU, "1430"));
  return kelo_dm_unreg(store);
}

int main(void) {
  int status = 0;
  const pid_t child = fork();
  if (child < 0) return EXIT_FAILURE;
  if (child == 0) return configure();
  if (waitpid(child, &status, 0) != child || status != 0) return EXIT_FAILURE;

  /* Another process finds what the first one has stored. */
  kelo_dm_handle* store = start();
  show("after a restart", store);
  return kelo_dm_unreg(store);
}
