/* SPDX-License-Identifier: MIT */
/**
 * @file settings.h
 * @brief More about items: typed values, the list of items, subscribers, the SQLite back-end chosen at run time.
 *
 * These functions are optional additions to data_manager.h. A library that was built without them
 * (KELO_ADDITIONS=OFF) has none of them. Its CMake package and its pkg-config modules define
 * KELO_NO_ADDITIONS, with which this header declares nothing.
 *
 * A null argument is refused without a message. An id that is not registered is logged as by kelo_dm_get().
 */
#ifndef KELO_UTILS_SETTINGS_H
#define KELO_UTILS_SETTINGS_H

#include <stdint.h>

#include "kelo_utils/base.h"
#include "kelo_utils/data_manager.h"

#ifndef KELO_NO_ADDITIONS

KELO_BEGIN_DECLS

/** Results of the typed values. Those from 0 to -5 are the results of kelo_dm_get() and of
 * kelo_dm_write_verified(). */
enum kelo_dm_value_result {
  KELO_DM_VALUE_OK = 0,        /**< the value was read, or is stored */
  KELO_DM_VALUE_NONE = -1,     /**< get: there is no value and no default; set: the value was not stored */
  KELO_DM_VALUE_TOO_LONG = -2, /**< get: the value does not fit into the buffer */
  KELO_DM_VALUE_BAD_ARGUMENT = -3, /**< null argument, size below 1 or unknown id */
  KELO_DM_VALUE_DAMAGED = -4,      /**< get: the stored value is damaged */
  KELO_DM_VALUE_NOT_READABLE = -5, /**< get: the value cannot be known now */
  KELO_DM_VALUE_WRONG_TYPE = -6, /**< the item was registered with another type; it was not read or written */
  KELO_DM_VALUE_WRONG_LENGTH = -7 /**< the value has another length than its type; nothing was written */
};

/**
 * @name Typed values
 * They read as kelo_dm_get() and write as kelo_dm_write_verified(): a get gives the stored value or else the
 * default, and a set whose result is 0 has stored the value and announced it.
 *
 * The type is that with which the item was registered (`def_type`). Numbers and truth values are items of the
 * types 1 to 4, texts are of type 5 and bytes of type 6. Numbers have four bytes in the byte order of the
 * machine. An item does not tell whether its number has a sign: the two functions for numbers read the same
 * bytes.
 * @{
 */
