/**
 * @file sqlite.h
 * @brief The SQLite back-end of the data manager: journalled writes, verified reads, repair, clean and
 *        export; and the parameter tables.
 *
 * A daemon seldom calls these functions itself: it links the target `kelo::utils_sqlite`, whose hooks hand
 * them to every handle of kelo_dm_reg(). They are exported for maintenance tools and for daemons with hooks
 * of their own.
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
 * ends. Takes no lock. What app_os_al.h says of signals and shell commands holds for this one.
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

/**
 * @name Parameter tables
 *
 * A store of its own beside the configuration databases: named parameters as the columns of tables with one
 * row, in a database of user settings, with a twin that holds the factory settings. A daemon describes its
 * parameters in a static table and loads them into its variables, writes changed variables back, and reloads
 * single parameters from the factory.
 *
 *     static uint8_t enabled;
 *     static char ssid[33];
 *     static const kelo_db_param params[] = {
 *         {&enabled, "enabled", KELO_DB_TYPE_8BIT_0, sizeof enabled, 1},
 *         {ssid, "ssid", KELO_DB_TYPE_TEXT, sizeof ssid, 2},
 *         {0},
 *     };
 *     static const kelo_db_query wifi = {"wifi", params};
 *
 *     kelo_db_query_db_init_struct(&wifi);
 *     enabled = 1;
 *     kelo_db_update_db_from_struct(&wifi, 1);
 *
 * The files are "/data/kelo-resource/sqlite3/user_info.db" and ".../factory_info.db". Whoever provisions the
 * device makes their tables; nothing here creates a table, a column or a row. Each operation that opens a
 * database first makes a missing user database as a copy of the factory's, with the shell's `cp`. A user
 * database of 0 bytes counts as missing when there is a factory database with content. Where the factory
 * database is missing too, and wherever SQLite opens a file that is not there, an empty file is left.
 *
 * A copy is whole or not there: what the user database held before is kept in "user_info.db-previous"
 * until the copy is synced, and put back by the next operation when a crash comes in between. An update is
 * on storage when it returns.
 *
 * How a cell becomes a variable, by ::kelo_db_type:
 * - A number is read from the start of the cell's text: blanks, a sign, digits, an exponent. A fraction is
 *   dropped. NULL, an empty text and a text that begins otherwise read as 0. What is above 64 bits reads as
 *   the greatest 64-bit number, and a negative number as its two's complement of 64 bits. A narrower variable
 *   receives the low bits: 300 in 8 bits is 44; -1 and 4294967295 in 32 bits are the same.
 * - A text is cut to `size` - 1 bytes, even within a UTF-8 character, and the rest of the variable is filled
 *   with zeros. NULL reads as the empty text.
 *
 * How a variable becomes a cell:
 * - 8 bits are written without a sign, 32 bits with one: 4294967295 is stored as -1, which reads back as the
 *   same 32 bits.
 * - 64 bits are written without a sign. SQLite has no integer above 9223372036854775807 and stores such a
 *   number as a real one: it reads back with its first 15 digits, or as the greatest 64-bit number where
 *   these round beyond it.
 * - A text is written as it stands, at most up to `size` - 1 bytes. One that holds a double quote, that has
 *   no terminator within `size` bytes, or whose statement takes more than 255 bytes, is refused: the update
 *   fails and changes nothing. The statement of a text has 18 bytes, or 19 in kelo_db_update_value(), beside
 *   the names of table and column and the text. In a reload from the factory the cell's text is bound by the
 *   same rules.
 *
 * An update sets the column in every row of the table, a read takes the first row.
 *
 * Names of tables and columns are spliced into SQL text as they are: they must be plain identifiers. A
 * statement of more than 255 bytes is refused, never run cut.
 *
 * Results: 0 for success, ::KELO_DB_FAILED for failure, unless a function says otherwise. Every failure is
 * logged as an error, save an identifier that no entry has. A null argument is refused and logged, as is an
 * entry without a variable. In an operation on several entries one that fails does not keep the others from
 * being tried.
 *
 * At most one connection is kept open between calls: a successful read or update of the user database closes
 * it, while a failure, a read of the factory database and kelo_db_exec_cmd() leave theirs open. A connection
 * to a file that another process has replaced meanwhile is closed instead of being used again. A file that
 * another program has locked through SQLite is waited for during five seconds, whatever signals arrive.
 *
 * Every function may be called from any thread and blocks for disk accesses. One mutex of the process, the
 * parameter lock, serialises all of them but kelo_db_exec_cmd() and kelo_db_restore_factory(), which do
 * not take it. All processes share a second lock, on the file "user_info.db-lock": an operation on either
 * database holds it shared, also an update, since SQLite's own locks keep updates apart; making the user
 * database and restoring it hold it exclusively. It is waited for during five seconds, and an operation
 * that cannot have it fails and has touched nothing. No program may lock or delete that file. What is
 * said of fork() at the top of this file holds here, too: the child inherits no connection and no lock.
 * @{
 */

