/* SPDX-License-Identifier: MIT */
/*
 * Timers: one that expires once and one that repeats, whose callbacks run one after the other on one worker thread.
 *
 * A record belongs to the daemon and stays at its address until its timer is deleted.
 *
 * Build: cc -pthread -o timers timers.c $(pkg-config --cflags --libs kelo_utils)
 *
 * Prints:
 *   beat 1
 *   beat 2
 *   beat 3
 *   the third beat stops its own timer and starts another one
 *   50 ms later
 *   the beats go on: 0
 */
#include <kelo_utils/timer.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>

enum { MILLISECOND = 1000000 };

static sem_t finished;

struct heart {
  kelo_timer_info timer;
  kelo_timer_info pause;
  int beats;
};

/* The callback may stop, start and delete any timer, also its own. */
static void beat(void* arg) {
  struct heart* heart = arg;
  if (heart->beats == 3) return; /* it has expired once more before it was stopped */
  printf("beat %d\n", ++heart->beats);
  if (heart->beats == 3) {
    printf("the third beat stops its own timer and starts another one\n");
    kelo_timer_stop(&heart->timer);
    kelo_timer_start(&heart->pause);
  }
}

static void after_pause(void* arg) {
  printf("%d ms later\n", *(const int*)arg);
  sem_post(&finished);
}

int main(void) {
  static int pause = 50;
  static struct heart heart;
  if (sem_init(&finished, 0, 0) != 0) return EXIT_FAILURE;

  heart.timer.value.tv_nsec = 20 * MILLISECOND;    /* the first expiry */
  heart.timer.interval.tv_nsec = 20 * MILLISECOND; /* the period; 0 for a timer that expires once */
  heart.timer.cb.handler = beat;
  heart.timer.cb.arg = &heart;
  heart.pause.value.tv_nsec = pause * MILLISECOND;
  heart.pause.cb.handler = after_pause;
  heart.pause.cb.arg = &pause;

  kelo_timer_init(); /* once in a process; it uses SIGUSR1 */
  if (kelo_timer_create(&heart.timer) != 0 || kelo_timer_create(&heart.pause) != 0) return EXIT_FAILURE;
  if (kelo_timer_start(&heart.timer) != 0) return EXIT_FAILURE;

  while (sem_wait(&finished) != 0) continue; /* signals interrupt the wait */
  printf("the beats go on: %d\n", kelo_timer_is_already_start(&heart.timer));
  kelo_timer_delete(&heart.timer);
  kelo_timer_delete(&heart.pause);
  return EXIT_SUCCESS;
}
