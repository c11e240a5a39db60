/* SPDX-License-Identifier: MIT */
/* Takes the place of the platform's diagnostic library: it prints what it is handed. */
#include <stdarg.h>
#include <stdio.h>

#include "kelo_utils/log.h"

int Diag_LSM_Init(char* environment) { return environment == NULL; }

void msg_sprintf(const LogDiagDescriptor* descriptor, ...) {
  va_list arguments;
  va_start(arguments, descriptor);
  (void)va_arg(arguments, int); /* the process id */
  printf("platform: %s: ", va_arg(arguments, const char*));
  printf("%s", va_arg(arguments, const char*));
  va_end(arguments);
}
