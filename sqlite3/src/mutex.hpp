// The mutex that serialises the back-end's operations within the process.
#ifndef KELO_SQLITE3_MUTEX_HPP
#define KELO_SQLITE3_MUTEX_HPP

#include <pthread.h>

namespace kelo::store {

// Guards the registration flag. It is taken before the store's lock. (Declared as hidden, it is reached directly and
// not through a table that the loader fills.)
[[gnu::visibility("hidden")]] extern pthread_mutex_t sqlite_mutex;

}  // namespace kelo::store

#endif  // KELO_SQLITE3_MUTEX_HPP
