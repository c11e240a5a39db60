/**
 * @file symtab.h
 * @brief A keyed table with text keys and chained hashing, the growable handle array on which it stands, and
 *        the value cells that it stores.
 *
 * A table maps a name to a value cell and one integer:
 *
 *     sym_fd items = symOpen(64);
 *     symEnter(items, "1203", valueSymbol(&descriptor), 0);
 *     sym_t* found = symLookup(items, "1203");   // found->content.payload.symbol == &descriptor
 *
 * Nothing here locks, logs or blocks. The set of open tables and the position of the walk exist once per
 * process, so threads that use any table at the same time must serialise all calls, on whatever table.
 */
#ifndef KELO_UTILS_SYMTAB_H
#define KELO_UTILS_SYMTAB_H

#include <stddef.h>
#include <stdint.h>

#include "kelo_utils/base.h"

KELO_BEGIN_DECLS

/**
 * @name Value cells
 * @{
 */
/** What a value cell holds. */
enum value_type {
  VALUE_TYPE_NONE = 0,    /**< nothing */
  VALUE_TYPE_INTEGER = 3, /**< a number */
  VALUE_TYPE_STRING = 10, /**< NUL-terminated text, owned by the cell or by the caller */
  VALUE_TYPE_SYMBOL = 12  /**< an opaque pointer, always owned by the caller */
};

enum {
  /** Flag of valueString(): hold a private copy of the text. */
  VALUE_FLAG_COPY = 1
};

/** The content of a value cell. Two pointer-sized words, of which the kinds here use the first; what they
 * leave unused is zero. */
typedef union value_payload {
  uintptr_t words[2]; /**< the raw words */
  int32_t integer;    /**< ::VALUE_TYPE_INTEGER */
  const char* string; /**< ::VALUE_TYPE_STRING */
  void* symbol;       /**< ::VALUE_TYPE_SYMBOL */
} value_payload_t;

/** A tagged cell, passed and stored by value. */
typedef struct value_cell {
  value_payload_t payload; /**< the content, read as `type` says */
  int32_t type;            /**< ::value_type */
  uint8_t valid;           /**< 1 once the cell has been set */
  uint8_t allocated;       /**< 1 when the cell owns its string */
} value_t;

/** Returns a cell that holds `integer`. */
KELO_API value_t valueInteger(int integer);

/** Returns a cell that holds `pointer` (null allowed). What it points at stays the caller's and is never
 * freed here. */
KELO_API value_t valueSymbol(void* pointer);

/**
 * Returns a cell that holds text.
 * @param text   NUL-terminated text; with a copy, null stands for the empty text; without one it is held as
 *               null.
 * @param flags  bit 0 (::VALUE_FLAG_COPY) set: the cell owns a copy from the heap and `allocated` is 1;
 *               clear: the cell holds `text` itself, which must outlive it. Other bits are ignored.
 * @return the cell. When memory for the copy runs out its string is null; `valid` and `allocated` are 1 all
 *         the same.
 */
KELO_API value_t valueString(const char* text, int flags);

/**
 * Empties a cell: frees the string that it owns, then clears `type`, `valid` and `allocated`.
 * The payload keeps its bits, so a string pointer read from it afterwards dangles. Emptying an empty cell
 * does nothing.
 * @param value  the cell; null is ignored. Of several copies of a cell that owns its string, only one may be
 *               emptied.
 */
KELO_API void valueFree(value_t* value);
/** @} */

/**
 * @name Symbol tables
 * @{
 */
/** An open table: its slot number, 0 or more. A number that names no open table is answered harmlessly. */
typedef int sym_fd;

/** One entry of a table. The table owns it; the pointer is good until the entry is deleted or the table is
 * closed. Callers may change `content` and `arg`, nothing else. */
typedef struct symbol {
  struct symbol* next; /**< next entry of the same bucket; null at the end of its chain */
  value_t name;        /**< the key, a string that the entry owns */
  value_t content;     /**< the value given to symEnter() */
  int32_t arg;         /**< the integer given to symEnter() */
} sym_t;

/**
 * Counts one more user of the tables. The first one (count 0 to 1) forgets every table opened before: their
 * handles name nothing any more, while their entries stay in memory for whoever still points at them. The
 * data manager's items stay registered. A program that uses it calls it before its first symOpen(); none has
 * to.
 * @return 0
 */
KELO_API int symSubOpen(void);

/** Counts one user less, never below 0. Closes and frees nothing. */
KELO_API void symSubClose(void);

/**
 * Opens an empty table.
 * @param hash_size  wished number of buckets. The table takes the largest prime not above it (64 gives 61, 4
 *                   gives 3), 1 for 1 and for anything below. It never grows: with more names the chains
 *                   grow.
 * @return the table, or -1 when memory runs out. A table whose buckets alone found no memory is returned like
 *         any other; symEnter() on it returns null.
 */
KELO_API sym_fd symOpen(int hash_size);

