// SPDX-License-Identifier: MIT
// Reads and writes files that contain one decimal integer, such as switches of the kernel and settings of a daemon.
#include <array>
#include <cerrno>
#include <cstring>
#include <span>

#include "base/decimal.hpp"
#include "base/file.hpp"
#include "base/text_builder.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace {

using kelo::base::Descriptor;

constexpr std::size_t kMostRead = 256;
constexpr std::size_t kIntegerSize = 128;  // more than an integer needs, but other texts have this size, too
constexpr mode_t kReadWrite = 0666;
constexpr int kNotWritten = 7;

// Returns an empty Descriptor when the file cannot be opened, and logs that under the name of the operation,
// `function`.
Descriptor open_or_log(const char* function, const char* path, int flags, mode_t mode = 0) {
  if (path == nullptr) {
    KELO_LOG_AS(function, LOG_LVL_ERR, "Not exist file\n");
    return {};
  }
  Descriptor file = kelo::base::open_file(path, flags, mode);
  if (!file) KELO_LOG_AS(function, LOG_LVL_ERR, "Not exist file=%s\n", path);
  return file;
}

// Syncs the file. A pipe, a device or a file of the kernel has no storage and fails with EINVAL or ENOTSUP, which is
// not an error. EROFS is one: the file system has become read-only after an error, and the value is lost.
bool sync_to_storage(const Descriptor& file) {
  const int result = kelo::base::retry_interrupted([&] { return fsync(file.get()); });
  return result == 0 || errno == EINVAL || errno == ENOTSUP;
}

}  // namespace

std::int32_t kelo_util_get_file_int_value(const char* path) {
  const Descriptor file = open_or_log(__func__, path, O_RDONLY);
  if (!file) return 0;
  std::array<char, kMostRead + 1> text;
  const std::size_t length = kelo::base::read_all(file.get(), std::span(text).first<kMostRead>());
  if (length == 0) return 0;
  text[length] = '\0';
  KELO_LOG(LOG_LVL_DBUG, "read content:%s\n", text.data());
  return kelo::base::leading_decimal(text.data()).value_or(0);
}

int kelo_util_set_file_int_value(const char* path, std::int32_t value) {
  Descriptor file = open_or_log(__func__, path, O_WRONLY | O_CREAT | O_TRUNC, kReadWrite);
  if (!file) return kNotWritten;
  const kelo::base::FixedText<kIntegerSize> text("%d", value);
  errno = 0;  // a short write may set no error
  const std::size_t written = kelo::base::write_all_unsignalled(file.get(), text.view());
  if (written == text.size() && sync_to_storage(file) && file.close()) return 0;
  KELO_LOG(LOG_LVL_ERR, "fwrite() failed, only [%d] written, total_len=[%d], reason=[%s]%d",
           static_cast<int>(written), static_cast<int>(text.size()), std::strerror(errno), errno);
  return kNotWritten;
}
