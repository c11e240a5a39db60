/* SPDX-License-Identifier: MIT */
/**
 * @file sqlite.h
 * @brief The SQLite back-end of the data manager: journalled writes, verified reads, repair, clean, export.
 *
 * A daemon seldom calls these functions itself. It links the target `kelo::utils_sqlite`, whose hooks give
 * them to every handle of kelo_dm_reg(). They are exported for maintenance tools and for daemons with hooks
 * of their own. This header includes parameters.h.
 *
 * Results: 0 or a number of bytes is success. Failures are ::DM_SQLITE_FAILED, ::DM_SQLITE_NOT_PREPARED,
 * ::DM_SQLITE_NOT_OPENED and ::DM_SQLITE_BAD_CRC. Every failure is logged.
 *
 * Names: the names of tables and keys become part of SQL text without a change. They must be plain
 * identifiers. A statement is cut at 511 characters.
 *
 * Files: each call opens its database files, works and closes them.
 *
 * The lock of the store: all processes and threads share one lock, on the file "<primary>-lock" (usually
 * "/data/config.db-lock"). A program must neither lock nor delete this file. A function whose description
 * says so holds the lock from its first step to its last: shared when it only reads, and exclusively when it
 * writes. A shared lock becomes exclusive when there is something to repair. A function waits for the lock
 * for five seconds of monotonic time, whatever signals arrive. After this time it has touched nothing, one
 * line of the log says what it waited for, and the result is the one for a database that cannot be opened:
 * ::DM_SQLITE_NOT_OPENED when the function has this result, else ::DM_SQLITE_FAILED. The kernel releases the
 * lock when its holder dies.
 *
 * An operation first undoes a copy that a crash has interrupted. While the `cp` of a killed process still
 * works, the operation waits for it, too, for five seconds. A process that may not open the lock file reads
 * without the lock, repairs nothing, and may fail to read while another process writes.
 *
 * A function also waits, up to five seconds, for a lock that another program holds on a database through
 * SQLite.
 *
 * The mutex of the slots: within one process the functions of a handle also share a mutex, and wait for it
 * without a limit. These are dm_sqlite_write(), dm_sqlite_read(), dm_sqlite_clean(), the version queries and
 * sqlite_reg(). The receiver of log lines (set_print_interface()) must not call functions of this file that
 * take the mutex or the lock.
 *
 * fork(): a child made by fork() inherits no lock and may use the store at once. For this a fork() waits
 * until no other thread is inside SQLite, for five seconds at most, but it does not wait for a running `cp`.
 * When this time is not enough, the child cannot use the store: each call fails as if the lock were not
 * available. A fork() in a callback of an operation is not supported.
 */
#ifndef KELO_UTILS_SQLITE_H
#define KELO_UTILS_SQLITE_H

#include <stdint.h>
#include <stdio.h>

#include "kelo_utils/base.h"
#include "kelo_utils/data_manager.h"
#include "kelo_utils/parameters.h"

KELO_BEGIN_DECLS

struct sqlite3;

/** Failure codes of the configuration database. */
enum dm_sqlite_result {
  DM_SQLITE_FAILED = -1,         /**< bad argument, no such row or empty value */
  DM_SQLITE_NOT_PREPARED = -100, /**< the statement could not be prepared: no such table, corrupt file */
  DM_SQLITE_NOT_OPENED = -101,   /**< the database file could not be opened */
  DM_SQLITE_BAD_CRC = -102       /**< there is a value, but it does not match its checksum */
};

/** States of the write journal. */
enum dm_write_state {
  WS_READY = 100,      /**< a write into the primary database is about to start */
  WS_WRITE_DONE = 101, /**< the primary was written and its copy over the backup was attempted */
  WS_BACKUP_DONE = 102 /**< the write and its backup are complete */
};

/** Table of the version record. */
#define SQL_VER_TAB "SQL_VER_TAB"
/** Key of the version record. */
#define SQL_VER_KEY "SQL_VER_KEY"
/** Item id of the version record. */
#define SQL_VER_ID 0x10001
/** Version of this library's databases. The version record holds it in the byte order of the machine. */
#define SQL_VER 0x00010001

/** Sizes of the path arrays in bytes, terminator included. */
enum { DM_SQLITE_PATH_SIZE = 64, DM_SQLITE_AREA_SIZE = 50 };

/**
 * @name Database locations
 * These paths are NUL-terminated and writable. A program sets them once, in one thread, before sqlite_reg().
 * @{
 */
