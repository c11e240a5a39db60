// SPDX-License-Identifier: MIT
// Symbol tables that the library uses itself and that no program can free.
#ifndef KELO_SYMTAB_KEPT_TABLE_HPP
#define KELO_SYMTAB_KEPT_TABLE_HPP

#include "kelo_utils/symtab.h"

namespace kelo::symtab {

struct Table;

// Returns the open table `sd` and keeps it from ever being freed. A program that calls symSubOpen() or closes this
// table removes only its handle. The result is null when `sd` is not open or when there was no memory for its
// buckets, since nothing can be entered into such a table.
Table* keep(sym_fd sd);

// These do the same as symLookup() and symEnter(), but take the table instead of its handle.
sym_t* look_up(const Table& table, const char* name);
sym_t* enter(const Table& table, const char* name, const value_t& value, int arg);

}  // namespace kelo::symtab

#endif  // KELO_SYMTAB_KEPT_TABLE_HPP
