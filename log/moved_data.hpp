// SPDX-License-Identifier: MIT
// Tells whether an exported name of the library refers to the library's object or to one of the program.
#ifndef KELO_LOG_MOVED_DATA_HPP
#define KELO_LOG_MOVED_DATA_HPP

#include <cstddef>

namespace kelo::log {

// Whether the object at `found`, to which the loader has resolved an exported name, is the library's object of `size`
// bytes. It is when it is the object at `own`, or when the loader has moved that object into the program (a copy
// relocation). Otherwise it is an unrelated object of the program that has the same name. The function takes no lock.
bool is_librarys(const void* found, const void* own, std::size_t size);

}  // namespace kelo::log

#endif  // KELO_LOG_MOVED_DATA_HPP