extern KELO_API char DB_CONFIG[DM_SQLITE_PATH_SIZE];     /**< primary: "/data/config.db" */
extern KELO_API char DB_CONFIGBAK[DM_SQLITE_PATH_SIZE];  /**< backup copy: "/data/configbak.db" */
extern KELO_API char DB_STATE[DM_SQLITE_PATH_SIZE];      /**< write journal: "/data/state.db" */
extern KELO_API char DB_DEF_ITEMS[DM_SQLITE_PATH_SIZE];  /**< defaults: "/data/DefItems.db" */
extern KELO_API char DB_EXPORT_CSV[DM_SQLITE_PATH_SIZE]; /**< CSV export: "/data/ExportCSV.csv" */
extern KELO_API char db_area[DM_SQLITE_AREA_SIZE];       /**< directory of the databases: "/data/" */
extern KELO_API char
    db_rst_bak[DM_SQLITE_PATH_SIZE]; /**< where dated copies are kept: "/mnt/vendor/nvdata/" */
/** @} */

/**
 * Moves the databases: the primary and the journal to `primary_dir`, the backup to `backup_dir`.
 *
 * The other path arrays are unchanged.
 *
 * @param primary_dir  directory of at most 50 characters with its final "/" (none is added). Null leaves the
 *                     primary and the journal where they are. A longer one changes nothing, not even the path
 *                     of the backup.
 * @param backup_dir   the same for the backup. Null or a longer one leaves the backup where it is.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread calls it at start-up, before sqlite_reg(). It is not for signal handlers.
 */
KELO_API void sqlite_reg_store_area(const char* primary_dir, const char* backup_dir);

/**
 * Tells whether both configuration files exist.
 *
 * It takes the lock of the store, shared: it waits for a copy that another process makes, and undoes a copy
 * that a crash has interrupted first.
 *
 * @retval 0   both exist.
 * @retval -1  one of them is missing, or the lock was not available in time.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_pal_check_db_exist(void);

/**
 * Tells whether a row with a key is in a table. It takes no lock of the store.
 * @param db     open database of the caller. Null is logged.
 * @param table  name of the table. Null is logged.
 * @param key    key of the row. Null is logged.
 * @retval 1  the row is there.
 * @retval 0  the row is not there, an argument is null, or the question failed, which is logged.
 * @par Blocking
 * It blocks for the accesses to the files.
 * @par Threads
 * Any thread that may use `db` may call it. It is not for signal handlers.
 */
KELO_API int dm_record_exist(struct sqlite3* db, const char* table, const char* key);

/**
 * @name Writing
 * @{
 */