/** Types of parameters. Any other number, 3 included, is refused with "Error, param_type:%d ". */
enum kelo_db_type {
  KELO_DB_TYPE_8BIT_0 = 0,  /**< uint8_t */
  KELO_DB_TYPE_8BIT_1 = 1,  /**< uint8_t */
  KELO_DB_TYPE_32BIT_2 = 2, /**< int32_t or uint32_t */
  KELO_DB_TYPE_32BIT_4 = 4, /**< int32_t or uint32_t */
  KELO_DB_TYPE_64BIT = 5,   /**< uint64_t */
  KELO_DB_TYPE_TEXT = 6,    /**< char array */
  KELO_DB_TYPE_32BIT_7 = 7  /**< int32_t or uint32_t */
};

/** Failure of an operation on parameters. */
enum kelo_db_result { KELO_DB_FAILED = -1 };

/** One parameter: a column, and the variable that belongs to it. */
typedef struct kelo_db_param {
  /** Receives the value or supplies it; owned by the caller, of any alignment. */
  void* value;
  /** Name of the column; null ends the array. */
  const char* name;
  /** ::kelo_db_type. */
  uint32_t type;
  /** Bytes of a text's variable, terminator included; 0 is refused like an unknown type. Numbers have the
   *  size of their type, and this field is not looked at. */
  uint32_t size;
  /** Picks this parameter in kelo_db_update_db_from_struct() and kelo_db_reload_value(). */
  int32_t param_id;
} kelo_db_param;

/** A table of the databases and its parameters. */
typedef struct kelo_db_query {
  /** Name of the table. */
  const char* tbl_name;
  /** Its parameters, ended by an entry with a null name. */
  const kelo_db_param* param_table;
} kelo_db_query;

/**
 * Receives one row of a result: `arg` as given, the number of columns, their texts (null for NULL) and their
 * names, all valid until it returns. @return 0 to go on; anything else ends the statement, which then fails.
 */
typedef int (*kelo_db_row_fn)(void* arg, int ncols, char** values, char** names);

/**
 * Loads all parameters of `query` from the user database into their variables.
 * A variable keeps what it holds when its table has no row, which is no failure, and when it could not be
 * loaded.
 * @param query  table and parameters; a null table name or array is logged as "Error, tbl_name is null. ".
 * @retval 0   every parameter was loaded or has no row.
 * @retval -1  a null argument, or at least one parameter could not be loaded; the others were.
 */
KELO_API int kelo_db_query_db_init_struct(const kelo_db_query* query);

/**
 * Writes variables back into the user database, each in a transaction of its own.
 * @param query     as above.
 * @param param_id  -1: all parameters; otherwise those with this identifier.
 * @retval 0   written.
 * @retval -1  a null argument, no entry with this identifier, or at least one parameter that could not be
 *             written; the others were.
 */
KELO_API int kelo_db_update_db_from_struct(const kelo_db_query* query, int param_id);

