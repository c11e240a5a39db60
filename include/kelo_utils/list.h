/**
 * @file list.h
 * @brief Intrusive lists with an element count and a lock of their own.
 *
 * The caller embeds a link as the FIRST field of its own record and hands the link to the list, which hands
 * links back: a pointer to the link is a pointer to the record. The lists never allocate, free or copy an
 * element; a record must stay alive while its link is in a list.
 *
 *     struct job { list_link_type link; int number; };
 *
 *     static list_type jobs;
 *     list_push_back(&jobs, &job.link);
 *     struct job* first = (struct job*)list_pop_front(&jobs);
 *
 * Conventions of all functions here:
 * - A header that is filled with zeros is an empty list: its first use initialises it, and threads may race
 *   to be the first. Memory of other content must be initialised by the function for that.
 * - A null list, link or callback, where none is said to be allowed, answers null, 0 or nothing, and nothing
 *   is changed.
 * - A link is in at most one list at a time, and only once. A link that is taken out keeps its pointers.
 * - A list may be used from any thread until it is destroyed. Every function but those that initialise or
 *   destroy takes the list's lock, unless it says otherwise, and may block for it. The lock is not recursive:
 *   who holds it, a comparison callback above all, must not use the same list.
 * - Not for use in a signal handler.
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
  /** Next link; null after the last. Stale once the link was taken out. */
  struct list_link* next;
} list_link_type;

/** A linked list. Its fields may be read while its lock is held; only the functions below change them. */
typedef struct list_header {
  /** First link; null when empty. */
  list_link_type* front;
  /** Last link; null when empty, and after list_merge() of an empty list. */
  list_link_type* back;
  /** Number of elements. */
  uint32_t size;
  /** 1 once initialised. */
  int32_t initialised;
  /** Guards `front`, `back`, `size` and the links of all elements. */
  pthread_mutex_t lock;
} list_type;

/** Tells whether `element` is the wanted one: non-zero for yes. Runs with the list's lock held. */
typedef int (*list_compare_fn)(list_link_type* element, const void* param);

/**
 * Makes `list` an empty list and creates its lock. Needed only where the memory is not zeroed.
 * @param list  memory of any content; a list that is in use must be destroyed first.
 */
KELO_API void list_init(list_type* list);

/**
 * Ends the use of `list`: destroys its lock and zeroes the other fields. The elements are left as they are.
 * No other thread may use the list any more; a later use initialises it anew.
 * @param list  a list; a header that was never used is zeroed only.
 */
KELO_API void list_destroy(list_type* list);

/**
 * Inserts `item` at the front.
 * @param list  the list.
 * @param item  a link that is in no list.
 */
KELO_API void list_push_front(list_type* list, list_link_type* item);

/**
 * Appends `item` at the back. Constant time, but for a walk where list_merge() has left no back pointer.
 * @param list  the list.
 * @param item  a link that is in no list.
 */
KELO_API void list_push_back(list_type* list, list_link_type* item);

/**
 * Takes the front element out. Its `next` stays as it was.
 * @param list  the list.
 * @return the link; null when the list is empty.
 */
KELO_API list_link_type* list_pop_front(list_type* list);

/**
 * Takes the back element out. Time grows with the length of the list.
 * @param list  the list.
 * @return the link; null when the list is empty, and where list_merge() has left no back pointer: there the
 *         last element stays, becomes the back again, and the count falls by one nevertheless.
 */
KELO_API list_link_type* list_pop_back(list_type* list);

/**
 * Returns the number of elements.
 * @param list  the list.
 */
KELO_API uint32_t list_size(list_type* list);

/**
 * Returns the front element, which stays.
 * @param list  the list.
 * @return the link; null when the list is empty.
 */
KELO_API list_link_type* list_peek_front(list_type* list);

/**
 * Returns the back element, which stays.
 * @param list  the list.
 * @return the link; null when the list is empty, and where list_merge() has left no back pointer.
 */
KELO_API list_link_type* list_peek_back(list_type* list);

/**
 * Returns the element after `item`. A walk by list_peek_front() and list_peek_next() takes the lock for each
 * step: it is the caller's part to keep others from taking out the element it stands on.
 * @param list  the list that holds `item`. Whether it really does is not checked.
 * @param item  a link in `list`.
 * @return the link; null at the end.
 */
KELO_API list_link_type* list_peek_next(list_type* list, const list_link_type* item);

/**
 * Returns the element before `item`. Time grows with the length of the list.
 * @param list  the list.
 * @param item  a link in `list`.
 * @return the link; null when `item` is the front or is not in `list`.
 */
KELO_API list_link_type* list_peek_prev(list_type* list, const list_link_type* item);

/**
 * Inserts `item` immediately before `before`. Time grows with the length of the list.
 * @param list    the list.
 * @param item    a link that is in no list.
 * @param before  a link in `list`; where it is not, nothing changes.
 */
KELO_API void list_push_before(list_type* list, list_link_type* item, list_link_type* before);

