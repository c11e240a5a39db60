/* SPDX-License-Identifier: MIT */
/**
 * @file data_manager.h
 * @brief Configuration items by number: registered from tables, written and read through a handle.
 *
 * A daemon describes its items once, in a static table, and registers the table at start-up. It then obtains
 * a handle, into which the storage back-end puts its functions. Through the handle it writes and reads items
 * by id. Changes are announced to one callback.
 *
 *     static kelo_dm_item items[] = {
 *       KELO_DM_ITEM(1203, "NET_TAB", "CHANNEL", KELO_DM_TYPE_SCALAR3, 6, 4),
 *       KELO_DM_TEXT_ITEM(1204, "NET_TAB", "SSID", "home"),
 *       KELO_DM_END
 *     };
 *
 *     kelo_dm_reg_def_items(items);
 *     kelo_dm_handle* store = kelo_dm_reg(0);
 *     kelo_dm_write(store, 1204, "cabin", 5);
 *
 * Threads: registration, the event callback and the handles are set up in one thread at start-up. After that
 * any thread may write and read. The storage back-end allows one access to the storage at a time.
 *
 * Processes: with the SQLite back-end several daemons may share the storage. An operation waits for the
 * operations of other processes, for five seconds at most. It then fails and has touched no file:
 * kelo_dm_write() returns -1, kelo_dm_read_db() -3, kelo_dm_get() -5. sqlite.h says more, also about fork().
 *
 * Results: 0 is success. A bad argument or an unknown id is -3, except where a function says otherwise. A
 * null argument or a length below 1 that a function does not accept is logged at level 3 as "%s param NULL\n"
 * with a function name. An id that is not registered is logged as "symLookup failed: %s\n" with the id.
 *
 * Fatal errors: a call that needs an empty slot of a handle ends the process. So does memory that runs out,
 * where a function says so. The text "data_manager/kelo_app_dm.c, line: N" is printed on standard output, and
 * the process aborts.
 */
#ifndef KELO_UTILS_DATA_MANAGER_H
#define KELO_UTILS_DATA_MANAGER_H

#include <stdint.h>

#include "kelo_utils/base.h"
#include "kelo_utils/queue.h"

KELO_BEGIN_DECLS

/** Value types of an item. */
enum kelo_dm_type {
  KELO_DM_TYPE_SCALAR1 = 1, /**< fixed-size value, stored as its bytes */
  KELO_DM_TYPE_SCALAR2 = 2, /**< fixed-size value, stored as its bytes */
  KELO_DM_TYPE_SCALAR3 = 3, /**< fixed-size value, stored as its bytes; the version record has this type */
  KELO_DM_TYPE_SCALAR4 = 4, /**< fixed-size value, stored as its bytes */
  KELO_DM_TYPE_STRING = 5,  /**< text, stored without its terminator */
  KELO_DM_TYPE_BUFFER = 6   /**< bytes, stored as given */
};

/** What the storage back-end knows about an item. */
typedef struct kelo_dm_item_desc {
  char item_table[32]; /**< NUL-terminated name of the storage table */
  char item_key[32];   /**< NUL-terminated key within that table */
  int32_t type;        /**< value type as the back-end reads it; registration copies `def_type` into it */
  /** Types 1 to 4: the default itself, in the first bytes. Type 5: address of the text. Type 6: address of
   * the bytes. */
  intptr_t def_value;
  int32_t def_type; /**< declared type, ::kelo_dm_type */
  int32_t len;      /**< length of the default in bytes */
} kelo_dm_item_desc;

/**
 * One row of a daemon's table of default items. The table belongs to the daemon. It must stay alive and
 * writable until the process ends: the registry keeps pointers into it and sets `desc.type`.
 */
typedef struct kelo_dm_item {
  int32_t id;             /**< item id; -1 ends the table */
  kelo_dm_item_desc desc; /**< table, key, type and default */
} kelo_dm_item;

/**
 * The functions that a storage back-end puts into a handle, in slot order. Each of the functions for an item
 * gets the id of the item and its descriptor, which is valid and writable during the call. An empty slot is
 * null.
 */
