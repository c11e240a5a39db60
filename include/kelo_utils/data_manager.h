/**
 * @file data_manager.h
 * @brief Configuration items by number: registered from tables of defaults, written and read through a
 *        handle, and announced to one callback when they change.
 *
 * A daemon describes its items once, in a static table, and registers it at start-up. It then obtains a
 * handle, into which the storage back-end puts its functions, and writes and reads items by id through it:
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
 * any thread may write and read; the storage back-end serialises the access to storage.
 *
 * Processes: with the SQLite back-end several daemons may share the storage. An operation waits for those of
 * other processes, for five seconds at most, and then fails without having touched a file: kelo_dm_write()
 * returns -1, kelo_dm_read_db() -3, kelo_dm_get() -5. sqlite.h says more, also about fork().
 *
 * Results: 0 is success. A bad argument or an unknown id is -3, except where a function says otherwise. A
 * null argument or a length below 1 that a function does not accept is logged at level 3 as
 * "%s param NULL\n" with a function name; an id that is not registered as "symLookup failed: %s\n" with the
 * id.
 *
 * Fatal errors: a handle whose slot is empty when a call needs it, and memory that runs out where a function
 * says so, end the process: "data_manager/kelo_app_dm.c, line: N" is printed on standard output, then it
 * aborts.
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

/** What the storage back-end knows of an item. */
typedef struct kelo_dm_item_desc {
  char item_table[32]; /**< NUL-terminated name of the storage table */
  char item_key[32];   /**< NUL-terminated key within that table */
  int32_t type;        /**< value type as the back-end reads it; registration copies `def_type` into it */
  /** Types 1 to 4: the default itself, in the first bytes; type 5: address of the text; type 6: of the
   * bytes. */
  intptr_t def_value;
  int32_t def_type; /**< declared type, ::kelo_dm_type */
  int32_t len;      /**< length of the default in bytes */
} kelo_dm_item_desc;

/**
 * One row of a daemon's table of default items. The table belongs to the daemon and stays alive and writable
 * as long as the process: the registry keeps pointers into it and sets `desc.type`.
 */
typedef struct kelo_dm_item {
  int32_t id;             /**< item id; -1 ends the table */
  kelo_dm_item_desc desc; /**< table, key, type and default */
} kelo_dm_item;

/**
 * The functions a storage back-end puts into a handle, in slot order. Each gets the item's id and its
 * descriptor, which stays valid and writable for the call. An empty slot holds null.
 */
typedef struct kelo_dm_operations {
  /** Stores `len` bytes (0: an empty value) as the current value. 0 on success; the caller of the data
   * manager gets any other result as it is. */
  int (*write)(uint32_t id, kelo_dm_item_desc* item, const void* data, int len);
  /** Copies at most `size` bytes of the current value into `buf`, and returns their number. Negative on
   * failure; kelo_dm_get() says which negative results it tells apart. */
  int (*read)(uint32_t id, kelo_dm_item_desc* item, void* buf, int size);
  /** Empties the storage; `backup` is what kelo_dm_clean() was given, `one` is always 1. Stores 0 in
   * `*clean_flag`, atomically, when cleaning has ended, from whichever thread that happens in. */
  int (*clean)(const char* backup, int one, int32_t* clean_flag);
  /** Stores an item's default: `value` is the address of the descriptor's `def_value` when a whole database
   * of defaults is built, and otherwise what kelo_dm_def_items_write() was given. */
  int (*def_db_const)(uint32_t id, kelo_dm_item_desc* item, const void* value, int len);
  /** Copies at most `size` bytes of the stored default into `buf`. */
  int (*def_db_read)(uint32_t id, kelo_dm_item_desc* item, void* buf, int size);
  /** Reports the version of the configuration database. The data manager itself never calls it. */
  int (*read_cfg_db_version)(uint32_t* version);
  /** Reports the version of the defaults database. The data manager itself never calls it. */
  int (*read_def_items_db_version)(uint32_t* version);
} kelo_dm_operations;

