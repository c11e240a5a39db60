/* SPDX-License-Identifier: MIT */
/**
 * @file timer.h
 * @brief Timers whose callbacks run one after the other on one worker thread.
 *
 * A daemon fills in a record, creates a timer for it and starts the timer. When the timer expires, its
 * callback runs on the worker thread of the service, never in a signal handler.
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
 *   delays those after it. It may start, re-arm, stop and delete any timer, also its own.
 * - A timer waits for its callback at most once: expiries that come while one is waiting are dropped. A
 *   periodic timer whose callback takes longer than its period is therefore called less often than its period
 *   says. An expiry that comes while the callback runs makes it run once more. A period of nanoseconds uses a
 *   whole processor, but delays no other timer by more than its callback.
 * - The stack of the worker is 32 KiB, plus the memory for the thread-local variables of the program.
 * - One timer is used by one thread at a time, its callback included. Different timers are independent.
 * - A child made by fork() inherits neither the timers nor the worker. Before it uses timers it calls
 *   kelo_timer_init() again, with records whose `state` it sets to 0.
 *
 * Signals:
 * - The service uses SIGUSR1 for the whole process: a daemon must not handle, ignore or send it for purposes
 *   of its own. It may block it. A SIGUSR1 from another process is ignored. When the daemon installs a
 *   handler for it in spite of this, no expiry of a timer that was created after kelo_timer_init() goes to
 *   that handler, and none is lost.
 * - Expiries interrupt neither a thread of the daemon nor a callback that blocks.
 * - A callback runs with the signals blocked that were blocked in the caller of kelo_timer_init(), and
 *   SIGUSR1. A daemon may block signals to read them elsewhere, for example SIGTERM from a signalfd(). It
 *   must do so before kelo_timer_init(): otherwise a signal that arrives while a callback runs has its usual
 *   effect there. While the worker sleeps, it blocks every signal.
 * - Programs that a callback starts with functions of this library start with no signal blocked. Programs
 *   that it starts itself with fork(), system() or popen() inherit what is blocked in the callback, SIGUSR1
 *   included. A callback that wants another set for them changes it with pthread_sigmask() before and changes
 *   it back after. SIGUSR1 must be blocked again when the callback returns.
 *
 * The life of a record: it belongs to the caller and must stay at its address until its timer is deleted.
 * - A delete cancels an expiry that waits for its callback. After that no function of the service uses the
 *   record.
 * - A callback, of that timer or of another one, that has deleted a timer may free its record at once, also
 *   that of a periodic timer: no other callback is running.
 * - In any other thread a delete does not wait for a callback that is running. Such a callback needs the
 *   record only when the daemon's own code uses it, but it still uses its `arg`. It has returned when the
 *   callback of any timer that was started after the delete is called: the callback of a timer of 1 ns that
 *   is started then shows that everything may be freed. A mutex that the callback takes does not show it: the
 *   worker may be about to call the callback.
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

/** Values of `state` of a record. An expiry does not change it. */
typedef enum kelo_timer_state {
  /** No timer exists: before kelo_timer_create() and after kelo_timer_delete(). */
  TIMER_STATE_IDLE = 0,
  /** Created, never started. */
  TIMER_STATE_CREATED = 1,
  /** Started. A one-shot timer stays in this state after it has expired. */
  TIMER_STATE_RUNNING = 2,
  /** Stopped. */
  TIMER_STATE_STOPPED = 3
} kelo_timer_state;

/** A length of time. */
typedef struct kelo_timer_span {
  int32_t tv_sec;  /**< seconds, 0 or more */
  int32_t tv_nsec; /**< nanoseconds, 0 to 999,999,999 */
} kelo_timer_span;

/** What a timer calls. */
typedef struct kelo_timer_callback {
  /** Runs on the worker thread; must not be null. When a handler has been set to null after the create, the
   * next expiry hands the record to free() and deletes its timer, which is logged as an error. When an expiry
   * was already waiting for its callback, only the error is logged. A daemon must not delete such a
   * record. */
  void (*handler)(void* arg);
  /** Handed to `handler` unchanged. */
  void* arg;
} kelo_timer_callback;

/** A timer. The caller fills in `value`, `interval` and `cb`, and sets `state` to 0 before the first
 * create. */
typedef struct kelo_timer_info {
  /** First expiry, counted from the call that starts the timer; 0 leaves it unarmed. kelo_timer_gettime()
   * writes the time that is left into it. */
  kelo_timer_span value;
  /** Period after the first expiry; 0 for a timer that expires once. */
  kelo_timer_span interval;
  /** The function that is called at an expiry, and its argument. */
  kelo_timer_callback cb;
  /** Used by the service: the place of the record among the expired timers. */
  q_link_type link;
  /** ::KELO_TIMER_MAGIC after kelo_timer_create() was called. An expiry with another value is refused. */
  uint32_t magic;
  /** The timer of the system, a timer_t, set by kelo_timer_create(). Strict C99 does not know that name. */
  void* timer_id;
  /** A ::kelo_timer_state, read with kelo_timer_is_already_start(). Only the functions below change it. */
  int32_t state;
} kelo_timer_info;