/**
 * Gets the number of an item as a signed number of 32 bits.
 * @param handle  from kelo_dm_reg(); needs its `read`.
 * @param id      registered item id.
 * @param value   receives the number; unchanged unless the result is 0.
 * @retval 0   read.
 * @retval -1  nothing is stored, and the item has no default.
 * @retval -3  null argument or unknown id.
 * @retval -4  the stored value is damaged.
 * @retval -5  the value cannot be known now, as for kelo_dm_get().
 * @retval -6  the item is no scalar.
 * @retval -7  the value, stored or default, does not have four bytes.
 * @par Blocking
 * It blocks for the access to the storage, as kelo_dm_get() does.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_get_int32(kelo_dm_handle* handle, int32_t id, int32_t* value);

/**
 * Gets the number of an item as a number of 32 bits without a sign.
 * @param handle  from kelo_dm_reg(); needs its `read`.
 * @param id      registered item id.
 * @param value   receives the number; unchanged unless the result is 0.
 * @retval 0   read.
 * @retval -1  nothing is stored, and the item has no default.
 * @retval -3  null argument or unknown id.
 * @retval -4  the stored value is damaged.
 * @retval -5  the value cannot be known now, as for kelo_dm_get().
 * @retval -6  the item is no scalar.
 * @retval -7  the value, stored or default, does not have four bytes.
 * @par Blocking
 * It blocks for the access to the storage, as kelo_dm_get() does.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_get_uint32(kelo_dm_handle* handle, int32_t id, uint32_t* value);

/**
 * Gets the truth value of an item: a scalar of one byte or of four.
 * @param handle  from kelo_dm_reg(); needs its `read`.
 * @param id      registered item id.
 * @param value   receives 0 when all bytes of the value are 0, and otherwise 1; unchanged unless the result is
 *                0.
 * @retval 0   read.
 * @retval -1  nothing is stored, and the item has no default.
 * @retval -3  null argument or unknown id.
 * @retval -4  the stored value is damaged.
 * @retval -5  the value cannot be known now, as for kelo_dm_get().
 * @retval -6  the item is no scalar.
 * @retval -7  the value, stored or default, has neither one byte nor four.
 * @par Blocking
 * It blocks for the access to the storage, as kelo_dm_get() does.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_get_bool(kelo_dm_handle* handle, int32_t id, int32_t* value);

/**
 * Gets the text of an item and terminates it.
 * @param handle  from kelo_dm_reg(); needs its `read`.
 * @param id      registered item id of type 5.
 * @param buf     receives the text with its terminator. It holds the empty text when the result is not 0. A
 *                stored text with a NUL in it is copied whole.
 * @param size    size of `buf` in bytes, 1 or more, terminator included.
 * @retval 0   read.
 * @retval -1  nothing is stored, and the item has no default.
 * @retval -2  the text and its terminator have more than `size` bytes.
 * @retval -3  null argument, `size` below 1 or unknown id.
 * @retval -4  the stored value is damaged.
 * @retval -5  the value cannot be known now, as for kelo_dm_get().
 * @retval -6  the item is no text.
 * @par Blocking
 * It blocks for the access to the storage, as kelo_dm_get() does.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_get_text(kelo_dm_handle* handle, int32_t id, char* buf, int32_t size);

/**
 * Gets the bytes of an item.
 * @param handle  from kelo_dm_reg(); needs its `read`.
 * @param id      registered item id of type 6.
 * @param buf     receives the bytes; unchanged unless the result is 0.
 * @param size    size of `buf` in bytes, 1 or more.
 * @param len     receives the number of bytes when the result is 0 or -2; otherwise unchanged.
 * @retval 0   read.
 * @retval -1  nothing is stored, and the item has no default.
 * @retval -2  the value has more than `size` bytes.
 * @retval -3  null argument, `size` below 1 or unknown id.
 * @retval -4  the stored value is damaged.
 * @retval -5  the value cannot be known now, as for kelo_dm_get().
 * @retval -6  the item is no buffer.
 * @par Blocking
 * It blocks for the access to the storage, as kelo_dm_get() does.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_get_bytes(kelo_dm_handle* handle, int32_t id, void* buf, int32_t size, int32_t* len);

/**
 * Stores a signed number of 32 bits as the value of an item.
 * @param handle  from kelo_dm_reg(); needs its `read` as well as its `write`.
 * @param id      registered item id.
 * @param value   any number.
 * @retval 0   stored and announced.
 * @retval -1  not stored, as far as can be known, as for kelo_dm_write_verified().
 * @retval -3  null `handle` or unknown id.
 * @retval -6  the item is no scalar.
 * @retval -7  the item was registered with a length of other than four bytes.
 * @par Blocking
 * It blocks for the write and for one read of the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_set_int32(kelo_dm_handle* handle, int32_t id, int32_t value);

/**
 * Stores a number of 32 bits without a sign as the value of an item.
 * @param handle  from kelo_dm_reg(); needs its `read` as well as its `write`.
 * @param id      registered item id.
 * @param value   any number.
 * @retval 0   stored and announced.
 * @retval -1  not stored, as far as can be known, as for kelo_dm_write_verified().
 * @retval -3  null `handle` or unknown id.
 * @retval -6  the item is no scalar.
 * @retval -7  the item was registered with a length of other than four bytes.
 * @par Blocking
 * It blocks for the write and for one read of the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_set_uint32(kelo_dm_handle* handle, int32_t id, uint32_t value);

/**
 * Stores a truth value as the value of an item.
 * @param handle  from kelo_dm_reg(); needs its `read` as well as its `write`.
 * @param id      registered item id.
 * @param value   0, or any other number for 1. It is stored in as many bytes as the item was registered with.
 * @retval 0   stored and announced.
 * @retval -1  not stored, as far as can be known, as for kelo_dm_write_verified().
 * @retval -3  null `handle` or unknown id.
 * @retval -6  the item is no scalar.
 * @retval -7  the item was registered with a length of neither one byte nor four.
 * @par Blocking
 * It blocks for the write and for one read of the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_set_bool(kelo_dm_handle* handle, int32_t id, int32_t value);

/**
 * Stores a text, without its terminator, as the value of an item.
 * @param handle  from kelo_dm_reg(); needs its `read` as well as its `write`.
 * @param id      registered item id of type 5.
 * @param text    the text, which is not kept.
 * @retval 0   stored and announced.
 * @retval -1  not stored, as far as can be known, as for kelo_dm_write_verified().
 * @retval -3  null argument or unknown id.
 * @retval -6  the item is no text.
 * @retval -7  the text is empty, which the storage could not tell from an item without a value
 *             (kelo_dm_empty() removes the value); or it has more than INT32_MAX bytes.
 * @par Blocking
 * It blocks for the write and for one read of the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_set_text(kelo_dm_handle* handle, int32_t id, const char* text);

/**
 * Stores bytes as the value of an item.
 * @param handle  from kelo_dm_reg(); needs its `read` as well as its `write`.
 * @param id      registered item id of type 6.
 * @param data    `len` bytes, which are not kept.
 * @param len     number of bytes, 1 or more.
 * @retval 0   stored and announced.
 * @retval -1  not stored, as far as can be known, as for kelo_dm_write_verified().
 * @retval -3  null argument or unknown id.
 * @retval -6  the item is no buffer.
 * @retval -7  `len` is below 1.
 * @par Blocking
 * It blocks for the write and for one read of the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_set_bytes(kelo_dm_handle* handle, int32_t id, const void* data, int32_t len);
/** @} */