typedef struct kelo_dm_operations {
  /** Stores `len` bytes (0: an empty value) as the current value. It returns 0 on success. The data manager
   * hands any other result to its caller unchanged. */
  int (*write)(uint32_t id, kelo_dm_item_desc* item, const void* data, int len);
  /** Copies at most `size` bytes of the current value into `buf` and returns their number. A negative result
   * is a failure; kelo_dm_get() says which negative results it distinguishes. */
  int (*read)(uint32_t id, kelo_dm_item_desc* item, void* buf, int size);
  /** Empties the storage. `backup` is what kelo_dm_clean() was given, and `one` is always 1. When cleaning
   * has ended it stores 0 in `*clean_flag`, atomically, from any thread. */
  int (*clean)(const char* backup, int one, int32_t* clean_flag);
  /** Stores the default of an item. `value` is the address of the `def_value` of the descriptor when a whole
   * database of defaults is built, and otherwise what kelo_dm_def_items_write() was given. */
  int (*def_db_const)(uint32_t id, kelo_dm_item_desc* item, const void* value, int len);
  /** Copies at most `size` bytes of the stored default into `buf`. */
  int (*def_db_read)(uint32_t id, kelo_dm_item_desc* item, void* buf, int size);
  /** Reports the version of the configuration database. The data manager itself never calls it. */
  int (*read_cfg_db_version)(uint32_t* version);
  /** Reports the version of the defaults database. The data manager itself never calls it. */
  int (*read_def_items_db_version)(uint32_t* version);
} kelo_dm_operations;

/** A handle of the data manager. There may be any number of them, each with its own operations. */
typedef struct kelo_dm_handle {
  int32_t id;                    /**< the number given to kelo_dm_reg(); it has no meaning for the library */
  kelo_dm_operations operations; /**< filled by the storage back-end */
} kelo_dm_handle;

/** An element of a queue of items, which kelo_dm_compare_id() searches. */
typedef struct kelo_dm_item_node {
  q_link_type link;   /**< place in the queue; it is first, so that its address is that of the node */
  kelo_dm_item* item; /**< the item */
} kelo_dm_item_node;

/**
 * Receives one change of an item.
 *
 * It runs in the thread that writes, after the storage has accepted the value, without any lock of the data
 * manager. It may call the data manager.
 *
 * @param id    id of the item.
 * @param data  the bytes that were stored, valid during the call. It is not null, also when `len` is 0.
 * @param len   number of bytes; 0 when the item was emptied.
 * @return any value; it is ignored.
 */
typedef int (*kelo_dm_event_fn)(int32_t id, const void* data, int32_t len);

/**
 * @name Rows of a table of default items
 * Initialisers for static tables, in C and in C++. `table` and `key` are string literals of at most 31
 * characters.
 * @{
 */
#ifdef __cplusplus
/** The `def_value` of a string item: the address of the NUL-terminated `text`, which must stay alive. */
#define KELO_DM_TEXT(text) reinterpret_cast<intptr_t>(text)
#else
/** The `def_value` of a string item: the address of the NUL-terminated `text`, which must stay alive. */
#define KELO_DM_TEXT(text) ((intptr_t)(text))
#endif

/** The `def_value` of a buffer item: the address of the array `bytes`, which must stay alive. */
#define KELO_DM_BYTES(bytes) KELO_DM_TEXT(bytes)

/** Part of KELO_DM_ITEM(): whether items of `type` have their default in `def_value` itself. */
#define KELO_DM_IS_SCALAR(type) ((type) >= KELO_DM_TYPE_SCALAR1 && (type) <= KELO_DM_TYPE_SCALAR4)

/** Part of KELO_DM_ITEM(): 0. It does not compile (an array of negative size) for a scalar whose `len` is
 * more than `def_value` holds. */
#define KELO_DM_SCALAR_MUST_FIT(type, len) \
  (0 * sizeof(char[KELO_DM_IS_SCALAR(type) && (int32_t)(len) > (int32_t)sizeof(intptr_t) ? -1 : 1]))

#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
/** Part of KELO_DM_FIELD(): the bits of `def_value` that a scalar of `len` bytes does not use. */
#define KELO_DM_UNUSED_BITS(len)                           \
  ((len) > 0 && (int32_t)(len) < (int32_t)sizeof(intptr_t) \
       ? 8 * ((int32_t)sizeof(intptr_t) - (int32_t)(len))  \
       : 0)
