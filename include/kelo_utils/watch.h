/* SPDX-License-Identifier: MIT */
/**
 * @file watch.h
 * @brief A watch of the store: a daemon is told of what any process has changed.
 *
 * Subscribers hear of the writes of their own process. A watch tells of every item in the SQLite store that has
 * changed, whichever process has changed it, this one included: by a write, an emptying, a clean, a repair, or
 * with another program. A process has at most one watch. Either a thread of the library calls the callback, or
 * the process polls a descriptor and calls kelo_dm_watch_dispatch().
 *
 * What is told:
 * - A watch begins with the rows that are stored when it begins, which are not told. A daemon therefore begins
 *   the watch first and then reads its items. After its restart it does the same.
 * - An item is told when its stored row differs from the one that was told last: its value or its id is another
 *   one, or the row is new or gone. Nothing is told when a value is written that is stored already, or when an
 *   item has its old value again by the time the watch looks.
 * - No change is lost. The watch looks after each write, and in any case after the last one. When it is late,
 *   because a callback takes long or the process was stopped, it finds several changes at once: an item that
 *   was written several times is told once. What is found at one look is told in the order of the tables and
 *   keys, and what is gone comes last. All that is told later was changed later.
 * - When an item is told, a read gives its new value or one that is newer still.
 *
 * A writer has no work with it, whether somebody watches or not. The page docs/watch.md says how it is done.
 *
 * The version record is an item like the others: its id is ::SQL_VER_ID (sqlite.h). The defaults, the values in
 * memory and the parameters (parameters.h) are not watched.
 * A table that an older release has made without ids is watched from its next write on.
 *
 * A child made by fork() has no watch: its calls have the results of a process without one, and it may begin one
 * of its own. A child that is made within a callback may do so when the callback has returned. It is told nothing
 * more.
 *
 * These functions are optional additions to data_manager.h, as those of settings.h are. With KELO_NO_ADDITIONS
 * this header declares nothing.
 */
#ifndef KELO_UTILS_WATCH_H
#define KELO_UTILS_WATCH_H

#include <stdint.h>

#include "kelo_utils/base.h"

#ifndef KELO_NO_ADDITIONS

KELO_BEGIN_DECLS

/** Results of the watch. */
enum kelo_dm_watch_result {
  KELO_DM_WATCH_OTHER = -1, /**< there is no watch, or there is one already, or it is one of the other kind */
  KELO_DM_WATCH_FAILED = -2,      /**< the system or the store does not allow it now */
  KELO_DM_WATCH_BAD_ARGUMENT = -3 /**< null argument */
};

/**
 * Receives one change.
 *
 * It is called without any lock of the library. It may read and write items, and end the watch. It must return,
 * and not end its thread.
 *
 * @param id       id of the item, as its row has it; the last one, when the row is gone.
 * @param table    table of the item, valid during the call.
 * @param key      key of the item, valid during the call.
 * @param context  what the caller has given.
 */
typedef void (*kelo_dm_watch_fn)(int32_t id, const char* table, const char* key, void* context);

/**
 * Begins a watch whose callback runs on a thread of the library, or ends the watch of this process, of either
 * kind.
 *
 * The thread has the usual stack of the C library, and all signals are blocked in it. When the store cannot be
 * read, it tries again each second.
 *
 * After the end the callback is not called any more, and no call of it is running, unless it is the callback
 * itself that has ended the watch.
 *
 * @param callback  the function; null ends the watch.
 * @param context   is given to `callback`. It may be null. It must stay valid until the watch has ended.
 * @retval 0   begun, or ended.
 * @retval -1  begin: this process has a watch already, or the call is made within a callback; end: it has none.
 * @retval -2  not begun: the folder of the backup cannot be watched, as in a kernel without inotify; the rows
 *             could not be read, or the lock of the store was not available in time; no memory or no thread.
 * @par Blocking
 * The begin blocks for one read of all rows, and up to five seconds for the lock of the store. The end blocks
 * while the thread looks at the store and while the callback runs. Its caller must not hold a lock for which the
 * callback may wait.
 * @par Threads
 * One thread at a time may use the functions of the watch; beside it, the callback may end the watch at any
 * time. The first call comes after kelo_dm_reg_store_area(). It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_watch(kelo_dm_watch_fn callback, void* context);

/**
 * Begins a watch without a thread, unless there is one already, and returns its descriptor. It becomes readable
 * when something may have changed: then kelo_dm_watch_dispatch() is to be called. The descriptor belongs to the
 * library, which closes it when kelo_dm_watch() ends the watch. Nothing else may be done with it but to poll it.
 * @return the descriptor, 0 or more; -1 when this process has a watch with a thread, or none and the call is made
 *         within a callback; -2 when the watch could not begin, as for kelo_dm_watch().
 * @par Blocking
 * The first call blocks for one read of all rows, and up to five seconds for the lock of the store.
 * @par Threads
 * One thread at a time may use the functions of the watch. The first call comes after
 * kelo_dm_reg_store_area(). It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_watch_fd(void);

/**
 * Calls a function in this thread for each change since the last call, or since the watch has begun.
 * @param callback  the function. When it ends the watch, it is not called any more.
 * @param context   is given to `callback`. It may be null.
 * @return the number of calls, 0 or more; -1 when this process has no watch that kelo_dm_watch_fd() has begun,
 *         also in a child that its callback has made, or when it is called by its own callback; -2 when the
 *         store cannot be read now, or the lock of the store was not available in time; -3 when `callback` is
 *         null. After -2 nothing is lost, and some changes may be told once more. The descriptor does not become
 *         readable for them again: the caller tries once more by itself, for instance after a second.
 * @par Blocking
 * It does not block when nothing has changed. Otherwise it blocks for one read of all rows, up to five seconds
 * for the lock of the store, and for as long as the callback does.
 * @par Threads
 * One thread at a time may use the functions of the watch. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_watch_dispatch(kelo_dm_watch_fn callback, void* context);

KELO_END_DECLS

#endif /* KELO_NO_ADDITIONS */

#endif /* KELO_UTILS_WATCH_H */
