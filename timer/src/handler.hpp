// SPDX-License-Identifier: MIT
// The handler of SIGUSR1, the signal by which timers report their expiries.
#ifndef KELO_TIMER_HANDLER_HPP
#define KELO_TIMER_HANDLER_HPP

#include <signal.h>

namespace kelo::timer {

// Queues the record that a signal carries. Returns true when the worker may have to be woken.
bool queue_record_of(const siginfo_t& signal);

// The action for SIGUSR1. It may interrupt a thread between any two instructions.
[[gnu::visibility("hidden")]] void timer_sigaction_handler(int number, siginfo_t* signal, void* context);

}  // namespace kelo::timer

#endif  // KELO_TIMER_HANDLER_HPP
