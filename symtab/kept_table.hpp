// A symbol table that the library keeps for itself, whatever programs do with the set of open tables.
#ifndef KELO_SYMTAB_KEPT_TABLE_HPP
#define KELO_SYMTAB_KEPT_TABLE_HPP

#include "kelo_utils/symtab.h"

namespace kelo::symtab {

struct Table;

// The open table `sd`, which is never freed from now on: a program that forgets all tables with symSubOpen(),
// or closes this one, takes only its handle away. Null when `sd` names no open table, or one whose buckets there was no memory for: nothing
// can ever be entered there.
Table* keep(sym_fd sd);

// As symLookup() and symEnter(), without the handle.
sym_t* look_up(const Table& table, const char* name);
sym_t* enter(const Table& table, const char* name, const value_t& value, int arg);

}  // namespace kelo::symtab

#endif  // KELO_SYMTAB_KEPT_TABLE_HPP
