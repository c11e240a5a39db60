// SPDX-License-Identifier: MIT
// The mutex that serialises the back-end's operations within the process.
#ifndef KELO_SQLITE3_MUTEX_HPP
#define KELO_SQLITE3_MUTEX_HPP

#include <pthread.h>

namespace kelo::store {

// It also guards the registration flag. It is locked before the store's lock. The hidden visibility lets the code
// address it directly, without a table that the loader fills.
[[gnu::visibility("hidden")]] extern pthread_mutex_t sqlite_mutex;

}  // namespace kelo::store

#endif  // KELO_SQLITE3_MUTEX_HPP
