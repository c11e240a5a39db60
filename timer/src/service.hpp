// What the calls on timers ask of the running service.
#ifndef KELO_TIMER_SERVICE_HPP
#define KELO_TIMER_SERVICE_HPP

#include <sys/types.h>

namespace kelo::timer {

// The worker's thread id; 0 while this process has none.
pid_t worker_thread();

}  // namespace kelo::timer

#endif  // KELO_TIMER_SERVICE_HPP
