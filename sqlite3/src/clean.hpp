// The clean as a handle's slot calls it.
#ifndef KELO_SQLITE3_CLEAN_HPP
#define KELO_SQLITE3_CLEAN_HPP

#include <cstdint>

namespace kelo::store {

// Cleans the databases and clears the data manager's clean flag when that has ended, well or not: a clean
// that failed must not leave the store mute until the next boot. The second argument is not used.
int clean_slot(const char* backup, int one, std::int32_t* clean_flag);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_CLEAN_HPP
