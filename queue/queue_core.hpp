// What the plain and the linear operations share: the check of pointers and the access to the count.
#ifndef KELO_QUEUE_QUEUE_CORE_HPP
#define KELO_QUEUE_QUEUE_CORE_HPP

#include <atomic>
#include <cstdint>
#include <cstdio>

#include "base/file.hpp"
#include "kelo_utils/queue.h"

namespace kelo::queue {

// Whether `pointer` can be used. A null one prints the text that field engineers search for in a daemon's
// output; its path is fixed.
inline bool present(const void* pointer) {
  if (pointer != nullptr) [[likely]]
    return true;
  const base::ErrnoKeeper keep;
  std::fputs("...in file queue/queue.cAssertion failed...", stdout);
  return false;
}

// As present() for several pointers; each null one prints for itself.
template <typename... Pointer>
bool all_present(const Pointer*... pointers) {
  return (... & static_cast<unsigned>(present(pointers))) != 0;
}

// The count is written under the lock but read without it by q_cnt(), hence the atomic accesses. Under the
// lock a plain load and store are enough.
inline std::int32_t count(const q_type& q) {
  return std::atomic_ref(const_cast<std::int32_t&>(q.cnt)).load(std::memory_order_relaxed);
}

inline void set_count(q_type& q, std::int32_t count) {
  std::atomic_ref(q.cnt).store(count, std::memory_order_relaxed);
}

// Wraps round where a broken circle has run the count to its limit.
inline void add_to_count(q_type& q, std::int32_t change) {
  set_count(q, static_cast<std::int32_t>(static_cast<std::uint32_t>(count(q)) +
                                         static_cast<std::uint32_t>(change)));
}

// The looks below want the lock held.

// A caller steps from a link back to its record: the header, which stands in for an element when the count is
// higher than the circle is long, must not reach it.
inline q_link_type* element(const q_type& q, q_link_type* link) { return link == &q.link ? nullptr : link; }

inline q_link_type* head(const q_type& q) { return count(q) < 1 ? nullptr : element(q, q.link.next_ptr); }

inline q_link_type* successor(const q_type& q, const q_link_type& link) { return element(q, link.next_ptr); }

}  // namespace kelo::queue

#endif  // KELO_QUEUE_QUEUE_CORE_HPP
