/* SPDX-License-Identifier: MIT */
/* Both headers that declare strsep(), in either order: the test StrsepIsDeclared compiles it in many dialects. */
#ifdef STRING_H_FIRST
#include <string.h>
#endif

#include "kelo_utils/app_os_al.h"

#ifdef KELO_UTILS_FIRST
#include <string.h>
#endif

char* first_word(char** text);
char* first_word(char** text) { return strsep(text, " "); }
