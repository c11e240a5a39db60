/* SPDX-License-Identifier: MIT */
/**
 * @file symtab.h
 * @brief A symbol table with text keys and chained hashing, handle arrays, and value cells.
 *
 * A table maps a name to a value cell and one integer:
 *
 *     sym_fd items = symOpen(64);
 *     symEnter(items, "1203", valueSymbol(&descriptor), 0);
 *     sym_t* found = symLookup(items, "1203");   // found->content.payload.symbol == &descriptor
 *
 * Nothing here locks, logs or blocks. The set of open tables and the position of the walk exist once per
 * process.
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

/**
 * Returns a cell that holds a number.
 * @param integer  any number.
 * @return the cell.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API value_t valueInteger(int integer);

/**
 * Returns a cell that holds a pointer.
 * @param pointer  any pointer; may be null. The memory that it points to belongs to the caller and is never
 *                 freed here.
 * @return the cell.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API value_t valueSymbol(void* pointer);

/**
 * Returns a cell that holds text.
 * @param text   NUL-terminated text. With a copy, null means the empty text. Without a copy the cell holds
 *               null.
 * @param flags  bit 0 (::VALUE_FLAG_COPY) set: the cell owns a copy from the heap, and `allocated` is 1. Bit
 *               0 clear: the cell holds `text` itself, which must stay alive longer than the cell. Other bits
 *               are ignored.
 * @return the cell. When memory for the copy runs out its string is null, but `valid` and `allocated` are 1.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API value_t valueString(const char* text, int flags);

/**
 * Empties a cell: frees the string that it owns, then clears `type`, `valid` and `allocated`.
 *
 * The payload keeps its bits: a string pointer that is read from it afterwards is invalid. Emptying an empty
 * cell does nothing.
 *
 * @param value  the cell; null is ignored. Of several copies of a cell that owns its string, only one may be
 *               emptied.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different cells. It is not for signal handlers.
 */
KELO_API void valueFree(value_t* value);
/** @} */

/**
 * @name Symbol tables
 * @{
 */
/** An open table: its slot number, 0 or more. A number that names no open table does no harm. */
typedef int sym_fd;

/** One entry of a table. The table owns it. The pointer is valid until the entry is deleted or the table is
 * closed. Callers may change `content` and `arg`, nothing else. */
typedef struct symbol {
  struct symbol* next; /**< next entry of the same bucket; null at the end of its chain */
  value_t name;        /**< the key, a string that the entry owns */
  value_t content;     /**< the value given to symEnter() */
  int32_t arg;         /**< the integer given to symEnter() */
} sym_t;

/**
 * Counts one more user of the tables.
 *
 * The first user (count 0 to 1) makes the library forget every table that was opened before: the handles of
 * these tables become invalid, while their entries stay in memory for code that still has pointers to them.
 * The items of the data manager stay registered. A program that uses this function calls it before its first
 * symOpen(). No program has to use it.
 *
 * @return always 0.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread at a time may call the functions on tables, whatever table they use. It is not for signal
 * handlers.
 */
KELO_API int symSubOpen(void);

/**
 * Counts one user of the tables less, never below 0. It closes and frees nothing.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread at a time may call the functions on tables, whatever table they use. It is not for signal
 * handlers.
 */
KELO_API void symSubClose(void);

/**
 * Opens an empty table.
 * @param hash_size  wanted number of buckets. The table takes the largest prime that is not above it (64
 *                   gives 61, 4 gives 3), and 1 for 1 and for anything below. The number never grows: with
 *                   more names the chains become longer.
 * @return the table. When only its buckets found no memory it is returned, too, and symEnter() on it returns
 *         null.
 * @retval -1  memory ran out.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread at a time may call the functions on tables, whatever table they use. It is not for signal
 * handlers.
 */
KELO_API sym_fd symOpen(int hash_size);

/**
 * Closes a table and frees its entries, with the strings that they own.
 *
 * The memory that symbol values point to is not freed. A walk whose next entry is in this table ends.
 *
 * @param sd  the table. A number that names no open table is ignored.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread at a time may call the functions on tables, whatever table they use. It is not for signal
 * handlers.
 */
KELO_API void symClose(sym_fd sd);

/**
 * Finds an entry.
 * @param sd    the table.
 * @param name  the key. Null and the empty text find nothing, even if the empty text was entered.
 * @return the entry, which the table owns; null when there is none or `sd` names no open table.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread at a time may call the functions on tables, whatever table they use. It is not for signal
 * handlers.
 */
KELO_API sym_t* symLookup(sym_fd sd, const char* name);

/**
 * Enters a value under a name, or replaces the value and the integer of the entry that has the name.
 *
 * When an entry is replaced, a string that its old content owned is freed.
 *
 * @param sd     the table.
 * @param name   the key, which is copied. The empty text is accepted; only a walk and another symEnter() find
 *               such an entry. Null is refused.
 * @param value  the content. A string that it owns belongs to the table after this call succeeds.
 * @param arg    any integer, which is kept with the entry.
 * @return the entry, which the table owns. Null when memory runs out, `name` is null or `sd` names no open
 *         table: the table is unchanged, and `value` still belongs to the caller.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread at a time may call the functions on tables, whatever table they use. It is not for signal
 * handlers.
 */
