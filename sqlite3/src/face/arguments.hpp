// SPDX-License-Identifier: MIT
// The messages of the exported functions of the back-end about bad arguments.
#ifndef KELO_SQLITE3_FACE_ARGUMENTS_HPP
#define KELO_SQLITE3_FACE_ARGUMENTS_HPP

#include "kelo_utils/sqlite.h"

namespace kelo::store {

// These log that an argument of `function` is null or negative, and return DM_SQLITE_FAILED. refuse_null() uses the
// message of most of the library.
int refuse_arguments(const char* function);
int refuse_null(const char* function);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_FACE_ARGUMENTS_HPP
