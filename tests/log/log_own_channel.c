/* SPDX-License-Identifier: MIT */
/* A C daemon that defines the diagnostic channel itself: the exit status says whether it got the calls. */
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "kelo_utils/log.h"

static int starts;
static int records;
static char last_text[64];

int Diag_LSM_Init(char* environment) {
  (void)environment;
  ++starts;
  return 1;
}

void msg_sprintf(const LogDiagDescriptor* descriptor, ...) {
  va_list arguments;
  va_start(arguments, descriptor);
  vsnprintf(last_text, sizeof last_text, descriptor->format, arguments);
  va_end(arguments);
  ++records;
}

int main(void) {
  char expected[64];
  KELO_LOG(LOG_LVL_ERR, "modem lost\n");
  snprintf(expected, sizeof expected, "KELO-FWA[%d] main(): modem lost\n", getpid());
  if (starts == 1 && records == 1 && strcmp(last_text, expected) == 0) return 0;
  printf("%d starts, %d records, last \"%s\"\n", starts, records, last_text);
  return 1;
}
