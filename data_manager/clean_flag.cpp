// SPDX-License-Identifier: MIT
// The clean flag, which suspends writes and reads while the storage is being cleaned.
#include <atomic>
#include <cstdint>

#include "base/atomic_ref.hpp"
#include "data_manager/registry.hpp"

namespace {

// The storage back-end gets the address of the flag and clears it. Both sides access it atomically.
std::int32_t flag = 0;

}  // namespace

std::int32_t kelo::dm::clean_flag() { return kelo::base::AtomicRef(flag).load(std::memory_order_acquire); }

std::int32_t* kelo::dm::set_clean_flag() {
  std::int32_t not_cleaning = 0;
  const bool raised = kelo::base::AtomicRef(flag).compare_exchange_strong(not_cleaning, 1);
  return raised ? &flag : nullptr;
}