/** Part of KELO_DM_ITEM(): the `def_value` whose first `len` bytes in memory are the scalar `value`. Another
 * `value` than a scalar is unchanged. */
#define KELO_DM_FIELD(type, value, len) \
  (KELO_DM_IS_SCALAR(type) ? (intptr_t)((uintptr_t)(value) << KELO_DM_UNUSED_BITS(len)) : (intptr_t)(value))
#else
/** Part of KELO_DM_ITEM(): the `def_value` whose first `len` bytes in memory are the scalar `value`. Another
 * `value` than a scalar is unchanged. */
#define KELO_DM_FIELD(type, value, len) ((intptr_t)(value))
#endif

/**
 * A complete row.
 *
 * The storage reads the default of a scalar from the first `len` bytes of `def_value`. There the row holds
 * `value` in the byte order of the machine, cut to `len` bytes. A scalar that is longer than this field does
 * not compile. The field has 4 bytes on 32-bit machines and 8 on 64-bit machines, so a table for both has no
 * scalars longer than 4 bytes. A longer value is a buffer item.
 *
 * `type` is a ::kelo_dm_type. `value` is a number for types 1 to 4, and otherwise a KELO_DM_TEXT() or
 * KELO_DM_BYTES(). `len` is the length of the default in bytes. `type` and `len` are integer constants.
 * `value` need not be a constant in a table that is made at run time.
 */
#define KELO_DM_ITEM(id, table, key, type, value, len)                    \
  {                                                                       \
    (id), {                                                               \
      table, key, (type), KELO_DM_FIELD(type, value, len), (type),        \
          (int32_t)((uint32_t)(len) + KELO_DM_SCALAR_MUST_FIT(type, len)) \
    }                                                                     \
  }

/** A string item whose default is the string literal `text`. Its length does not count the terminator. */
#define KELO_DM_TEXT_ITEM(id, table, key, text) \
  KELO_DM_ITEM(id, table, key, KELO_DM_TYPE_STRING, KELO_DM_TEXT(text), sizeof(text) - 1)

/** A buffer item whose default is the whole of the array `bytes`. */
#define KELO_DM_BYTES_ITEM(id, table, key, bytes) \
  KELO_DM_ITEM(id, table, key, KELO_DM_TYPE_BUFFER, KELO_DM_BYTES(bytes), sizeof(bytes))

/** The row that ends a table. */
#define KELO_DM_END KELO_DM_ITEM(-1, "", "", 0, 0, 0)
/** @} */

/**
 * @name Handles
 * @{
 */
/**
 * Makes a handle and lets the hook dm_pal_reg() fill its operations. Memory that runs out is fatal.
 * @param id  number of a client or area. It may be any value and has no meaning for the library.
 * @return the handle, never null. The caller owns it until kelo_dm_unreg().
 * @par Blocking
 * It blocks for as long as the hook does. The first registration with the SQLite back-end waits for other
 * processes, for five seconds at most, completes an interrupted write and repairs what an older release or a
 * power cut left (see sqlite_reg()).
 * @par Threads
 * One thread calls it at start-up. It is not for signal handlers.
 */
KELO_API kelo_dm_handle* kelo_dm_reg(int32_t id);

/**
 * Releases a handle. The storage and the registered items do not change.
 * @param handle  from kelo_dm_reg(); no other thread uses it any more.
 * @retval 0   released.
 * @retval -1  `handle` is null, which is logged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different handles. It is not for signal handlers.
 */
KELO_API int kelo_dm_unreg(kelo_dm_handle* handle);
/** @} */

/**
 * @name Items and their defaults
 * @{
 */
/**
 * Registers a table of items.
 *
 * It may be called several times. When an id is already registered, reads and writes use the later item from
 * then on, while kelo_dm_construct_def_database() stores the defaults of both. `def_type` is copied into the
 * `type` of every row. Items stay registered until the process ends. It is fatal when memory for the list of
 * defaults runs out.
 *
 * @param records  table that ends with a row of id -1 (see ::kelo_dm_item for its lifetime). Any other id,
 *                 also a negative one, names an item.
 * @retval 0   registered; also when the table holds nothing but its end.
 * @retval -3  `records` is null, which is logged.
 * @retval -4  the index of ids cannot be made, which is logged.
 * @par Blocking
 * It blocks up to one second for a fork() of another thread.
 * @par Threads
 * One thread calls it, while no other thread uses the data manager. It is not for signal handlers.
 */
