/**
 * @file parameters.h
 * @brief Parameter tables: named parameters in a user database, with factory settings.
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
 * that cannot have it fails and has touched nothing. No program may lock or delete that file. What
 * sqlite.h says of fork() holds here, too: the child inherits no connection and no lock.
 */
#ifndef KELO_UTILS_PARAMETERS_H
#define KELO_UTILS_PARAMETERS_H

#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

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

KELO_END_DECLS

#endif /* KELO_UTILS_PARAMETERS_H */
