// SPDX-License-Identifier: MIT
// The handler of SIGUSR1, and what it does with the record that a signal carries.
#include "timer/src/handler.hpp"

#include <unistd.h>

#include "base/file.hpp"
#include "kelo_utils/log.h"
#include "timer/src/expiries.hpp"
#include "timer/src/record.hpp"
#include "timer/src/service.hpp"

namespace kelo::timer {
namespace {

// Whether the signal carries a record of this process. A value from another process is not a valid pointer here.
bool carries_record(const siginfo_t& signal) {
  return signal.si_code == SI_TIMER || (signal.si_code == SI_QUEUE && signal.si_pid == getpid());
}

}  // namespace

bool queue_record_of(const siginfo_t& signal) {
  if (!carries_record(signal)) return false;
  auto* const record = static_cast<kelo_timer_info*>(signal.si_value.sival_ptr);
  if (record == nullptr || record == wake_up_value()) return false;
  state_of(*record);  // this load makes all writes visible that preceded the arming of the timer
  if (record->cb.handler == nullptr) return queue_without_handler(*record);
  const std::uint32_t magic = magic_of(*record);
  if (magic == KELO_TIMER_MAGIC) return queue_expired(*record);
  store_wrong_magic(magic);
  return true;
}

// The worker itself keeps SIGUSR1 blocked. The handler therefore runs for signals that the process sent to itself and for
// timers that were created before the worker.
void timer_sigaction_handler(int number, siginfo_t* signal, void* /*context*/) {
  const base::ErrnoKeeper keep;
  if (number == SIGUSR1 && queue_record_of(*signal)) wake_worker();
}

}  // namespace kelo::timer
