// SPDX-License-Identifier: MIT
// The mutexes of the parameter databases, and their state after a fork().
#ifndef KELO_SQLITE3_PARAMETERS_MUTEXES_HPP
#define KELO_SQLITE3_PARAMETERS_MUTEXES_HPP

#include <pthread.h>

namespace kelo::params {

// Serialises operations on parameters. It is locked before the lock that other processes share.
[[gnu::visibility("hidden")]] extern pthread_mutex_t parameter_mutex;

// Guards the cached connections and the counts of leases. It is never held while a statement runs.
[[gnu::visibility("hidden")]] extern pthread_mutex_t cache_mutex;

// Drops the connections of the parent without closing them. To close one in the child could roll back a transaction
// of the parent.
void forget_connections_of_parent();

}  // namespace kelo::params

#endif  // KELO_SQLITE3_PARAMETERS_MUTEXES_HPP
