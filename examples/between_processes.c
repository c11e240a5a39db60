/* SPDX-License-Identifier: MIT */
/*
 * Changes between processes: a daemon is told which items another process has changed, and reads their values.
 *
 * The daemon has a loop of its own, and polls the descriptor of the watch. kelo_dm_watch() does the same on a
 * thread of the library. A writer has nothing to do for it.
 *
 * Build: cc -o between_processes between_processes.c $(pkg-config --cflags --libs kelo_utils_sqlite)
 *
 * Prints:
 *   daemon: the channel is 6, the name is home
 *   daemon: radio.channel has changed, it is 11
 *   daemon: radio.name has changed, it is cabin
 *   daemon: the other process has ended with 0
 */
#include <kelo_utils/kelo_utils.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

enum { RADIO_CHANNEL = 2101, RADIO_NAME = 2102 };

static kelo_dm_item items[] = {
    KELO_DM_ITEM(RADIO_CHANNEL, "radio", "channel", KELO_DM_TYPE_SCALAR3, 6, 4),
    KELO_DM_TEXT_ITEM(RADIO_NAME, "radio", "name", "home"),
    KELO_DM_END,
};

struct radio {
  kelo_dm_handle* store;
  uint32_t channel;
  char name[33];
  int changes;
};

static kelo_dm_handle* start(void) {
  kelo_dm_handle* store = kelo_dm_reg(0);
  kelo_dm_reg_def_items(items);
  kelo_dm_construct_def_database(0);
  return store;
}

/* The other process, such as a web interface. It waits until the daemon watches. */
static int change_settings(int go) {
  char byte;
  kelo_dm_handle* store = start();
  if (read(go, &byte, 1) != 1) return EXIT_FAILURE;
  if (kelo_dm_set_uint32(store, RADIO_CHANNEL, 11) != 0) return EXIT_FAILURE;
  if (kelo_dm_set_text(store, RADIO_NAME, "cabin") != 0) return EXIT_FAILURE;
  return kelo_dm_unreg(store);
}

static int load(struct radio* radio) {
  return kelo_dm_get_uint32(radio->store, RADIO_CHANNEL, &radio->channel) == 0 &&
         kelo_dm_get_text(radio->store, RADIO_NAME, radio->name, sizeof radio->name) == 0;
}

/* It is told of every item of the store, also of those of other daemons. */
static void told(int32_t id, const char* table, const char* key, void* context) {
  struct radio* radio = context;
  if ((id != RADIO_CHANNEL && id != RADIO_NAME) || !load(radio)) return;
  ++radio->changes;
  if (id == RADIO_CHANNEL)
    printf("daemon: %s.%s has changed, it is %u\n", table, key, (unsigned)radio->channel);
  else
    printf("daemon: %s.%s has changed, it is %s\n", table, key, radio->name);
}

int main(void) {
  struct radio radio = {NULL, 0, "", 0};
  int go[2];
  int status = 0;
  if (pipe(go) != 0) return EXIT_FAILURE;
  const pid_t other = fork();
  if (other < 0) return EXIT_FAILURE;
  if (other == 0) return change_settings(go[0]);

  /* First the watch and then the values: no change falls between the two. */
  radio.store = start();
  struct pollfd watch = {kelo_dm_watch_fd(), POLLIN, 0};
  if (watch.fd < 0 || !load(&radio)) return EXIT_FAILURE;
  printf("daemon: the channel is %u, the name is %s\n", (unsigned)radio.channel, radio.name);
  if (write(go[1], "!", 1) != 1) return EXIT_FAILURE;

  while (radio.changes < 2) {
    poll(&watch, 1, 1000);
    kelo_dm_watch_dispatch(told, &radio); /* after a -2 the next round tries again */
  }
  kelo_dm_watch(NULL, NULL); /* ends it */
  if (waitpid(other, &status, 0) != other) return EXIT_FAILURE;
  printf("daemon: the other process has ended with %d\n", status);
  return kelo_dm_unreg(radio.store);
}
