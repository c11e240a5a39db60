// The end of a process that made a programming error the back-end cannot answer with a result.
#ifndef KELO_SQLITE3_FATAL_HPP
#define KELO_SQLITE3_FATAL_HPP

#include "base/fatal.hpp"

namespace kelo::store {

// Shows the name under which the back-end's fatal errors are found in crash logs.
[[noreturn]] inline void fatal(int line) { base::fatal("sqlite3/src/kelo_dm_sqlite.c", line); }

}  // namespace kelo::store

#endif  // KELO_SQLITE3_FATAL_HPP
