// Searches a queue from its head, and deletes what matches.
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

// The walk of a linear removal; the caller holds the lock.
Match find_locked(q_type& q, q_compare_fn compare, const void* param) {
  q_link_type* previous = nullptr;
  for (q_link_type* link = head(q); link != nullptr; link = successor(q, *link)) {
    if (compare(link, param) != 0) return {link, previous};
    previous = link;
  }
  return {nullptr, nullptr};
}

// Takes the match out. Away from the head only the forward chain is mended: the successor's `prev_ptr` and
// the queue's tail stay, as callers know it.
void remove_locked(q_type& q, const Match& match) {
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
    // One step: the comparison shares the lock with the advance, so it never sees a link that has just left.
    const LockGuard guard(q->lock);
    link = link == nullptr ? head(*q) : successor(*q, *link);
    if (link == nullptr || compare(link, param) != 0) return link;
  }
}

void q_linear_delete(q_type* q, q_compare_fn compare, void* param, q_action_fn action) {
  if (compare == nullptr || !present(q)) return;
  const LockGuard guard(q->lock);
  const Match match = find_locked(*q, compare, nullptr);
  if (match.link == nullptr) return;
  remove_locked(*q, match);
  if (match.previous != nullptr && count(*q) == 1) q->link.prev_ptr = q->link.next_ptr;
  if (action != nullptr) action(match.link, param);
}

q_link_type* q_linear_delete_new(q_type* q, q_compare_fn compare, const void* param, q_action_fn action,
                                 void* action_param) {
  if (!present(q) || compare == nullptr) return nullptr;
  const LockGuard guard(q->lock);
  const Match match = find_locked(*q, compare, param);
  if (match.link == nullptr) return nullptr;
  remove_locked(*q, match);
  if (action != nullptr) action(match.link, action_param);
  return match.link;
}
