// SPDX-License-Identifier: MIT
// The clean of the databases and the count of the dated copies.
#ifndef KELO_SQLITE3_CLEAN_HPP
#define KELO_SQLITE3_CLEAN_HPP

namespace kelo::store {

// Counts the files of the backup directory that look like dated copies. Returns false when this fails.
bool count_kept_copies(int& count);

// Deletes the databases in the order primary, backup, journal. With `keep_a_copy` it first makes a dated copy of the
// primary and keeps three copies at most. It stops at the first step that fails. The caller has exclusive access.
bool clean_databases(bool keep_a_copy, int kept_copies);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_CLEAN_HPP
