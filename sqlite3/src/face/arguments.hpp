// SPDX-License-Identifier: MIT
// The message of the exported functions of the back-end about bad arguments.
#ifndef KELO_SQLITE3_FACE_ARGUMENTS_HPP
#define KELO_SQLITE3_FACE_ARGUMENTS_HPP

#include "kelo_utils/sqlite.h"

namespace kelo::store {

// Logs that an argument of `function` is null or negative, and returns DM_SQLITE_FAILED. Functions with the message of
// most of the library call log::param_null().
int refuse_arguments(const char* function);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_FACE_ARGUMENTS_HPP