/**
 * Inserts `item` immediately after `after`.
 * @param list   the list that holds `after`. Whether it really does is not checked.
 * @param item   a link that is in no list.
 * @param after  a link in `list`.
 */
KELO_API void list_push_after(list_type* list, list_link_type* item, list_link_type* after);

/**
 * Takes `item` out, wherever it stands. Its `next` stays as it was. Time grows with the length of the list.
 * @param list  the list.
 * @param item  a link in `list`; where it is not, nothing changes.
 */
KELO_API void list_pop_item(list_type* list, list_link_type* item);

/**
 * Finds the first element, from the front, for which `compare(element, param)` is non-zero. The lock is held
 * across the whole walk. Time grows with the length of the list.
 * @param list     the list.
 * @param compare  the comparison, which must not use the list; null finds nothing.
 * @param param    handed to `compare` as it is; may be null.
 * @return the link found, still in the list; null for none.
 */
KELO_API list_link_type* list_linear_search(list_type* list, list_compare_fn compare, const void* param);

/**
 * Moves all elements of `src`, in their order, to the back of `dst`; `src` is then empty and can be used on.
 * Constant time.
 *
 * The back pointer of `dst` becomes that of `src` EVEN WHEN `src` IS EMPTY: merging an empty list leaves a
 * `dst` that has elements with a null back pointer. list_push_back() and the merge of a list with elements
 * then find the last element by a walk and set the pointer right; list_push_front() takes its own item for
 * the back too, and what is appended next hides the elements behind it. Test list_size() first where that
 * matters.
 *
 * Takes the lock of `dst` and then that of `src`: two threads that merge in opposite directions at the same
 * time may block each other for ever. Merging a list with itself changes nothing.
 *
 * @param dst  the list that grows.
 * @param src  the list that is emptied.
 */
KELO_API void list_merge(list_type* dst, list_type* src);

/**
 * Moves `item` and every element after it, in their order, into `dst`; what stood before `item` stays. Time
 * grows with the number of elements that stay.
 *
 * What `dst` held before is overwritten: those elements are in no list any more.
 *
 * Takes the lock of `list` and then that of `dst`: two threads that split in opposite directions at the same
 * time may block each other for ever. Splitting a list into itself changes nothing.
 *
 * @param list  the list to cut.
 * @param item  a link in `list`; the front moves everything. Where it is not in `list`, nothing changes.
 * @param dst   the list that receives the rest.
 */
KELO_API void list_split(list_type* list, list_link_type* item, list_type* dst);

/**
 * @name Ordered list
 * A doubly linked list that is kept sorted by a weight in each link. Its order is the bitwise OR of a direction
 * and a placement, chosen when it is initialised; a header whose first use initialises it is ascending, with a
 * new element in front of its equals.
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
  /** Placement: a new element goes in front of those of equal weight (last in, first out). */
  ORDERED_LIST_BEFORE_EQUALS = 0x1000,
  /** Placement: a new element goes behind those of equal weight (first in, first out). */
  ORDERED_LIST_BEHIND_EQUALS = 0x2000
};

/** The first field of a record that is put in an ordered list. */
typedef struct ordered_list_link {
  /** Next link; null after the last. Stale once the link was taken out. */
  struct ordered_list_link* next;
  /** Previous link; null before the first. Stale once the link was taken out. */
  struct ordered_list_link* prev;
  /** What the list is sorted by; set by ordered_list_push(). Changing it later does not move the element. */
  uint32_t weight;
} ordered_list_link_type;

/** An ordered list. Its fields may be read while its lock is held; only the functions below change them. */
typedef struct ordered_list_header {
  /** First link; null when empty. */
  ordered_list_link_type* front;
  /** Last link; null when empty. */
  ordered_list_link_type* back;
  /** Number of elements. */
  uint32_t size;
  /** Direction and placement. */
  int32_t order;
  /** 1 once initialised. */
  int32_t initialised;
  /** Guards `front`, `back`, `size` and the links of all elements. */
  pthread_mutex_t lock;
} ordered_list_type;

/** Tells whether `element` is the wanted one: non-zero for yes. Runs with the list's lock held. */
typedef int (*ordered_list_compare_fn)(ordered_list_link_type* element, const void* param);

/**
 * Makes `list` an empty list of the given order and creates its lock. Needed where the memory is not zeroed
 * and where the order is not ascending with new elements before their equals.
 * @param list       memory of any content; a list that is in use must be destroyed first.
 * @param direction  ::ORDERED_LIST_ASCENDING or ::ORDERED_LIST_DESCENDING.
 * @param placement  ::ORDERED_LIST_BEFORE_EQUALS or ::ORDERED_LIST_BEHIND_EQUALS.
 *                   Other values are stored as they are: such a list works, but takes no element.
 */
KELO_API void ordered_list_init(ordered_list_type* list, int32_t direction, int32_t placement);

