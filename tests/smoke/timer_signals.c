/* SPDX-License-Identifier: MIT */
/* The calls by which the library receives signals, in front of those of the C library. */
#define _GNU_SOURCE
#include "timer_signals.h"

#include <dlfcn.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

typedef int (*wait_function)(const sigset_t*, siginfo_t*, const struct timespec*);

static int code_of_timers = SI_TIMER;

void take_for_timers(int reported) { code_of_timers = reported; }

static int wait_for(const sigset_t* set, siginfo_t* info, const struct timespec* timeout) {
  void* const found = dlsym(RTLD_NEXT, "sigtimedwait");
  wait_function next;
  int number;
  if (found == NULL) abort();
  memcpy(&next, &found, sizeof next); /* C has no conversion for this */
  number = next(set, info, timeout);
  if (number > 0 && info != NULL && info->si_code == code_of_timers) info->si_code = SI_TIMER;
  return number;
}

int sigtimedwait(const sigset_t* set, siginfo_t* info, const struct timespec* timeout) {
  return wait_for(set, info, timeout);
}

int sigwaitinfo(const sigset_t* set, siginfo_t* info) { return wait_for(set, info, NULL); }
