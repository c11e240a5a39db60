/**
 * @file timer.h
 * @brief Timers whose callbacks run one after the other on one worker thread.
 *
 * A daemon fills in a record, creates a timer for it and starts it; when it expires, the callback runs on the
 * service's worker thread, never in a signal handler.
 *
 *     static void beat(void* arg) { ... }
 *
 *     static kelo_timer_info heartbeat = {
 *         .value = {1, 0}, .interval = {1, 0}, .cb = {beat, NULL}};
 *
 *     kelo_timer_init();
 *     kelo_timer_create(&heartbeat);
 *     kelo_timer_start(&heartbeat);
 *
 * What holds for all timers:
 * - Time is that of the monotonic clock: setting the date neither delays nor hastens an expiry. An expiry
 *   never comes early.
 * - Callbacks run one at a time in the order of expiry, without any lock held. A callback that takes long
 *   delays those after it. It may start, re-arm, stop and delete any timer, its own too.
 * - A timer waits for its callback at most once: expiries that come while one is waiting are dropped, so that
 *   a periodic timer whose callback takes longer than its period is called once in a while instead of ever
 *   more often. An expiry that comes while the callback runs makes it run once more. A period of nanoseconds
 *   costs a processor, but delays no other timer by more than its callback.
 * - The worker's stack is 32 KiB, with what the program's thread-local variables take on top.
 * - One timer is driven by one thread at a time, its callback included; different timers are independent.
 * - A child made by fork() inherits neither the timers nor the worker. It calls kelo_timer_init() anew before
 *   it uses timers, with records whose `state` it sets to 0.
 * - No function here blocks, but for the moment in which kelo_timer_init() waits until its worker runs.
 *
 * Signals:
 * - The service takes SIGUSR1 for the whole process: a daemon must not handle, ignore or send it for ends of
 *   its own. It may block it. One that another process sends is ignored. A handler that the daemon installs
 *   all the same gets no expiry of a timer that was created after kelo_timer_init(), and costs none.
 * - Expiries interrupt nobody: neither a thread of the daemon nor a callback that blocks.
 * - A callback runs with the signals blocked that were blocked in the caller of kelo_timer_init(), and SIGUSR1.
 *   A daemon that blocks signals to read them elsewhere, SIGTERM from a signalfd() for one, does so before
 *   kelo_timer_init(): otherwise one that arrives while a callback runs takes its usual effect there. While
 *   the worker sleeps, it blocks every signal.
 * - The programs that a callback starts with functions of this library are born with no signal blocked. Those
 *   that it starts itself with fork(), system() or popen() inherit what is blocked in the callback, SIGUSR1
 *   included. A callback that wants another set for them changes it with pthread_sigmask() before and changes
 *   it back after; SIGUSR1 must be blocked again when the callback returns.
 *
 * The life of a record. It belongs to the caller and must stay where it is until its timer is deleted:
 * - A delete takes back an expiry that waits for its callback. No function of the service looks into the
 *   record after that.
 * - A callback, of that timer or of another one, that has deleted a timer may free its record at once, whether
 *   it was a periodic timer or not: no other callback is running.
 * - In any other thread a delete does not wait for a callback that is running. That one does not need the
 *   record unless the daemon's own code looks into it, but it still uses its `arg`. It has returned as soon as
 *   the callback of any timer that was started after the delete is called: a timer of 1 ns started then tells
 *   that everything may be freed. A mutex that the callback takes does not tell it: the worker may be about to
 *   call.
 */
#ifndef KELO_UTILS_TIMER_H
#define KELO_UTILS_TIMER_H

#include <pthread.h>
#include <stdint.h>

#include "kelo_utils/base.h"
#include "kelo_utils/queue.h"

KELO_BEGIN_DECLS

/** What kelo_timer_create() puts into a record: the bytes "Q", "d", "r", "J" in memory order. */
#define KELO_TIMER_MAGIC 0x4A726451u

/** What `state` of a record says. An expiry does not change it. */
typedef enum kelo_timer_state {
  /** No timer exists: before kelo_timer_create() and after kelo_timer_delete(). */
  TIMER_STATE_IDLE = 0,
  /** Created, never started. */
  TIMER_STATE_CREATED = 1,
  /** Started. A one-shot timer stays in this state after it has fired. */
  TIMER_STATE_RUNNING = 2,
  /** Stopped. */
  TIMER_STATE_STOPPED = 3
} kelo_timer_state;

/** A length of time: `tv_sec` seconds, 0 or more, and `tv_nsec` nanoseconds, 0 to 999,999,999. */
typedef struct kelo_timer_span {
  int32_t tv_sec;
  int32_t tv_nsec;
} kelo_timer_span;