/** A data manager handle. Any number may exist, each with its own operations. */
typedef struct kelo_dm_handle {
  int32_t id;                    /**< the number given to kelo_dm_reg(); not interpreted */
  kelo_dm_operations operations; /**< filled by the storage back-end */
} kelo_dm_handle;

/** An element of a queue of items, which kelo_dm_compare_id() searches. */
typedef struct kelo_dm_item_node {
  q_link_type link;   /**< place in the queue; first, so that its address is the node's */
  kelo_dm_item* item; /**< the item */
} kelo_dm_item_node;

/**
 * Receives one change: the id, the `len` bytes just stored (`len` 0 for an emptied item) and their number.
 * Runs in the writing thread after the storage write has succeeded, without any lock of the data manager, so
 * it may call the data manager. `data` is valid during the call only. The result is ignored.
 */
typedef int (*kelo_dm_event_fn)(int32_t id, const void* data, int32_t len);

/**
 * @name Rows of a table of default items
 * Initialisers for static tables, in C and in C++. `table` and `key` are string literals of at most 31
 * characters.
 * @{
 */
/** The `def_value` of a string item: the address of the NUL-terminated `text`, which must stay alive. */
#ifdef __cplusplus
#define KELO_DM_TEXT(text) reinterpret_cast<intptr_t>(text)
#else
#define KELO_DM_TEXT(text) ((intptr_t)(text))
#endif

/** The `def_value` of a buffer item: the address of the array `bytes`, which must stay alive. */
#define KELO_DM_BYTES(bytes) KELO_DM_TEXT(bytes)

/** Part of KELO_DM_ITEM(): whether items of `type` have their default in `def_value` itself. */
#define KELO_DM_IS_SCALAR(type) ((type) >= KELO_DM_TYPE_SCALAR1 && (type) <= KELO_DM_TYPE_SCALAR4)

/** Part of KELO_DM_ITEM(): 0. Does not compile (an array of negative size) for a scalar whose `len` is more
 * than `def_value` holds. */
#define KELO_DM_SCALAR_MUST_FIT(type, len) \
  (0 * sizeof(char[KELO_DM_IS_SCALAR(type) && (int32_t)(len) > (int32_t)sizeof(intptr_t) ? -1 : 1]))

/** Part of KELO_DM_ITEM(): the `def_value` whose first `len` bytes in memory are the scalar `value`; any
 * other `value` as it is. */
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
#define KELO_DM_UNUSED_BITS(len)                           \
  ((len) > 0 && (int32_t)(len) < (int32_t)sizeof(intptr_t) \
       ? 8 * ((int32_t)sizeof(intptr_t) - (int32_t)(len))  \
       : 0)
#define KELO_DM_FIELD(type, value, len) \
  (KELO_DM_IS_SCALAR(type) ? (intptr_t)((uintptr_t)(value) << KELO_DM_UNUSED_BITS(len)) : (intptr_t)(value))
#else
#define KELO_DM_FIELD(type, value, len) ((intptr_t)(value))
#endif

/**
 * A row in full. The storage reads a scalar's default from the first `len` bytes of `def_value`: there the
 * row holds `value` in the byte order of the machine, cut to `len` bytes. A scalar longer than that field
 * does not compile: it has 4 bytes on 32-bit machines and 8 on 64-bit ones, so a table for both has no longer
 * scalars than 4 bytes. A longer value is a buffer item.
 *
 * `type` is a ::kelo_dm_type, `value` a number for types 1 to 4 and else a KELO_DM_TEXT() or KELO_DM_BYTES(),
 * `len` the default's length in bytes. `type` and `len` are integer constants; `value` need not be one where
 * the table is made at run time.
 */
#define KELO_DM_ITEM(id, table, key, type, value, len)                    \
  {                                                                       \
    (id), {                                                               \
      table, key, (type), KELO_DM_FIELD(type, value, len), (type),        \
          (int32_t)((uint32_t)(len) + KELO_DM_SCALAR_MUST_FIT(type, len)) \
    }                                                                     \
  }

