// What the calls on timers ask of the running service.
#ifndef KELO_TIMER_SERVICE_HPP
#define KELO_TIMER_SERVICE_HPP

#include <signal.h>

namespace kelo::timer {

// How a timer tells of an expiry. Straight to the worker, so that it interrupts no thread of the daemon; to any
// thread while this process has no worker.
sigevent expiry_signal(void* record);

// In a callback: lets the expiries that came meanwhile wait for their callbacks. Arming or disarming a timer
// makes some kernels forget one that was not taken. In another thread it does nothing.
void take_expiries_of_worker();

}  // namespace kelo::timer

#endif  // KELO_TIMER_SERVICE_HPP
