// SPDX-License-Identifier: MIT
// The version records of the configuration and of the defaults database.
#include "sqlite3/src/version.hpp"

#include "sqlite3/src/defaults.hpp"
#include "sqlite3/src/item_read.hpp"

namespace kelo::store {

constexpr Row kVersionRow = {SQL_VER_TAB,          SQL_VER_ID, SQL_VER_KEY,
                             KELO_DM_TYPE_SCALAR3, &kVersion,  kVersionLength};

int read_stored_version(Operation& operation, std::uint32_t* version) {
  return read_item(operation, {SQL_VER_TAB, SQL_VER_KEY, version, kVersionLength});
}

int read_defaults_version(std::uint32_t* version) {
  return read_default({SQL_VER_TAB, SQL_VER_KEY, version, kVersionLength}, nullptr);
}

}  // namespace kelo::store
