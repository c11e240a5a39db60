// What the exported functions of the back-end say about bad arguments.
#ifndef KELO_SQLITE3_FACE_ARGUMENTS_HPP
#define KELO_SQLITE3_FACE_ARGUMENTS_HPP

#include "kelo_utils/sqlite.h"

namespace kelo::store {

// Logs that an argument of `function` is null or negative, and returns DM_SQLITE_FAILED. The second form is worded
// as most of the library words it.
int refuse_arguments(const char* function);
int refuse_null(const char* function);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_FACE_ARGUMENTS_HPP
