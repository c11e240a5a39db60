/* SPDX-License-Identifier: MIT */
/**
 * @file queue.h
 * @brief Intrusive first-in first-out queue: circular, doubly linked, counted, with a lock of its own.
 *
 * The caller embeds a ::q_link_type in its own record and hands the link to the queue. The queue never
 * allocates, frees or copies an element. A record must stay alive while its link is in a queue. To get the
 * record of a returned link, subtract the offset of the link in the record.
 *
 *     struct job { int number; q_link_type link; };
 *
 *     q_type jobs;
 *     q_init(&jobs);
 *     q_link(&job, &job.link);
 *     q_put(&jobs, &job.link);
 *
 * Conventions of all functions here:
 * - A null queue or link prints "...in file queue/queue.cAssertion failed..." (no line end) on standard
 *   output, once for each null argument. The call returns null or 0 or nothing, and touches no memory. The
 *   same text is printed, and nothing is changed, when the call would have to write through a null neighbour:
 *   for a put to a destroyed queue, and for the delete of a link that is in no queue.
 * - A link is in at most one queue at a time, and only once.
 * - A queue may be used from any thread between q_init() and q_destroy(). Every function except q_cnt(),
 *   q_link() and q_init() takes the lock of the queue and may block for it. The lock is recursive: a callback
 *   may use the queue again in its own thread. It must not wait for another thread that needs the same queue.
 * - No function may be used in a signal handler, unless the signal is blocked in every thread while that
 *   thread uses the queue.
 * - The header of the queue itself is never returned as an element, whatever state the circle is in.
 * - Nothing here logs or sets errno.
 */
#ifndef KELO_UTILS_QUEUE_H
#define KELO_UTILS_QUEUE_H

#include <pthread.h>
#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/** What a record embeds to be put in a queue. */
typedef struct q_link {
  /** Next link, or the header after the last element; null while the link is in no queue. */
  struct q_link* next_ptr;
  /** Previous link, or the header before the first element. Stale after the link was removed. */
  struct q_link* prev_ptr;
} q_link_type;

/** A queue. Its fields may be read while its lock is held. Only the functions below change them. */
typedef struct q_header {
  /** Sentinel of the circle: `next_ptr` is the head, `prev_ptr` the tail, both are the header when the queue
   * is empty. */
  q_link_type link;
  /** Number of elements. */
  int32_t cnt;
  /** Guards `link`, `cnt` and the links of all elements; recursive. */
  pthread_mutex_t lock;
} q_type;

/**
 * Tells whether a link is the wanted one. It runs with the lock of the queue held.
 * @param link   the link.
 * @param param  as the function that searches says.
 * @return 0 for no; any other value for yes.
 */
typedef int (*q_compare_fn)(q_link_type* link, const void* param);

/**
 * Receives a link that was just removed. It runs with the lock of the queue held.
 * @param link   the link.
 * @param param  as the function that removes says.
 */
typedef void (*q_action_fn)(q_link_type* link, void* param);

/**
 * Makes `q` an empty queue and creates its lock. It must be called before every other use.
 * @param q  memory for the queue, of any content. A queue that is in use must be destroyed first.
 * @return `q`.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread calls it, before any other thread uses the queue. It is not for signal handlers.
 */
KELO_API q_type* q_init(q_type* q);

/**
 * Ends the use of `q`: head and tail become null, the count becomes 0, and the lock is destroyed.
 *
 * The elements do not change, and their links are stale.
 *
 * @param q  an initialised queue.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * One thread calls it. No other thread may use the queue any more. It is not for signal handlers.
 */
KELO_API void q_destroy(q_type* q);

/**
 * Prepares a link for its first q_put() or q_insert(): both its pointers become null. It takes no lock.
 * @param element  ignored. Programs pass the record that holds the link. May be null.
 * @param link     the link, which must not be in a queue.
 * @return `link`.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different links.
 */
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
/* Function and structure tag share the name on purpose; GCC takes the tag for a hidden constructor in C++. */
#pragma GCC diagnostic ignored "-Wshadow"
#endif
KELO_API q_link_type* q_link(void* element, q_link_type* link);
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

