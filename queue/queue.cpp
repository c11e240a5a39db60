// SPDX-License-Identifier: MIT
// The queue: a circle of links with its header, and all its operations but the linear searches.
#include "kelo_utils/queue.h"

#include <pthread.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "base/lock.hpp"
#include "queue/queue_core.hpp"
#include "queue/queue_lock.hpp"

static_assert(sizeof(void*) != 4 ||
              (sizeof(q_link_type) == 8 && offsetof(q_type, link) == 0 && offsetof(q_type, cnt) == 8 &&
               offsetof(q_type, lock) == 12 && sizeof(q_type) == 12 + sizeof(pthread_mutex_t)));

namespace {

using kelo::base::AdoptLock;
using kelo::base::LockGuard;
using kelo::queue::add_to_count;
using kelo::queue::all_present;
using kelo::queue::count;
using kelo::queue::element;
using kelo::queue::present;
using kelo::queue::set_count;

void set_empty(q_type& q) {
  q.link.next_ptr = &q.link;
  q.link.prev_ptr = &q.link;
  set_count(q, 0);
}

void insert(q_type& q, q_link_type& inserted, q_link_type& before) {
  q_link_type* const previous = before.prev_ptr;
  if (!present(previous)) return;
  inserted.next_ptr = &before;
  inserted.prev_ptr = previous;
  previous->next_ptr = &inserted;
  before.prev_ptr = &inserted;
  add_to_count(q, 1);
}

// Makes `next` the head and returns the old head, whose own pointers stay unchanged.
q_link_type* advance_head(q_type& q, q_link_type& next) {
  q_link_type* const first = q.link.next_ptr;
  q.link.next_ptr = &next;
  next.prev_ptr = &q.link;
  add_to_count(q, -1);
  return element(q, first);
}

// Takes the lock for a removal of the head. When the header has no circle, because its owner has destroyed the queue,
// the result is false and the lock stays held, so that no other thread can use the header.
bool lock_circle(q_type& q) {
  pthread_mutex_lock(&q.lock);
  return q.link.next_ptr != nullptr;
}

}  // namespace

// The C library may have an initial value for a recursive mutex, and assigning it needs less code. The thread
// sanitizer does not know that value: it must see the attribute.
void kelo::queue::make_lock(q_type& q) {
#if defined(PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP) && !defined(__SANITIZE_THREAD__)
  q.lock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
#else
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&q.lock, &attributes);
  pthread_mutexattr_destroy(&attributes);
#endif
}

q_type* q_init(q_type* q) {
  if (!present(q)) return nullptr;
  set_empty(*q);
  kelo::queue::make_lock(*q);
  return q;
}

void q_destroy(q_type* q) {
  if (!present(q)) return;
  {
    const LockGuard guard(q->lock);
    q->link = {};
    set_count(*q, 0);
  }
  pthread_mutex_destroy(&q->lock);
}

q_link_type* q_link(void* /*element*/, q_link_type* link) {
  if (!present(link)) return nullptr;
  *link = {};
  return link;
}

void q_put(q_type* q, q_link_type* link) {
  if (!all_present(q, link)) return;
  const LockGuard guard(q->lock);
  insert(*q, *link, q->link);
}

q_link_type* q_get(q_type* q) {
  if (!present(q) || !lock_circle(*q)) return nullptr;
  const LockGuard guard(q->lock, AdoptLock{});
  if (count(*q) <= 0) return nullptr;
  q_link_type* const next = q->link.next_ptr->next_ptr;
  if (!present(next)) return nullptr;
  q_link_type* const first = advance_head(*q, *next);
  if (first != nullptr) first->next_ptr = nullptr;
  return first;
}

q_link_type* q_get_ext(q_type* q) {
  if (!present(q) || !lock_circle(*q)) return nullptr;
  const LockGuard guard(q->lock, AdoptLock{});
  if (count(*q) <= 0) return nullptr;
  q_link_type* const next = q->link.next_ptr->next_ptr;
  if (next == nullptr) {
    std::fputs("link_ptr->next_ptr is NULL", stdout);
    std::fflush(stdout);
    std::abort();
  }
  return advance_head(*q, *next);
}

q_link_type* q_last_get(q_type* q) {
  if (!present(q)) return nullptr;
  const LockGuard guard(q->lock);
  if (count(*q) <= 0) return nullptr;
  q_link_type* const last = q->link.prev_ptr;
  if (!present(last) || !present(last->prev_ptr)) return nullptr;
  q->link.prev_ptr = last->prev_ptr;
  last->prev_ptr->next_ptr = &q->link;
  add_to_count(*q, -1);
  if (element(*q, last) == nullptr) return nullptr;
  last->next_ptr = nullptr;
  return last;
}

q_link_type* q_check(q_type* q) {
  if (!present(q)) return nullptr;
  const LockGuard guard(q->lock);
  return kelo::queue::head(*q);
}

q_link_type* q_last_check(q_type* q) {
  if (!present(q)) return nullptr;
  const LockGuard guard(q->lock);
  return count(*q) < 1 ? nullptr : element(*q, q->link.prev_ptr);
}

q_link_type* q_next(q_type* q, q_link_type* link) {
  if (!all_present(q, link)) return nullptr;
  const LockGuard guard(q->lock);
  return kelo::queue::successor(*q, *link);
}

void q_insert(q_type* q, q_link_type* new_link, q_link_type* before_link) {
  if (!all_present(q, new_link, before_link)) return;
  const LockGuard guard(q->lock);
  insert(*q, *new_link, *before_link);
}

void q_delete(q_type* q, q_link_type* link) { q_delete_ext(q, link); }

int q_delete_ext(q_type* q, q_link_type* link) {
  if (!all_present(q, link)) return 0;
  const LockGuard guard(q->lock);
  if (!present(link->next_ptr) || !present(link->prev_ptr)) return 0;
  link->prev_ptr->next_ptr = link->next_ptr;
  link->next_ptr->prev_ptr = link->prev_ptr;
  add_to_count(*q, -1);
  link->next_ptr = nullptr;
  return 1;
}

int q_cnt(const q_type* q) { return present(q) ? count(*q) : 0; }

void q_m_put(q_type* dst, q_type* src) {
  if (!all_present(dst, src)) return;
  const LockGuard source_guard(src->lock);
  if (count(*src) == 0) return;
  const LockGuard destination_guard(dst->lock);
  q_link_type* const old_tail = dst->link.prev_ptr;
  if (!present(old_tail)) return;
  q_link_type* const moved_tail = src->link.prev_ptr;
  if (present(moved_tail)) moved_tail->next_ptr = &dst->link;
  old_tail->next_ptr = src->link.next_ptr;
  dst->link.prev_ptr = moved_tail;
  add_to_count(*dst, count(*src));
  // The lock of `src` is held, so q_init() must not be called here.
  set_empty(*src);
}
