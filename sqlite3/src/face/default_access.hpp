// SPDX-License-Identifier: MIT
// The write of many defaults for the data manager.
#ifndef KELO_SQLITE3_FACE_DEFAULT_ACCESS_HPP
#define KELO_SQLITE3_FACE_DEFAULT_ACCESS_HPP

#include <span>

#include "data_manager/many_defaults.hpp"

namespace kelo::store {

// Stores as many defaults as possible in one transaction, and the version record with the first default of the
// process. Defaults that are stored already are not written. The data manager writes the rest one by one, which logs
// failures.
void write_many_defaults(std::span<dm::PendingDefault> defaults);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_FACE_DEFAULT_ACCESS_HPP