/**
 * Sets a parameter to its factory value: reads it from the factory database into the variable and stores the
 * factory text in the user database, NULL as an empty text.
 * @param query     as above.
 * @param param_id  identifier of the parameter; -1 is one like any other here.
 * @retval 0   reloaded.
 * @retval -1  a null argument, no entry with this identifier, no factory row, an unknown type or a text that
 *             cannot be stored: nothing is changed. Or the user database could not be written: the variable
 *             holds the factory value then.
 */
KELO_API int kelo_db_reload_value(const kelo_db_query* query, int param_id);

/**
 * Reads one cell of the user database.
 * @param table  name of the table.
 * @param name   name of the column.
 * @param out    receives the value: a number of the type's size, of any alignment, or a text of at most
 *               `size` bytes, terminated. Left alone on failure.
 * @param type   ::kelo_db_type.
 * @param size   bytes of room for a text, not 0; not looked at for numbers.
 * @retval 0   read.
 * @retval -1  a null argument, an unknown type, no such table or column, no row, no usable database.
 */
KELO_API int kelo_db_get_value(const char* table, const char* name, void* out, uint32_t type, uint32_t size);

/**
 * Writes one cell of the user database.
 * @param table  name of the table.
 * @param name   name of the column.
 * @param value  a number of the type's size, of any alignment, or a text with its terminator.
 * @param type   ::kelo_db_type.
 * @retval 0   written; a table without rows stays without.
 * @retval -1  a null argument, an unknown type, a text that is refused, or a failing update.
 */
KELO_API int kelo_db_update_value(const char* table, const char* name, const void* value, uint32_t type);

/**
 * Runs statements of any kind on one of the databases, with the connection that is kept. It stays open, so
 * a transaction begun in one call may be ended in the next; another operation in between rolls it back, as
 * does a kelo_db_restore_factory() of any process. What the statements changed is on storage when the call
 * returns, once their transaction has ended.
 *
 * The lock that all processes share is held, shared, until the call returns: a restore waits for it.
 *
 * The parameter lock is not held: the callback may call every function of this group. On the same database
 * it works with the connection that its rows come from, also when it updates the table it reads. Meanwhile
 * other threads use connections of their own, and wait for the locks of the file. One that waits so to write
 * holds the parameter lock: a callback that needs that one then goes on once the other has given up, after
 * five seconds. Where other threads write, collect the rows first.
 *
 * @param sql       statements, of any length.
 * @param callback  called for each row; may be null.
 * @param arg       handed to the callback.
 * @param which     1: the factory database; anything else: the user database.
 * @retval 0   all statements ran.
 * @retval -1  a null `sql`, no usable database, a failing statement, or a callback that ended one. What the
 *             statements before it changed stays.
 */
KELO_API int kelo_db_exec_cmd(const char* sql, kelo_db_row_fn callback, void* arg, int which);

/**
 * Closes the connection to the user database that is kept, and so gives up its locks.
 * @return SQLite's result of closing it, 0 for success; 0 when none is kept. SQLITE_BUSY (5) while a
 *         kelo_db_exec_cmd() of any thread works on the user database, whose connection stays open.
 */
KELO_API int kelo_db_close_sqlite(void);

/**
 * Resets the user database to the factory's: closes the connection that is kept, rolling back what it had
 * begun, and copies the file with the shell's `cp`, which is waited for without a limit. Variables keep their
 * values. A power cut leaves the user database as it was or as the factory's.
 *
 * Waits until no thread and no process works on either parameter database, for five seconds at most; those
 * that begin meanwhile wait for the copy, likewise for five seconds. In a callback of kelo_db_exec_cmd()
 * of the same thread it fails at once. A transaction that another process has left open between two calls
 * is lost.
 * @retval 1  the user database holds the factory's content, also after a power cut.
 * @retval 0  the copy could not be made, or the wait was in vain: the user database holds what it held
 *            before.
 */
KELO_API int kelo_db_restore_factory(void);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_SQLITE_H */
