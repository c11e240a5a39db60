// SPDX-License-Identifier: MIT
// The linear searches of a queue, which start at its head, and the deletions of the element found.
#include "base/lock.hpp"
#include "kelo_utils/queue.h"
#include "queue/queue_core.hpp"

namespace {

using kelo::base::LockGuard;
using kelo::queue::add_to_count;
using kelo::queue::count;
using kelo::queue::head;
using kelo::queue::present;
using kelo::queue::successor;

struct Match {
  q_link_type* link;      // null: nothing matched
  q_link_type* previous;  // null: the match is the head
};

// The caller holds the lock.
Match find_first(q_type& q, q_compare_fn compare, const void* param) {
  q_link_type* previous = nullptr;
  for (q_link_type* link = head(q); link != nullptr; link = successor(q, *link)) {
    if (compare(link, param) != 0) return {link, previous};
    previous = link;
  }
  return {nullptr, nullptr};
}

// Removes the match. When it is not the head, only the forward chain is updated. Callers know that the successor's
// `prev_ptr` and the queue's tail stay as they were.
void remove_match(q_type& q, const Match& match) {
  if (match.previous == nullptr) {
    q_get(&q);
    return;
  }
  match.previous->next_ptr = match.link->next_ptr;
  match.link->next_ptr = nullptr;
  add_to_count(q, -1);
}

}  // namespace

q_link_type* q_linear_search(q_type* q, q_compare_fn compare, const void* param) {
  if (!present(q) || compare == nullptr) return nullptr;
  q_link_type* link = nullptr;
  for (;;) {
    // The step and the comparison are under one lock, so that no other thread removes the link between them.
    const LockGuard guard(q->lock);
    link = link == nullptr ? head(*q) : successor(*q, *link);
    if (link == nullptr || compare(link, param) != 0) return link;
  }
}

void q_linear_delete(q_type* q, q_compare_fn compare, void* param, q_action_fn action) {
  if (compare == nullptr || !present(q)) return;
  const LockGuard guard(q->lock);
  const Match match = find_first(*q, compare, nullptr);
  if (match.link == nullptr) return;
  remove_match(*q, match);
  if (match.previous != nullptr && count(*q) == 1) q->link.prev_ptr = q->link.next_ptr;
  if (action != nullptr) action(match.link, param);
}

q_link_type* q_linear_delete_new(q_type* q, q_compare_fn compare, const void* param, q_action_fn action,
                                 void* action_param) {
  if (!present(q) || compare == nullptr) return nullptr;
  const LockGuard guard(q->lock);
  const Match match = find_first(*q, compare, param);
  if (match.link == nullptr) return nullptr;
  remove_match(*q, match);
  if (action != nullptr) action(match.link, action_param);
  return match.link;
}
