// SPDX-License-Identifier: MIT
// Writes small files in place. They are not truncated, because files of sysfs and procfs must not be.
#include <cstddef>

#include "base/file.hpp"
#include "file_ops/open_file.hpp"
#include "kelo_utils/file_ops.h"
#include "log/library_log.hpp"

namespace {

constexpr mode_t kEverything = 0777;

// Messages carry the name of the operation, `function`.
int write_file(const char* function, const char* path, int flags, const void* data, std::size_t length) {
  if (path == nullptr || data == nullptr) {
    kelo::log::param_null(function);
    return path == nullptr ? KELO_FILE_NOT_OPENED : KELO_FILE_NOT_WRITTEN;
  }
  const auto file = kelo::files::open_or_log(function, path, O_WRONLY | flags, kEverything);
  if (!file) return KELO_FILE_NOT_OPENED;
  if (kelo::base::write_all_unsignalled(file.get(), {static_cast<const char*>(data), length}) == length)
    return 0;
  KELO_LOG_AS(function, LOG_LVL_ERR, "write %s failed.\n", path);
  return KELO_FILE_NOT_WRITTEN;
}

}  // namespace

int kelo_write_file(const char* path, const void* data, std::size_t length) {
  return write_file(__func__, path, 0, data, length);
}

int kelo_write_file_sync(const char* path, const void* data, std::size_t length) {
  return write_file(__func__, path, O_DSYNC, data, length);
}

int kelo_write_file_sync_create(const char* path, const void* data, std::size_t length) {
  return write_file(__func__, path, O_CREAT | O_DSYNC, data, length);
}