/**
 * Writes an item so that a power cut at any moment leaves its old or its new value: the write slot of a
 * handle.
 *
 * It takes the mutex of the slots and the lock of the store, exclusively. It is meant for settings, not for
 * data that changes often.
 *
 * @param id     number stored with the row.
 * @param item   table, key and type of the row. Null is logged and gives -1.
 * @param value  `len` bytes, which are copied. Null is logged and gives -1.
 * @param len    0 or more. 0 stores an empty value, which reads back as no row.
 * @return as dm_pal_write().
 * @par Blocking
 * It blocks for 18 file syncs or more and a shell `cp`, which is waited for without a limit; also for the
 * mutex of the slots without a limit, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_sqlite_write(uint32_t id, kelo_dm_item_desc* item, const void* value, int len);

/**
 * Writes a row through the journal, without the mutex of the slots.
 *
 * The steps are: journal ::WS_READY, row into the primary, copy of the healthy primary over the backup,
 * ::WS_WRITE_DONE, ::WS_BACKUP_DONE. It takes the lock of the store, exclusively.
 *
 * - A primary that is missing or empty is first made again from a good backup. So is a primary that takes no
 *   rows of a table that the backup has, although its health check finds nothing.
 * - A row of the primary that lost its key, or does not match its checksum, is first taken from the backup,
 *   if it is good there.
 * - A copy that is not complete leaves the old backup, and the one row is then written into it.
 * - A primary that fails its health check is not copied. It is replaced by the backup, if that is good, and
 *   the row is written into it again. Reads give the old value until the next write.
 *
 * @param table  name of the table.
 * @param id     number stored with the row.
 * @param key    key of the row.
 * @param type   type stored with the row, a ::kelo_dm_type.
 * @param value  `len` bytes, which are copied.
 * @param len    0 or more. 0 stores an empty value, which reads back as no row.
 * @retval 0   accepted. A row that SQLite refused (the disk is full, another program has the file) is only
 *             logged and gives 0, too. kelo_dm_write_verified() reports it.
 * @retval -1  an argument is null, the length is negative, the lock of the store was not available in time,
 *             or the primary could not be opened, made again or given its table.
 * @par Blocking
 * It blocks for 18 file syncs or more and a shell `cp`, which is waited for without a limit; also up to five
 * seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_pal_write(const char* table, uint32_t id, const char* key, uint32_t type, const void* value,
                          int len);

/**
 * Writes one row into a database file, without the journal and without a copy over the backup.
 *
 * It makes the file and the table when they are missing, and adds the columns that an older release left out.
 * It takes the lock of the store, exclusively. The end of the change is not synced: a power cut directly
 * after the return may undo it. A primary that is empty or missing is first made again from a good backup.
 *
 * When SQLite reports corruption while the table is created, the primary database (whatever `db_path` is) is
 * replaced once and the write is tried again:
 * - by the backup, when it is not empty and passes its health check. When `db_path` is the backup itself, it
 *   does not replace a primary that is as good.
 * - else by the recovery copy, when it is not empty and passes its health check, and the primary is bad:
 *   `db_path` is the primary, or the primary is empty or fails its health check.
 *
 * A backup in which the table cannot be created is made again from the primary, if that is healthy.
 *
 * @param db_path  path of the database file.
 * @param table    name of the table.
 * @param id       number stored with the row.
 * @param key      key of the row.
 * @param type     type stored with the row, a ::kelo_dm_type.
 * @param value    `len` bytes, which are copied.
 * @param len      0 or more. 0 stores an empty value.
 * @retval 0     the table is there. A failure to store the row itself is only logged.
 * @retval -1    an argument is null, the length is negative, the table could not be created, or an empty
 *               primary could not be made again.
 * @retval -101  the file could not be opened, or the lock of the store was not available in time.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_write_db(const char* db_path, const char* table, uint32_t id, const char* key, uint32_t type,
                         const void* value, int len);

/**
 * Stores the one row of the write journal.
 *
 * It takes the lock of the store, exclusively. A journal that cannot be updated is deleted and made again,
 * empty, unless only a column is missing or another process holds a lock on it. The next call then stores its
 * row.
 *
 * @param table  name of the table that is written. Null is logged and gives -1.
 * @param id     number of the item that is written.
 * @param key    key of the row that is written. Null is logged and gives -1.
 * @param type   type of the value, a ::kelo_dm_type.
 * @param len    length of the value in bytes.
 * @param state  ::dm_write_state.
 * @retval 0   stored.
 * @retval -1  a failure; also when the lock was not available in time.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_write_state_db(const char* table, uint32_t id, const char* key, uint32_t type, int len,
                               int state);

/**
 * Runs a shell command and reads up to `out_size` bytes of its standard output. It takes no lock.
 *
 * What command.h says about signals and shell commands holds for this function.
 *
 * @param command   handed to the shell without a change. Null is logged and gives -1.
 * @param out       receives the output, not terminated. Null: nothing is read.
 * @param out_size  size of `out` in bytes. When that many bytes have been read (at once for null) the pipe is
 *                  closed: a command that writes more may be ended by SIGPIPE before its work is done.
 *                  Redirect output that is not wanted.
 * @retval 0   the command ran, whatever its exit status is.
 * @retval -1  `command` is null, or it could not be started.
 * @par Blocking
 * It blocks until the command has ended, without a limit.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_sqlite_system_cmd(const char* command, char* out, unsigned int out_size);
/** @} */

/**
 * @name Reading
 * @{
 */
