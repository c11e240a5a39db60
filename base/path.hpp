// Paths taken apart.
#ifndef KELO_BASE_PATH_HPP
#define KELO_BASE_PATH_HPP

#include <cstring>

namespace kelo::base {

// Hands out what stands before each "/" behind the first character of a path, the shortest first, until
// `visit` returns false. The path is not empty; it is cut in place, and whole again afterwards. Returns
// whether all were visited.
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