KELO_API int kelo_dm_reg_def_items(kelo_dm_item* records);

/**
 * Stores the default of every registered item, in the order of registration, through a handle of its own.
 *
 * Results of the storage are ignored. The SQLite back-end stores all defaults in one transaction, does not
 * change those that are already stored, and writes one by one those that it cannot store in this way. A
 * back-end of the program gets one call of its `def_db_const` for each item. A storage back-end without such
 * a function is a fatal error.
 *
 * @param id  number for the handle, as in kelo_dm_reg().
 * @retval 0   every item was handed to the storage; or the storage is being cleaned, and the remaining items
 *             are left out.
 * @retval -1  nothing is registered.
 * @par Blocking
 * It blocks for the access to the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_dm_construct_def_database(int32_t id);

/**
 * Stores one default through the `def_db_const` of the handle. It does nothing while the storage is being
 * cleaned.
 * @param handle      from kelo_dm_reg(). Null is logged.
 * @param id          item id, which is handed on. It need not be registered.
 * @param descriptor  descriptor of the item, which is handed on. Null is logged.
 * @param value       default in the form that the storage expects for the type of the descriptor. Null is
 *                    logged.
 * @param len         length of the default in bytes, which is handed on.
 * @return the result of the storage; 0 while cleaning; -3 when `handle`, `descriptor` or `value` is null.
 * @par Blocking
 * It blocks for the access to the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_dm_def_items_write(kelo_dm_handle* handle, int32_t id, kelo_dm_item_desc* descriptor,
                                     const void* value, int32_t len);

/**
 * Reads one stored default through the `def_db_read` of the handle. It does nothing while the storage is
 * being cleaned.
 * @param handle      from kelo_dm_reg(). Null is logged.
 * @param id          item id, which is handed on. It need not be registered.
 * @param descriptor  descriptor of the item, which is handed on. The storage may set its `type`. Null is
 *                    logged.
 * @param buf         receives the default; unchanged while cleaning. Null is logged.
 * @param size        size of `buf` in bytes, which is handed on.
 * @return the result of the storage; 0 while cleaning; -3 when `handle`, `descriptor` or `buf` is null.
 * @par Blocking
 * It blocks for the access to the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_dm_def_items_read(kelo_dm_handle* handle, int32_t id, kelo_dm_item_desc* descriptor,
                                    void* buf, int32_t size);

/**
 * Compares the id of a queued item: the comparison for q_linear_search().
 * @param node        link of a ::kelo_dm_item_node. Null is logged.
 * @param id_pointer  address of the wanted id, an int32_t. Null is logged.
 * @return 1 when the item of the node has that id; 0 otherwise, and when an argument or the item of the node
 *         is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it that may use the node. It is not for signal handlers.
 */
KELO_API int kelo_dm_compare_id(q_link_type* node, const void* id_pointer);
/** @} */

/**
 * @name Values
 * Items are found by the id with which they were registered. While the storage is being cleaned the calls
 * only return their result.
 * @{
 */
