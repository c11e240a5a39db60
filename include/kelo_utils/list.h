/* SPDX-License-Identifier: MIT */
/**
 * @file list.h
 * @brief Intrusive lists with an element count and a lock of their own.
 *
 * The caller embeds a link as the FIRST field of its own record and hands the link to the list. The list
 * hands links back: a pointer to the link is a pointer to the record. The lists never allocate, free or copy
 * an element. A record must stay alive while its link is in a list.
 *
 *     struct job { list_link_type link; int number; };
 *
 *     static list_type jobs;
 *     list_push_back(&jobs, &job.link);
 *     struct job* first = (struct job*)list_pop_front(&jobs);
 *
 * Conventions of all functions here:
 * - A header that is filled with zeros is an empty list: its first use initialises it, and several threads
 *   may make this first use at once. Memory with other content must be initialised by list_init() or
 *   ordered_list_init().
 * - For a null list, link or callback that is not allowed, a function returns null or 0 or does nothing, and
 *   nothing is changed.
 * - A link is in at most one list at a time, and only once. A link that is removed keeps its pointers.
 * - A list may be used from any thread until it is destroyed. Every function takes the lock of the list and
 *   may block for it, except those that initialise or destroy, unless its description says otherwise. The
 *   lock is not recursive: code that holds it, above all a comparison callback, must not use the same list.
 * - Nothing here logs, prints or sets errno.
 */
#ifndef KELO_UTILS_LIST_H
#define KELO_UTILS_LIST_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/** The first field of a record that is put in a linked list. */
typedef struct list_link {
  /** Next link; null after the last. Stale after the link was removed. */
  struct list_link* next;
} list_link_type;

/** A linked list. Its fields may be read while its lock is held. Only the functions below change them. */
typedef struct list_header {
  /** First link; null when the list is empty. */
  list_link_type* front;
  /** Last link; null when the list is empty, and after list_merge() of an empty list. */
  list_link_type* back;
  /** Number of elements. */
  uint32_t size;
  /** 1 when the list is initialised. */
  int32_t initialised;
  /** Guards `front`, `back`, `size` and the links of all elements. */
  pthread_mutex_t lock;
} list_type;

/**
 * Tells whether an element is the wanted one. It runs with the lock of the list held.
 * @param element  link of the element.
 * @param param    as given to the search.
 * @return 0 for no; any other value for yes.
 */
typedef int (*list_compare_fn)(list_link_type* element, const void* param);

/**
 * Makes `list` an empty list and creates its lock. It is needed only when the memory is not zeroed.
 * @param list  memory of any content. A list that is in use must be destroyed first.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread calls it, while no other thread uses the list. It is not for signal handlers.
 */
KELO_API void list_init(list_type* list);

/**
 * Ends the use of `list`: its lock is destroyed and the other fields become zero.
 *
 * The elements do not change. A later use initialises the list again.
 *
 * @param list  a list. A header that was never used is only zeroed.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread calls it, while no other thread uses the list. It is not for signal handlers.
 */
KELO_API void list_destroy(list_type* list);

