// SPDX-License-Identifier: MIT
// The repair of damage to the primary that SQLite's check does not find.
#ifndef KELO_SQLITE3_MEND_HPP
#define KELO_SQLITE3_MEND_HPP

namespace kelo::store {

// Restores from the backup what a damaged primary has lost, before the primary is copied over the backup. This
// concerns rows whose value does not match its checksum or whose key has changed, and tables that cannot be written.
// Rows of the primary that match their checksum are not changed. Rows that do not exist in the primary are not added.
// The caller has exclusive access, and lines are logged under `caller`.
void mend_primary(const char* caller);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_MEND_HPP