/**
 * Stores the current value of an item and announces the change, also when the value is the same as before.
 * @param handle  from kelo_dm_reg().
 * @param id      registered item id.
 * @param data    `len` bytes, which are not kept.
 * @param len     1 or more.
 * @retval 0      accepted by the storage, and announced; or the storage is being cleaned, and the value is
 *                lost. This result does not mean that the value can be read: a row that SQLite refused (the
 *                disk is full, another program has the file) is only logged. kelo_dm_write_verified() reports
 *                it.
 * @retval -3     null argument, `len` below 1 or unknown id; logged.
 * @return any other value is the error of the storage; nothing is announced.
 * @par Blocking
 * It blocks for the access to the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_write(kelo_dm_handle* handle, int32_t id, const void* data, int32_t len);

/**
 * Stores a value as kelo_dm_write() does and reads it back. Use it when the caller acts on the success of a
 * write.
 *
 * Before it writes, it takes `len` + 1 bytes from the heap. When another thread writes the same item at the
 * same time, the value that is read back may be that of the other thread, and the result is -1.
 *
 * @param handle  from kelo_dm_reg(); needs its `read` as well as its `write`.
 * @param id      registered item id.
 * @param data    `len` bytes, which are not kept.
 * @param len     1 or more.
 * @retval 0      stored, and announced: the verified read of the storage gave exactly the same bytes.
 * @retval -1     not stored, as far as can be known; nothing is announced. The storage refused the value; or
 *                the value that was read back is missing or different; or memory ran out, which is logged, or
 *                the storage is being cleaned, and nothing was written. Later reads give the value before or
 *                this one.
 * @retval -3     null argument, `len` below 1 or unknown id; logged.
 * @par Blocking
 * It blocks for the write and for one read of the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_write_verified(kelo_dm_handle* handle, int32_t id, const void* data, int32_t len);

/**
 * Stores the current value of an item and announces the change, unless the stored value is the same.
 *
 * The stored value is read first, and only its first `len` bytes are compared. A longer stored value that
 * begins with `data` counts as the same. So does a shorter one, when the bytes that it lacks are zero in
 * `data`. When the stored value is unknown, or there is no memory for the comparison, the value counts as
 * different. While the storage is being cleaned the stored value counts as zero bytes.
 *
 * @param handle  from kelo_dm_reg(); needs its `read` as well as its `write`.
 * @param id      registered item id.
 * @param data    `len` bytes, which are not kept.
 * @param len     1 or more. The comparison needs one byte more from the heap.
 * @retval 0      stored and announced; or the same and not stored; or the storage is being cleaned.
 * @retval -3     null argument, `len` below 1 or unknown id; logged.
 * @return any other value is the error of the storage; nothing is announced.
 * @par Blocking
 * It blocks for one read of the storage and a write.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_write_db(kelo_dm_handle* handle, int32_t id, const void* data, int32_t len);

/**
 * Stores an empty value, and announces it with length 0 and a valid data pointer.
 * @param handle  from kelo_dm_reg().
 * @param id      registered item id.
 * @retval 0      stored and announced; or the storage is being cleaned.
 * @retval -3     null handle or unknown id; logged.
 * @return any other value is the error of the storage; nothing is announced.
 * @par Blocking
 * It blocks for the access to the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_empty(kelo_dm_handle* handle, int32_t id);

/**
 * Checks its arguments and returns `size`. `buf` is unchanged, and the item is not looked up.
 *
 * To read the current value use kelo_dm_get(), kelo_dm_read_db() or kelo_dm_read_from_dbconfigfile().
 *
 * @param handle  from kelo_dm_reg().
 * @param id      ignored.
 * @param buf     not null; unchanged.
 * @param size    1 or more.
 * @return `size`; -3 for a null argument or a `size` below 1, which is logged with the name "oem_dm_read".
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_read(kelo_dm_handle* handle, int32_t id, void* buf, int32_t size);

/**
 * Reads the current value of an item. The length of the value is not reported; kelo_dm_get() reports it.
 * @param handle  from kelo_dm_reg().
 * @param id      registered item id.
 * @param buf     receives at most `size` bytes; unchanged while the storage is being cleaned.
 * @param size    1 or more. The SQLite back-end refuses a buffer that is shorter than the value.
 * @retval 0      read; or the storage is being cleaned.
 * @retval -3     null argument or `size` below 1, which is logged with the name "oem_dm_read_db"; unknown id;
 *                or the storage could not read the value, which is logged at level 3 as "%s def value:%x not
 *                register!\n".
 * @par Blocking
 * It blocks for the access to the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_read_db(kelo_dm_handle* handle, int32_t id, void* buf, int32_t size);

/**
 * Reads the current value of an item. Unlike the similar functions it reports every failure as 3.
 * @param handle  from kelo_dm_reg().
 * @param id      registered item id.
 * @param buf     receives at most `size` bytes; unchanged while the storage is being cleaned.
 * @param size    1 or more. The SQLite back-end refuses a buffer that is shorter than the value.
 * @retval 0      read.
 * @retval 3      null argument or `size` below 1, which is logged with the name "oem_dm_read"; unknown id;
 *                the storage is being cleaned; or the storage could not read the value.
 * @par Blocking
 * It blocks for the access to the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_read_from_dbconfigfile(kelo_dm_handle* handle, int32_t id, void* buf, int32_t size);

/**
 * Gets the value of an item with its length: the stored value, or else the registered default.
 *
 * The default comes from the row of the item, not from the database of defaults. For types 1 to 4 it is the
 * first `len` bytes of `def_value`, for type 5 the text without its terminator, for type 6 the `len` bytes.
 * With the SQLite back-end an emptied item has no stored value and gives its default.
 *
 * A stored value that cannot be read is never replaced by the default. A result of -1 from the `read` of the
 * storage means that nothing is stored. -100 (no such table) means the same when dm_pal_check_db_health()
 * finds no fault, which is the result 0 or -1 (no file yet). -102 means a value that fails its checksum or a
 * buffer that is too small; this call distinguishes the two. Every other negative result means that the
 * storage could not be read.
 *
 * The value is read into memory of the call: at least 4 KiB and one byte more than `size`, and up to 16 MiB
 * for a long or damaged value.
 *
 * @param handle  from kelo_dm_reg(); needs its `read`.
 * @param id      registered item id.
 * @param buf     receives the value, without a terminator; unchanged unless the result is 0.
 * @param size    size of `buf` in bytes, 1 or more.
 * @param len     receives the length of the value in bytes when the result is 0 or -2; otherwise unchanged.
 * @retval 0      the value is in `buf`. A value may be empty (an empty default text): `*len` is 0.
 * @retval -1     nothing is stored, and the item has no default: its row has a null text or buffer, an
 *                unknown type, or a scalar of no bytes or of more bytes than its field holds.
 * @retval -2     the value, stored or default, is longer than `size`; `*len` is its length.
 * @retval -3     null argument, `size` below 1 or unknown id; logged.
 * @retval -4     the stored value is damaged: it fails its checksum, or it has more bytes than 16 MiB and
 *                more than `size`. It is logged at level 3 as "read cb ret:%d\n" with the result of the
 *                storage.
 * @retval -5     the value cannot be known now: the storage is being cleaned, could not be opened or is
 *                damaged, or memory ran out. It is logged in the same way, except while cleaning.
 * @par Blocking
 * It blocks for one read of the storage, for a second one when the first has found nothing, and for more of
 * them for a value of 4 KiB or more.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_get(kelo_dm_handle* handle, int32_t id, void* buf, int32_t size, int32_t* len);

/**
 * Checks its arguments and returns `len`. It is a placeholder and stores nothing.
 * @param handle  ignored; may be null.
 * @param data    not null; not read.
 * @param len     1 or more.
 * @return `len`; -3 when `data` is null or `len` is below 1, which is logged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_cache_write(kelo_dm_handle* handle, const void* data, int32_t len);

/**
 * Checks its arguments and returns `size`. It is a placeholder and does not change `buf`.
 * @param handle  ignored; may be null.
 * @param buf     not null; unchanged.
 * @param size    1 or more.
 * @return `size`; -3 when `buf` is null or `size` is below 1, which is logged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_cache_read(kelo_dm_handle* handle, void* buf, int32_t size);

/**
 * Empties the storage through the `clean` of the handle.
 *
 * Cleaning lasts until the storage back-end reports its end, which may be after this call returns. During
 * this time writes are lost and reads do nothing, in every thread and through every handle of the process.
 * With the SQLite back-end the operations of other processes wait meanwhile, and then find the storage empty.
 *
 * @param handle  from kelo_dm_reg(). With null, or a handle without a `clean`, nothing is done.
 * @param backup  handed on. The SQLite back-end keeps a dated copy first unless it is null.
 * @return the result of the storage; 0 when nothing is done or the storage is being cleaned already.
 * @par Blocking
 * It blocks for the access to the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_clean(kelo_dm_handle* handle, const char* backup);

/**
 * Sets the receiver of changes. There is one for the whole process, and it replaces the one before.
 * @param callback  the receiver, not null.
 * @retval 0   set.
 * @retval -3  `callback` is null, which is logged. The receiver does not change.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread calls it at start-up. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_reg_event_callback(kelo_dm_event_fn callback);
/** @} */

