// SPDX-License-Identifier: MIT
// Finds the files that are installed with this program, wherever that is.
#include "tools/keloctl/beside.hpp"

#include <unistd.h>

#include <array>
#include <cstring>

namespace kelo::ctl {

LongPath beside_program(const char* relative) {
  std::array<char, 400> program{};
  const ssize_t length = readlink("/proc/self/exe", program.data(), program.size() - 1);
  const char* const slash = length > 0 ? std::strrchr(program.data(), '/') : nullptr;
  // Without /proc the program is where it is usually installed.
  if (slash == nullptr) return LongPath("/usr/bin/%s", relative);
  return LongPath("%.*s/%s", static_cast<int>(slash - program.data()), program.data(), relative);
}

}  // namespace kelo::ctl