/** A string item whose default is the string literal `text`; its length leaves the terminator out. */
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
 * Makes a handle and lets the hook dm_pal_reg() fill its operations. Blocks for as long as the hook does: the
 * first registration with the SQLite back-end waits for other processes, five seconds at most, finishes an
 * interrupted write and mends what an older release or a power cut left (see sqlite_reg()). Fatal when memory
 * runs out.
 * @param id  a client or area number; any value, not interpreted.
 * @return the handle, owned by the caller until kelo_dm_unreg().
 */
KELO_API kelo_dm_handle* kelo_dm_reg(int32_t id);

/**
 * Releases a handle. The storage and the registered items stay as they are.
 * @param handle  from kelo_dm_reg(), not used by any other thread any more.
 * @retval 0   released.
 * @retval -1  `handle` is null; logged.
 */
KELO_API int kelo_dm_unreg(kelo_dm_handle* handle);
/** @} */

/**
 * @name Items and their defaults
 * @{
 */
/**
 * Registers a table of items. May be called repeatedly: a later item with an id already registered is the one
 * that reads and writes find from then on, while the defaults of both are stored by
 * kelo_dm_construct_def_database(). Copies `def_type` into the `type` of every row. Nothing is ever
 * unregistered. Not to be called while another thread uses the data manager. Fatal when memory for the list
 * of defaults runs out.
 * @param records  table ended by a row with id -1 (see ::kelo_dm_item for its lifetime); any other id,
 *                 negative ones included, names an item.
 * @retval 0   registered, also when the table holds nothing but its end.
 * @retval -3  `records` is null; logged.
 * @retval -4  the index of ids cannot be made; logged.
 */
KELO_API int kelo_dm_reg_def_items(kelo_dm_item* records);

/**
 * Stores the default of every registered item, in the order of registration, through a handle of its own.
 * Results of the storage are ignored. The SQLite back-end stores all of them in one transaction, leaves alone
 * what is stored already, and writes one by one what it cannot store so; a back-end of the program's own gets
 * one call of its `def_db_const` for each item. Fatal when the storage back-end offers no such write.
 * @param id  number for the handle, as in kelo_dm_reg().
 * @retval 0   every item was handed to the storage (or cleaning is in progress, which leaves out the rest).
 * @retval -1  nothing is registered.
 */
KELO_API int kelo_dm_construct_def_database(int32_t id);

/**
 * Stores one default through the handle's `def_db_const`. Does nothing while the storage is being cleaned.
 * @param handle      from kelo_dm_reg().
 * @param id          item id, handed on; need not be registered.
 * @param descriptor  of the item, handed on.
 * @param value       default in the form the storage expects for the descriptor's type.
 * @param len         length of the default in bytes, handed on.
 * @return the storage's result; 0 while cleaning; -3 when `handle`, `descriptor` or `value` is null (logged).
 */
KELO_API int kelo_dm_def_items_write(kelo_dm_handle* handle, int32_t id, kelo_dm_item_desc* descriptor,
                                     const void* value, int32_t len);

/**
 * Reads one stored default through the handle's `def_db_read`. Does nothing while the storage is being
 * cleaned.
 * @param handle      from kelo_dm_reg().
 * @param id          item id, handed on; need not be registered.
 * @param descriptor  of the item, handed on; the storage may set its `type`.
 * @param buf         receives the default; untouched while cleaning.
 * @param size        size of `buf` in bytes, handed on.
 * @return the storage's result; 0 while cleaning; -3 when `handle`, `descriptor` or `buf` is null (logged).
 */
KELO_API int kelo_dm_def_items_read(kelo_dm_handle* handle, int32_t id, kelo_dm_item_desc* descriptor,
                                    void* buf, int32_t size);

/**
 * Compares a queued item's id; the comparison to hand to q_linear_search().
 * @param node        link of a ::kelo_dm_item_node.
 * @param id_pointer  address of the wanted id, an int32_t.
 * @return 1 when the node's item has that id; 0 otherwise, and when an argument (logged) or the node's item
 *         is null.
 */
KELO_API int kelo_dm_compare_id(q_link_type* node, const void* id_pointer);
/** @} */