/**
 * @name Key-value pairs in one item
 * A small dictionary that is held as the text of one item: "key,value;" for each pair, with nothing between
 * pairs. Keys and values must not hold "," or ";", which is not checked.
 *
 * Both calls take the present text from kelo_dm_read(), which does not change the buffer: they always start
 * with an empty list. After a write the item holds only the pair that was written, and unpacking gives no
 * pair. Reading and writing are two steps without a lock around them.
 * @{
 */
enum {
  /** Bytes of the text that holds a list of pairs. */
  DM_MAX_KEY_VALUE_STRLEN = 1024,
  /** Bytes that a key and its value may have together. */
  KELO_DM_KEY_VALUE_MAX = 512,
  /** Bytes of one row of unpacked keys or values, terminator included. */
  KELO_DM_KEY_VALUE_ROW_SIZE = 256,
  /** The most pairs that a text can hold: every caller of the unpacking call provides this number of rows. */
  KELO_DM_KEY_VALUE_ROWS = 512
};

/**
 * Sets `key` to `value` in the list held by an item, and writes the list with kelo_dm_write().
 *
 * The first place in the text where `key` and a comma occur is taken for the pair, even when it is the end of
 * a longer key ("a" is found in "ba,5;").
 *
 * @param handle   from kelo_dm_reg().
 * @param id       registered item id.
 * @param key      not empty.
 * @param value    not empty.
 * @param out_len  receives the length of the text that is handed to kelo_dm_write(). It is unchanged when the
 *                 call fails before that.
 * @retval 0   written.
 * @retval 3   a null pointer; an empty key or value, or more than ::KELO_DM_KEY_VALUE_MAX bytes of them; or a
 *             text that would become longer than ::DM_MAX_KEY_VALUE_STRLEN bytes. Logged.
 * @return any other value is the negative result of kelo_dm_read() (-3 for a null handle) or the result of
 *         kelo_dm_write(). Logged.
 * @par Blocking
 * It blocks for the access to the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_write_key_value_pairs(kelo_dm_handle* handle, int32_t id, const char* key,
                                               const char* value, int32_t* out_len);

/**
 * Unpacks the list held by an item.
 *
 * Unpacking ends at the first empty pair. A pair without a comma is a key with an empty value. A key or value
 * that is longer than its row is cut to 255 characters.
 *
 * @param handle  from kelo_dm_reg().
 * @param id      item id.
 * @param keys    receives the NUL-terminated key of pair i in row i; ::KELO_DM_KEY_VALUE_ROWS rows hold any
 *                list.
 * @param values  receives the NUL-terminated values in the same way.
 * @param count   receives the number of pairs; 0 when the read fails.
 * @retval 0   unpacked.
 * @retval 3   `keys`, `values` or `count` is null, which is logged.
 * @return a negative value is the result of kelo_dm_read() (-3 for a null handle). Logged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_read_key_value_pairs(kelo_dm_handle* handle, int32_t id,
                                              char (*keys)[KELO_DM_KEY_VALUE_ROW_SIZE],
                                              char (*values)[KELO_DM_KEY_VALUE_ROW_SIZE], int32_t* count);
/** @} */

