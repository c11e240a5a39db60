/**
 * @file sqlite.h
 * @brief The SQLite back-end of the data manager: journalled writes, verified reads, repair, clean and
 *        export.
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
 * Each call opens its database files, works and closes them. A file that another process holds is waited for
 * up to five seconds. Within one process dm_sqlite_write(), dm_sqlite_read(), dm_sqlite_clean() and the
 * version queries exclude each other; the other functions take no lock and must not race a write of the same
 * item.
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
 * Whether both configuration files exist. A file that a crash left half copied is put back first, and a copy
 * that another process is making is waited for. @return 0 when they do, -1 otherwise.
 */
KELO_API int dm_pal_check_db_exist(void);

/**
 * Whether a row with this key is in the table.
 * @return 1 when it is; 0 when it is not or the question failed (logged).
 */
KELO_API int dm_record_exist(struct sqlite3* db, const char* table, const char* key);

/**
 * @name Writing
 * @{
 */
/**
 * Writes an item so that a power cut at any moment leaves its old or its new value: the write slot of a
 * handle. Serialised with the other slots. Blocks for several file syncs and a shell `cp`: meant for
 * settings, not for data that changes often.
 *
 * @param id     number stored with the row.
 * @param item   table, key and type of the row; must not be null.
 * @param value  `len` bytes, copied; must not be null.
 * @param len    0 or more; 0 stores an empty value, which reads back as no row.
 * @return as dm_pal_write().
 */
KELO_API int dm_sqlite_write(uint32_t id, kelo_dm_item_desc* item, const void* value, int len);

/**
 * The journalled write without the lock: journal ::WS_READY, row into the primary, copy of the healthy
 * primary over the backup, ::WS_WRITE_DONE, ::WS_BACKUP_DONE. A primary that fails its health check is not
 * copied.
 *
 * @retval 0   written. A row that could not be prepared, bound or stepped also ends here: it is only logged.
 * @retval -1  a null argument, a negative length, or a primary that could not be opened or given its table.
 */
KELO_API int dm_pal_write(const char* table, uint32_t id, const char* key, uint32_t type, const void* value,
                          int len);

/**
 * Writes one row into the database file `db_path`, creating the file and the table when missing and adding
 * the columns that an older release left out. If the file is corrupt, the primary database (whatever
 * `db_path` is) is replaced once by the first healthy copy of the backup and the recovery copy, and the write
 * is tried again.
 *
 * @retval 0     the table is there; a failure to store the row itself is only logged.
 * @retval -1    a null argument, a negative length, or a table that could not be created.
 * @retval -101  the file could not be opened.
 */
KELO_API int dm_write_db(const char* db_path, const char* table, uint32_t id, const char* key, uint32_t type,
                         const void* value, int len);

/**
 * Stores the one row of the write journal.
 * A journal that cannot be updated for another reason than a missing column or another process's lock is
 * deleted and recreated empty; the next call then stores its row.
 *
 * @param state  ::dm_write_state.
 * @return 0 on success, -1 on failure.
 */
KELO_API int dm_write_state_db(const char* table, uint32_t id, const char* key, uint32_t type, int len,
                               int state);

/**
 * Runs a shell command and reads up to `out_size` bytes of its standard output. Blocks until the command
 * ends.
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
/** The read slot of a handle: dm_pal_read() of the item's table and key, serialised. `id` is not used. */
KELO_API int dm_sqlite_read(uint32_t id, kelo_dm_item_desc* item, void* buf, int len);

/** dm_pal_read() for callers without a descriptor. @return -3 for a null argument, else as dm_pal_read(). */
KELO_API int dm_pal_read_by_key(const char* table, const char* key, void* buf, int len);

/**
 * Reads one value and verifies its checksum. The value always comes from the backup database, which is a byte
 * copy of the primary after every healthy write; the primary is read first only to find and repair its
 * corruption.
 *
 * The checksum speaks of the value's length and of as many of its first bits as the value has bytes (modulo
 * 65536): damage behind them goes unnoticed.
 *
 * @param buf  receives at most `len` bytes; may have been written to even when the result is a failure. A
 *             buffer shorter than the value fails with -102, because the checksum is taken over what was
 *             read; only a value whose covered bits are all zero passes and is cut.
 * @return the number of bytes read (1 or more), or a code of ::dm_sqlite_result. Failures are final: the
 *         default is not consulted.
 */
KELO_API int dm_pal_read(const char* table, const char* key, void* buf, int len);

/**
 * Reads one row's value and stored checksum from `db_path`, without verifying. A corrupt file leads to one
 * repair of the primary database, as in dm_write_db(), and one more try.
 *
 * @param crc_out  receives the stored checksum with a value; may be null.
 * @return bytes copied into `buf`, at most `len`; -1 bad argument, no row or empty value; -100; -101.
 */
KELO_API int dm_read_db(const char* db_path, const char* table, const char* key, void* buf, uint32_t* crc_out,
                        int len);

/**
 * The defaults-read slot of a handle: reads an item's stored default, and its type into the descriptor's
 * `type` (0 when nothing was read). Takes no lock. `id` is not used.
 */
KELO_API int dm_sqlite_def_db_read(uint32_t id, kelo_dm_item_desc* item, void* buf, int len);