/**
 * @name Values
 * Every call blocks for its storage access. Items are found by the id they were registered with. While the
 * storage is being cleaned the calls do nothing but report.
 * @{
 */
/**
 * Stores the current value of an item and announces the change, also when the value was the same before.
 * @param handle  from kelo_dm_reg().
 * @param id      registered item id.
 * @param data    `len` bytes; not kept.
 * @param len     1 or more.
 * @retval 0      accepted by the storage, and announced; or cleaning is in progress and the value is lost. It
 *                does not say that the value can be read: a row that SQLite refused (the disk is full,
 *                another program has the file) is only logged. kelo_dm_write_verified() tells.
 * @retval -3     null argument, `len` below 1 or unknown id; logged.
 * @return any other value: the storage's own error; nothing is announced.
 */
KELO_API int32_t kelo_dm_write(kelo_dm_handle* handle, int32_t id, const void* data, int32_t len);

/**
 * As kelo_dm_write(), and reads the value back: the write to use where a caller acts on its success.
 *
 * Blocks for the write and for one read. Takes `len` + 1 bytes from the heap, before it writes. Any thread
 * may call it; when another one writes the same item at the same time, the value read back may be the other's
 * and the result -1.
 * @param handle  from kelo_dm_reg(); needs its `read` as well as its `write`.
 * @param id      registered item id.
 * @param data    `len` bytes; not kept.
 * @param len     1 or more.
 * @retval 0      stored: the storage's verified read gave the same bytes and no more. Announced.
 * @retval -1     not stored, as far as could be found out; nothing is announced. The storage refused the
 *                value, the value read back is missing or another one, memory ran out (logged; nothing was
 *                written), or cleaning is in progress (nothing was written). Later reads give the value
 *                before or this one.
 * @retval -3     null argument, `len` below 1 or unknown id; logged.
 */
KELO_API int32_t kelo_dm_write_verified(kelo_dm_handle* handle, int32_t id, const void* data, int32_t len);

/**
 * Stores the current value of an item and announces the change, unless the stored value is the same.
 *
 * The stored value is read first and only its first `len` bytes are compared: a longer stored value that
 * begins with `data` counts as the same, as does a shorter one whose missing bytes are zero in `data`. An
 * unknown stored value, or no memory for the comparison, means "not the same". While the storage is being
 * cleaned the stored value counts as zero bytes.
 * @param handle  from kelo_dm_reg(); needs its `read` as well as its `write`.
 * @param id      registered item id.
 * @param data    `len` bytes; not kept.
 * @param len     1 or more; the comparison needs one byte more from the heap.
 * @retval 0      stored and announced; or the same and left alone; or cleaning is in progress.
 * @retval -3     null argument, `len` below 1 or unknown id; logged.
 * @return any other value: the storage's own error; nothing is announced.
 */
KELO_API int32_t kelo_dm_write_db(kelo_dm_handle* handle, int32_t id, const void* data, int32_t len);

/**
 * Stores an empty value, and announces it with length 0 (and a valid data pointer).
 * @param handle  from kelo_dm_reg().
 * @param id      registered item id.
 * @retval 0      stored and announced; or cleaning is in progress.
 * @retval -3     null handle or unknown id; logged.
 * @return any other value: the storage's own error; nothing is announced.
 */
KELO_API int32_t kelo_dm_empty(kelo_dm_handle* handle, int32_t id);

/**
 * Checks its arguments and reports `size`; `buf` stays as it is and the item is not looked up. Callers that
 * want the current value use kelo_dm_read_db() or kelo_dm_read_from_dbconfigfile().
 * @param handle  from kelo_dm_reg().
 * @param id      ignored.
 * @param buf     not null; untouched.
 * @param size    1 or more.
 * @return `size`; -3 for a null argument or a `size` below 1 (logged with the name "oem_dm_read").
 */
KELO_API int32_t kelo_dm_read(kelo_dm_handle* handle, int32_t id, void* buf, int32_t size);