/**
 * Reads the value of an item as dm_pal_read() does, under the mutex of the slots: the read slot of a handle.
 * @param id    not used.
 * @param item  table and key of the row. Null is logged and gives -1.
 * @param buf   receives at most `len` bytes, as for dm_pal_read().
 * @param len   size of `buf` in bytes, 0 or more.
 * @return as dm_pal_read().
 * @par Blocking
 * It blocks for the accesses to the files, up to five seconds for the lock of the store, and without a limit
 * for the mutex of the slots.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_sqlite_read(uint32_t id, kelo_dm_item_desc* item, void* buf, int len);

/**
 * Reads one value as dm_pal_read() does, and has a result of its own for a null argument.
 * @param table  name of the table.
 * @param key    key of the row.
 * @param buf    receives at most `len` bytes, as for dm_pal_read().
 * @param len    size of `buf` in bytes, 0 or more.
 * @return as dm_pal_read(); -3 for a null argument.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_pal_read_by_key(const char* table, const char* key, void* buf, int len);

/**
 * Reads one value and verifies its checksum.
 *
 * The value always comes from the backup database, which is a byte copy of the primary after every healthy
 * write. The primary is read first, but only to find and repair corruption in it. The function takes the lock
 * of the store, shared: several processes may read at once, and a read waits for a write that has begun.
 *
 * A backup that is missing, empty, corrupt or no database is made again from a healthy primary. This read
 * still fails with -100, and the next read gives the value.
 *
 * The checksum covers the length of the value and as many of its first bits as the value has bytes (modulo
 * 65536). Damage after these bits is not found.
 *
 * @param table  name of the table.
 * @param key    key of the row.
 * @param buf    receives at most `len` bytes. It may have been written to even when the result is a failure.
 *               A buffer shorter than the value fails with -102, because the checksum is computed over what
 *               was read. Only a value whose covered bits are all zero passes, and is cut.
 * @param len    size of `buf` in bytes, 0 or more.
 * @return the number of bytes read (1 or more), or a code of ::dm_sqlite_result. It is -101 also when the
 *         lock of the store was not available in time. A failure is final: the default is not used instead.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_pal_read(const char* table, const char* key, void* buf, int len);

/**
 * Reads the value and the stored checksum of one row from a database file, without verifying the checksum.
 *
 * It takes the lock of the store, shared. A corrupt file leads to one repair of the primary database, as in
 * dm_write_db(), and to one more try. For the repair the lock is released and taken exclusively; a file that
 * another process has repaired meanwhile is only read again. A backup that is of no use is made again from
 * the primary, as in dm_pal_read().
 *
 * @param db_path  path of the database file.
 * @param table    name of the table.
 * @param key      key of the row.
 * @param buf      receives at most `len` bytes.
 * @param crc_out  receives the stored checksum when there is a value; may be null.
 * @param len      size of `buf` in bytes, 0 or more.
 * @return number of bytes copied into `buf`, at most `len`; -1 for a bad argument, no row or an empty value;
 *         -100; or -101, also when the lock of the store was not available in time.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_read_db(const char* db_path, const char* table, const char* key, void* buf, uint32_t* crc_out,
                        int len);

/**
 * Reads the stored default of an item, and its type: the defaults-read slot of a handle.
 *
 * It takes the lock of the store, shared, and no mutex.
 *
 * @param id    not used.
 * @param item  table and key of the row. Its `type` receives the stored type, or 0 when nothing was read.
 *              Null is logged and gives -1.
 * @param buf   receives at most `len` bytes.
 * @param len   size of `buf` in bytes, 0 or more.
 * @return as dm_read_def_db(); -1 for a null `item`.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_sqlite_def_db_read(uint32_t id, kelo_dm_item_desc* item, void* buf, int len);

/**
 * Reads one row of the defaults database.
 *
 * This database has no checksums, and nothing is repaired. The function takes the lock of the store, shared.
 *
 * @param table     name of the table.
 * @param key       key of the row.
 * @param type_out  receives the stored type when there is a value; may be null.
 * @param buf       receives at most `len` bytes.
 * @param len       size of `buf` in bytes, 0 or more.
 * @return number of bytes copied into `buf`, at most `len`; -1 for a bad argument, no row or an empty value;
 *         -100; or -101, also when the lock of the store was not available in time.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_read_def_db(const char* table, const char* key, uint32_t* type_out, void* buf, int len);
/** @} */

/**
 * @name Health
 * @{
 */
/**
 * Checks a database file with the quick check of SQLite. The file is opened for reading only.
 *
 * It takes the lock of the store, shared, whatever the file is: it waits for a write that has begun.
 *
 * @param path  path of the database file. Null is logged and gives -1.
 * @retval 0   healthy; a file of 0 bytes is healthy, too.
 * @retval 1   corrupt.
 * @retval -1  the file cannot be opened for another reason (it is missing, the path is null), or the lock of
 *             the store was not available in time.
 * @retval -2  the check failed for another reason (the file is no database, another process held it for too
 *             long).
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int check_database_health(const char* path);

/**
 * Receives a row of the quick check and tells whether it reports corruption.
 *
 * The flag is set for each row, so that after the check it tells about the last row.
 *
 * @param is_corrupted  receives 1 when a value of this row is not "ok", which is logged, and 0 otherwise.
 * @param ncols         number of columns of the row.
 * @param values        texts of the columns; a null text is skipped.
 * @param names         names of the columns; not used.
 * @return always 0, so that every row is examined.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different buffers. It is not for signal handlers.
 */
