// SPDX-License-Identifier: MIT
// What the running service offers to the timer calls and to the signal handler.
#ifndef KELO_TIMER_SERVICE_HPP
#define KELO_TIMER_SERVICE_HPP

#include <signal.h>

#include <cstdint>

namespace kelo::timer {

// Returns the thread id of the worker, or 0 while this process has no worker.
pid_t worker_thread();

// Returns the notification for a new timer. Its signal carries `value` and goes to the worker, so that it interrupts no
// thread of the daemon. While this process has no worker, it goes to any thread.
sigevent expiry_signal(void* value);

// Lets the worker look at the queued records. While this process has no worker, it does nothing.
void wake_worker();

// The value of a signal that only wakes the worker. No record has this address.
inline void* wake_up_value() { return reinterpret_cast<void*>(std::uintptr_t{1}); }

// In a callback, queues all expiries whose signals are pending: arming or disarming a timer makes some kernels
// discard its pending signal. In other threads it does nothing.
void take_expiries_of_worker();

}  // namespace kelo::timer

#endif  // KELO_TIMER_SERVICE_HPP