/**
 * Reads the current value of an item. The length of the value is not reported; kelo_dm_get() tells it.
 * @param handle  from kelo_dm_reg().
 * @param id      registered item id.
 * @param buf     receives at most `size` bytes; untouched while the storage is being cleaned.
 * @param size    1 or more. The SQLite back-end refuses a buffer shorter than the value.
 * @retval 0      read; or cleaning is in progress.
 * @retval -3     null argument or `size` below 1 (logged with the name "oem_dm_read_db"), unknown id, or the
 *                storage could not read the value (logged at level 3 as "%s def value:%x not register!\n").
 */
KELO_API int32_t kelo_dm_read_db(kelo_dm_handle* handle, int32_t id, void* buf, int32_t size);

/**
 * Reads the current value of an item; unlike its siblings it reports every failure as 3.
 * @param handle  from kelo_dm_reg().
 * @param id      registered item id.
 * @param buf     receives at most `size` bytes; untouched while the storage is being cleaned.
 * @param size    1 or more. The SQLite back-end refuses a buffer shorter than the value.
 * @retval 0      read.
 * @retval 3      null argument or `size` below 1 (logged with the name "oem_dm_read"), unknown id, cleaning
 *                in progress, or the storage could not read the value.
 */
KELO_API int32_t kelo_dm_read_from_dbconfigfile(kelo_dm_handle* handle, int32_t id, void* buf, int32_t size);

/**
 * Gives the value of an item with its length: the stored one, or else the default that it was registered
 * with.
 *
 * The default comes from the item's row, not from the database of defaults: for types 1 to 4 the first `len`
 * bytes of `def_value`, for type 5 the text without its terminator, for type 6 the `len` bytes. An item that
 * was emptied has no stored value with the SQLite back-end, and gives its default.
 *
 * A stored value that cannot be read never turns into the default. From the storage's `read` -1 means that
 * nothing is stored; -100 (no such table) means the same when dm_pal_check_db_health() finds nothing wrong,
 * that is, answers 0 or -1 (no file yet); -102 means a value that fails its checksum, or a buffer that is too
 * small, which this call tells apart; every other negative result means that the storage could not be read.
 *
 * Blocks for one read of the storage, for a second one when the first has found nothing, and for more of them
 * where a value has 4 KiB or more. The value is read into memory of the call's own: at least 4 KiB and one
 * byte more than `size`, and up to 16 MiB for a long or damaged value. Any thread may call it.
 * @param handle  from kelo_dm_reg(); needs its `read`.
 * @param id      registered item id.
 * @param buf     receives the value, without a terminator; untouched unless the result is 0.
 * @param size    size of `buf` in bytes, 1 or more.
 * @param len     receives the length of the value in bytes when the result is 0 or -2; untouched otherwise.
 * @retval 0      the value is in `buf`. A value may be empty (an empty default text): `*len` is 0.
 * @retval -1     nothing is stored, and the item has no default: its row has a null text or buffer, an
 *                unknown type, or a scalar of no bytes or of more than its field holds.
 * @retval -2     the value, stored or default, is longer than `size`; `*len` says how long it is.
 * @retval -3     null argument, `size` below 1 or unknown id; logged.
 * @retval -4     the stored value is damaged: it fails its checksum; or it has more bytes than 16 MiB and
 *                `size`. Logged at level 3 as "read cb ret:%d\n" with the storage's result.
 * @retval -5     nothing can be said of the value now: cleaning is in progress, the storage could not be
 *                opened or is damaged, or memory ran out. Logged likewise, except while cleaning.
 */
KELO_API int32_t kelo_dm_get(kelo_dm_handle* handle, int32_t id, void* buf, int32_t size, int32_t* len);

/**
 * Checks its arguments and reports `len`; a placeholder that stores nothing.
 * @param handle  ignored, may be null.
 * @param data    not null; not read.
 * @param len     1 or more.
 * @return `len`; -3 when `data` is null or `len` is below 1 (logged).
 */
KELO_API int32_t kelo_dm_cache_write(kelo_dm_handle* handle, const void* data, int32_t len);

