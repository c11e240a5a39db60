// Whose object an exported name of the library is found at.
#ifndef KELO_LOG_MOVED_DATA_HPP
#define KELO_LOG_MOVED_DATA_HPP

#include <cstddef>

namespace kelo::log {

// Whether the object at `found`, to which the loader resolved an exported name, is the library's: its own at `own`, or
// the place of `size` bytes in the program to which the loader moved it (a copy relocation). Any other object is one
// of the program's that happens to have the name, of whatever size and kind. Takes no lock.
bool is_librarys(const void* found, const void* own, std::size_t size);

}  // namespace kelo::log

#endif  // KELO_LOG_MOVED_DATA_HPP
