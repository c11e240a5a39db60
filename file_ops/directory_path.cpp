// SPDX-License-Identifier: MIT
// Creates all missing directories of a path.
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstddef>

#include "base/path.hpp"
#include "kelo_utils/app_os_al.h"
#include "kelo_utils/file_ops.h"
#include "log/library_log.hpp"

namespace {

constexpr std::size_t kPathSize = 512;  // bytes, terminator included

bool make_directory(const char* path, mode_t mode) { return mkdir(path, mode) == 0 || errno == EEXIST; }

// Creates the directories from the first to the last one. The path must not be empty and is unchanged afterwards.
bool make_directories(char* path, mode_t mode) {
  const auto make = [mode](const char* directory) { return make_directory(directory, mode); };
  return kelo::base::visit_parents(path, make) && make(path);
}

}  // namespace

int dir_make_path(const char* path, mode_t mode) {
  if (path == nullptr) return kelo::log::param_null(__func__);
  std::array<char, kPathSize> directory;
  std::size_t length = 0;
  if (kelo_utf8_Copy(directory.data(), path, directory.size(), &length) != 0) {
    KELO_LOG(LOG_LVL_ERR, "Directory path overflowed.\n");
    return -1;
  }
  if (length != 0 && directory[length - 1] == '/') directory[--length] = '\0';
  if (length != 0 && make_directories(directory.data(), mode)) return 0;
  KELO_LOG(LOG_LVL_ERR, "Could not create directory '%s'.\n", path);
  return -1;
}