KELO_API sym_t* symEnter(sym_fd sd, const char* name, value_t value, int arg);

/**
 * Removes an entry and frees it with the strings that it owns. A walk whose next entry it is continues after
 * it.
 * @param sd    the table.
 * @param name  the key. Null and the empty text match nothing.
 * @retval 0    removed.
 * @retval -1   there is no such name, or `sd` names no open table.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread at a time may call the functions on tables, whatever table they use. It is not for signal
 * handlers.
 */
KELO_API int symDelete(sym_fd sd, const char* name);

/**
 * Starts a walk over all entries: buckets in ascending order, and within a bucket the oldest entry first.
 *
 * There is one position for all tables of the process, so only one walk is possible at a time. Any entry may
 * be deleted during a walk, also the one that was just returned. An entry that is made during a walk may or
 * may not be returned.
 *
 * @param sd  the table.
 * @return the first entry; null when the table is empty or `sd` names no open table, and the position is then
 *         unchanged.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread at a time may call the functions on tables, whatever table they use. It is not for signal
 * handlers.
 */
KELO_API sym_t* symFirst(sym_fd sd);

/**
 * Continues the walk that symFirst() started.
 * @param sd  the same table.
 * @return the next entry; null at the end or when `sd` names no open table.
 * @par Blocking
 * It does not block.
 * @par Threads
 * One thread at a time may call the functions on tables, whatever table they use. It is not for signal
 * handlers.
 */
KELO_API sym_t* symNext(sym_fd sd);
/** @} */

/**
 * @name Handle arrays
 * A handle array is a growable array of pointer slots, which small integers, the handles, select. Its owner
 * keeps one pointer variable, the map, which is null at first and then points to slot 0. Two words are
 * directly before slot 0: the address of an `int` with the capacity (16, 32, ...) and the address of an `int`
 * with the number of slots in use. A free slot holds null, so the owner stores something in a slot before it
 * asks for the next one. The array moves when it grows: use slots only through the map.
 * @{
 */
/**
 * Takes a slot: the lowest one that holds null, or the first of 16 new ones when none is left.
 *
 * The slot still holds null. Until its owner stores something in it, the next call may return the same handle
 * again, and still counts one more slot in use.
 *
 * @param map  the map. When `*map` is null the array is made.
 * @return the handle.
 * @retval -1  memory ran out (the array is unchanged), or `map` is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different maps. It is not for signal handlers.
 */
KELO_API int hAlloc(void*** map);

/**
 * Gives a slot back: sets it to null and counts one slot in use less.
 *
 * When the last slot is given back, the array is freed and `*map` becomes null. The memory that the slot
 * pointed to is not freed.
 *
 * @param map     the map.
 * @param handle  the slot. A slot that is given back twice is counted twice, which can free the array too
 *                early.
 * @return the number of the highest slot that holds a pointer plus 1; 0 when none does or the array was
 *         freed.
 * @retval -1  `map` or `*map` is null or `handle` is outside the array. Nothing is changed.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different maps. It is not for signal handlers.
 */
KELO_API int hFree(void*** map, int handle);

/**
 * Takes a slot and puts a new block of memory in it.
 * @param map   the map, as for hAlloc().
 * @param max   the number of the highest slot in use plus 1. When it is not above the handle, it becomes the
 *              handle plus 1. It is unchanged on failure. May be null.
 * @param size  bytes of the block. The block is filled with zeros, and the owner frees it with free(). With 0
 *              or less the slot stays null.
 * @return the handle.
 * @retval -1  memory ran out, or `map` is null.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it. Calls at the same time need different maps. It is not for signal handlers.
 */
KELO_API int hAllocEntry(void*** map, int* max, int size);
/** @} */

/**
 * @name Heap helpers
 * @{
 */
/**
 * Does nothing.
 * @param argument  any value.
 * @return `argument`.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int bopen(int argument);

/**
 * Does nothing.
 * @param argument  any value.
 * @return `argument`.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int bclose(int argument);

/**
 * Does nothing.
 * @param argument  any value.
 * @return `argument`.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API int bstats(int argument);

/**
 * Returns a copy of a text from the heap.
 * @param str  the text. Null gives the empty text.
 * @return the copy, which the caller frees with free(); null when memory runs out.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API char* bstrdupANoBalloc(const char* str);

/**
 * Returns a copy of a text from the heap, as bstrdupANoBalloc() does.
 * @param str  the text. Null gives the empty text.
 * @return the copy, which the caller frees with free(); null when memory runs out.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API char* bstrdupNoBalloc(const char* str);

/**
 * Returns a copy of a block of memory from the heap.
 * @param src    the bytes. Null gives a block of zeros.
 * @param count  length of the block in bytes; may be 0.
 * @return the block, which the caller frees with free(); null when memory runs out.
 * @par Blocking
 * It does not block.
 * @par Threads
 * Any thread may call it at any time. It is not for signal handlers.
 */
KELO_API void* bmemdupNoBalloc(const void* src, size_t count);
/** @} */

KELO_END_DECLS

#endif /* KELO_UTILS_SYMTAB_H */
