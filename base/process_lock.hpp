// SPDX-License-Identifier: MIT
// A lock that is held for a few assignments. A fork() does not wait for it, and a child finds it free.
#ifndef KELO_BASE_PROCESS_LOCK_HPP
#define KELO_BASE_PROCESS_LOCK_HPP

#include <atomic>
#include <cstdint>

#include "base/atomic_ref.hpp"

namespace kelo::base {

// What it guards must be usable at any moment: in a child, the thread that held the lock does not exist.
class [[nodiscard]] ProcessLock {
 public:
  // `holder` is zero, or the id of the process whose thread holds the lock. A wait may change errno.
  explicit ProcessLock(std::int32_t& holder) : holder_(holder) { take(holder); }
  ~ProcessLock() { AtomicRef(holder_).store(0, std::memory_order_release); }
  ProcessLock(const ProcessLock&) = delete;
  ProcessLock& operator=(const ProcessLock&) = delete;

 private:
  static void take(std::int32_t& holder);

  std::int32_t& holder_;
};

}  // namespace kelo::base

#endif  // KELO_BASE_PROCESS_LOCK_HPP