/** What a timer calls. */
typedef struct kelo_timer_callback {
  /** Runs on the worker thread; must not be null. A record whose handler was set to null since is handed to
      free() by the next expiry and its timer deleted, which is logged as an error; when it was waiting for
      its callback by then, that is logged and nothing else happens. A daemon must not delete such a record. */
  void (*handler)(void* arg);
  /** Handed to `handler` as it is. */
  void* arg;
} kelo_timer_callback;

/** A timer. The caller fills in `value`, `interval` and `cb`, and sets `state` to 0 before the first create. */
typedef struct kelo_timer_info {
  /** First expiry, counted from the call that starts the timer; 0 leaves it unarmed. Filled with the time
      that is left by kelo_timer_gettime(). */
  kelo_timer_span value;
  /** Period after the first expiry; 0 for a timer that expires once. */
  kelo_timer_span interval;
  kelo_timer_callback cb;
  /** The service's own: the record's place among the expired timers. */
  q_link_type link;
  /** ::KELO_TIMER_MAGIC once kelo_timer_create() was called; an expiry with another value is refused. */
  uint32_t magic;
  /** The system's timer, a timer_t, set by kelo_timer_create(). Strict C99 does not know that name. */
  void* timer_id;
  /** A ::kelo_timer_state, read with kelo_timer_is_already_start(); changed by the functions below alone. */
  int32_t state;
} kelo_timer_info;

/** A mutex for the use of daemons: kelo_timer_init() initialises it, the service never takes it. */
KELO_API extern pthread_mutex_t free_mutex;

/**
 * Starts the service: its worker thread and its handler of SIGUSR1. Once per process, before any other call, and
 * after the daemon has blocked the signals that its threads are to leave alone.
 *
 * What fails is logged as an error, and the rest is done all the same, except that nothing is done once
 * thread attributes cannot be initialised. While there is no worker, expiries wait for it: a call that failed
 * to start it may be repeated. A call after one that succeeded logs a warning and does nothing.
 */
KELO_API void kelo_timer_init(void);

/**
 * Creates the timer of a record: state 0 becomes 1. `value` and `interval` are not looked at.
 * @param info  record with `cb.handler` set and `state` 0. The magic is written before the state is looked
 *              at; without a handler nothing is written.
 * @return 0; -1, logged as an error, for a null record, a null handler, another state or a timer that the
 *         system refuses (it sets a limit to the signals a user may have queued, one for each timer).
 */
KELO_API int kelo_timer_create(kelo_timer_info* info);

/**
 * Arms a timer with `value` and `interval`, whether it is running or not: states 1, 2 and 3 become 2.
 * @param info  record of a created timer.
 * @return 0; -1, logged as an error and with the state unchanged, for a null record, state 0 or a time that
 *         the system refuses (a negative one, or 10^9 nanoseconds and more).
 */
KELO_API int kelo_timer_start(kelo_timer_info* info);

/**
 * Arms a running timer anew with `value` and `interval`.
 * @param info  record in state 2, which it keeps.
 * @return as kelo_timer_start(), with any state but 2 refused.
 */
KELO_API int kelo_timer_settime(kelo_timer_info* info);

/**
 * Disarms a running timer: state 2 becomes 3, even when the system fails to disarm it, which is logged. An
 * expiry that waits for its callback at that moment still gets it. When another thread than the worker stops or
 * arms a timer, some kernels (Linux 6.13 and later) take back an expiry that came while a callback ran.
 * @param info  record in state 2.
 * @return 0; -1, logged as an error, for a null record or another state.
 */
KELO_API int kelo_timer_stop(kelo_timer_info* info);

/**
 * Reads how long a timer still has to run.
 * @param info  record of a created timer, not null: it is not checked. `value` receives the time to the next
 *              expiry, 0 for a timer that is not armed, and `interval` the period. A later start uses these.
 * @return 0; -1, logged as an error and with the record unchanged, in state 0 or when there is no such timer.
 */
KELO_API int kelo_timer_gettime(kelo_timer_info* info);

/**
 * Deletes a timer: states 1, 2 and 3 become 0, and the record may be created again.
 *
 * An expiry that waits for its callback at that moment does not get it. A callback that is running goes on; see
 * the life of a record above for when it is over.
 *
 * @param info  record of a created timer.
 * @return 0; -1, logged as an error and with the state unchanged, for a null record, state 0 or a timer that
 *         the system does not know.
 */
KELO_API int kelo_timer_delete(kelo_timer_info* info);

/**
 * Tells whether a timer was started and not stopped since. A one-shot timer that has fired counts as started.
 * @param info  record; null is logged as an error.
 * @return 1 in state 2, 0 otherwise.
 */
KELO_API int kelo_timer_is_already_start(kelo_timer_info* info);

KELO_END_DECLS

#endif /* KELO_UTILS_TIMER_H */
