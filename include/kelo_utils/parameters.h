/* SPDX-License-Identifier: MIT */
/**
 * @file parameters.h
 * @brief Parameter tables: named parameters in a user database, with factory settings.
 *
 * This is a store of its own beside the configuration databases. A parameter is a column of a table with one
 * row, in a database of user settings. A second database with the same tables holds the factory settings. A
 * daemon describes its parameters in a static table. It loads them into its variables, writes changed
 * variables back, and reloads single parameters from the factory settings.
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
 * Files: they are "/data/kelo-resource/sqlite3/user_info.db" and ".../factory_info.db". The provisioning of
 * the device makes their tables; no function here creates a table, a column or a row. An operation that opens
 * a database first makes a missing user database as a copy of the factory database, with the `cp` of the
 * shell. A user database of 0 bytes counts as missing when there is a factory database with content. An empty
 * file is left where the factory database is missing, too, and where SQLite opens a file that does not exist.
 *
 * A copy is either complete or not there: the earlier user database is kept as "user_info.db-previous" until
 * the copy is synced, and after a crash the next operation puts it back. An update is on storage when it
 * returns.
 *
 * How a cell becomes a variable, by ::kelo_db_type:
 * - A number is read from the start of the text of the cell: blanks, a sign, digits, an exponent. A fraction
 *   is dropped. NULL, an empty text and a text that begins in another way read as 0. A number above 64 bits
 *   reads as the greatest 64-bit number, and a negative number as its two's complement of 64 bits. A narrower
 *   variable receives the low bits: 300 in 8 bits is 44; -1 and 4294967295 in 32 bits are the same.
 * - A text is cut to `size` - 1 bytes, even within a UTF-8 character, and the rest of the variable is filled
 *   with zeros. NULL reads as the empty text.
 *
 * How a variable becomes a cell:
 * - 8 bits are written without a sign, and 32 bits with one: 4294967295 is stored as -1, which reads back as
 *   the same 32 bits.
 * - 64 bits are written without a sign. SQLite has no integer above 9223372036854775807 and stores such a
 *   number as a real one. It reads back with its first 15 digits, or as the greatest 64-bit number when these
 *   are rounded above it.
 * - A text is written unchanged, at most up to `size` - 1 bytes. A text is refused when it holds a double
 *   quote, has no terminator within `size` bytes, or makes the statement longer than 255 bytes: the update
 *   fails and changes nothing. The statement has 18 bytes, or 19 in kelo_db_update_value(), besides the names
 *   of table and column and the text. In a reload from the factory settings the same rules hold for the text
 *   of the cell.
 *
 * An update sets the column in every row of the table. A read takes the first row.
 *
 * Names of tables and columns become part of SQL text without a change: they must be plain identifiers. A
 * statement of more than 255 bytes is refused; it is never cut and run.
 *
 * Results: 0 is success and ::KELO_DB_FAILED is failure, unless a function says otherwise. Every failure is
 * logged as an error, except an identifier that no entry has. A null argument and an entry without a variable
 * are refused and logged. In an operation on several entries, a failure of one entry does not prevent the
 * others from being tried.
 *
 * Connections: at most one is kept open between calls. A successful read or update of the user database
 * closes it. A failure, a read of the factory database and kelo_db_exec_cmd() leave it open. A connection to
 * a file that another process has replaced meanwhile is closed and not used again. A function waits up to
 * five seconds, whatever signals arrive, for a file that another program has locked through SQLite.
 *
 * Locks: one mutex of the process, the parameter lock, allows one function at a time. Only kelo_db_exec_cmd()
 * and kelo_db_restore_factory() do not take it. All processes share a second lock, on the file
 * "user_info.db-lock". An operation on either database holds it shared; so does an update, because SQLite's
 * own locks keep updates apart. Making and restoring the user database hold it exclusively. A function waits
 * for it for five seconds. An operation that does not get it fails and has touched nothing. No program may
 * lock or delete that file.
 *
 * What sqlite.h says about fork() holds here, too: the child inherits no connection and no lock.
 */
