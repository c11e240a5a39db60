/* SPDX-License-Identifier: MIT */
/*
 * INI files: read with defaults, changed without touching the other bytes, and walked through.
 *
 * After a power cut the file is as it was or as it is to be.
 *
 * Build: cc -o ini_file ini_file.c $(pkg-config --cflags --libs kelo_utils)
 *
 * Prints:
 *   listen on 192.168.8.1, port 8080, TLS 1
 *   no such key: 30
 *   [server] address = 192.168.8.1
 *   [server] port = 8443
 *   [server] tls = yes
 *   [limits] clients = 32
 *   ---
 *   # written by hand
 *   [server]
 *   address = 192.168.8.1   ; of the bridge
 *   port=8443
 *   tls = yes
 *   [limits]
 *   clients=32
 */
#include <kelo_utils/ini.h>
#include <stdio.h>
#include <stdlib.h>

static const char path[] = "/tmp/kelo_example.ini";

static const char by_hand[] =
    "# written by hand\n"
    "[server]\n"
    "address = 192.168.8.1   ; of the bridge\n"
    "port = 8080\n"
    "tls = yes\n";

static void write_by_hand(void) {
  FILE* file = fopen(path, "w");
  if (file == NULL || fputs(by_hand, file) == EOF || fclose(file) != 0) exit(EXIT_FAILURE);
}

static int show_key(const char* section, const char* key, const char* value, void* user_data) {
  (void)user_data;
  printf("[%s] %s = %s\n", section, key, value);
  return 1; /* 0 would end the walk */
}

static void show_file(void) {
  char line[128];
  FILE* file = fopen(path, "r");
  if (file == NULL) exit(EXIT_FAILURE);
  while (fgets(line, sizeof line, file) != NULL) fputs(line, stdout);
  fclose(file);
}

int main(void) {
  char address[32];
  write_by_hand();

  /* The case of names does not matter. The value ends before the comment. */
  ini_gets("Server", "Address", "127.0.0.1", address, sizeof address, path);
  printf("listen on %s, port %d, TLS %d\n", address, (int)ini_getl("server", "port", 80, path),
         ini_getbool("server", "tls", 0, path));
  printf("no such key: %d\n", (int)ini_getl("server", "timeout", 30, path));

  if (ini_putl("server", "port", 8443, path) != 1) return EXIT_FAILURE;    /* its line is changed */
  if (ini_putl("limits", "clients", 32, path) != 1) return EXIT_FAILURE;   /* section and key are added */
  if (ini_puts("limits", "nothing", NULL, path) != 1) return EXIT_FAILURE; /* null deletes a key */

  ini_browse(show_key, NULL, path);
  printf("---\n");
  show_file();
  return remove(path);
}
