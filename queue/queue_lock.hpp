// SPDX-License-Identifier: MIT
// The initialisation of a queue's lock.
#ifndef KELO_QUEUE_QUEUE_LOCK_HPP
#define KELO_QUEUE_QUEUE_LOCK_HPP

#include "kelo_utils/queue.h"

namespace kelo::queue {

// Initialises the lock of `q` without looking at its old state. A child made by fork() needs this: the lock may be
// held by a thread that does not exist in the child. The child cannot release even a lock that the forking thread
// held, since a recursive lock stores the id of its thread.
void make_lock(q_type& q);

}  // namespace kelo::queue

#endif  // KELO_QUEUE_QUEUE_LOCK_HPP
