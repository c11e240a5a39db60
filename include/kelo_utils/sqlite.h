/**
 * @file sqlite.h
 * @brief The SQLite back-end of the data manager: journalled writes, verified reads, repair, clean and
 *        export.
 *
 * A daemon seldom calls these functions itself: it links the target `kelo::utils_sqlite`, whose hooks hand
 * them to every handle of kelo_dm_reg(). They are exported for maintenance tools and for daemons with hooks
 * of their own. This header includes parameters.h, too.
 *
 * Results shared by the family: 0 or a byte count for success; ::DM_SQLITE_FAILED, ::DM_SQLITE_NOT_PREPARED,
 * ::DM_SQLITE_NOT_OPENED and ::DM_SQLITE_BAD_CRC for failures. Every failure is logged.
 *
 * Table names and keys are spliced into SQL text as they are: they must be plain identifiers. A statement is
 * cut at 511 characters.
 *
 * Each call opens its database files, works and closes them.
 *
 * The store's lock: all processes and threads share one lock, on the file "<primary>-lock" (usually
 * "/data/config.db-lock"), which a program must neither lock nor delete. Each function below that says so
 * holds it from its first step to its last: shared where it only reads, exclusively where it writes. A shared
 * one becomes exclusive where there is something to repair. The lock is waited for during five seconds of
 * monotonic time, whatever signals arrive. When they are over, nothing has been touched, one line of the log
 * says what was waited for, and the result is the one for a database that cannot be opened:
 * ::DM_SQLITE_NOT_OPENED where a function has it, else ::DM_SQLITE_FAILED. The kernel releases the lock when
 * its holder dies. An operation first undoes a copy that a crash has interrupted; while the `cp` of a killed
 * process still works, it waits for that one, too, for five seconds. A process that may not open the lock
 * file reads without it, repairs nothing, and may fail to read while another process writes.
 *
 * A lock that another program holds on a database through SQLite is waited for during five seconds as well.
 *
 * Within one process the slots of a handle also share a mutex, which is waited for without a limit:
 * dm_sqlite_write(), dm_sqlite_read(), dm_sqlite_clean(), the version queries and sqlite_reg(). The receiver
 * of log lines (set_print_interface()) must not call functions of this file that take the lock.
 *
 * A child made by fork() inherits no lock and may use the store at once: a fork() waits until no other thread
 * is inside SQLite, for five seconds at most, but not for a running `cp`. If that time was not enough, the
 * child cannot use the store: each call fails as if the lock could not be had. A fork() in a callback of an
 * operation is not supported.
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
  DM_SQLITE_BAD_CRC = -102       /**< a value is there, but it does not match its checksum */
};

/** States of the write journal. */
enum dm_write_state {
  WS_READY = 100,      /**< a write into the primary database is about to start */
  WS_WRITE_DONE = 101, /**< the primary was written and its copy over the backup was attempted */
  WS_BACKUP_DONE = 102 /**< the write and its backup are complete */
};

/** Table, key, item id and number of the version record; the number is stored in the machine's byte order. */
#define SQL_VER_TAB "SQL_VER_TAB"
#define SQL_VER_KEY "SQL_VER_KEY"
#define SQL_VER_ID 0x10001
#define SQL_VER 0x00010001

/** Sizes of the path arrays in bytes, terminator included. */
enum { DM_SQLITE_PATH_SIZE = 64, DM_SQLITE_AREA_SIZE = 50 };

/**
 * @name Database locations
 * NUL-terminated and writable. Set them once, in one thread, before sqlite_reg().
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
 * To be called before sqlite_reg(). The other path arrays stay as they are.
 *
 * @param primary_dir  directory of at most 50 characters with its final "/" (none is added); null leaves the
 *                     primary and the journal where they are. A longer one changes nothing, the backup path
 *                     included.
 * @param backup_dir   likewise for the backup; null or a longer one leaves the backup where it is.
 */
KELO_API void sqlite_reg_store_area(const char* primary_dir, const char* backup_dir);

/**
 * Whether both configuration files exist. Takes the store's lock, shared: a copy that another process makes
 * is waited for, and one that a crash interrupted is undone first.
 * @return 0 when they do; -1 otherwise, and when the lock could not be had in time.
 */
KELO_API int dm_pal_check_db_exist(void);

/**
 * Whether a row with this key is in the table. Takes no lock of the store; `db` is the caller's.
 * @return 1 when it is; 0 when it is not or the question failed (logged).
 */
KELO_API int dm_record_exist(struct sqlite3* db, const char* table, const char* key);

/**
 * @name Writing
 * @{
 */