/**
 * Appends `link` at the tail.
 * @param q     the queue.
 * @param link  a link that is in no queue.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API void q_put(q_type* q, q_link_type* link);

/**
 * Removes the head and returns it. Its `next_ptr` becomes null, and its `prev_ptr` does not change.
 *
 * For a header whose head is null (after q_destroy(), or never initialised) the call returns null AND KEEPS
 * THE LOCK HELD: no other thread can use such a header until the caller unlocks it.
 *
 * @param q  the queue.
 * @return the removed link; null when the count is below 1.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API q_link_type* q_get(q_type* q);

/**
 * Removes the head as q_get() does, but the removed link keeps its `next_ptr`. It is meant for a loop that
 * empties the queue.
 *
 * When the element after the head is null (a broken circle), "link_ptr->next_ptr is NULL" is printed on
 * standard output and the process aborts. With a null head the lock stays held, as in q_get().
 *
 * @param q  the queue.
 * @return the removed link; null when the count is below 1.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API q_link_type* q_get_ext(q_type* q);

/**
 * Removes the tail and returns it. Its `next_ptr` becomes null, and its `prev_ptr` does not change.
 *
 * It follows `prev_ptr`, which q_m_put() and q_linear_delete() may leave stale.
 *
 * @param q  the queue.
 * @return the removed link; null when the count is below 1.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API q_link_type* q_last_get(q_type* q);

/**
 * Returns the head without removing it.
 * @param q  the queue.
 * @return the head; null when the count is below 1.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API q_link_type* q_check(q_type* q);

/**
 * Returns the tail without removing it.
 * @param q  the queue.
 * @return the tail; null when the count is below 1.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API q_link_type* q_last_check(q_type* q);

/**
 * Returns the link after `link`.
 *
 * A walk with q_check() and q_next() takes the lock for each step. The caller must prevent other threads from
 * removing the link that the walk has reached.
 *
 * @param q     the queue that holds `link`.
 * @param link  a link in `q`.
 * @return the next link; null when `link` is the last, or in no queue.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API q_link_type* q_next(q_type* q, q_link_type* link);

/**
 * Inserts `new_link` directly before `before_link`.
 * @param q            the queue that holds `before_link`.
 * @param new_link     a link that is in no queue.
 * @param before_link  a link in `q`. With the link of the header (`&q->link`) the new link is appended at the
 *                     tail.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API void q_insert(q_type* q, q_link_type* new_link, q_link_type* before_link);

/**
 * Removes `link` from any place in the queue. Its `next_ptr` becomes null, and its `prev_ptr` does not
 * change.
 *
 * A link whose `next_ptr` is null already, such as a link that was deleted before, is not changed.
 *
 * @param q     the queue that holds `link`, which is not checked.
 * @param link  a link in `q`.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API void q_delete(q_type* q, q_link_type* link);

/**
 * Removes a link as q_delete() does, with a result.
 * @param q     as for q_delete().
 * @param link  as for q_delete().
 * @retval 1    the link was removed.
 * @retval 0    a null argument, or a link that is in no queue.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API int q_delete_ext(q_type* q, q_link_type* link);

/**
 * Returns the number of elements. It takes no lock: when other threads use the queue, the number may be out
 * of date when the call returns.
 * @param q  the queue.
 * @return the number; 0 for a null queue.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time.
 */
KELO_API int q_cnt(const q_type* q);

