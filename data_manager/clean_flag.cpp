// The flag that keeps writes and reads away while the storage is being cleaned.
#include <atomic>
#include <cstdint>

#include "data_manager/registry.hpp"

namespace {

// Raised here, cleared by the storage back-end through its address; both atomically.
std::int32_t kelo_dm_is_run_clean = 0;

}  // namespace

std::int32_t kelo::dm::clean_flag() {
  return std::atomic_ref(kelo_dm_is_run_clean).load(std::memory_order_acquire);
}

std::int32_t* kelo::dm::raise_clean_flag() {
  std::int32_t lowered = 0;
  const bool raised = std::atomic_ref(kelo_dm_is_run_clean).compare_exchange_strong(lowered, 1);
  return raised ? &kelo_dm_is_run_clean : nullptr;
}
