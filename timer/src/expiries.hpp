// The way of an expiry from the signal handler, in whatever thread it interrupts, to the worker.
#ifndef KELO_TIMER_EXPIRIES_HPP
#define KELO_TIMER_EXPIRIES_HPP

#include <cstdint>

#include "kelo_utils/timer.h"

// The calls of the handler, marked below, neither lock nor allocate: the thread it interrupts may be in the
// middle of anything. Their cost does not depend on how many timers wait.
namespace kelo::timer {

// Makes ready for a process, also for a forked child, which inherits what waited in its parent and drops it.
// Nobody else may be here.
void prepare_expiries(pid_t process);

// Handler: puts a record behind those that wait for their callback, unless it waits already. True when none
// waited.
bool put_expiry(kelo_timer_info& record);

// Handler: the same among the records that lost their callback. No record waits in both places: whoever frees
// a lost one takes it from nobody.
bool put_lost(kelo_timer_info& record);

// Handler: keeps a magic that was found in a record's place. One too many for the room there is gets lost.
void put_wrong_magic(std::uint32_t magic);

// Worker: whether nothing was put that was not taken.
bool nothing_waits();

// Worker: takes all records that wait, the oldest first, linked by `next_ptr`; null when there are none. They
// still count as waiting.
q_link_type* take_expiries();
q_link_type* take_lost();

// Worker: hands over each magic that was put.
void take_wrong_magics(void (*take)(std::uint32_t magic));

kelo_timer_info& record_of(q_link_type& link);

// Worker: ends the waiting of a taken record. Its link may change from here on.
kelo_timer_info& release(q_link_type& link);

}  // namespace kelo::timer

#endif  // KELO_TIMER_EXPIRIES_HPP