/**
 * Inserts `item` at the front.
 * @param list  the list.
 * @param item  a link that is in no list.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void list_push_front(list_type* list, list_link_type* item);

/**
 * Appends `item` at the back. The time is constant, except for a walk when list_merge() has left no back
 * pointer.
 * @param list  the list.
 * @param item  a link that is in no list.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void list_push_back(list_type* list, list_link_type* item);

/**
 * Removes the front element. Its `next` does not change.
 * @param list  the list.
 * @return the link; null when the list is empty.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API list_link_type* list_pop_front(list_type* list);

/**
 * Removes the back element. The time grows with the length of the list.
 * @param list  the list.
 * @return the link; null when the list is empty, and when list_merge() has left no back pointer. In the
 *         second case the last element stays and becomes the back again, but the count is reduced by one
 *         nevertheless.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API list_link_type* list_pop_back(list_type* list);

/**
 * Returns the number of elements.
 * @param list  the list.
 * @return the number; 0 for a null list.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API uint32_t list_size(list_type* list);

/**
 * Returns the front element, which stays in the list.
 * @param list  the list.
 * @return the link; null when the list is empty.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API list_link_type* list_peek_front(list_type* list);

/**
 * Returns the back element, which stays in the list.
 * @param list  the list.
 * @return the link; null when the list is empty, and when list_merge() has left no back pointer.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API list_link_type* list_peek_back(list_type* list);

/**
 * Returns the element after `item`.
 *
 * A walk with list_peek_front() and list_peek_next() takes the lock for each step. The caller must prevent
 * other threads from removing the element that the walk has reached.
 *
 * @param list  the list that holds `item`, which is not checked.
 * @param item  a link in `list`.
 * @return the link; null at the end.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API list_link_type* list_peek_next(list_type* list, const list_link_type* item);

/**
 * Returns the element before `item`. The time grows with the length of the list.
 * @param list  the list.
 * @param item  a link in `list`.
 * @return the link; null when `item` is the front or is not in `list`.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API list_link_type* list_peek_prev(list_type* list, const list_link_type* item);

/**
 * Inserts `item` directly before `before`. The time grows with the length of the list.
 * @param list    the list.
 * @param item    a link that is in no list.
 * @param before  a link in `list`. When it is not in `list`, nothing changes.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void list_push_before(list_type* list, list_link_type* item, list_link_type* before);

/**
 * Inserts `item` directly after `after`.
 * @param list   the list that holds `after`, which is not checked.
 * @param item   a link that is in no list.
 * @param after  a link in `list`.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void list_push_after(list_type* list, list_link_type* item, list_link_type* after);

/**
 * Removes `item` from any place in the list. Its `next` does not change. The time grows with the length of
 * the list.
 * @param list  the list.
 * @param item  a link in `list`. When it is not in `list`, nothing changes.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void list_pop_item(list_type* list, list_link_type* item);

/**
 * Finds the first element, from the front, for which `compare(element, param)` is not 0.
 *
 * The lock is held during the whole walk. The time grows with the length of the list.
 *
 * @param list     the list.
 * @param compare  the comparison, which must not use the list. With null nothing is found.
 * @param param    handed to `compare` unchanged; may be null.
 * @return the link that was found, still in the list; null when there is none.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API list_link_type* list_linear_search(list_type* list, list_compare_fn compare, const void* param);

/**
 * Moves all elements of `src`, in their order, to the back of `dst`. `src` is then empty and can still be
 * used.
 *
 * The time is constant.
 *
 * The back pointer of `dst` becomes that of `src` EVEN WHEN `src` IS EMPTY: merging an empty list leaves a
 * `dst` that has elements with a null back pointer. list_push_back() and the merge of a list with elements
 * then find the last element by a walk and correct the pointer. list_push_front() sets the back to its own
 * item, too, and the next append hides the elements after that item. Test list_size() of `src` first when
 * this matters.
 *
 * Merging a list with itself changes nothing.
 *
 * @param dst  the list that grows.
 * @param src  the list that is emptied.
 * @par Blocking
 * It blocks while another thread holds the lock of either list. It takes the lock of `dst` and then that of
 * `src`: two threads that merge in opposite directions at the same time may block each other for ever.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void list_merge(list_type* dst, list_type* src);

/**
 * Moves `item` and every element after it, in their order, into `dst`. The elements before `item` stay.
 *
 * The time grows with the number of elements that stay. What `dst` held before is overwritten: those elements
 * are in no list any more. Splitting a list into itself changes nothing.
 *
 * @param list  the list to cut.
 * @param item  a link in `list`; the front moves everything. When it is not in `list`, nothing changes.
 * @param dst   the list that receives the rest.
 * @par Blocking
 * It blocks while another thread holds the lock of either list. It takes the lock of `list` and then that of
 * `dst`: two threads that split in opposite directions at the same time may block each other for ever.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void list_split(list_type* list, list_link_type* item, list_type* dst);

/**
 * @name Ordered list
 * A doubly linked list that is kept sorted by a weight in each link. Its order is the bitwise OR of a
 * direction and a placement, which are chosen when it is initialised. A header that its first use initialises
 * is ascending, and a new element goes before the elements of equal weight.
 *
 *     static ordered_list_type due;
 *     ordered_list_init(&due, ORDERED_LIST_ASCENDING, ORDERED_LIST_BEHIND_EQUALS);
 *     ordered_list_push(&due, &job.link, deadline);
 * @{
 */