#ifndef KELO_UTILS_PARAMETERS_H
#define KELO_UTILS_PARAMETERS_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/** Types of parameters. Any other number, 3 included, is refused with the error "Error, param_type:%d ". */
enum kelo_db_type {
  KELO_DB_TYPE_8BIT_0 = 0,  /**< uint8_t */
  KELO_DB_TYPE_8BIT_1 = 1,  /**< uint8_t */
  KELO_DB_TYPE_32BIT_2 = 2, /**< int32_t or uint32_t */
  KELO_DB_TYPE_32BIT_4 = 4, /**< int32_t or uint32_t */
  KELO_DB_TYPE_64BIT = 5,   /**< uint64_t */
  KELO_DB_TYPE_TEXT = 6,    /**< char array */
  KELO_DB_TYPE_32BIT_7 = 7  /**< int32_t or uint32_t */
};

/** Results of an operation on parameters. */
enum kelo_db_result {
  KELO_DB_FAILED = -1 /**< the operation failed */
};

/** One parameter: a column, and the variable that belongs to it. */
typedef struct kelo_db_param {
  /** Receives the value or supplies it. It belongs to the caller and may have any alignment. */
  void* value;
  /** Name of the column. Null ends the array. */
  const char* name;
  /** ::kelo_db_type. */
  uint32_t type;
  /** Bytes of the variable of a text, terminator included. 0 is refused like an unknown type. Numbers have
   * the size of their type, and this field is ignored for them. */
  uint32_t size;
  /** Identifies this parameter in kelo_db_update_db_from_struct() and kelo_db_reload_value(). */
  int32_t param_id;
} kelo_db_param;

/** A table of the databases and its parameters. */
typedef struct kelo_db_query {
  /** Name of the table. */
  const char* tbl_name;
  /** Its parameters; an entry with a null name ends them. */
  const kelo_db_param* param_table;
} kelo_db_query;

/**
 * Receives one row of a result. All pointers are valid until it returns.
 * @param arg     as given to kelo_db_exec_cmd().
 * @param ncols   number of columns.
 * @param values  texts of the columns; null for NULL.
 * @param names   names of the columns.
 * @return 0 to continue. Any other value ends the statement, which then fails.
 */
typedef int (*kelo_db_row_fn)(void* arg, int ncols, char** values, char** names);

