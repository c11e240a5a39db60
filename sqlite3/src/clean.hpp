// The clean of the databases.
#ifndef KELO_SQLITE3_CLEAN_HPP
#define KELO_SQLITE3_CLEAN_HPP

namespace kelo::store {

// Counts the files under the backup directory that are taken for kept copies. False when they could not be counted.
bool count_kept_copies(int& count);

// Deletes the databases in the order primary, backup, journal. With `keep_a_copy` a dated copy of the primary is made
// first, of which at most three are kept. Stops at the first step that fails. Wants the store exclusively.
bool clean_databases(bool keep_a_copy, int kept_copies);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_CLEAN_HPP
