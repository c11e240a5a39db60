// SPDX-License-Identifier: MIT
// Reads small files with a single read().
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/file.hpp"
#include "file_ops/open_file.hpp"
#include "kelo_utils/file_ops.h"
#include "log/library_log.hpp"

namespace {

// Replaces a newline at the end by a terminator. Returns the length of the text without the newline.
std::size_t terminate_line(std::span<char> text) {
  if (text.empty() || text.back() != '\n') return text.size();
  text.back() = '\0';
  return text.size() - 1;
}

}  // namespace

int kelo_read_file(const char* path, void* buffer, std::size_t size) {
  if (path == nullptr || buffer == nullptr) {
    kelo::log::param_null(__func__);
    return path == nullptr ? KELO_FILE_NOT_OPENED : KELO_FILE_NOT_READ;
  }
  const auto file = kelo::files::open_or_log(__func__, path, O_RDONLY);
  if (!file) return KELO_FILE_NOT_OPENED;
  const std::span<char> room(static_cast<char*>(buffer), size);
  const ssize_t count = kelo::base::read_some(file.get(), room);
  if (count < 0) {
    KELO_LOG(LOG_LVL_ERR, "read %s failed.\n", path);
    return KELO_FILE_NOT_READ;
  }
  // A driver may report more bytes than the buffer has.
  if (static_cast<std::size_t>(count) <= size) terminate_line(room.first(static_cast<std::size_t>(count)));
  return 0;
}

int kelo_read_file_with_reading_length_returned(const char* path, void* buffer, std::int32_t size) {
  if (path == nullptr || buffer == nullptr) return kelo::log::param_null(__func__);
  const auto file = kelo::files::open_or_log(__func__, path, O_RDONLY);
  if (!file) return -1;
  const std::span<char> room(static_cast<char*>(buffer), size < 0 ? 0 : static_cast<std::size_t>(size));
  const ssize_t count = size < 0 ? -1 : kelo::base::read_some(file.get(), room);
  if (count < 0 || count > size) {
    KELO_LOG(LOG_LVL_ERR, "read %s failed.\n", path);
    return static_cast<int>(count);
  }
  return static_cast<int>(terminate_line(room.first(static_cast<std::size_t>(count))));
}
