/* SPDX-License-Identifier: MIT */
/* Loads the library, starts its timer service and unloads it, as a program with plug-ins does. Its exit status is
   the line of the claim that failed. */
#include <dlfcn.h>
#include <signal.h>
#include <stdatomic.h>
#include <stddef.h>
#include <time.h>
#include <unistd.h>

#include "kelo_utils/timer.h"

static atomic_int calls;

static void count(void* arg) {
  (void)arg;
  atomic_fetch_add(&calls, 1);
}

static int wait_for_calls(int count_of_calls) {
  const struct timespec pause = {0, 1000000};
  for (int i = 0; i < 60000 && atomic_load(&calls) < count_of_calls; ++i) nanosleep(&pause, NULL);
  return atomic_load(&calls) >= count_of_calls;
}

#define CLAIM(condition) \
  if (!(condition)) return __LINE__

int main(int count_of_arguments, char** arguments) {
  static kelo_timer_info beat;
  CLAIM(count_of_arguments == 2);
  void* const library = dlopen(arguments[1], RTLD_NOW);
  CLAIM(library != NULL);
  void (*init)(void);
  int (*create)(kelo_timer_info*);
  int (*start)(kelo_timer_info*);
  *(void**)&init = dlsym(library, "kelo_timer_init");
  *(void**)&create = dlsym(library, "kelo_timer_create");
  *(void**)&start = dlsym(library, "kelo_timer_start");
  CLAIM(init != NULL && create != NULL && start != NULL);
  beat.value.tv_nsec = beat.interval.tv_nsec = 1000000;
  beat.cb.handler = count;
  init();
  CLAIM(create(&beat) == 0);
  CLAIM(start(&beat) == 0);
  CLAIM(dlclose(library) == 0);
  CLAIM(wait_for_calls(20));
  CLAIM(raise(SIGUSR1) == 0);
  _exit(0); /* not by way of a leak check, which fails over a library that was let go */
}
