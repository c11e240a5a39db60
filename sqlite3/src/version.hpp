// SPDX-License-Identifier: MIT
// The version record, an item that is stored in the configuration and in the defaults database.
#ifndef KELO_SQLITE3_VERSION_HPP
#define KELO_SQLITE3_VERSION_HPP

#include <cstdint>

#include "kelo_utils/sqlite.h"
#include "sqlite3/src/operation.hpp"
#include "sqlite3/src/row.hpp"

namespace kelo::store {

inline constexpr std::uint32_t kVersion = SQL_VER;
inline constexpr int kVersionLength = sizeof kVersion;
[[gnu::visibility("hidden")]] extern const Row kVersionRow;

// These read the stored versions. They return 4, the length of a version, or a code of dm_sqlite_result.
int read_stored_version(Operation& operation, std::uint32_t* version);
int read_defaults_version(std::uint32_t* version);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_VERSION_HPP
