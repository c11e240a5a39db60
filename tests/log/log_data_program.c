/* SPDX-License-Identifier: MIT */
/* A daemon that reads the last local line and its stamp from the exported arrays. Compiled with MOVED where the loader
 * is to move both into the program. Exit status: 0, or the line of the first claim that failed. */
#include <stdint.h>
#include <string.h>

#include "kelo_utils/log.h"

extern char __executable_start[]; /* both are of the linker */
extern char _end[];

static const char* line_given;

static void keep_line(const char* line) { line_given = line; }

static int in_program(const char* object) {
  const uintptr_t address = (uintptr_t)object;
  return address >= (uintptr_t)__executable_start && address < (uintptr_t)_end;
}

static int ends_with(const char* text, const char* end) {
  const size_t length = strlen(text);
  return length >= strlen(end) && strcmp(text + length - strlen(end), end) == 0;
}

#define CLAIM(condition)               \
  do {                                 \
    if (!(condition)) return __LINE__; \
  } while (0)

int main(void) {
  size_t i;
#ifdef MOVED
  CLAIM(in_program(log_msg));
  CLAIM(in_program(str_t));
#else
  (void)in_program;
#endif
  CLAIM(log_msg[0] == '\0' && str_t[0] == '\0');
  kelo_set_log_tool_enable(0);
  set_print_interface(keep_line);
  KELO_LOG(LOG_LVL_ERR, "a longer line than the one after it");
  CLAIM(ends_with(log_msg, " | a longer line than the one after it"));
  KELO_LOG(LOG_LVL_ERR, "a line\n");
  CLAIM(ends_with(log_msg, " | a line\n"));
  CLAIM(line_given == log_msg);
  CLAIM(strlen(str_t) == 23 && strncmp(log_msg, str_t, 23) == 0);
  for (i = strlen(log_msg); i < sizeof log_msg; ++i) CLAIM(log_msg[i] == '\0');
  for (i = 23; i < sizeof str_t; ++i) CLAIM(str_t[i] == '\0');
  return 0;
}
