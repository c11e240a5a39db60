/* SPDX-License-Identifier: MIT */
/* A daemon that knows nothing of the library's headers and has objects, or with FUNCTIONS functions, of its own that
 * are called log_msg and str_t, or uses those of another library (ELSEWHERE). It logs by prototypes of its own. Exit status: 0, or the line of the first claim that
 * failed. */
#include <string.h>

#ifdef FUNCTIONS
void log_msg(void) {}
void str_t(void) {}
#elif defined(ELSEWHERE)
extern char log_msg[SIZE];
extern char str_t[SIZE];
#else
char log_msg[SIZE] = "the program's own";
char str_t[SIZE] = "also its own";
#endif

int kelo_log_printf(int level, char* buffer, const char* function, int line, const char* format, ...);
void kelo_set_log_tool_enable(int enable);
void set_print_interface(void (*receiver)(const char*));

static char line_given[5000];

static void keep_line(const char* line) { strncpy(line_given, line, sizeof line_given - 1); }

#define CLAIM(condition)               \
  do {                                 \
    if (!(condition)) return __LINE__; \
  } while (0)

int main(void) {
  static char text[4000];
  static char buffer[4220];
  const char* shown;
  memset(text, 'm', sizeof text - 1);
  kelo_set_log_tool_enable(0);
  set_print_interface(keep_line);
  CLAIM(kelo_log_printf(3, buffer, "f", 7, "%s", text) == 0);
  shown = strstr(line_given, "] | f 7 | ");
  CLAIM(shown != NULL && strcmp(shown + 10, text) == 0);
#ifndef FUNCTIONS
  {
    size_t i;
    CLAIM(strcmp(log_msg, "the program's own") == 0 && strcmp(str_t, "also its own") == 0);
    for (i = strlen(log_msg); i < sizeof log_msg; ++i) CLAIM(log_msg[i] == '\0');
    for (i = strlen(str_t); i < sizeof str_t; ++i) CLAIM(str_t[i] == '\0');
  }
#endif
  return 0;
}