enum {
  /** Direction: weights rise from front to back. */
  ORDERED_LIST_ASCENDING = 1,
  /** Direction: weights fall from front to back. */
  ORDERED_LIST_DESCENDING = 2,
  /** Placement: a new element goes before those of equal weight (last in, first out). */
  ORDERED_LIST_BEFORE_EQUALS = 0x1000,
  /** Placement: a new element goes after those of equal weight (first in, first out). */
  ORDERED_LIST_BEHIND_EQUALS = 0x2000
};

/** The first field of a record that is put in an ordered list. */
typedef struct ordered_list_link {
  /** Next link; null after the last. Stale after the link was removed. */
  struct ordered_list_link* next;
  /** Previous link; null before the first. Stale after the link was removed. */
  struct ordered_list_link* prev;
  /** The weight by which the list is sorted; set by ordered_list_push(). A later change does not move the
   * element. */
  uint32_t weight;
} ordered_list_link_type;

/** An ordered list. Its fields may be read while its lock is held. Only the functions below change them. */
typedef struct ordered_list_header {
  /** First link; null when the list is empty. */
  ordered_list_link_type* front;
  /** Last link; null when the list is empty. */
  ordered_list_link_type* back;
  /** Number of elements. */
  uint32_t size;
  /** Direction and placement. */
  int32_t order;
  /** 1 when the list is initialised. */
  int32_t initialised;
  /** Guards `front`, `back`, `size` and the links of all elements. */
  pthread_mutex_t lock;
} ordered_list_type;

/**
 * Tells whether an element is the wanted one. It runs with the lock of the list held.
 * @param element  link of the element.
 * @param param    as given to the search.
 * @return 0 for no; any other value for yes.
 */
typedef int (*ordered_list_compare_fn)(ordered_list_link_type* element, const void* param);

/**
 * Makes `list` an empty list of the given order and creates its lock.
 *
 * It is needed when the memory is not zeroed, and when the order is not ascending with new elements before
 * their equals.
 *
 * @param list       memory of any content. A list that is in use must be destroyed first.
 * @param direction  ::ORDERED_LIST_ASCENDING or ::ORDERED_LIST_DESCENDING.
 * @param placement  ::ORDERED_LIST_BEFORE_EQUALS or ::ORDERED_LIST_BEHIND_EQUALS. Other values are stored
 *                   unchanged: such a list can be used, but takes no element.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread calls it, while no other thread uses the list. It is not for signal handlers.
 */
KELO_API void ordered_list_init(ordered_list_type* list, int32_t direction, int32_t placement);

/**
 * Ends the use of `list`: its lock is destroyed, and `front`, `size` and `initialised` become zero.
 *
 * `back`, `order` and the elements do not change. A later use initialises the list again, ascending with new
 * elements before their equals.
 *
 * @param list  a list. A header that was never used is only zeroed.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread calls it, while no other thread uses the list. It is not for signal handlers.
 */
KELO_API void ordered_list_destroy(ordered_list_type* list);

/**
 * Puts `item` at its sorted place.
 *
 * The time is constant at the back, and otherwise grows with the number of elements before the place.
 *
 * @param list    the list. A list whose order is none of the four takes no element, without a message.
 * @param item    a link that is in no list. It receives `weight` even when the list does not take it.
 * @param weight  any value.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void ordered_list_push(ordered_list_type* list, ordered_list_link_type* item, uint32_t weight);

/**
 * Inserts `item` directly after `after`, whatever its weight is. The weight stays as the caller has set it.
 *
 * The time is constant. It DOES NOT TAKE THE LOCK and does not initialise the list.
 *
 * @param list   the list that holds `after`. When the neighbours of `after` show that it is in no list,
 *               nothing changes.
 * @param item   a link that is in no list.
 * @param after  a link in `list`.
 * @par Blocking
 * It does not block.
 * @par Threads
 * The caller holds the lock, or no other thread uses the list. It is not for signal handlers.
 */
