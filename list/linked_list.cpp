// SPDX-License-Identifier: MIT
// The linked list: its links point forward only.
#include "base/lock.hpp"
#include "kelo_utils/list.h"
#include "list/list_core.hpp"

std::int32_t kelo::list::first_use_holder = 0;

namespace {

using kelo::base::LockGuard;
using kelo::list::all_present;

void make_ready(list_type& list) { kelo::list::make_ready(list, kelo::list::set_up<list_type>); }

LockGuard lock_ready(list_type& list) {
  make_ready(list);
  return LockGuard(list.lock);
}

// Returns the link before `next`, the last link when `next` is null, or null when there is no such link.
list_link_type* predecessor(const list_type& list, const list_link_type* next) {
  return kelo::list::find(list.front, [next](const list_link_type& link) { return link.next == next; });
}

// Returns the link after which an element is appended. A merge of an empty list clears the back pointer although
// there are elements, and later operations can leave it null. The list is walked then.
list_link_type* last(const list_type& list) {
  if (list.size == 0) return nullptr;
  return list.back != nullptr ? list.back : predecessor(list, nullptr);
}

}  // namespace

void list_init(list_type* list) {
  if (list != nullptr) kelo::list::set_up(*list);
}

void list_destroy(list_type* list) {
  if (list == nullptr) return;
  kelo::list::retire(*list);
  list->front = nullptr;
  list->back = nullptr;
  list->size = 0;
}

void list_push_front(list_type* list, list_link_type* item) {
  if (!all_present(list, item)) return;
  const LockGuard guard = lock_ready(*list);
  item->next = list->front;
  list->front = item;
  if (list->back == nullptr) list->back = item;
  ++list->size;
}

void list_push_back(list_type* list, list_link_type* item) {
  if (!all_present(list, item)) return;
  const LockGuard guard = lock_ready(*list);
  list_link_type* const previous = last(*list);
  item->next = nullptr;
  if (previous == nullptr) {
    list->front = item;
  } else {
    previous->next = item;
  }
  list->back = item;
  ++list->size;
}

list_link_type* list_pop_front(list_type* list) {
  if (list == nullptr) return nullptr;
  const LockGuard guard = lock_ready(*list);
  list_link_type* const item = list->front;
  if (list->size == 0 || item == nullptr) return nullptr;
  list->front = item->next;
  if (list->front == nullptr) list->back = nullptr;
  --list->size;
  return item;
}

list_link_type* list_pop_back(list_type* list) {
  if (list == nullptr) return nullptr;
  const LockGuard guard = lock_ready(*list);
  list_link_type* const item = list->back;
  if (list->size == 0) return nullptr;
  if (list->front == item) {
    list->front = nullptr;
    list->back = nullptr;
  } else {
    list_link_type* const previous = predecessor(*list, item);
    if (previous == nullptr) return nullptr;
    previous->next = nullptr;
    list->back = previous;
  }
  --list->size;
  return item;
}

uint32_t list_size(list_type* list) {
  if (list == nullptr) return 0;
  const LockGuard guard = lock_ready(*list);
  return list->size;
}

list_link_type* list_peek_front(list_type* list) {
  if (list == nullptr) return nullptr;
  const LockGuard guard = lock_ready(*list);
  return list->front;
}

list_link_type* list_peek_back(list_type* list) {
  if (list == nullptr) return nullptr;
  const LockGuard guard = lock_ready(*list);
  return list->back;
}

list_link_type* list_peek_next(list_type* list, const list_link_type* item) {
  if (!all_present(list, item)) return nullptr;
  const LockGuard guard = lock_ready(*list);
  return item->next;
}

list_link_type* list_peek_prev(list_type* list, const list_link_type* item) {
  if (!all_present(list, item)) return nullptr;
  const LockGuard guard = lock_ready(*list);
  return predecessor(*list, item);
}

void list_push_before(list_type* list, list_link_type* item, list_link_type* before) {
  if (!all_present(list, item, before)) return;
  const LockGuard guard = lock_ready(*list);
  if (list->front == before) {
    list->front = item;
  } else {
    list_link_type* const previous = predecessor(*list, before);
    if (previous == nullptr) return;
    previous->next = item;
  }
  item->next = before;
  ++list->size;
}

void list_push_after(list_type* list, list_link_type* item, list_link_type* after) {
  if (!all_present(list, item, after)) return;
  const LockGuard guard = lock_ready(*list);
  item->next = after->next;
  after->next = item;
  if (list->back == after) list->back = item;
  ++list->size;
}

void list_pop_item(list_type* list, list_link_type* item) {
  if (!all_present(list, item)) return;
  const LockGuard guard = lock_ready(*list);
  list_link_type* previous = nullptr;
  if (list->front == item) {
    list->front = item->next;
  } else {
    previous = predecessor(*list, item);
    if (previous == nullptr) return;
    previous->next = item->next;
  }
  if (list->back == item) list->back = previous;
  --list->size;
}

list_link_type* list_linear_search(list_type* list, list_compare_fn compare, const void* param) {
  if (list == nullptr || compare == nullptr) return nullptr;
  const LockGuard guard = lock_ready(*list);
  return kelo::list::find(list->front,
                          [&](list_link_type& element) { return compare(&element, param) != 0; });
}

void list_merge(list_type* dst, list_type* src) {
  if (!all_present(dst, src) || dst == src) return;
  make_ready(*dst);
  make_ready(*src);
  const LockGuard destination_guard(dst->lock);
  const LockGuard source_guard(src->lock);
  list_link_type* const previous = last(*dst);
  if (previous == nullptr) {
    dst->front = src->front;
  } else {
    previous->next = src->front;
  }
  // Callers know that an empty `src` clears the back pointer.
  dst->back = src->back;
  dst->size += src->size;
  src->front = nullptr;
  src->back = nullptr;
  src->size = 0;
}

void list_split(list_type* list, list_link_type* item, list_type* dst) {
  if (!all_present(list, item, dst) || list == dst) return;
  make_ready(*list);
  make_ready(*dst);
  const LockGuard source_guard(list->lock);
  const LockGuard destination_guard(dst->lock);
  kelo::list::move_rest(*list, *item, *dst);
}