/**
 * Closes a table and frees its entries, with the strings they own. What symbol values point at is left alone.
 * A walk that stood before one of its entries ends.
 * @param sd  the table; a number that names no open table is ignored.
 */
KELO_API void symClose(sym_fd sd);

/**
 * Finds an entry.
 * @param sd    the table.
 * @param name  the key; null and the empty text find nothing, even if the empty text was entered.
 * @return the entry, or null when there is none or `sd` names no open table.
 */
KELO_API sym_t* symLookup(sym_fd sd, const char* name);

/**
 * Enters a value under a name, or replaces the value and the integer of the entry that has the name. On
 * replacement a string that the old content owned is freed.
 * @param sd     the table.
 * @param name   the key, copied. The empty text is accepted; such an entry is seen only by a walk and by
 *               another symEnter(). Null is refused.
 * @param value  the content. A string that it owns belongs to the table once this call succeeds.
 * @param arg    any integer, kept with the entry.
 * @return the entry; null, with the table unchanged and `value` still the caller's, when memory runs out,
 *         `name` is null or `sd` names no open table.
 */
KELO_API sym_t* symEnter(sym_fd sd, const char* name, value_t value, int arg);

/**
 * Removes an entry and frees it with the strings it owns. An entry that a walk would have handed out next is
 * skipped by it.
 * @param sd    the table.
 * @param name  the key; null and the empty text match nothing.
 * @retval 0    removed
 * @retval -1   no such name, or `sd` names no open table
 */
KELO_API int symDelete(sym_fd sd, const char* name);

/**
 * Starts a walk over all entries: buckets in ascending order, within a bucket the oldest entry first.
 * There is one position for all tables of the process, so only one walk at a time. Deleting any entry during
 * a walk is safe, the one just handed out included; whether a walk sees an entry made meanwhile is open.
 * @param sd  the table.
 * @return the first entry; null, with the position unchanged, when the table is empty or `sd` names no open
 *         table.
 */
KELO_API sym_t* symFirst(sym_fd sd);

/**
 * Continues the walk that symFirst() started.
 * @param sd  the same table.
 * @return the next entry; null at the end or when `sd` names no open table.
 */
KELO_API sym_t* symNext(sym_fd sd);
/** @} */

/**
 * @name Handle arrays
 * A handle array is a growable array of pointer slots addressed by small integers. Its owner keeps one
 * pointer variable, the map, null at first, that points at slot 0. In front of slot 0 lie two words: the
 * address of an `int` with the capacity (16, 32, ...) and the address of an `int` with the number of slots in
 * use. A free slot holds null, so the owner stores something in a slot before it asks for the next. The array
 * moves when it grows: reach slots through the map.
 * @{
 */
/**
 * Takes a slot: the lowest one that holds null, or the first of 16 new ones when none is left. The slot keeps
 * holding null; until its owner stores something in it, the next call may return the same handle again and
 * still counts one more slot in use.
 * @param map  the map; makes the array when `*map` is null.
 * @return the handle, or -1 when memory runs out (array unchanged) or `map` is null.
 */
KELO_API int hAlloc(void*** map);

/**
 * Gives a slot back: sets it to null and counts one slot in use less. Giving back the last one frees the
 * array and sets `*map` to null. What the slot pointed at is not freed.
 * @param map     the map.
 * @param handle  the slot. A slot given back twice is counted twice, which can free the array early.
 * @return one past the highest slot that holds a pointer, 0 when none does or the array was freed; -1, with
 *         nothing changed, when `map` or `*map` is null or `handle` lies outside the array.
 */
KELO_API int hFree(void*** map, int handle);

/**
 * Takes a slot and puts a fresh block in it.
 * @param map   the map, as for hAlloc().
 * @param max   one past the highest slot in use; raised to the handle plus 1 when it is not above the handle.
 *              Unchanged on failure. Null is allowed.
 * @param size  bytes of the zero-filled block, to be freed by the owner; 0 or less leaves the slot null.
 * @return the handle, or -1 when memory runs out or `map` is null.
 */
KELO_API int hAllocEntry(void*** map, int* max, int size);
/** @} */

/**
 * @name Heap helpers
 * @{
 */
/** Does nothing; returns `argument`. */
KELO_API int bopen(int argument);

/** Does nothing; returns `argument`. */
KELO_API int bclose(int argument);

/** Does nothing; returns `argument`. */
KELO_API int bstats(int argument);

/** Returns a copy of `str` from the heap, the empty text for null; null when memory runs out. The caller
 * frees it with free(). */
KELO_API char* bstrdupANoBalloc(const char* str);

/** The same as bstrdupANoBalloc(). */
KELO_API char* bstrdupNoBalloc(const char* str);

/**
 * Returns a copy of a block.
 * @param src    the bytes; null gives a zero-filled block.
 * @param count  its length in bytes; 0 is allowed.
 * @return the block, to be freed with free(); null when memory runs out.
 */
KELO_API void* bmemdupNoBalloc(const void* src, size_t count);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_SYMTAB_H */
