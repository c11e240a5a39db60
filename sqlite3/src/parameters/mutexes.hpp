// The mutexes of the parameter databases.
#ifndef KELO_SQLITE3_PARAMETERS_MUTEXES_HPP
#define KELO_SQLITE3_PARAMETERS_MUTEXES_HPP

#include <pthread.h>

namespace kelo::params {

// Held for the whole of an operation on parameters, and taken before the lock that other processes share.
[[gnu::visibility("hidden")]] extern pthread_mutex_t parameter_mutex;

// Guards what is kept between operations. It is never held while a statement runs.
[[gnu::visibility("hidden")]] extern pthread_mutex_t cache_mutex;

// Forgets the connections of the process that forked: they are of no use in the child, and closing one there could
// roll back what its owner has begun.
void forget_connections_of_parent();

}  // namespace kelo::params

#endif  // KELO_SQLITE3_PARAMETERS_MUTEXES_HPP
