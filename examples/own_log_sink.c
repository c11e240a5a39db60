/* SPDX-License-Identifier: MIT */
/*
 * The log to a sink of one's own: the daemon takes the finished lines and writes them where it likes.
 *
 * A line is "time : level | [process | thread-name] | function, source line | message". The sink here leaves out
 * the time and the process, which differ in each run.
 *
 * Build: cc -o own_log_sink own_log_sink.c $(pkg-config --cflags --libs kelo_utils)
 *
 * Prints:
 *   sink:  INFO | main | the daemon has started
 *   sink: -WRN- | look_up | no entry for cabin
 *   sink: =ERR= | oem_dm_reg_event_callback | kelo_dm_reg_event_callback param NULL
 *   sink: *CRT* | main | the store is gone
 *   4 lines
 */
#include <kelo_utils/data_manager.h>
#include <kelo_utils/log.h>
#include <stdio.h>
#include <string.h>

static int lines;

/* It runs under the lock of the log: it must not log, nor wait for another thread that logs. */
static void sink(const char* line) {
  const char* level = strstr(line, " : ");
  const char* function = strstr(line, "] | ");
  const char* message = function == NULL ? NULL : strstr(function + 4, " | ");
  if (level == NULL || message == NULL) return;
  function += 4;
  printf("sink: %.5s | %.*s | %s", level + 3, (int)strcspn(function, " "), function, message + 3);
  ++lines;
}

/* The level is a constant, and the format has its own line end. */
static void look_up(const char* name) { KELO_LOG(LOG_LVL_WRN, "no entry for %s\n", name); }

int main(void) {
  /* Local lines instead of the diagnostic channel. The choice is kept in /data/log_enable. */
  kelo_set_log_tool_enable(0);
  set_print_interface(sink);

  KELO_LOG(LOG_LVL_INFO, "the daemon has started\n");
  look_up("cabin");
  kelo_dm_reg_event_callback(NULL); /* what the library logs has the same form */

  kelo_set_log_level(LOG_LVL_ERR);
  look_up("attic"); /* below the threshold: the arguments are not even evaluated */
  KELO_LOG(LOG_LVL_CRT, "the store is %s\n", "gone");

  printf("%d lines\n", lines);
  return 0;
}
