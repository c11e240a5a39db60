// SPDX-License-Identifier: MIT
// The paths of the library's sources, which the records of the diagnostic channel contain.
#include <cstring>

#include "log/library_log.hpp"

namespace {

// Each folder has a slash before its name and is followed by its sources without ".cpp". Whole paths would take 1 KiB
// more.
constexpr char kNames[] =
#include "source_names.inc"
    ;

}  // namespace

kelo::log::SourcePath kelo::log::source_path(unsigned file) {
  const char* folder = "";
  const char* name = kNames;
  for (;; name += std::strlen(name) + 1) {
    if (*name == '/') {
      folder = name + 1;
    } else if (*name == '\0' || file-- == 0) {
      return SourcePath("%s/%s.cpp", folder, name);
    }
  }
}
