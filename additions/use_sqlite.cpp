// SPDX-License-Identifier: MIT
// Lets the library's own hooks call the SQLite back-end, for programs that cannot link the object that does so.
#include "data_manager/back_end.hpp"
#include "kelo_utils/settings.h"
#include "kelo_utils/sqlite.h"

namespace {

constexpr kelo::dm::BackEnd kSqlite = {sqlite_reg, sqlite_reg_store_area, sqlite_chk_db_ver_match,
                                       [] { return check_database_health(DB_CONFIG); }};

}  // namespace

void kelo_dm_use_sqlite() { kelo::dm::chosen_back_end.store(&kSqlite, std::memory_order_release); }
