// What the calls on timers ask of the running service.
#ifndef KELO_TIMER_SERVICE_HPP
#define KELO_TIMER_SERVICE_HPP

#include <sys/types.h>

namespace kelo::timer {

// The worker's thread id; 0 while this process has none.
pid_t worker_thread();

// In a callback: lets the expiries that came meanwhile wait for their callbacks. Arming or disarming a timer
// makes some kernels forget one that was not taken. In another thread it does nothing.
void take_expiries_of_worker();

}  // namespace kelo::timer

#endif  // KELO_TIMER_SERVICE_HPP
