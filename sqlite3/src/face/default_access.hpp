// How the back-end stores the defaults that the data manager hands over all at once.
#ifndef KELO_SQLITE3_FACE_DEFAULT_ACCESS_HPP
#define KELO_SQLITE3_FACE_DEFAULT_ACCESS_HPP

#include <span>

#include "data_manager/many_defaults.hpp"

namespace kelo::store {

// Stores what it can in one transaction, under one lock, and the version record with the first default of the process.
// Nothing is written of what is stored already. What it leaves is stored and logged by the single write.
void write_many_defaults(std::span<dm::PendingDefault> defaults);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_FACE_DEFAULT_ACCESS_HPP