/**
 * Receives one registered item.
 * @param id    id of the item.
 * @param item  its descriptor, which stays valid until the process ends. It must not be changed.
 * @param user  what kelo_dm_for_each_item() was given.
 * @return 0 to go on with the next item; any other value ends the enumeration.
 */
typedef int32_t (*kelo_dm_item_fn)(int32_t id, const kelo_dm_item_desc* item, void* user);

/**
 * Calls a function for each registered item, in the order of registration. An id that was registered more
 * than once is given once, in the place and with the descriptor of its last registration.
 * @param callback  is called in this thread and without a lock. It may read and write items, and must not
 *                  register any.
 * @param user      is given to `callback`. It may be null.
 * @return 0 when `callback` has returned 0 for every item, also when nothing is registered; the first other
 *         result of `callback`; -3 when `callback` is null.
 * @par Blocking
 * It blocks for as long as the callback does.
 * @par Threads
 * Any thread may call it, while no thread registers items. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_for_each_item(kelo_dm_item_fn callback, void* user);

/**
 * @name Subscribers to changes
 * They are called beside the callback of kelo_dm_reg_event_callback(), and after it.
 * @{
 */
/** The number of subscriptions that a process may have at one time. */
enum { KELO_DM_MOST_SUBSCRIPTIONS = 16 };

/**
 * Receives one change of an item.
 *
 * It runs in the thread that writes, after the storage has accepted the value, without any lock of the
 * library. It may call the data manager, subscribe and unsubscribe. It must return, and not end its thread.
 *
 * @param id    id of the item.
 * @param data  the bytes that were stored, valid during the call. It is not null, also when `len` is 0.
 * @param len   number of bytes; 0 when the item was emptied.
 * @param user  what kelo_dm_subscribe() was given.
 */
typedef void (*kelo_dm_change_fn)(int32_t id, const void* data, int32_t len, void* user);

/**
 * Calls a function for every change of an item from now on. The functions are called in the order in which
 * they have subscribed. A function that subscribes during a change is called from the next change on. The
 * same function may subscribe several times, with other pointers or with the same one.
 *
 * A child made by fork() has the subscriptions of its parent.
 *
 * @param callback  the function.
 * @param user      is given to `callback`. It may be null. It must stay valid until kelo_dm_unsubscribe() has
 *                  returned.
 * @return the number of the subscription, 1 or more, which is not used again; -1 when there are already
 *         KELO_DM_MOST_SUBSCRIPTIONS, or all numbers have been used; -3 when `callback` is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_subscribe(kelo_dm_change_fn callback, void* user);

/**
 * Ends a subscription. Its function is not called any more, not even for a change that is being announced.
 *
 * Outside a callback of a subscriber, no call of the function is running in another thread when this returns.
 * Within such a callback it does not wait, since two callbacks could then wait for each other: a call of the
 * function in another thread, or further out in this one, may still be running.
 *
 * @param subscription  the result of kelo_dm_subscribe().
 * @retval 0   ended.
 * @retval -1  there is no such subscription, or it has ended already.
 * @par Blocking
 * It blocks while another thread is in the function of the subscription, unless it is called within a
 * callback of a subscriber. The caller must not hold a lock for which the function may wait.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_unsubscribe(int32_t subscription);
/** @} */

/**
 * Lets the hooks of the library use the SQLite back-end (sqlite.h) from now on.
 *
 * It is for programs that load the shared library and cannot link the target `kelo::utils_sqlite`, such as
 * programs in other languages. dm_pal_reg() of the library then calls sqlite_reg(), dm_pal_reg_store_area()
 * calls sqlite_reg_store_area(), dm_pal_check_db_version_match() calls sqlite_chk_db_ver_match(), and
 * dm_pal_check_db_health() calls check_database_health() for ::DB_CONFIG. Handles that exist already do not
 * change.
 *
 * A hook that the program defines itself is called as before, and so are those of `kelo::utils_sqlite`: this
 * function does not change them. More calls change nothing. The choice lasts until the process ends.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread calls it at start-up, before kelo_dm_reg_store_area() and kelo_dm_reg(). It is not for signal
 * handlers.
 */
KELO_API void kelo_dm_use_sqlite(void);

KELO_END_DECLS

#endif /* KELO_NO_ADDITIONS */

#endif /* KELO_UTILS_SETTINGS_H */