KELO_API void ordered_list_push_after(ordered_list_type* list, ordered_list_link_type* item,
                                      ordered_list_link_type* after);

/**
 * Inserts `item` directly before `before`, otherwise as ordered_list_push_after() does.
 * @param list    the list that holds `before`.
 * @param item    a link that is in no list.
 * @param before  a link in `list`.
 * @par Blocking
 * It does not block.
 * @par Threads
 * The caller holds the lock, or no other thread uses the list. It is not for signal handlers.
 */
KELO_API void ordered_list_push_before(ordered_list_type* list, ordered_list_link_type* item,
                                       ordered_list_link_type* before);

/**
 * Removes the front element. Its pointers do not change. The time is constant.
 * @param list  the list.
 * @return the link; null when the list is empty.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API ordered_list_link_type* ordered_list_pop_front(ordered_list_type* list);

/**
 * Removes the back element. Its pointers do not change. The time is constant.
 * @param list  the list.
 * @return the link; null when the list is empty.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API ordered_list_link_type* ordered_list_pop_back(ordered_list_type* list);

/**
 * Returns the number of elements.
 * @param list  the list.
 * @return the number; 0 for a null list.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API uint32_t ordered_list_size(ordered_list_type* list);

/**
 * Returns the front element, which stays in the list.
 * @param list  the list.
 * @return the link; null when the list is empty.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API ordered_list_link_type* ordered_list_peek_front(ordered_list_type* list);

/**
 * Returns the back element, which stays in the list.
 * @param list  the list.
 * @return the link; null when the list is empty.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API ordered_list_link_type* ordered_list_peek_back(ordered_list_type* list);

/**
 * Returns the element after `item`. As with list_peek_next(), a walk takes the lock for each step.
 * @param list  the list that holds `item`, which is not checked.
 * @param item  a link in `list`.
 * @return the link; null at the end.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API ordered_list_link_type* ordered_list_peek_next(ordered_list_type* list,
                                                        const ordered_list_link_type* item);

/**
 * Returns the element before `item`. The time is constant.
 * @param list  the list that holds `item`, which is not checked.
 * @param item  a link in `list`.
 * @return the link; null at the front.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API ordered_list_link_type* ordered_list_peek_prev(ordered_list_type* list,
                                                        const ordered_list_link_type* item);

/**
 * Removes `item` from any place in the list. Its pointers do not change. The time is constant.
 * @param list  the list that holds `item`. When the neighbours of `item` show that it is in no list, nothing
 *              changes. An element of another list must not be given.
 * @param item  a link in `list`.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void ordered_list_pop_item(ordered_list_type* list, ordered_list_link_type* item);

/**
 * Finds the first element, from the front, for which `compare(element, param)` is not 0. The lock is held
 * during the whole walk.
 * @param list     the list.
 * @param compare  the comparison, which must not use the list. With null nothing is found.
 * @param param    handed to `compare` unchanged; may be null.
 * @return the link that was found, still in the list; null when there is none.
 * @par Blocking
 * It blocks while another thread holds the lock of the list.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API ordered_list_link_type* ordered_list_linear_search(ordered_list_type* list,
                                                            ordered_list_compare_fn compare,
                                                            const void* param);

/**
 * Moves `item` and every element after it, in their order, into `dst`. The elements before `item` stay.
 *
 * The time grows with the number of elements that stay. What `dst` held before is overwritten: those elements
 * are in no list any more. `dst` keeps its own order: when it differs from that of `list`, later elements are
 * placed among elements that are not sorted by it. Splitting a list into itself changes nothing.
 *
 * @param list  the list to cut.
 * @param item  a link in `list`; the front moves everything. When it is not in `list`, nothing changes.
 * @param dst   the list that receives the rest.
 * @par Blocking
 * It blocks while another thread holds the lock of either list. It takes the lock of `list` and then that of
 * `dst`: two threads that split in opposite directions at the same time may block each other for ever.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void ordered_list_split(ordered_list_type* list, ordered_list_link_type* item,
                                 ordered_list_type* dst);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_LIST_H */
