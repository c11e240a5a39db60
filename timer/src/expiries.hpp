// The way of an expiry from the signal handler, in whatever thread it interrupts, to the worker.
#ifndef KELO_TIMER_EXPIRIES_HPP
#define KELO_TIMER_EXPIRIES_HPP

#include <cstdint>

#include "kelo_utils/timer.h"

// The calls of the handler, marked below, neither lock nor allocate: the thread it interrupts may be in the
// middle of anything. Their cost does not depend on how many timers wait.
namespace kelo::timer {

// A signal that came with a record no callback can be called for.
struct Refusal {
  kelo_timer_info* record;
  bool handler_is_null;  // else the magic is wrong
  std::uint32_t magic;
};

// Makes ready for a process, also for a forked child, which inherits what waited in its parent and drops it.
// Nobody else may be here.
void prepare_expiries(pid_t process);

// Handler: puts a record behind those that wait, unless it waits already. True when none waited.
bool put_expiry(kelo_timer_info& record);

// Handler: whether the record was refused and not yet disposed of. It must not be looked into then.
bool refusal_waits(const kelo_timer_info* record);

// Handler: keeps a refusal for the worker. One too many for the room there is gets lost; its timer's next
// expiry brings it again.
void put_refusal(const Refusal& refusal);

// Worker: whether nothing was put that was not taken.
bool nothing_waits();

// Worker: takes all records that wait, the oldest first, linked by `next_ptr`; null when there are none. They
// still count as waiting.
q_link_type* take_expiries();

// Worker: ends the waiting of a taken record. Its link may change from here on.
kelo_timer_info& release_expiry(q_link_type& link);

// Worker: hands each refusal to `dispose`. The record counts as refused until that returns.
void dispose_of_refusals(void (*dispose)(const Refusal& refusal));

}  // namespace kelo::timer

#endif  // KELO_TIMER_EXPIRIES_HPP