/**
 * Writes an item so that a power cut at any moment leaves its old or its new value: the write slot of a
 * handle. Takes the mutex of the slots and the store's lock, exclusively. Blocks for 18 file syncs or more
 * and a shell `cp`, which is waited for without a limit: meant for settings, not for data that changes
 * often.
 *
 * @param id     number stored with the row.
 * @param item   table, key and type of the row; must not be null.
 * @param value  `len` bytes, copied; must not be null.
 * @param len    0 or more; 0 stores an empty value, which reads back as no row.
 * @return as dm_pal_write().
 */
KELO_API int dm_sqlite_write(uint32_t id, kelo_dm_item_desc* item, const void* value, int len);

/**
 * The journalled write without the mutex of the slots: journal ::WS_READY, row into the primary, copy of
 * the healthy primary over the backup, ::WS_WRITE_DONE, ::WS_BACKUP_DONE. Takes the store's lock,
 * exclusively. Two threads of one process may call it at once.
 *
 * - A primary that is missing or empty is first made anew from a good backup. So is one that takes no rows of a
 *   table that the backup has, without its health check noticing.
 * - A row of the primary that lost its key, or does not match its checksum, is first taken from the backup, if
 *   it does so there.
 * - A copy that does not come out whole leaves the old backup, into which the one row is then written.
 * - A primary that fails its health check is not copied; it is then replaced by the backup, if that is good,
 *   and the row is written into it again. Reads give the old value until the next write.
 *
 * @retval 0   accepted. A row that SQLite refused (the disk is full, another program has the file) also ends
 *             here: it is only logged. kelo_dm_write_verified() tells.
 * @retval -1  a null argument, a negative length, the store's lock could not be had in time, or a primary
 *             that could not be opened, made anew or given its table.
 */
KELO_API int dm_pal_write(const char* table, uint32_t id, const char* key, uint32_t type, const void* value,
                          int len);

/**
 * Writes one row into the database file `db_path`, creating the file and the table when missing and adding
 * the columns that an older release left out. Takes the store's lock, exclusively. There is no journal and no
 * copy over the backup, and the end of the change is not synced: a power cut just after the return may undo
 * it. An empty or missing primary is first made anew from a good backup.
 *
 * If creating the table reports corruption, the primary database (whatever `db_path` is) is replaced once and
 * the write is tried again:
 * - by the backup, when that is not empty and passes its health check. Where `db_path`
 *   is the backup itself, it replaces no primary that is as good.
 * - else by the recovery copy, when that is not empty and passes its health check, and the primary is bad:
 *   `db_path` names the primary, or the primary is empty or fails its health check.
 *
 * A backup in which the table cannot be created is made anew from the primary, if that is healthy.
 *
 * @retval 0     the table is there; a failure to store the row itself is only logged.
 * @retval -1    a null argument, a negative length, a table that could not be created, or an empty primary
 *               that could not be made anew.
 * @retval -101  the file could not be opened, or the store's lock could not be had in time.
 */
KELO_API int dm_write_db(const char* db_path, const char* table, uint32_t id, const char* key, uint32_t type,
                         const void* value, int len);

/**
 * Stores the one row of the write journal. Takes the store's lock, exclusively.
 * A journal that cannot be updated for another reason than a missing column or another process's lock is
 * deleted and recreated empty; the next call then stores its row.
 *
 * @param state  ::dm_write_state.
 * @return 0 on success, -1 on failure, also when the lock could not be had in time.
 */
KELO_API int dm_write_state_db(const char* table, uint32_t id, const char* key, uint32_t type, int len,
                               int state);

/**
 * Runs a shell command and reads up to `out_size` bytes of its standard output. Blocks until the command
 * ends. Takes no lock. What command.h says of signals and shell commands holds for this one.
 *
 * @param command   handed to the shell as it stands.
 * @param out       receives the output, not terminated; null: nothing is read.
 * @param out_size  bytes of room in `out`. Once that many were read (at once for null) the pipe is closed: a
 *                  command that writes more may be ended by SIGPIPE before its work is done. Redirect what is
 *                  not wanted.
 * @return 0 once the command ran, whatever its exit status; -1 for a null command or when it could not be
 *         started.
 */
KELO_API int dm_sqlite_system_cmd(const char* command, char* out, unsigned int out_size);
/** @} */

/**
 * @name Reading
 * @{
 */
/**
 * The read slot of a handle: dm_pal_read() of the item's table and key, under the mutex of the slots. `id` is
 * not used.
 */
KELO_API int dm_sqlite_read(uint32_t id, kelo_dm_item_desc* item, void* buf, int len);