KELO_API int integrity_check_callback(int* is_corrupted, int ncols, char** values, char** names);

/**
 * Adds the columns `id` and `type` to a table of an older release that lacks them. It takes no lock of the
 * store.
 * @param db     open database of the caller. Null is logged and gives -1.
 * @param table  name of the table. Null is logged and gives -1.
 * @param key    key of the row with which the table is tested. Null is logged and gives -1.
 * @retval 0   the table answers a select of both columns.
 * @retval -1  it does not.
 * @par Blocking
 * It blocks for the accesses to the files.
 * @par Threads
 * Any thread that may use `db` may call it. It is not for signal handlers.
 */
KELO_API int alter_table_add_column(struct sqlite3* db, const char* table, const char* key);
/** @} */

/**
 * @name Registration and defaults
 * @{
 */
/**
 * Fills the operations of a handle with the functions of this back-end.
 *
 * The first call in a process also does the following, under the lock of the store, exclusively:
 * - It checks the stored version, and stores the version when the database has no version table yet.
 * - When the versions agree, it completes a write that a crash left between the primary and the backup.
 * - When any version was found, it replaces a primary that is no SQLite database by a good backup. Where an
 *   older release has left several rows of one key in a table, it keeps only the newest one.
 *
 * A call that cannot get the lock in time does none of that: the next call in the process tries again.
 *
 * @param ops  receives the functions in every call. Null is logged, and nothing is done.
 * @par Blocking
 * It blocks for the accesses to the files, up to five seconds for the lock of the store, and without a limit
 * for the mutex of the slots.
 * @par Threads
 * Any thread may call it, but the first call must return before any other thread uses the operations. It is
 * not for signal handlers.
 */
KELO_API void sqlite_reg(kelo_dm_operations* ops);

/**
 * Completes an interrupted write.
 *
 * When the state of the journal is ::WS_WRITE_DONE and the primary holds the item with a matching checksum,
 * that value is written into the backup. The journal is unchanged. The function takes the lock of the store,
 * exclusively.
 *
 * @retval 0   there was nothing to do, or the write is complete.
 * @retval -1  a step failed. Callers need not examine it.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_sqlite_check_database(void);

/**
 * Stores the default of an item: the defaults slot of a handle.
 *
 * It takes the lock of the store, exclusively, and no mutex. The first call in a process also stores the
 * version record, and returns the result of that write.
 *
 * @param id     not used.
 * @param item   table, key and type of the row. Null is logged and gives -1.
 * @param value  types 1 to 4: `len` bytes. Type 5: the text, or the address of the `def_value` of `item`,
 *               which then holds the address of the text. Type 6: the address of a pointer to `len` bytes.
 * @param len    length of the default in bytes, 0 or more.
 * @retval 0     stored.
 * @retval -1    `item` or `value` is null, the type is another one, the length is negative, or the table
 *               could not be created.
 * @retval -101  the database could not be opened, or the lock of the store was not available in time.
 * @par Blocking
 * It blocks for five file syncs, or more when the table is new, and up to five seconds for the lock of the
 * store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_sqlite_def_db_const(uint32_t id, kelo_dm_item_desc* item, const void* value, int len);

/**
 * Writes one row into the defaults database. It takes the lock of the store, exclusively.
 * @param table  name of the table.
 * @param key    key of the row.
 * @param type   type of the value, a ::kelo_dm_type.
 * @param value  `len` bytes, which are copied.
 * @param len    0 or more.
 * @retval 0     the table is there. A failure to store the row itself is only logged.
 * @retval -1    the length is negative, an argument is null, or the table could not be created.
 * @retval -101  the database could not be opened, or the lock of the store was not available in time.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_write_def_db(const char* table, const char* key, uint32_t type, const void* value, int len);

/**
 * Reads the version that is stored in the configuration database.
 *
 * It takes the mutex of the slots and the lock of the store, shared.
 *
 * @param ver  receives the version, 4 bytes. Null is logged and gives -1.
 * @return as dm_pal_read(): 4 for success; -1 for a null argument.
 * @par Blocking
 * It blocks for the accesses to the files, up to five seconds for the lock of the store, and without a limit
 * for the mutex of the slots.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_sqlite_read_CfgDB_version(uint32_t* ver);

/**
 * Reads the version that is stored in the defaults database.
 *
 * It takes the mutex of the slots and the lock of the store, shared.
 *
 * @param ver  receives the version, 4 bytes. Null is logged and gives -1.
 * @return as dm_read_def_db(): 4 for success; -1 for a null argument.
 * @par Blocking
 * It blocks for the accesses to the files, up to five seconds for the lock of the store, and without a limit
 * for the mutex of the slots.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_sqlite_read_DefItemsDB_version(uint32_t* ver);

/**
 * Compares both stored versions with the version of the library.
 *
 * It takes the mutex of the slots and the lock of the store, shared.
 *
 * @param matched  receives 1 when all versions are equal, and 0 when they are not. It is unchanged when a
 *                 version cannot be read or the lock was not available in time. With null nothing is done.
 * @par Blocking
 * It blocks for the accesses to the files, up to five seconds for the lock of the store, and without a limit
 * for the mutex of the slots.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void sqlite_chk_db_ver_match(int* matched);
/** @} */

