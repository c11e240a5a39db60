// Damage to the primary that SQLite's check does not see.
#ifndef KELO_SQLITE3_MEND_HPP
#define KELO_SQLITE3_MEND_HPP

namespace kelo::store {

// Brings back from the backup what a damaged primary does not hold any more, before the primary is copied over it:
// rows whose value does not match its checksum or whose key is another one, and tables that take no rows. A row that
// matches its checksum stays as it is in the primary, and one that is not there stays away. The caller holds the
// store's lock exclusively; the lines of the log are written under `caller`.
void mend_primary(const char* caller);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_MEND_HPP