/** dm_pal_read() for callers without a descriptor. @return -3 for a null argument, else as dm_pal_read(). */
KELO_API int dm_pal_read_by_key(const char* table, const char* key, void* buf, int len);

/**
 * Reads one value and verifies its checksum. The value always comes from the backup database, which is a byte
 * copy of the primary after every healthy write; the primary is read first only to find and repair its
 * corruption. Takes the store's lock, shared: reads of several processes run at once, and a read waits for a
 * write that has begun.
 *
 * A backup that is missing, empty, corrupt or no database is made anew from a healthy primary. This read
 * fails with -100 all the same, and the next one gives the value.
 *
 * The checksum speaks of the value's length and of as many of its first bits as the value has bytes (modulo
 * 65536): damage behind them goes unnoticed.
 *
 * @param buf  receives at most `len` bytes; may have been written to even when the result is a failure. A
 *             buffer shorter than the value fails with -102, because the checksum is taken over what was
 *             read; only a value whose covered bits are all zero passes and is cut.
 * @return the number of bytes read (1 or more), or a code of ::dm_sqlite_result: -101 also when the store's
 *         lock could not be had in time. Failures are final: the default is not consulted.
 */
KELO_API int dm_pal_read(const char* table, const char* key, void* buf, int len);

/**
 * Reads one row's value and stored checksum from `db_path`, without verifying. Takes the store's lock,
 * shared. A corrupt file leads to one repair of the primary database, as in dm_write_db(), and one more
 * try. For that the lock is given up and taken exclusively; a file that another process has repaired
 * meanwhile is only read again. A backup that is of no use is made anew from the primary, as in
 * dm_pal_read().
 *
 * @param crc_out  receives the stored checksum with a value; may be null.
 * @return bytes copied into `buf`, at most `len`; -1 bad argument, no row or empty value; -100; -101, also
 *         when the store's lock could not be had in time.
 */
KELO_API int dm_read_db(const char* db_path, const char* table, const char* key, void* buf, uint32_t* crc_out,
                        int len);

/**
 * The defaults-read slot of a handle: reads an item's stored default, and its type into the descriptor's
 * `type` (0 when nothing was read). Takes the store's lock, shared, and no mutex. `id` is not used.
 * @return -1 for a null descriptor, else as dm_read_def_db().
 */
KELO_API int dm_sqlite_def_db_read(uint32_t id, kelo_dm_item_desc* item, void* buf, int len);

/**
 * Reads one row of the defaults database. No checksum is kept there and nothing is repaired. Takes the
 * store's lock, shared.
 * @param type_out  receives the stored type with a value; may be null.
 * @return bytes copied into `buf`, at most `len`; -1 bad argument, no row or empty value; -100; -101, also
 *         when the store's lock could not be had in time.
 */
KELO_API int dm_read_def_db(const char* table, const char* key, uint32_t* type_out, void* buf, int len);
/** @} */

/**
 * @name Health
 * @{
 */
/**
 * Checks a database file with SQLite's quick check, opening it read-only. Takes the store's lock, shared,
 * whatever the file: a write that has begun is waited for.
 * @retval 0   healthy; so is a file of 0 bytes.
 * @retval 1   corrupt.
 * @retval -1  cannot be opened for another reason (a missing file, a null path), or the store's lock could
 *             not be had in time.
 * @retval -2  the check failed for another reason (not a database, held by another process for too long).
 */
KELO_API int check_database_health(const char* path);

/**
 * Row callback of the quick check: sets `*is_corrupted` to 1 when a value of this row is not "ok" and to 0
 * otherwise, so that after the check the flag speaks of the last row. @return 0 always, to see every row.
 */
KELO_API int integrity_check_callback(int* is_corrupted, int ncols, char** values, char** names);

/**
 * Adds the columns `id` and `type` to a table of an older release that lacks them. Takes no lock of the
 * store; `db` is the caller's.
 * @return 0 when the table answers a select of both, -1 otherwise.
 */
KELO_API int alter_table_add_column(struct sqlite3* db, const char* table, const char* key);
/** @} */

/**
 * @name Registration and defaults
 * @{
 */
/**
 * Fills the operations of a handle with this back-end. Must return in one thread before any other uses the
 * operations. The first call of the process also, under the store's lock, exclusively:
 * - checks the stored version, and stores it when the database has no version table yet;
 * - when the versions agree, completes a write that a crash left between its primary and its backup;
 * - when any version was found, replaces a primary that is no SQLite database by a good backup, and reduces
 *   rows of one key in a table, which an older release may have left, to the newest one.
 *
 * A call that cannot get the lock in time does none of that: the next call of the process tries it again.
 * @param ops  written by every call; must not be null.
 */
