// The way of an expiry from the signal handler, in whatever thread it interrupts, to the worker.
#ifndef KELO_TIMER_EXPIRIES_HPP
#define KELO_TIMER_EXPIRIES_HPP

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "kelo_utils/timer.h"

// The calls of the handler, marked below, neither lock nor allocate: the thread it interrupts may be in the
// middle of anything. Their cost does not depend on how many timers wait.
namespace kelo::timer {

// Whoever holds it may look into a record whose timer exists: withdraw() waits for it.
extern pthread_mutex_t records_mutex;

// How often withdraw() was called. Changes under records_mutex.
extern std::atomic<unsigned> withdrawals;

// Makes ready for a process, also for a forked child, which inherits what waited in its parent and drops it.
// No other thread may use these functions meanwhile.
void prepare_expiries(pid_t process);

// Handler: puts a record after those that wait for their callback, unless it waits already. True when none had
// arrived since the worker looked.
bool put_expiry(kelo_timer_info& record);

// Handler: the same among the records that lost their callback. No record waits in both places: whoever frees
// a lost one takes it from nobody.
bool put_lost(kelo_timer_info& record);

// Handler: keeps a magic that was found in a record's place. It is lost when there is no space left.
void put_wrong_magic(std::uint32_t magic);

// Worker: whether a record waits for its callback.
bool any_waits();

// Worker: ends the waiting of the record that has waited longest, and copies its callback. False when none
// waits. The record is not looked at any more after this: it may be deleted and freed.
bool take_callback(kelo_timer_callback& callback);

// Worker: ends the waiting of a record that lost its callback; null when there is none.
kelo_timer_info* take_lost();

// Worker: hands over each magic that was put.
void take_wrong_magics(void (*take)(std::uint32_t magic));

// Any thread, once the record's timer is deleted: ends the waiting of the record, if it waits. After this
// nobody here looks into it.
void withdraw(kelo_timer_info& record);

}  // namespace kelo::timer

#endif  // KELO_TIMER_EXPIRIES_HPP