/**
 * @name Maintenance
 * @{
 */
/**
 * Deletes the configuration, backup and journal databases, in this order.
 *
 * It stops at the first file that cannot be deleted; a missing file counts as such. The defaults database and
 * the lock file are kept. Each deletion is synced before the next. The function takes the mutex of the slots
 * and the lock of the store, exclusively: writes and reads of other processes wait, and find the store either
 * as it was or empty.
 *
 * @param backup  null: only delete. Otherwise (the text itself is not used) first keep a dated copy of the
 *                primary in "/mnt/vendor/nvdata/", where at most three copies are kept.
 * @retval 0   deleted.
 * @retval -1  a step failed; or the lock of the store was not available in time, and nothing is deleted.
 * @par Blocking
 * It blocks for the accesses to the files, up to five seconds for the lock of the store, and without a limit
 * for the mutex of the slots.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int dm_sqlite_clean(const char* backup);

/**
 * Exports every table of a database as lines "key,len,type,value," into the file ::DB_EXPORT_CSV, which is
 * replaced.
 *
 * Each line ends with CR, LF and a NUL byte. Nothing is quoted. The function takes the lock of the store,
 * shared: writes of the configuration wait until the export ends. A table that has not the columns key, len,
 * type and value is a fatal programming error, as in dm_export_by_table().
 *
 * @param db_path  path of the database file.
 * @retval 0     exported.
 * @retval -1    `db_path` is null.
 * @retval -101  the database cannot be opened, or the lock of the store was not available in time.
 * @retval 4     the CSV file cannot be opened.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for the lock of the store.
 * @par Threads
 * Any thread may call it, but two exports must not run at once, because both write the same file. It is not
 * for signal handlers.
 */
KELO_API int dm_read_all_tabs_from_db(const char* db_path);

/**
 * Exports the tables that one row of a result names: the row callback of the export.
 *
 * The lines are added at the end of the file ::DB_EXPORT_CSV. When this file cannot be opened, nothing is
 * written. No lock is taken.
 * @param db      the open database, a `struct sqlite3*`.
 * @param ncols   number of columns of the row.
 * @param values  the columns, which are names of tables. A null one is logged and skipped.
 * @param names   names of the columns; not used.
 * @return always 0.
 * @par Blocking
 * It blocks for the accesses to the files.
 * @par Threads
 * Any thread that may use `db` may call it. It is not for signal handlers.
 */
KELO_API int dm_sqlite_db2csv_cb(void* db, int ncols, char** values, char** names);

/**
 * Writes the rows of one table to a stream. It takes no lock of the store.
 *
 * The line of a row, with its end, takes at most 512 bytes; a longer one is cut. A key of 32 bytes or more is
 * left out and taken as the length column, and the columns after it all move by one. A length or type of five
 * or more digits is left out. Values of type 5 are written as text, as many bytes as their length says and as
 * there are (none when the length was left out). Other values are written as the number in their first four
 * bytes; missing bytes count as zero.
 *
 * @param db     open database of the caller. A table that cannot be read is a fatal programming error: the
 *               source path and line are printed on standard output and the process aborts.
 * @param table  name of the table.
 * @param out    stream that receives the lines.
 * @retval 0  written.
 * @retval 3  `table` or `out` is null, which is logged.
 * @par Blocking
 * It blocks for the accesses to the files.
 * @par Threads
 * Any thread that may use `db` may call it. It is not for signal handlers.
 */
KELO_API int dm_export_by_table(struct sqlite3* db, const char* table, FILE* out);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_SQLITE_H */