KELO_API void sqlite_reg(kelo_dm_operations* ops);

/**
 * Completes an interrupted write: when the journal stands at ::WS_WRITE_DONE and the primary holds the item
 * with a matching checksum, that value is written into the backup. The journal is left as it is. Takes the
 * store's lock, exclusively. @return 0 when there was nothing to do or it was done, -1 when something failed;
 * callers need not look.
 */
KELO_API int dm_sqlite_check_database(void);

/**
 * Stores an item's default: the defaults slot of a handle. Takes the store's lock, exclusively, and no mutex.
 * Blocks for five file syncs, and for more where the table is new. `id` is not used.
 *
 * The first call of the process also stores the version record and returns the result of that.
 *
 * @param value  types 1 to 4: `len` bytes. Type 5: the text, or the address of the descriptor's own
 *               `def_value`, which then holds the text's address. Type 6: the address of a pointer to `len`
 *               bytes.
 * @return 0 on success; -1 for a null descriptor, another type or a null value; -101, also when the store's
 *         lock could not be had in time.
 */
KELO_API int dm_sqlite_def_db_const(uint32_t id, kelo_dm_item_desc* item, const void* value, int len);

/**
 * Writes one row into the defaults database. Takes the store's lock, exclusively.
 * @return 0 once the table is there (a failure to store the row itself is only logged); -1 for a negative
 *         length, a null argument or a table that could not be created; -101, also when the store's lock
 *         could not be had in time.
 */
KELO_API int dm_write_def_db(const char* table, const char* key, uint32_t type, const void* value, int len);

/** Reads the version stored in the configuration database, under the mutex of the slots and the store's lock,
 * shared. @return -1 for null, else as dm_pal_read() (4 for success). */
KELO_API int dm_sqlite_read_CfgDB_version(uint32_t* ver);

/** Reads the version stored in the defaults database, under the mutex of the slots and the store's lock,
 * shared. @return -1 for null, else as dm_read_def_db() (4 for success). */
KELO_API int dm_sqlite_read_DefItemsDB_version(uint32_t* ver);

/**
 * Compares both stored versions with the library's, under the mutex of the slots and the store's lock,
 * shared.
 * @param matched  1 when all agree, 0 when not; untouched when a version cannot be read or the lock could
 *                 not be had in time. Null does nothing.
 */
KELO_API void sqlite_chk_db_ver_match(int* matched);
/** @} */

/**
 * @name Maintenance
 * @{
 */
/**
 * Deletes the configuration, backup and journal databases, in this order, stopping at the first that cannot
 * be deleted (a missing file included). The defaults database and the lock file stay. Each deletion is synced
 * before the next. Takes the mutex of the slots and the store's lock, exclusively: writes and reads of other
 * processes wait, and find the store as it was or empty.
 * @param backup  null: just delete. Otherwise (the text itself is not used) first keep a dated copy of the
 *                primary under "/mnt/vendor/nvdata/", of which at most three are kept.
 * @return 0 on success; -1 on the first failing step, or when the store's lock could not be had in time: then
 *         nothing is deleted.
 */
KELO_API int dm_sqlite_clean(const char* backup);

/**
 * Exports every table of a database as lines "key,len,type,value," into ::DB_EXPORT_CSV, replacing that file.
 * Each line ends in CR, LF and a NUL byte. Nothing is quoted. Takes the store's lock, shared: writes of the
 * configuration wait until the export ends. Two exports must not run at once, since both write the same file.
 * @return 0 on success, -1 for a null path, -101 when the database cannot be opened or the store's lock
 *         could not be had in time, and 4 when the CSV file cannot be opened.
 */
KELO_API int dm_read_all_tabs_from_db(const char* db_path);

/** Row callback of the export: `values` are table names, `db` is the open database. Takes no lock.
 * @return 0 always. */
KELO_API int dm_sqlite_db2csv_cb(void* db, int ncols, char** values, char** names);

/**
 * Writes one table's rows to `out`. Takes no lock of the store. A row's line, its end included, takes at
 * most 512 bytes; what is longer is cut. A key of 32 bytes or more is left out and taken as the length
 * column, whose columns then all move by one. A length or type of five or more digits is left out. Values
 * of type 5 are written as text, as many bytes as their length says and as there are (none when the length
 * was left out), others as the number in their first four bytes (fewer bytes count as zero-filled). A
 * table that cannot be read is a fatal programming error.
 * @return 0, or 3 when `table` or `out` is null.
 */
KELO_API int dm_export_by_table(struct sqlite3* db, const char* table, FILE* out);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_SQLITE_H */
