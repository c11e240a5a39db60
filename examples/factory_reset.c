/* SPDX-License-Identifier: MIT */
/*
 * Defaults and factory reset: what differs from the defaults, one item set back, and then the whole store.
 *
 * kelo_dm_for_each_item() gives every registered item with the descriptor that holds its default.
 *
 * Build: cc -o factory_reset factory_reset.c $(pkg-config --cflags --libs kelo_utils_sqlite)
 *
 * Prints:
 *   new device: 0 settings differ from their defaults
 *   lan.address: 10.0.0.1 instead of 192.168.8.1
 *   lan.name: attic instead of router
 *   in use: 2 settings differ from their defaults
 *   lan.name: attic instead of router
 *   address emptied: 1 settings differ from their defaults
 *   factory reset: 0 settings differ from their defaults
 */
#include <kelo_utils/kelo_utils.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { LAN_ADDRESS = 2201, LAN_NAME = 2202, LAN_DOMAIN = 2203 };

static kelo_dm_item items[] = {
    KELO_DM_TEXT_ITEM(LAN_ADDRESS, "lan", "address", "192.168.8.1"),
    KELO_DM_TEXT_ITEM(LAN_NAME, "lan", "name", "router"),
    KELO_DM_TEXT_ITEM(LAN_DOMAIN, "lan", "domain", "home.arpa"),
    KELO_DM_END,
};

struct comparison {
  kelo_dm_handle* store;
  int different;
};

static int32_t compare(int32_t id, const kelo_dm_item_desc* item, void* user) {
  struct comparison* all = user;
  char value[64];
  const char* usual = (const char*)item->def_value; /* the default of a text is its address */
  if (kelo_dm_get_text(all->store, id, value, sizeof value) != 0) return 1; /* ends the enumeration */
  if (strcmp(value, usual) != 0) {
    printf("%s.%s: %s instead of %s\n", item->item_table, item->item_key, value, usual);
    ++all->different;
  }
  return 0;
}

static void show(const char* when, kelo_dm_handle* store) {
  struct comparison all = {store, 0};
  if (kelo_dm_for_each_item(compare, &all) != 0) exit(EXIT_FAILURE);
  printf("%s: %d settings differ from their defaults\n", when, all.different);
}

int main(void) {
  kelo_dm_handle* store = kelo_dm_reg(0);
  kelo_dm_reg_def_items(items);
  /* It also stores the defaults, so that tools know them, and keeps those that are stored already. */
  kelo_dm_construct_def_database(0);
  show("new device", store);

  if (kelo_dm_set_text(store, LAN_ADDRESS, "10.0.0.1") != 0) return EXIT_FAILURE;
  if (kelo_dm_set_text(store, LAN_NAME, "attic") != 0) return EXIT_FAILURE;
  show("in use", store);

  /* An item without a stored value has its default. */
  if (kelo_dm_empty(store, LAN_ADDRESS) != 0) return EXIT_FAILURE;
  show("address emptied", store);

  /* It deletes all stored values, those of other daemons too. A text instead of NULL would keep a dated copy. */
  if (kelo_dm_clean(store, NULL) != 0) return EXIT_FAILURE;
  show("factory reset", store);
  return kelo_dm_unreg(store);
}