/**
 * Loads all parameters of a table from the user database into their variables.
 *
 * A variable is unchanged when its table has no row, which is no failure, and when it could not be loaded.
 *
 * @param query  table and parameters. A null table name or array is logged as "Error, tbl_name is null. ".
 * @retval 0   every parameter was loaded or has no row.
 * @retval -1  an argument is null, or at least one parameter could not be loaded. The others were loaded.
 * @par Blocking
 * It blocks for the accesses to the files and for the parameter lock, and up to five seconds for the lock
 * that all processes share.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_db_query_db_init_struct(const kelo_db_query* query);

/**
 * Writes variables into the user database, each in a transaction of its own.
 * @param query     table and parameters, as for kelo_db_query_db_init_struct().
 * @param param_id  -1: all parameters. Any other value: those with this identifier.
 * @retval 0   written.
 * @retval -1  an argument is null, no entry has this identifier, or at least one parameter could not be
 *             written. The others were written.
 * @par Blocking
 * It blocks for the accesses to the files and for the parameter lock, and up to five seconds for the lock
 * that all processes share.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_db_update_db_from_struct(const kelo_db_query* query, int param_id);

/**
 * Sets a parameter to its factory value.
 *
 * The value is read from the factory database into the variable, and the factory text is stored in the user
 * database; NULL is stored as an empty text.
 *
 * @param query     table and parameters, as for kelo_db_query_db_init_struct().
 * @param param_id  identifier of the parameter. -1 has no special meaning here.
 * @retval 0   reloaded.
 * @retval -1  an argument is null, no entry has this identifier, there is no factory row, the type is
 *             unknown, or the text cannot be stored: nothing is changed. Or the user database could not be
 *             written: the variable then holds the factory value.
 * @par Blocking
 * It blocks for the accesses to the files and for the parameter lock, and up to five seconds for the lock
 * that all processes share.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_db_reload_value(const kelo_db_query* query, int param_id);

/**
 * Reads one cell of the user database.
 * @param table  name of the table.
 * @param name   name of the column.
 * @param out    receives the value: a number of the size of its type, of any alignment, or a terminated text
 *               of at most `size` bytes. It is unchanged on failure.
 * @param type   ::kelo_db_type.
 * @param size   size of `out` in bytes for a text, not 0. It is ignored for numbers.
 * @retval 0   read.
 * @retval -1  an argument is null, the type is unknown, there is no such table or column, no row or no usable
 *             database.
 * @par Blocking
 * It blocks for the accesses to the files and for the parameter lock, and up to five seconds for the lock
 * that all processes share.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_db_get_value(const char* table, const char* name, void* out, uint32_t type, uint32_t size);

/**
 * Writes one cell of the user database.
 * @param table  name of the table.
 * @param name   name of the column.
 * @param value  a number of the size of its type, of any alignment, or a text with its terminator.
 * @param type   ::kelo_db_type.
 * @retval 0   written. A table without rows stays without rows.
 * @retval -1  an argument is null, the type is unknown, the text is refused, or the update failed.
 * @par Blocking
 * It blocks for the accesses to the files and for the parameter lock, and up to five seconds for the lock
 * that all processes share.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_db_update_value(const char* table, const char* name, const void* value, uint32_t type);

/**
 * Runs statements of any kind on one of the databases, with the connection that is kept.
 *
 * The connection stays open, so that the next call may end a transaction that this call began. Another
 * operation in between rolls the transaction back, and so does a kelo_db_restore_factory() of any process.
 * When a call returns, the changes of every transaction that has ended are on storage.
 *
 * The lock that all processes share is held, shared, until the call returns: a restore waits for it.
 *
 * The parameter lock is not held: the callback may call every function of this header. On the same database
 * such a call uses the connection that the rows come from, also when it updates the table that is read.
 * Meanwhile other threads use connections of their own and wait for the locks of the file. A thread that
 * waits to write holds the parameter lock. A callback that needs this lock then waits until the other thread
 * gives up after five seconds. When other threads write, collect the rows first.
 *
 * @param sql       statements, of any length.
 * @param callback  is called for each row, in the calling thread; may be null.
 * @param arg       handed to the callback.
 * @param which     1: the factory database. Any other value: the user database.
 * @retval 0   all statements ran.
 * @retval -1  `sql` is null, there is no usable database, a statement failed, or the callback ended one. The
 *             changes of the statements before it stay.
 * @par Blocking
 * It blocks for the accesses to the files, and up to five seconds for each lock.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_db_exec_cmd(const char* sql, kelo_db_row_fn callback, void* arg, int which);

/**
 * Closes the connection to the user database that is kept, and so releases its locks.
 * @return the result of SQLite for closing it, 0 for success; 0 also when none is kept. SQLITE_BUSY (5) while
 *         a kelo_db_exec_cmd() of any thread uses the user database; the connection then stays open.
 * @par Blocking
 * It blocks for the parameter lock, which another thread may hold during accesses to the files.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_db_close_sqlite(void);

/**
 * Resets the user database to the factory settings.
 *
 * The connection that is kept is closed, and what it had begun is rolled back. The file is then copied with
 * the `cp` of the shell. Variables keep their values. After a power cut the user database is as it was or
 * holds the factory settings.
 *
 * Operations that begin during the copy wait for it for five seconds. In a callback of kelo_db_exec_cmd() in
 * the same thread the call fails at once. A transaction that another process has left open between two calls
 * is lost.
 *
 * @retval 1  the user database holds the factory settings, also after a power cut.
 * @retval 0  the copy could not be made, or the wait was in vain: the user database holds what it held
 *            before.
 * @par Blocking
 * It blocks up to five seconds until no thread and no process uses either parameter database, and then for
 * the copy without a limit.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int kelo_db_restore_factory(void);

KELO_END_DECLS

#endif /* KELO_UTILS_PARAMETERS_H */