/** A mutex for the use of daemons: kelo_timer_init() initialises it, and the service never takes it. */
KELO_API extern pthread_mutex_t free_mutex;

/**
 * Starts the service: its worker thread and its handler of SIGUSR1.
 *
 * A daemon calls it once per process, before any other function of this header, and after it has blocked the
 * signals that its threads must not receive.
 *
 * A step that fails is logged as an error, and the other steps are still done. Only when thread attributes
 * cannot be initialised nothing more is done. Without a worker, expiries wait for it: a call that failed to
 * start it may be repeated. A call after a successful one logs a warning and does nothing.
 * @par Blocking
 * It blocks until the worker runs, which takes a moment.
 * @par Threads
 * One thread calls it at start-up. It is not for signal handlers.
 */
KELO_API void kelo_timer_init(void);

/**
 * Creates the timer of a record: state 0 becomes 1. `value` and `interval` are not used.
 * @param info  record with `cb.handler` set and `state` 0. The magic is written before the state is examined;
 *              without a handler nothing is written.
 * @retval 0   created.
 * @retval -1  a null record, a null handler, another state, or a timer that the system refuses; logged as an
 *             error. The system limits the number of signals that a user may have queued, and each timer
 *             counts as one.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it, a callback too, but one thread at a time uses a timer. It is not for signal
 * handlers.
 */
KELO_API int kelo_timer_create(kelo_timer_info* info);

/**
 * Arms a timer with `value` and `interval`, whether it is running or not: states 1, 2 and 3 become 2.
 * @param info  record of a created timer.
 * @retval 0   armed.
 * @retval -1  a null record, state 0, or a time that the system refuses (a negative one, or 10^9 nanoseconds
 *             and more); logged as an error. The state is unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it, a callback too, but one thread at a time uses a timer. It is not for signal
 * handlers.
 */
KELO_API int kelo_timer_start(kelo_timer_info* info);

/**
 * Arms a running timer again with `value` and `interval`.
 * @param info  record in state 2, which does not change.
 * @return as kelo_timer_start(); every state except 2 is refused.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it, a callback too, but one thread at a time uses a timer. It is not for signal
 * handlers.
 */
KELO_API int kelo_timer_settime(kelo_timer_info* info);

/**
 * Disarms a running timer: state 2 becomes 3, even when the system fails to disarm it, which is logged.
 *
 * An expiry that waits for its callback at that moment still gets it. When another thread than the worker
 * stops or arms a timer, some kernels (Linux 6.13 and later) cancel an expiry that came while a callback ran.
 *
 * @param info  record in state 2.
 * @retval 0   stopped.
 * @retval -1  a null record or another state; logged as an error.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it, a callback too, but one thread at a time uses a timer. It is not for signal
 * handlers.
 */
KELO_API int kelo_timer_stop(kelo_timer_info* info);

/**
 * Reads the time until a timer expires.
 * @param info  record of a created timer. It must not be null, which is not checked. `value` receives the
 *              time to the next expiry, or 0 for a timer that is not armed, and `interval` the period. A
 *              later start uses these.
 * @retval 0   read.
 * @retval -1  state 0, or there is no such timer; logged as an error. The record is unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it, a callback too, but one thread at a time uses a timer. It is not for signal
 * handlers.
 */
KELO_API int kelo_timer_gettime(kelo_timer_info* info);

/**
 * Deletes a timer: states 1, 2 and 3 become 0, and the record may be created again.
 *
 * An expiry that waits for its callback at that moment does not get it. A callback that is running continues.
 * The description of this file says, under the life of a record, when it is over.
 *
 * @param info  record of a created timer.
 * @retval 0   deleted.
 * @retval -1  a null record, state 0, or a timer that the system does not know; logged as an error. The state
 *             is unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it, a callback too, but one thread at a time uses a timer. It is not for signal
 * handlers.
 */
KELO_API int kelo_timer_delete(kelo_timer_info* info);

/**
 * Tells whether a timer was started and has not been stopped. A one-shot timer that has expired counts as
 * started.
 * @param info  record. Null is logged as an error.
 * @return 1 in state 2, 0 otherwise.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it, a callback too, but one thread at a time uses a timer. It is not for signal
 * handlers.
 */
KELO_API int kelo_timer_is_already_start(kelo_timer_info* info);

KELO_END_DECLS

#endif /* KELO_UTILS_TIMER_H */
