// SPDX-License-Identifier: MIT
// Creates a directory and its parents.
#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstring>

#include "base/path.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace {

constexpr std::size_t kPathSize = 256;  // bytes, terminator included
constexpr mode_t kEverything = 0777;

bool exists(const char* path) {
  struct stat status {};
  return stat(path, &status) == 0;
}

// The result of creating a parent is ignored: if it fails, creating the last directory fails, too.
bool create_with_parents(const char* path) {
  const std::size_t length = std::strlen(path);
  std::array<char, kPathSize> directory;
  if (length == 0 || length >= directory.size()) return false;
  std::memcpy(directory.data(), path, length + 1);
  if (directory[length - 1] == '/') directory[length - 1] = '\0';
  kelo::base::visit_parents(directory.data(), [](const char* parent) {
    mkdir(parent, kEverything);
    return true;
  });
  return mkdir(directory.data(), kEverything) == 0;
}

}  // namespace

void oem_create_and_check_directory(const char* path) {
  if (path == nullptr) {
    kelo::log::param_null(__func__);
    return;
  }
  if (exists(path)) {
    KELO_LOG(LOG_LVL_DBUG, "Directory %s already exists.\n", path);
  } else if (create_with_parents(path)) {
    KELO_LOG(LOG_LVL_DBUG, "Directory %s created.\n", path);
  } else {
    KELO_LOG(LOG_LVL_ERR, "Directory %s creation error.\n", path);
  }
}