/**
 * Reads one row of the defaults database. No checksum is kept there and nothing is repaired.
 * @param type_out  receives the stored type with a value; may be null.
 * @return bytes copied into `buf`, at most `len`; -1 bad argument, no row or empty value; -100; -101.
 */
KELO_API int dm_read_def_db(const char* table, const char* key, uint32_t* type_out, void* buf, int len);
/** @} */

/**
 * @name Health
 * @{
 */
/**
 * Checks a database file with SQLite's quick check, opening it read-only.
 * @retval 0   healthy.
 * @retval 1   corrupt.
 * @retval -1  cannot be opened for another reason (a missing file, a null path).
 * @retval -2  the check failed for another reason (not a database, held by another process for too long).
 */
KELO_API int check_database_health(const char* path);

/**
 * Row callback of the quick check: sets `*is_corrupted` to 1 when a value of this row is not "ok" and to 0
 * otherwise, so that after the check the flag speaks of the last row. @return 0 always, to see every row.
 */
KELO_API int integrity_check_callback(int* is_corrupted, int ncols, char** values, char** names);

/**
 * Adds the columns `id` and `type` to a table of an older release that lacks them.
 * @return 0 when the table answers a select of both, -1 otherwise.
 */
KELO_API int alter_table_add_column(struct sqlite3* db, const char* table, const char* key);
/** @} */

/**
 * @name Registration and defaults
 * @{
 */
/**
 * Fills the operations of a handle with this back-end. The first call of the process also checks the stored
 * version, stores it when the database has no version table yet, and, when the versions agree, completes a
 * write that a crash left between its primary and its backup. Must return in one thread before any other uses
 * the operations.
 * @param ops  written by every call; must not be null.
 */
KELO_API void sqlite_reg(kelo_dm_operations* ops);

/**
 * Completes an interrupted write: when the journal stands at ::WS_WRITE_DONE and the primary holds the item
 * with a matching checksum, that value is written into the backup. The journal is left as it is. The caller
 * holds off other writes. @return 0 when there was nothing to do or it was done, -1 when something failed;
 * callers need not look.
 */
KELO_API int dm_sqlite_check_database(void);

/**
 * Stores an item's default: the defaults slot of a handle. Takes no lock. `id` is not used.
 *
 * The first call of the process also stores the version record and returns the result of that.
 *
 * @param value  types 1 to 4: `len` bytes. Type 5: the text, or the address of the descriptor's own
 *               `def_value`, which then holds the text's address. Type 6: the address of a pointer to `len`
 *               bytes.
 * @return 0 on success; -1 for a null descriptor, another type or a null value; -101.
 */
KELO_API int dm_sqlite_def_db_const(uint32_t id, kelo_dm_item_desc* item, const void* value, int len);

/**
 * Writes one row into the defaults database.
 * @return 0 once the table is there (a failure to store the row itself is only logged); -1 for a negative
 *         length, a null argument or a table that could not be created; -101.
 */
KELO_API int dm_write_def_db(const char* table, const char* key, uint32_t type, const void* value, int len);

/** Reads the version stored in the configuration database. @return -1 for null, else as dm_pal_read() (4 for
 * success). */
KELO_API int dm_sqlite_read_CfgDB_version(uint32_t* ver);

/** Reads the version stored in the defaults database. @return -1 for null, else as dm_read_def_db() (4 for
 * success). */
KELO_API int dm_sqlite_read_DefItemsDB_version(uint32_t* ver);

/**
 * Compares both stored versions with the library's.
 * @param matched  1 when all agree, 0 when not; untouched when a version cannot be read. Null does nothing.
 */
KELO_API void sqlite_chk_db_ver_match(int* matched);
/** @} */

/**
 * @name Maintenance
 * @{
 */
/**
 * Deletes the configuration, backup and journal databases, in this order, stopping at the first that cannot
 * be deleted (a missing file included). The defaults database stays.
 * @param backup  null: just delete. Otherwise (the text itself is not used) first keep a dated copy of the
 *                primary under "/mnt/vendor/nvdata/", of which at most three are kept.
 * @return 0 on success, -1 on the first failing step.
 */
KELO_API int dm_sqlite_clean(const char* backup);

/**
 * Exports every table of a database as lines "key,len,type,value," into ::DB_EXPORT_CSV, replacing that file.
 * Each line ends in CR, LF and a NUL byte. Nothing is quoted. Must not run during writes.
 * @return 0 on success, -1 for a null path, -101 when the database and 4 when the CSV file cannot be opened.
 */
KELO_API int dm_read_all_tabs_from_db(const char* db_path);

/** Row callback of the export: `values` are table names, `db` is the open database. @return 0 always. */
KELO_API int dm_sqlite_db2csv_cb(void* db, int ncols, char** values, char** names);

/**
 * Writes one table's rows to `out`. A row's line, its end included, takes at most 512 bytes; what is longer
 * is cut. A key of 32 bytes or more is left out and taken as the length column, whose columns then all move
 * by one. A length or type of five or more digits is left out. Values of type 5 are written as text, as many
 * bytes as their length says and as there are (none when the length was left out), others as the number in
 * their first four bytes (fewer bytes count as zero-filled). A table that cannot be read is a fatal
 * programming error.
 * @return 0, or 3 when `table` or `out` is null.
 */
KELO_API int dm_export_by_table(struct sqlite3* db, const char* table, FILE* out);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_SQLITE_H */