/**
 * Checks its arguments and reports `size`; a placeholder that leaves `buf` as it is.
 * @param handle  ignored, may be null.
 * @param buf     not null; untouched.
 * @param size    1 or more.
 * @return `size`; -3 when `buf` is null or `size` is below 1 (logged).
 */
KELO_API int32_t kelo_dm_cache_read(kelo_dm_handle* handle, void* buf, int32_t size);

/**
 * Empties the storage through the handle's `clean`. From here until the storage back-end reports the end of
 * the cleaning, which may be after this call returns, writes are lost and reads do nothing, in every thread
 * and through every handle of the process. With the SQLite back-end the operations of other processes wait
 * meanwhile, and go on with the empty storage.
 * @param handle  from kelo_dm_reg(); null, or one without a `clean`, does nothing.
 * @param backup  handed on; the SQLite back-end keeps a dated copy first unless it is null.
 * @return the storage's result; 0 when there is nothing to do or cleaning is in progress already.
 */
KELO_API int32_t kelo_dm_clean(kelo_dm_handle* handle, const char* backup);

/**
 * Sets the receiver of changes, one for the whole process, in place of the one before.
 * @param callback  not null.
 * @retval 0   set.
 * @retval -3  `callback` is null; logged, and the receiver stays as it was.
 */
KELO_API int32_t kelo_dm_reg_event_callback(kelo_dm_event_fn callback);
/** @} */

/**
 * @name Key-value pairs in one item
 * A small dictionary held as the text of one item: "key,value;" for each pair, without anything between
 * pairs. Keys and values hold neither "," nor ";"; nobody checks.
 *
 * Both calls take the present text from kelo_dm_read(), which leaves the buffer as it is: they always start
 * from an empty list. After a write the item holds the one pair just written, and unpacking yields none.
 * Reading and writing are two steps without a lock around them.
 * @{
 */
enum {
  /** Bytes of the text that holds a list of pairs. */
  DM_MAX_KEY_VALUE_STRLEN = 1024,
  /** Bytes that a key and its value may have together. */
  KELO_DM_KEY_VALUE_MAX = 512,
  /** Bytes of one row of unpacked keys or values, terminator included. */
  KELO_DM_KEY_VALUE_ROW_SIZE = 256,
  /** The most pairs that a text can hold: rows that every caller of the unpacking call provides. */
  KELO_DM_KEY_VALUE_ROWS = 512
};

/**
 * Sets `key` to `value` in the list held by an item, and writes the list with kelo_dm_write().
 *
 * The first place in the text where `key` and a comma stand is taken for the pair, even when it is the end of
 * a longer key ("a" is found in "ba,5;").
 * @param handle   from kelo_dm_reg().
 * @param id       registered item id.
 * @param key      not empty.
 * @param value    not empty.
 * @param out_len  receives the length of the text handed to kelo_dm_write(); untouched when the call fails
 *                 before that.
 * @retval 0   written.
 * @retval 3   a null pointer; an empty key or value, or more than ::KELO_DM_KEY_VALUE_MAX bytes of them; or a
 *             text that would grow beyond ::DM_MAX_KEY_VALUE_STRLEN bytes. Logged.
 * @return any other value: the negative result of kelo_dm_read() (-3 for a null handle) or the result of
 *         kelo_dm_write(). Logged.
 */
KELO_API int32_t kelo_dm_write_key_value_pairs(kelo_dm_handle* handle, int32_t id, const char* key,
                                               const char* value, int32_t* out_len);

/**
 * Unpacks the list held by an item.
 *
 * Unpacking ends at the first empty pair. A pair without a comma is a key with an empty value. A key or value
 * longer than its row is cut to 255 characters.
 * @param handle  from kelo_dm_reg().
 * @param id      item id.
 * @param keys    receives the NUL-terminated key of pair i in row i; ::KELO_DM_KEY_VALUE_ROWS rows hold any
 *                list.
 * @param values  receives the NUL-terminated values likewise.
 * @param count   receives the number of pairs; 0 when the read fails.
 * @retval 0   unpacked.
 * @retval 3   `keys`, `values` or `count` is null; logged.
 * @return a negative value: the result of kelo_dm_read() (-3 for a null handle). Logged.
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
 * Feeds bits to a CRC-32 register: polynomial 0x04C11DB7, most significant bit first, nothing reflected and
 * nothing inverted at the end.
 *
 * The length counts bits. The stored records' checksums are made with the number of bytes in its place, and
 * so cover the first eighth of each value.
 * @param data       at least `bit_count` bits; only the bytes that hold them are read.
 * @param bit_count  0 to 65535; bits of a last, partial byte are taken from its most significant end.
 * @param seed       the register before the first bit.
 * @return the register; -1, which is also the checksum of some data, when `data` is null.
 */
