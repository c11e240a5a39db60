// SPDX-License-Identifier: MIT
// The functions that all queue operations share: checks of pointers, access to the count, steps along the circle.
#ifndef KELO_QUEUE_QUEUE_CORE_HPP
#define KELO_QUEUE_QUEUE_CORE_HPP

#include <atomic>
#include <cstdint>
#include <cstdio>

#include "base/atomic_ref.hpp"
#include "base/file.hpp"
#include "kelo_utils/queue.h"

namespace kelo::queue {

// Returns whether `pointer` is not null. Field engineers search a daemon's output for the text that is printed
// otherwise, so the path in it must not change.
inline bool present(const void* pointer) {
  if (pointer != nullptr) [[likely]]
    return true;
  const base::ErrnoKeeper keep;
  std::fputs("...in file queue/queue.cAssertion failed...", stdout);
  return false;
}

// Calls present() for every pointer, so that each null one prints the text.
template <typename... Pointer>
bool all_present(const Pointer*... pointers) {
  return (... & static_cast<unsigned>(present(pointers))) != 0;
}

// q_cnt() reads the count without the lock, so it is read and written atomically. All writes are under the lock, so
// no read-modify-write is needed.
inline std::int32_t count(const q_type& q) {
  return base::AtomicRef(const_cast<std::int32_t&>(q.cnt)).load(std::memory_order_relaxed);
}

inline void set_count(q_type& q, std::int32_t count) {
  base::AtomicRef(q.cnt).store(count, std::memory_order_relaxed);
}

// A broken circle can run the count to its limit. The unsigned addition then wraps without undefined behaviour.
inline void add_to_count(q_type& q, std::int32_t change) {
  set_count(q, static_cast<std::int32_t>(static_cast<std::uint32_t>(count(q)) +
                                         static_cast<std::uint32_t>(change)));
}

// Callers of the functions below hold the lock.

// Returns null for the header. A count that is too high leads to the header as if it were an element, and a caller
// would compute the address of a record from it.
inline q_link_type* element(const q_type& q, q_link_type* link) { return link == &q.link ? nullptr : link; }

inline q_link_type* head(const q_type& q) { return count(q) < 1 ? nullptr : element(q, q.link.next_ptr); }

inline q_link_type* successor(const q_type& q, const q_link_type& link) { return element(q, link.next_ptr); }

}  // namespace kelo::queue

#endif  // KELO_QUEUE_QUEUE_CORE_HPP
