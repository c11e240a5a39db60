// SPDX-License-Identifier: MIT
// The queues by which the signal handler passes expired records to the worker.
#ifndef KELO_TIMER_EXPIRIES_HPP
#define KELO_TIMER_EXPIRIES_HPP

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "kelo_utils/timer.h"

// The handler may interrupt a thread at any point, so the functions for it neither lock nor allocate. Their cost does
// not depend on the number of queued records.
namespace kelo::timer {

// While a thread holds this mutex, it may access the records of existing timers: withdraw() waits for the mutex.
[[gnu::visibility("hidden")]] extern pthread_mutex_t records_mutex;

// The number of calls of withdraw(). It changes only under records_mutex.
[[gnu::visibility("hidden")]] extern std::atomic<unsigned> withdrawals;

// Empties the queues for a new process. A forked child inherits the queued records of its parent, which are dropped
// here. No other thread may use the functions of this header meanwhile.
void prepare_expiries(pid_t process);

// For the handler: appends a record to the queue of expired records, unless it is queued already. Returns true when
// it is the first one that has arrived since the worker has looked.
bool queue_expired(kelo_timer_info& record);

// For the handler: does the same with the queue of records whose handler is null. A record is never in both queues,
// so the worker can free a record of this queue.
bool queue_without_handler(kelo_timer_info& record);

// For the handler: stores a wrong magic for the log. It is dropped when all slots are in use.
void store_wrong_magic(std::uint32_t magic);

// For the worker: whether the queue of expired records has an element.
bool any_expired();

// For the worker: removes the oldest expired record from its queue and copies its callback. Returns false when the
// queue is empty. The record is not accessed afterwards, because its owner may free it.
bool take_callback(kelo_timer_callback& callback);

// For the worker: removes the oldest record whose handler is null from its queue. Returns null when the queue is empty.
kelo_timer_info* take_without_handler();

// For the worker: calls `take` with each stored wrong magic and removes it.
void take_wrong_magics(void (*take)(std::uint32_t magic));

// For any thread, after the timer of the record was deleted: removes the record from its queue. The record is not
// accessed afterwards.
void withdraw(kelo_timer_info& record);

}  // namespace kelo::timer

#endif  // KELO_TIMER_EXPIRIES_HPP