KELO_API int32_t kelo_dm_Crc32Calc(const void* data, uint16_t bit_count, uint32_t seed);
/** @} */

/**
 * @name Values held in memory
 * A store of its own beside the registered items, lost when the process ends: any id may be stored,
 * registered or not. Any thread may use it at any time. Reads of different items never wait for each other; a
 * read waits only for a write of the same item.
 *
 * A child made by fork() finds every value whole, and may use the store at once: a fork() waits for the
 * writes of other threads that have begun, and writes wait for a fork() that has begun, a second at most.
 * @{
 */
/**
 * Stores a value in memory, as a new item or in place of the item's value. An item's memory grows to its
 * longest value and is kept until the process ends. Memory that runs out for a value ends the process
 * ("data_manager/ kelo_dm_sync_mem.c, line: N"); memory that runs out for a new item is logged and the value
 * dropped.
 * @param id           any number.
 * @param data         `*len_pointer` bytes, copied.
 * @param len_pointer  length in bytes, 0 or more. A null argument or a negative length is logged and nothing
 *                     stored.
 */
KELO_API void kelo_dm_wr_to_mem(int32_t id, const void* data, const int32_t* len_pointer);

/**
 * Copies a value held in memory. Null arguments: nothing happens.
 * @param id           any number.
 * @param buf          receives at most `*len_pointer` bytes; untouched when there is no such item.
 * @param len_pointer  in: room in `buf` in bytes. Out: the bytes copied, which is the value's length, or the
 *                     room when the value is longer; -1 when there is no such item (logged).
 */
KELO_API void kelo_dm_rd_from_mem(int32_t id, void* buf, int32_t* len_pointer);
/** @} */

/**
 * @name Hooks
 * A storage back-end, or the daemon itself, defines these four in place of the library's own, which do
 * nothing. A program's definition wins with the shared library and with the archive.
 * @{
 */
/** Fills the empty operations of a new handle; called by kelo_dm_reg() with its `id`. The library's own
 * leaves them empty. */
KELO_API void dm_pal_reg(int32_t id, kelo_dm_operations* operations);

/** Moves the storage; the library's own returns 0. Arguments and result as kelo_dm_reg_store_area(). */
KELO_API int dm_pal_reg_store_area(const char* primary_dir, const char* backup_dir);

/** Compares the versions of the databases; the library's own returns 0 and leaves `*matched` as it is.
 * Arguments and result as kelo_dm_check_db_version_match(). */
KELO_API int dm_pal_check_db_version_match(int* matched);

/** Reports the health of the storage; the library's own returns 0. */
KELO_API int dm_pal_check_db_health(void);

/**
 * Tells the storage back-end where to keep its files; to be called before the first kelo_dm_reg(). Hands its
 * arguments, null ones too, to dm_pal_reg_store_area().
 * @param primary_dir  directory, ending in "/", of the primary files; what null means is the back-end's
 *                     choice.
 * @param backup_dir   directory, ending in "/", of the backup; likewise.
 * @return the hook's result.
 */
KELO_API int kelo_dm_reg_store_area(const char* primary_dir, const char* backup_dir);

/**
 * Asks the storage back-end whether the versions of its databases match. Hands its argument, null too, to
 * dm_pal_check_db_version_match().
 * @param matched  receives what the back-end found.
 * @return the hook's result.
 */
KELO_API int kelo_dm_check_db_version_match(int* matched);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_DATA_MANAGER_H */
