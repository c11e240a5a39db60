// SPDX-License-Identifier: MIT
#include "base/process_lock.hpp"

#include <poll.h>
#include <unistd.h>

namespace kelo::base {

// The id of another process is that of a parent, whose threads do not exist here. Processes do not share the holder.
void ProcessLock::take(std::int32_t& holder) {
  const std::int32_t process = getpid();
  // A pause lets a holder of a lower priority go on, which sched_yield() would not.
  while (AtomicRef(holder).exchange(process, std::memory_order_acquire) == process) poll(nullptr, 0, 1);
}

}  // namespace kelo::base
