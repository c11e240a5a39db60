// SPDX-License-Identifier: MIT
// Access to the fields of a timer record that the threads of the daemon and the thread of the service share.
#ifndef KELO_TIMER_RECORD_HPP
#define KELO_TIMER_RECORD_HPP

#include <atomic>
#include <cstdint>

#include "base/atomic_ref.hpp"
#include "kelo_utils/timer.h"

namespace kelo::timer {

// Storing and loading the state orders memory: a thread that loads a state also sees all that was written into the
// record before that state was stored.
inline void set_state(kelo_timer_info& info, kelo_timer_state state) {
  base::AtomicRef(info.state).store(state, std::memory_order_release);
}

inline std::int32_t state_of(kelo_timer_info& info) {
  return base::AtomicRef(info.state).load(std::memory_order_acquire);
}

inline void set_magic(kelo_timer_info& info) {
  base::AtomicRef(info.magic).store(KELO_TIMER_MAGIC, std::memory_order_relaxed);
}

inline std::uint32_t magic_of(kelo_timer_info& info) {
  return base::AtomicRef(info.magic).load(std::memory_order_relaxed);
}

}  // namespace kelo::timer

#endif  // KELO_TIMER_RECORD_HPP
