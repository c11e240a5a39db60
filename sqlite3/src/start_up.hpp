// SPDX-License-Identifier: MIT
// The completion of a write that a crash interrupted, at the first registration of a process.
#ifndef KELO_SQLITE3_START_UP_HPP
#define KELO_SQLITE3_START_UP_HPP

#include "sqlite3/src/operation.hpp"

namespace kelo::store {

// Copies the item of an interrupted write from the primary to the backup when the journal says that the primary was
// written. Returns 0 on success or when there was nothing to do, and -1 otherwise. The caller has exclusive access.
int complete_interrupted_write(Operation& operation);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_START_UP_HPP
