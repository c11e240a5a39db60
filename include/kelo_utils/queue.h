/**
 * @file queue.h
 * @brief Intrusive first-in first-out queue: circular, doubly linked, counted, with a lock of its own.
 *
 * The caller embeds a ::q_link_type in its own record and hands the link to the queue. The queue never
 * allocates, frees or copies an element; a record must stay alive while its link is in a queue. A returned
 * link is turned back into its record by subtracting the link's offset in the record.
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
 *   output, once for each null argument, and the call answers null, 0 or nothing without touching memory.
 *   The same text is printed, and nothing changed, where the call would have to write through a null
 *   neighbour: putting to a destroyed queue, deleting a link that is in no queue.
 * - A link is in at most one queue at a time, and only once.
 * - A queue may be used from any thread between q_init() and q_destroy(). Every function but q_cnt(),
 *   q_link() and q_init() takes the queue's lock and may block for it. The lock is recursive: a callback may
 *   use the queue again in its own thread; it must not wait for another thread that needs the same queue.
 * - Not for use in a signal handler, unless the signal is blocked in every thread while it uses the queue.
 * - The queue header itself is never handed out as an element, whatever state the circle is in.
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
  /** Next link, or the header after the last element; null while in no queue. */
  struct q_link* next_ptr;
  /** Previous link, or the header before the first element. Stale once the link was removed. */
  struct q_link* prev_ptr;
} q_link_type;

/** A queue. Its fields may be read while its lock is held; only the functions below change them. */
typedef struct q_header {
  /** Sentinel of the circle: `next_ptr` is the head, `prev_ptr` the tail, both the header when empty. */
  q_link_type link;
  /** Number of elements. */
  int32_t cnt;
  /** Guards `link`, `cnt` and the links of all elements; recursive. */
  pthread_mutex_t lock;
} q_type;

/** Tells whether `link` is the wanted one: non-zero for yes. Runs with the queue's lock held. */
typedef int (*q_compare_fn)(q_link_type* link, const void* param);

/** Is handed a link that was just removed. Runs with the queue's lock held. */
typedef void (*q_action_fn)(q_link_type* link, void* param);

/**
 * Makes `q` an empty queue and creates its lock. Must come before every other use, in one thread.
 * @param q  memory for the queue, of any content; a queue that is in use must be destroyed first.
 * @return `q`.
 */
KELO_API q_type* q_init(q_type* q);

/**
 * Ends the use of `q`: head, tail and count become null and 0, the lock is destroyed. No other thread may
 * use the queue any more. The elements are left as they are, their links stale.
 * @param q  an initialised queue.
 */
KELO_API void q_destroy(q_type* q);

/**
 * Prepares a link for its first q_put() or q_insert(): both its pointers become null. Takes no lock.
 * @param element  ignored; by custom the record that holds the link. May be null.
 * @param link     the link; must not be in a queue.
 * @return `link`.
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
 */
KELO_API void q_put(q_type* q, q_link_type* link);

/**
 * Removes the head and returns it, its `next_ptr` null and its `prev_ptr` as it was.
 *
 * A header whose head is null (after q_destroy(), or never initialised) answers null AND KEEPS THE LOCK HELD:
 * no other thread gets at such a header until the caller unlocks it.
 *
 * @param q  the queue.
 * @return the removed link; null when the count is below 1.
 */
KELO_API q_link_type* q_get(q_type* q);

/**
 * As q_get(), for a drain loop: the removed link keeps its `next_ptr`.
 *
 * When the element behind the head is null (a broken circle), prints "link_ptr->next_ptr is NULL" on standard
 * output and aborts the process. On a null head it keeps the lock held like q_get().
 *
 * @param q  the queue.
 * @return the removed link; null when the count is below 1.
 */
KELO_API q_link_type* q_get_ext(q_type* q);

/**
 * Removes the tail and returns it, its `next_ptr` null and its `prev_ptr` as it was. Follows `prev_ptr`: see
 * q_m_put() and q_linear_delete() for what leaves those stale.
 * @param q  the queue.
 * @return the removed link; null when the count is below 1.
 */
KELO_API q_link_type* q_last_get(q_type* q);

/**
 * Returns the head without removing it.
 * @param q  the queue.
 * @return the head; null when the count is below 1.
 */
KELO_API q_link_type* q_check(q_type* q);

/**
 * Returns the tail without removing it.
 * @param q  the queue.
 * @return the tail; null when the count is below 1.
 */
KELO_API q_link_type* q_last_check(q_type* q);

/**
 * Returns the link after `link`. A walk by q_check() and q_next() takes the lock for each step, so it is the
 * caller's part to keep others from removing the link it stands on.
 * @param q     the queue that holds `link`.
 * @param link  a link in `q`.
 * @return the next link; null when `link` is the last, or in no queue.
 */
KELO_API q_link_type* q_next(q_type* q, q_link_type* link);