/**
 * Ends the use of `list`: destroys its lock and zeroes `front`, `size` and `initialised`; `back` and `order`
 * and the elements are left as they are. No other thread may use the list any more; a later use initialises
 * it anew, ascending with new elements before their equals.
 * @param list  a list; a header that was never used is zeroed only.
 */
KELO_API void ordered_list_destroy(ordered_list_type* list);

/**
 * Puts `item` at its sorted place. Constant time at the back, else time grows with the number of elements in
 * front of the place.
 * @param list    the list. One whose order is none of the four takes no element, silently.
 * @param item    a link that is in no list; receives `weight` even when the list does not take it.
 * @param weight  any value.
 */
KELO_API void ordered_list_push(ordered_list_type* list, ordered_list_link_type* item, uint32_t weight);

/**
 * Inserts `item` immediately after `after`, whatever its weight, which stays as the caller set it. Constant
 * time. DOES NOT TAKE THE LOCK and does not initialise the list: the caller holds the lock, or has the list
 * for itself.
 * @param list   the list that holds `after`. Where the neighbours of `after` tell that it is in none, nothing
 *               changes.
 * @param item   a link that is in no list.
 * @param after  a link in `list`.
 */
KELO_API void ordered_list_push_after(ordered_list_type* list, ordered_list_link_type* item,
                                      ordered_list_link_type* after);

/**
 * Inserts `item` immediately before `before`, otherwise like ordered_list_push_after().
 * @param list    the list that holds `before`.
 * @param item    a link that is in no list.
 * @param before  a link in `list`.
 */
KELO_API void ordered_list_push_before(ordered_list_type* list, ordered_list_link_type* item,
                                       ordered_list_link_type* before);

/**
 * Takes the front element out. Its pointers stay as they were. Constant time.
 * @param list  the list.
 * @return the link; null when the list is empty.
 */
KELO_API ordered_list_link_type* ordered_list_pop_front(ordered_list_type* list);

/**
 * Takes the back element out. Its pointers stay as they were. Constant time.
 * @param list  the list.
 * @return the link; null when the list is empty.
 */
KELO_API ordered_list_link_type* ordered_list_pop_back(ordered_list_type* list);

/**
 * Returns the number of elements.
 * @param list  the list.
 */
KELO_API uint32_t ordered_list_size(ordered_list_type* list);

/**
 * Returns the front element, which stays.
 * @param list  the list.
 * @return the link; null when the list is empty.
 */
KELO_API ordered_list_link_type* ordered_list_peek_front(ordered_list_type* list);

/**
 * Returns the back element, which stays.
 * @param list  the list.
 * @return the link; null when the list is empty.
 */
KELO_API ordered_list_link_type* ordered_list_peek_back(ordered_list_type* list);

/**
 * Returns the element after `item`. As with list_peek_next(), a walk takes the lock for each step.
 * @param list  the list that holds `item`. Whether it really does is not checked.
 * @param item  a link in `list`.
 * @return the link; null at the end.
 */
KELO_API ordered_list_link_type* ordered_list_peek_next(ordered_list_type* list,
                                                        const ordered_list_link_type* item);

/**
 * Returns the element before `item`. Constant time.
 * @param list  the list that holds `item`. Whether it really does is not checked.
 * @param item  a link in `list`.
 * @return the link; null at the front.
 */
KELO_API ordered_list_link_type* ordered_list_peek_prev(ordered_list_type* list,
                                                        const ordered_list_link_type* item);

/**
 * Takes `item` out, wherever it stands. Its pointers stay as they were. Constant time.
 * @param list  the list that holds `item`. Where the neighbours of `item` tell that it is in none, nothing
 *              changes; an element of another list must not be given.
 * @param item  a link in `list`.
 */
KELO_API void ordered_list_pop_item(ordered_list_type* list, ordered_list_link_type* item);

/**
 * Finds the first element, from the front, for which `compare(element, param)` is non-zero. The lock is held
 * across the whole walk.
 * @param list     the list.
 * @param compare  the comparison, which must not use the list; null finds nothing.
 * @param param    handed to `compare` as it is; may be null.
 * @return the link found, still in the list; null for none.
 */
KELO_API ordered_list_link_type* ordered_list_linear_search(ordered_list_type* list,
                                                            ordered_list_compare_fn compare,
                                                            const void* param);

/**
 * Moves `item` and every element after it, in their order, into `dst`; what stood before `item` stays. Time
 * grows with the number of elements that stay.
 *
 * What `dst` held before is overwritten: those elements are in no list any more. `dst` keeps an order of its
 * own: where it differs from that of `list`, later elements find their place among elements that are not
 * sorted by it.
 *
 * Takes the locks as list_split() does, with the same caution. Splitting a list into itself changes nothing.
 *
 * @param list  the list to cut.
 * @param item  a link in `list`; the front moves everything. Where it is not in `list`, nothing changes.
 * @param dst   the list that receives the rest.
 */
KELO_API void ordered_list_split(ordered_list_type* list, ordered_list_link_type* item,
                                 ordered_list_type* dst);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_LIST_H */
