// SPDX-License-Identifier: MIT
// The clean flag, which suspends writes and reads while the storage is being cleaned.
#include <atomic>
#include <cstdint>

#include "data_manager/registry.hpp"

namespace {

// The storage back-end gets the address of the flag and clears it. Both sides access it atomically.
std::int32_t flag = 0;

}  // namespace

std::int32_t kelo::dm::clean_flag() { return std::atomic_ref(flag).load(std::memory_order_acquire); }

std::int32_t* kelo::dm::set_clean_flag() {
  std::int32_t not_cleaning = 0;
  const bool raised = std::atomic_ref(flag).compare_exchange_strong(not_cleaning, 1);
  return raised ? &flag : nullptr;
}
