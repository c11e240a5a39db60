/* SPDX-License-Identifier: MIT */
/*
 * Parameters: typed columns of a database of user settings, beside a database with the factory settings.
 *
 * A daemon loads its table into variables, changes them, writes them back, and takes one or all of them from the
 * factory settings again. The provisioning of a device makes the factory settings; this example makes its own.
 *
 * Build: cc -o parameters parameters.c $(pkg-config --cflags --libs kelo_utils)
 *
 * Prints:
 *   factory settings: enabled 1, SSID cpe, channel 36
 *   changed: enabled 1, SSID cabin, channel 44
 *   from the file: enabled 1, SSID cabin, channel 44
 *   channel reloaded: enabled 1, SSID cabin, channel 36
 *   all restored: enabled 1, SSID cpe, channel 36
 */
#include <kelo_utils/parameters.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

enum { ALL = -1, ENABLED = 1, SSID = 2, CHANNEL = 3 };

static uint8_t enabled;
static char ssid[33];
static uint32_t channel;

static const kelo_db_param parameters[] = {
    {&enabled, "enabled", KELO_DB_TYPE_8BIT_0, sizeof enabled, ENABLED},
    {ssid, "ssid", KELO_DB_TYPE_TEXT, sizeof ssid, SSID},
    {&channel, "channel", KELO_DB_TYPE_32BIT_2, sizeof channel, CHANNEL},
    {NULL, NULL, 0, 0, 0},
};
static const kelo_db_query radio = {"radio", parameters};

static void show(const char* when) {
  printf("%s: enabled %d, SSID %s, channel %u\n", when, enabled, ssid, (unsigned)channel);
}

static void check(int done) {
  if (!done) exit(EXIT_FAILURE);
}

/* What `kelo_provision` does on a device. The last argument of kelo_db_exec_cmd() names the factory settings. */
static void provision(void) {
  mkdir("/data/kelo-resource", 0755);
  mkdir("/data/kelo-resource/sqlite3", 0755);
  check(kelo_db_exec_cmd("drop table if exists radio;"
                         "create table radio (enabled integer, ssid text, channel integer);"
                         "insert into radio values (1, 'cpe', 36);",
                         NULL, NULL, 1) == 0);
}

int main(void) {
  provision();
  /* A missing user database is made as a copy of the factory settings first. */
  check(kelo_db_restore_factory() == 1);
  check(kelo_db_query_db_init_struct(&radio) == 0);
  show("factory settings");

  strcpy(ssid, "cabin");
  channel = 44;
  show("changed");
  check(kelo_db_update_db_from_struct(&radio, ALL) == 0); /* on the flash when it returns */

  ssid[0] = '\0';
  channel = 0;
  check(kelo_db_query_db_init_struct(&radio) == 0);
  show("from the file");

  check(kelo_db_reload_value(&radio, CHANNEL) == 0); /* the variable and the file */
  show("channel reloaded");

  check(kelo_db_restore_factory() == 1); /* the file alone: the variables are loaded again */
  check(kelo_db_query_db_init_struct(&radio) == 0);
  show("all restored");
  return kelo_db_close_sqlite();
}
