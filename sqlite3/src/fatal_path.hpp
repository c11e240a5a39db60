// The name under which the back-end's fatal programming errors are found in crash logs.
#ifndef KELO_SQLITE3_FATAL_PATH_HPP
#define KELO_SQLITE3_FATAL_PATH_HPP

namespace kelo::store {

inline constexpr char kFatalPath[] = "sqlite3/src/kelo_dm_sqlite.c";

}  // namespace kelo::store

#endif  // KELO_SQLITE3_FATAL_PATH_HPP
