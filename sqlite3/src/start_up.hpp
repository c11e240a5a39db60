// What the first registration of a process does about what an earlier one left.
#ifndef KELO_SQLITE3_START_UP_HPP
#define KELO_SQLITE3_START_UP_HPP

#include "sqlite3/src/operation.hpp"

namespace kelo::store {

// Carries the item of an interrupted write from the primary to the backup, when the journal says that the primary was
// written. Returns 0 when there was nothing to do or it was done, -1 otherwise. Wants the store exclusively.
int complete_interrupted_write(Operation& operation);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_START_UP_HPP
