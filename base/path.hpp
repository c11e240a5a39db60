// SPDX-License-Identifier: MIT
// Visits the parent directories of a path.
#ifndef KELO_BASE_PATH_HPP
#define KELO_BASE_PATH_HPP

#include <cstring>

namespace kelo::base {

// Calls `visit` with the text before each "/" of a path, the shortest first, until `visit` returns false. A "/" at the
// start of the path does not count. The path must not be empty. It is cut in place during a call and is unchanged
// afterwards. Returns whether all parents were visited.
template <typename Visit>
bool visit_parents(char* path, Visit visit) {
  for (char* slash = std::strchr(path + 1, '/'); slash != nullptr; slash = std::strchr(slash + 1, '/')) {
    *slash = '\0';
    const bool more = visit(path);
    *slash = '/';
    if (!more) return false;
  }
  return true;
}

}  // namespace kelo::base

#endif  // KELO_BASE_PATH_HPP