/**
 * @name Checksum
 * @{
 */
/** The table of the polynomial 0x04C11DB7, most significant bit first: entry i is the register after the byte
 * i. */
extern KELO_API const uint32_t kelo_dm_crc32_table[256];

/**
 * Feeds bits to a CRC-32 register: polynomial 0x04C11DB7, most significant bit first, without reflection and
 * without inversion at the end.
 *
 * The length counts bits. The checksums of stored records are made with the number of bytes in its place, and
 * therefore cover the first eighth of each value.
 *
 * @param data       at least `bit_count` bits. Only the bytes that hold them are read.
 * @param bit_count  0 to 65535. Bits of a last, partial byte are taken from its most significant end.
 * @param seed       the register before the first bit.
 * @return the register; -1 when `data` is null. -1 is also the checksum of some data.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int32_t kelo_dm_Crc32Calc(const void* data, uint16_t bit_count, uint32_t seed);
/** @} */

/**
 * @name Values held in memory
 * This is a store of its own beside the registered items. It is lost when the process ends. Any id may be
 * stored, registered or not. Reads of different items never wait for each other. A read waits only for a
 * write of the same item.
 *
 * A child made by fork() finds every value complete, and may use the store at once. For this a fork() waits
 * for the writes of other threads that have begun, and writes wait for a fork() that has begun, for one
 * second at most.
 * @{
 */