/**
 * Moves all elements of `src`, in their order, to the tail of `dst`. `src` is then empty and can still be
 * used.
 *
 * The time is constant. An empty `src` changes nothing. Moving a queue to itself empties it.
 *
 * The first moved link keeps its `prev_ptr`, which still points to `src` instead of the old tail of `dst`.
 * The moved links can be walked, and taken by q_get(), in forward direction. But as long as this link has not
 * left the queue through the head, `src` must stay alive: q_last_get() down to it, q_delete() of it and
 * q_insert() before it write into `src`. The same holds when `dst` was empty before.
 *
 * When `src` has a positive count but a null tail, the assertion text is printed and the move continues with
 * a null tail. For a `dst` with a null tail (a destroyed queue) the text is printed, too, and nothing is
 * moved.
 *
 * @param dst  the queue that grows.
 * @param src  the queue that is emptied.
 * @par Blocking
 * It blocks while another thread holds the lock of either queue. It takes the lock of `src` and then that of
 * `dst`: two threads that move in opposite directions at the same time may block each other for ever.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API void q_m_put(q_type* dst, q_type* src);

/**
 * Finds the first link, from the head, for which `compare(link, param)` is not 0.
 *
 * The time grows with the length of the queue. The lock is taken for each step, which is an advance and its
 * comparison, and not for the whole walk: between steps other threads may change the queue. When the link
 * that was compared last is removed in between, the search ends without a result or, after q_get_ext(),
 * continues with the link that followed it.
 *
 * @param q        the queue.
 * @param compare  the comparison. With null nothing is found.
 * @param param    handed to `compare` unchanged.
 * @return the link that was found, still in the queue; null when there is none.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API q_link_type* q_linear_search(q_type* q, q_compare_fn compare, const void* param);

/**
 * Removes the first link, from the head, for which `compare(link, NULL)` is not 0, and then hands it to
 * `action`.
 *
 * The lock is held during search, removal and action. The time grows with the length of the queue.
 *
 * Callers rely on these peculiarities:
 * - `compare` receives null, not `param`; `param` is handed to `action`.
 * - A link at the head is removed as by q_get(), and the circle stays correct. At any other place the
 *   `next_ptr` of the link before it skips the removed link, but the `prev_ptr` of the link after it still
 *   points to it.
 * - A removed tail stays the tail of the queue, unless exactly one element is left: then the tail is that
 *   element. A q_put() to a queue with such a stale tail writes into the removed link, and the new element
 *   cannot be reached from the head. A removed link that was not the head must therefore stay alive until the
 *   queue has become empty.
 *
 * @param q        the queue.
 * @param compare  the comparison, which must not change the queue. With null the call returns at once and
 *                 does not examine `q`.
 * @param param    handed to `action`.
 * @param action   called with the removed link and `param`; may be null, and may use the queue.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API void q_linear_delete(q_type* q, q_compare_fn compare, void* param, q_action_fn action);

/**
 * Removes the first link, from the head, for which `compare(link, param)` is not 0, hands it to `action` and
 * returns it.
 *
 * The lock is held during search, removal and action. The time grows with the length of the queue.
 *
 * A link at the head is removed as by q_get(). At any other place the `prev_ptr` of the link after it still
 * points to the removed link. A removed tail stays the tail of the queue in every case, also when one element
 * is left. What q_linear_delete() says about a stale tail and the life of the removed link holds here, too.
 *
 * @param q             the queue.
 * @param compare       the comparison, which must not change the queue. With null the call returns null and
 *                      takes no lock.
 * @param param         handed to `compare`.
 * @param action        called with the removed link and `action_param`; may be null, and may use the queue.
 * @param action_param  handed to `action`.
 * @return the removed link; null when no link matched.
 * @par Blocking
 * It blocks while another thread holds the lock of the queue.
 * @par Threads
 * Any thread may call it at any time. It may be used in a signal handler only as this file says.
 */
KELO_API q_link_type* q_linear_delete_new(q_type* q, q_compare_fn compare, const void* param,
                                          q_action_fn action, void* action_param);

KELO_END_DECLS

#endif /* KELO_UTILS_QUEUE_H */
