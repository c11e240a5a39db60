// SPDX-License-Identifier: MIT
// Records the directories that the whole test program makes, the library included, and lets the making fail. Include
// it in exactly one source file of a test program.
#ifndef KELO_TESTS_MADE_DIRECTORIES_HPP
#define KELO_TESTS_MADE_DIRECTORIES_HPP

#include <sys/stat.h>

#include <string>
#include <vector>

#include "tests/support/fault.hpp"

namespace kelo::tests {

// What was asked for, in order, made or not.
struct AskedDirectories {
  std::vector<std::string> names;
  std::vector<mode_t> modes;

  [[nodiscard]] bool empty() const { return names.empty(); }
  void clear() { *this = {}; }
};
inline AskedDirectories asked_for;

}  // namespace kelo::tests

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name,misc-definitions-in-headers)
extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  static const auto real = kelo::tests::next_call("mkdir", mkdir);
  kelo::tests::asked_for.names.emplace_back(path);
  kelo::tests::asked_for.modes.push_back(mode);
  return kelo::tests::Fault::meets("mkdir") ? -1 : real(path, mode);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name,misc-definitions-in-headers)

#endif  // KELO_TESTS_MADE_DIRECTORIES_HPP