/**
 * Stores a value in memory, as a new item or in place of the value of the item.
 *
 * The memory of an item grows to its longest value and is kept until the process ends. When memory for a
 * value runs out, the process ends ("data_manager/ kelo_dm_sync_mem.c, line: N" is printed on standard
 * output). When memory for a new item runs out, this is logged and the value is dropped.
 *
 * @param id           any number.
 * @param data         `*len_pointer` bytes, which are copied.
 * @param len_pointer  points to the length in bytes, 0 or more. A null argument or a negative length is
 *                     logged, and nothing is stored.
 * @par Blocking
 * It blocks for reads and writes of the same item, for writes that add an item, and up to one second for a
 * fork().
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void kelo_dm_wr_to_mem(int32_t id, const void* data, const int32_t* len_pointer);

/**
 * Copies a value held in memory. With a null argument nothing is done.
 * @param id           any number.
 * @param buf          receives at most `*len_pointer` bytes; unchanged when there is no such item.
 * @param len_pointer  in: size of `buf` in bytes. Out: the number of bytes copied, which is the length of the
 *                     value, or the size when the value is longer; -1 when there is no such item, which is
 *                     logged.
 * @par Blocking
 * It blocks for a write of the same item.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void kelo_dm_rd_from_mem(int32_t id, void* buf, int32_t* len_pointer);
/** @} */

/**
 * @name Hooks
 * A storage back-end, or the daemon itself, defines the four hooks in place of those of the library, which do
 * nothing. A definition in the program is used with the shared library and with the archive.
 * @{
 */
/**
 * Hook: fills the empty operations of a new handle. The hook of the library leaves them empty.
 * @param id          the number given to kelo_dm_reg().
 * @param operations  operations of the new handle, to be filled.
 * @par Blocking
 * It blocks for as long as the back-end needs. The hook of the library does not block.
 * @par Threads
 * kelo_dm_reg() calls it in its thread. It is not for signal handlers.
 */
KELO_API void dm_pal_reg(int32_t id, kelo_dm_operations* operations);

/**
 * Hook: moves the storage. The hook of the library does nothing.
 * @param primary_dir  as for kelo_dm_reg_store_area().
 * @param backup_dir   as for kelo_dm_reg_store_area().
 * @return the result of kelo_dm_reg_store_area(); 0 from the hook of the library.
 * @par Blocking
 * It does not block.
 * @par Threads
 * kelo_dm_reg_store_area() calls it in its thread. It is not for signal handlers.
 */
KELO_API int dm_pal_reg_store_area(const char* primary_dir, const char* backup_dir);

/**
 * Hook: compares the versions of the databases. The hook of the library leaves `*matched` unchanged.
 * @param matched  as for kelo_dm_check_db_version_match().
 * @return the result of kelo_dm_check_db_version_match(); 0 from the hook of the library.
 * @par Blocking
 * It blocks for as long as the back-end needs. The hook of the library does not block.
 * @par Threads
 * kelo_dm_check_db_version_match() calls it in its thread. It is not for signal handlers.
 */
KELO_API int dm_pal_check_db_version_match(int* matched);

/**
 * Hook: reports the health of the storage. kelo_dm_get() calls it when a table is missing.
 * @return 0 when the storage is healthy, -1 when there is no file yet, and another value when it is damaged;
 *         0 from the hook of the library. That of the SQLite back-end returns the result of
 *         check_database_health().
 * @par Blocking
 * It blocks for as long as the back-end needs. The hook of the library does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_pal_check_db_health(void);

/**
 * Tells the storage back-end where to keep its files. A program calls it before the first kelo_dm_reg().
 *
 * The arguments, also null ones, are handed to dm_pal_reg_store_area().
 *
 * @param primary_dir  directory, ending in "/", of the primary files. The back-end decides what null means.
 * @param backup_dir   directory, ending in "/", of the backup. The back-end decides what null means.
 * @return the result of the hook.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread calls it at start-up. It is not for signal handlers.
 */
KELO_API int kelo_dm_reg_store_area(const char* primary_dir, const char* backup_dir);

/**
 * Asks the storage back-end whether the versions of its databases match.
 *
 * The argument, also a null one, is handed to dm_pal_check_db_version_match().
 *
 * @param matched  receives what the back-end found.
 * @return the result of the hook.
 * @par Blocking
 * It blocks for the access to the storage.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_dm_check_db_version_match(int* matched);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_DATA_MANAGER_H */
