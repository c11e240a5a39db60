// The version record: an item like any other, stored in the configuration and in the defaults database.
#ifndef KELO_SQLITE3_VERSION_HPP
#define KELO_SQLITE3_VERSION_HPP

#include <cstdint>

#include "kelo_utils/sqlite.h"

namespace kelo::store {

inline constexpr std::uint32_t kVersion = SQL_VER;
inline constexpr int kVersionLength = sizeof kVersion;
inline constexpr std::uint32_t kVersionType = KELO_DM_TYPE_SCALAR3;

}  // namespace kelo::store

#endif  // KELO_SQLITE3_VERSION_HPP
