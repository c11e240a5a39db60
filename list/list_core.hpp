// SPDX-License-Identifier: MIT
// The functions that both lists share: the first use of a header, and walks along the `next` chain.
#ifndef KELO_LIST_LIST_CORE_HPP
#define KELO_LIST_LIST_CORE_HPP

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "base/atomic_ref.hpp"
#include "base/lock.hpp"
#include "base/process_lock.hpp"

namespace kelo::list {

inline constexpr std::int32_t kInitialised = 1;

// Holder of the lock on the initialisation of a header by its first use, which several threads may reach at the same
// time. All lists share it, so a child must not find it held for a list of its parent.
extern std::int32_t first_use_holder;

// Initialises `list` except for its order. The flag is set last, since other threads may use the list from then on.
template <typename List>
void set_up(List& list) {
  pthread_mutex_init(&list.lock, nullptr);
  list.front = nullptr;
  list.back = nullptr;
  list.size = 0;
  base::AtomicRef(list.initialised).store(kInitialised, std::memory_order_release);
}

template <typename List>
bool initialised(List& list) {
  return base::AtomicRef(list.initialised).load(std::memory_order_acquire) == kInitialised;
}

// Calls `initialise(list)` unless the header is initialised already.
template <typename List, typename Initialise>
void make_ready(List& list, Initialise initialise) {
  if (initialised(list)) [[likely]]
    return;
  const base::ProcessLock lock(first_use_holder);
  if (!initialised(list)) initialise(list);
}

// Clears the flag and destroys the lock. A header that was never used has no lock.
template <typename List>
void retire(List& list) {
  if (initialised(list)) pthread_mutex_destroy(&list.lock);
  base::AtomicRef(list.initialised).store(0, std::memory_order_release);
}

template <typename... Pointer>
bool all_present(const Pointer*... pointers) {
  return (... && (pointers != nullptr));
}

// Callers of the functions below hold the lock.

// Returns the first link from `front` on for which `wanted` is true, or null.
template <typename Link, typename Predicate>
Link* find(Link* front, Predicate wanted) {
  Link* link = front;
  while (link != nullptr && !wanted(*link)) link = link->next;
  return link;
}

// Moves `item` and all links after it from `list` to `dst`. Returns false and changes nothing when `item` is not in
// `list`.
template <typename List, typename Link>
bool move_rest(List& list, Link& item, List& dst) {
  std::uint32_t kept = 0;
  Link* last_kept = nullptr;
  Link* const found = find(list.front, [&](Link& link) {
    if (&link == &item) return true;
    last_kept = &link;
    ++kept;
    return false;
  });
  if (found == nullptr) return false;
  dst.front = &item;
  dst.back = list.back;
  dst.size = list.size - kept;
  if (last_kept == nullptr) {
    list.front = nullptr;
  } else {
    last_kept->next = nullptr;
  }
  list.back = last_kept;
  list.size = kept;
  return true;
}

}  // namespace kelo::list

#endif  // KELO_LIST_LIST_CORE_HPP
