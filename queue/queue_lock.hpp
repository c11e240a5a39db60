// The lock of a queue, for whoever has to make it anew.
#ifndef KELO_QUEUE_QUEUE_LOCK_HPP
#define KELO_QUEUE_QUEUE_LOCK_HPP

#include "kelo_utils/queue.h"

namespace kelo::queue {

// Makes the lock of `q`, free, whatever is there. A child made by fork() may find it held by a thread that it
// does not have, and cannot give back even what the forking thread held: the lock is recursive and knows its
// thread.
void make_lock(q_type& q);

}  // namespace kelo::queue

#endif  // KELO_QUEUE_QUEUE_LOCK_HPP
