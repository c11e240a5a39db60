/* SPDX-License-Identifier: MIT */
/*
 * Change events: parts of a daemon subscribe, and each of them hears of every change with a pointer of its own.
 *
 * A callback runs in the thread that writes, after the value is stored. It may read and write the store itself.
 * Changes that other processes make are for a watch: see between_processes.c.
 *
 * Build: cc -o events events.c $(pkg-config --cflags --libs kelo_utils_sqlite)
 *
 * Prints:
 *   radio: the channel is now 11
 *   web: item 2101 has changed (1 changes)
 *   radio: the name is now cabin
 *   web: item 2102 has changed (2 changes)
 *   web: item 2101 has changed (3 changes)
 *   the channel is emptied: it is 6 again
 */
#include <kelo_utils/kelo_utils.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { RADIO_CHANNEL = 2101, RADIO_NAME = 2102 };

static kelo_dm_item items[] = {
    KELO_DM_ITEM(RADIO_CHANNEL, "radio", "channel", KELO_DM_TYPE_SCALAR3, 6, 4),
    KELO_DM_TEXT_ITEM(RADIO_NAME, "radio", "name", "home"),
    KELO_DM_END,
};

/* The part that owns the radio applies what has changed. `data` is valid during the call only. */
static void apply_to_radio(int32_t id, const void* data, int32_t len, void* user) {
  uint32_t channel = 0;
  (void)user;
  if (id == RADIO_CHANNEL && len == sizeof channel) {
    memcpy(&channel, data, sizeof channel);
    printf("radio: the channel is now %u\n", (unsigned)channel);
  } else if (id == RADIO_NAME) {
    printf("radio: the name is now %.*s\n", (int)len, (const char*)data);
  }
}

/* The web interface only counts, in a variable of its own. */
static void count_for_web(int32_t id, const void* data, int32_t len, void* user) {
  int* changes = user;
  (void)data;
  (void)len;
  ++*changes;
  printf("web: item %d has changed (%d changes)\n", (int)id, *changes);
}

int main(void) {
  int changes = 0;
  uint32_t channel = 0;
  kelo_dm_handle* store = kelo_dm_reg(0);
  kelo_dm_reg_def_items(items);
  kelo_dm_construct_def_database(0);

  const int32_t radio = kelo_dm_subscribe(apply_to_radio, NULL);
  const int32_t web = kelo_dm_subscribe(count_for_web, &changes);
  if (radio < 0 || web < 0) return EXIT_FAILURE;

  if (kelo_dm_set_uint32(store, RADIO_CHANNEL, 11) != 0) return EXIT_FAILURE;
  if (kelo_dm_set_text(store, RADIO_NAME, "cabin") != 0) return EXIT_FAILURE;

  /* When this returns, no other thread is in the callback any more. */
  kelo_dm_unsubscribe(radio);
  if (kelo_dm_empty(store, RADIO_CHANNEL) != 0) return EXIT_FAILURE; /* announced with a length of 0 */
  if (kelo_dm_get_uint32(store, RADIO_CHANNEL, &channel) != 0) return EXIT_FAILURE;
  printf("the channel is emptied: it is %u again\n", (unsigned)channel);

  kelo_dm_unsubscribe(web);
  return kelo_dm_unreg(store);
}