/**
 * Inserts `new_link` immediately before `before_link`.
 * @param q            the queue that holds `before_link`.
 * @param new_link     a link that is in no queue.
 * @param before_link  a link in `q`; the header's own link (`&q->link`) appends at the tail.
 */
KELO_API void q_insert(q_type* q, q_link_type* new_link, q_link_type* before_link);

/**
 * Takes `link` out of the queue, wherever it stands; its `next_ptr` becomes null, its `prev_ptr` stays.
 * A link whose `next_ptr` is null already, such as one deleted before, is left alone.
 * @param q     the queue that holds `link`. Whether it really does is not checked.
 * @param link  a link in `q`.
 */
KELO_API void q_delete(q_type* q, q_link_type* link);

/**
 * As q_delete(), with a result.
 * @param q     as for q_delete().
 * @param link  as for q_delete().
 * @retval 1    the link was taken out.
 * @retval 0    a null argument, or a link that is in no queue.
 */
KELO_API int q_delete_ext(q_type* q, q_link_type* link);

/**
 * Returns the number of elements. Takes no lock and never blocks: in the presence of other threads the
 * number may be out of date when it arrives.
 * @param q  the queue.
 */
KELO_API int q_cnt(const q_type* q);

/**
 * Moves all elements of `src`, in their order, to the tail of `dst`; `src` is then empty and can be used on.
 * Constant time. An empty `src` changes nothing.
 *
 * Takes the lock of `src` and then that of `dst`: two threads that move in opposite directions at the same
 * time may block each other for ever. The first moved link keeps its `prev_ptr`, which still points at `src`
 * instead of the old tail of `dst`: the moved run can be walked and taken by q_get() forwards, but until that
 * link has left through the head, q_last_get() down to it, q_delete() of it and q_insert() before it write
 * into `src`, which must therefore stay alive. Where `dst` was empty before, the same holds.
 *
 * When `src` has a positive count but a null tail, the assertion text is printed and the move goes on with a
 * null tail. A `dst` with a null tail (destroyed) prints it too and nothing is moved. Moving a queue to
 * itself empties it.
 *
 * @param dst  the queue that grows.
 * @param src  the queue that is emptied.
 */
KELO_API void q_m_put(q_type* dst, q_type* src);

/**
 * Finds the first link, from the head, for which `compare(link, param)` is non-zero. Time grows with the
 * length of the queue.
 *
 * The lock is taken for each step, an advance and its comparison, not across the walk: between steps other
 * threads may change the queue. When the link that was compared last is removed in between, the search ends
 * without a result or, after q_get_ext(), goes on from that link's old successor.
 *
 * @param q        the queue.
 * @param compare  the comparison; null finds nothing.
 * @param param    handed to `compare` as it is.
 * @return the link found, still in the queue; null for none.
 */
KELO_API q_link_type* q_linear_search(q_type* q, q_compare_fn compare, const void* param);

/**
 * Removes the first link, from the head, for which `compare(link, NULL)` is non-zero, and then hands it to
 * `action`. The lock is held across search, removal and action. Time grows with the length of the queue.
 *
 * Callers rely on these peculiarities:
 * - `compare` receives null, not `param`; `param` goes to `action`.
 * - A match at the head is removed as by q_get(), leaving a sound circle. Elsewhere the predecessor's
 *   `next_ptr` skips the match, but the successor's `prev_ptr` goes on pointing at it.
 * - A removed tail stays the queue's tail, unless exactly one element is left: then the tail is that element.
 *   A q_put() to a queue with a stale tail writes into the removed link and the element put is not reachable
 *   from the head. So a removed link has to stay alive, unless it was the head, until the queue has run
 *   empty.
 *
 * @param q        the queue.
 * @param compare  the comparison, which must not change the queue; null returns at once, `q` unseen.
 * @param param    handed to `action`.
 * @param action   called with the removed link and `param`; may be null, may use the queue.
 */
KELO_API void q_linear_delete(q_type* q, q_compare_fn compare, void* param, q_action_fn action);

/**
 * Removes the first link, from the head, for which `compare(link, param)` is non-zero, hands it to `action`
 * and returns it. The lock is held across search, removal and action. Time grows with the length of the
 * queue.
 *
 * A match at the head is removed as by q_get(). Elsewhere the successor's `prev_ptr` goes on pointing at the
 * match, and a removed tail stays the queue's tail in every case, also when one element is left; what
 * q_linear_delete() says of a stale tail and of the life of the removed link holds here too.
 *
 * @param q             the queue.
 * @param compare       the comparison, which must not change the queue; null answers null without locking.
 * @param param         handed to `compare`.
 * @param action        called with the removed link and `action_param`; may be null, may use the queue.
 * @param action_param  handed to `action`.
 * @return the removed link; null when nothing matched.
 */
KELO_API q_link_type* q_linear_delete_new(q_type* q, q_compare_fn compare, const void* param,
                                          q_action_fn action, void* action_param);

KELO_END_DECLS

#endif /* KELO_UTILS_QUEUE_H */
