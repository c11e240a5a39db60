// SPDX-License-Identifier: MIT
// The ordered list: its links point both ways, and elements are sorted by their weights.
#include <cstdint>
#include <optional>

#include "base/lock.hpp"
#include "kelo_utils/list.h"
#include "list/list_core.hpp"

namespace {

using kelo::base::LockGuard;
using kelo::list::all_present;

using Link = ordered_list_link_type;

void make_ready(ordered_list_type& list) {
  kelo::list::make_ready(list, [](ordered_list_type& new_list) {
    ordered_list_init(&new_list, ORDERED_LIST_ASCENDING, ORDERED_LIST_BEFORE_EQUALS);
  });
}

LockGuard lock_ready(ordered_list_type& list) {
  make_ready(list);
  return LockGuard(list.lock);
}

// Finds where a new element is inserted: before the first element that comes after it. One comparison serves all four
// orders. A descending order compares the complements of the weights. An insertion after equal weights adds 1 to the
// bound, which needs 64 bits for the greatest weight.
class InsertPosition {
 public:
  InsertPosition(std::uint32_t weight, bool descending, bool after_equals)
      : complement_mask_(descending ? UINT32_MAX : 0),
        bound_(std::uint64_t{weight ^ complement_mask_} + (after_equals ? 1U : 0U)) {}

  [[nodiscard]] bool is_before(const Link& link) const { return (link.weight ^ complement_mask_) >= bound_; }

 private:
  std::uint32_t complement_mask_;
  std::uint64_t bound_;
};

// Returns nothing when `order` is none of the four orders.
std::optional<InsertPosition> insert_position(std::uint32_t weight, std::int32_t order) {
  constexpr std::int32_t kPlacements = ORDERED_LIST_BEFORE_EQUALS | ORDERED_LIST_BEHIND_EQUALS;
  const std::int32_t placement = order & kPlacements;
  const std::int32_t direction = order & ~kPlacements;
  if (placement != ORDERED_LIST_BEFORE_EQUALS && placement != ORDERED_LIST_BEHIND_EQUALS) return {};
  if (direction != ORDERED_LIST_ASCENDING && direction != ORDERED_LIST_DESCENDING) return {};
  return InsertPosition(weight, direction == ORDERED_LIST_DESCENDING,
                        placement == ORDERED_LIST_BEHIND_EQUALS);
}

// Return the pointers that lead to the link after `previous` and to the link before `next`. Null means the end of the
// list.
Link*& forward(ordered_list_type& list, Link* previous) { return previous ? previous->next : list.front; }
Link*& backward(ordered_list_type& list, Link* next) { return next ? next->prev : list.back; }

// Returns whether the neighbours of `link` point to it. This needs no walk, and it is false for an element that was
// removed before.
bool is_linked(ordered_list_type& list, const Link& link) {
  return forward(list, link.prev) == &link && backward(list, link.next) == &link;
}

void insert(ordered_list_type& list, Link& item, Link* previous, Link* next) {
  item.next = next;
  item.prev = previous;
  forward(list, previous) = &item;
  backward(list, next) = &item;
  ++list.size;
}

void unlink(ordered_list_type& list, const Link& item) {
  forward(list, item.prev) = item.next;
  backward(list, item.next) = item.prev;
  --list.size;
}

}  // namespace

void ordered_list_init(ordered_list_type* list, std::int32_t direction, std::int32_t placement) {
  if (list == nullptr) return;
  list->order = direction | placement;
  kelo::list::set_up(*list);
}

void ordered_list_destroy(ordered_list_type* list) {
  if (list == nullptr) return;
  kelo::list::retire(*list);
  list->front = nullptr;
  list->size = 0;
}

void ordered_list_push(ordered_list_type* list, Link* item, std::uint32_t weight) {
  if (!all_present(list, item)) return;
  const LockGuard guard = lock_ready(*list);
  item->weight = weight;
  const std::optional<InsertPosition> position = insert_position(weight, list->order);
  if (!position) return;
  // Most elements are appended when weights are times. The comparison with the back saves their walk.
  Link* next = nullptr;
  if (list->back != nullptr && position->is_before(*list->back))
    next = kelo::list::find(list->front, [&](const Link& link) { return position->is_before(link); });
  insert(*list, *item, backward(*list, next), next);
}

void ordered_list_push_after(ordered_list_type* list, Link* item, Link* after) {
  if (!all_present(list, item, after) || !is_linked(*list, *after)) return;
  insert(*list, *item, after, after->next);
}

void ordered_list_push_before(ordered_list_type* list, Link* item, Link* before) {
  if (!all_present(list, item, before) || !is_linked(*list, *before)) return;
  insert(*list, *item, before->prev, before);
}

Link* ordered_list_pop_front(ordered_list_type* list) {
  if (list == nullptr) return nullptr;
  const LockGuard guard = lock_ready(*list);
  Link* const item = list->front;
  if (item != nullptr) unlink(*list, *item);
  return item;
}

Link* ordered_list_pop_back(ordered_list_type* list) {
  if (list == nullptr) return nullptr;
  const LockGuard guard = lock_ready(*list);
  Link* const item = list->back;
  if (item != nullptr) unlink(*list, *item);
  return item;
}

std::uint32_t ordered_list_size(ordered_list_type* list) {
  if (list == nullptr) return 0;
  const LockGuard guard = lock_ready(*list);
  return list->size;
}

Link* ordered_list_peek_front(ordered_list_type* list) {
  if (list == nullptr) return nullptr;
  const LockGuard guard = lock_ready(*list);
  return list->front;
}

Link* ordered_list_peek_back(ordered_list_type* list) {
  if (list == nullptr) return nullptr;
  const LockGuard guard = lock_ready(*list);
  return list->back;
}

Link* ordered_list_peek_next(ordered_list_type* list, const Link* item) {
  if (!all_present(list, item)) return nullptr;
  const LockGuard guard = lock_ready(*list);
  return item->next;
}

Link* ordered_list_peek_prev(ordered_list_type* list, const Link* item) {
  if (!all_present(list, item)) return nullptr;
  const LockGuard guard = lock_ready(*list);
  return item->prev;
}

void ordered_list_pop_item(ordered_list_type* list, Link* item) {
  if (!all_present(list, item)) return;
  const LockGuard guard = lock_ready(*list);
  if (is_linked(*list, *item)) unlink(*list, *item);
}

Link* ordered_list_linear_search(ordered_list_type* list, ordered_list_compare_fn compare,
                                 const void* param) {
  if (list == nullptr || compare == nullptr) return nullptr;
  const LockGuard guard = lock_ready(*list);
  return kelo::list::find(list->front, [&](Link& element) { return compare(&element, param) != 0; });
}

void ordered_list_split(ordered_list_type* list, Link* item, ordered_list_type* dst) {
  if (!all_present(list, item, dst) || list == dst) return;
  make_ready(*list);
  make_ready(*dst);
  const LockGuard source_guard(list->lock);
  const LockGuard destination_guard(dst->lock);
  if (kelo::list::move_rest(*list, *item, *dst)) item->prev = nullptr;
}
