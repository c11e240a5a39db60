// SPDX-License-Identifier: MIT
// Opens the files of the file operations.
#include "file_ops/open_file.hpp"

#include "log/library_log.hpp"

namespace kelo::files {

base::Descriptor open_or_log(const char* function, const char* path, int flags, mode_t mode) {
  base::Descriptor file = base::open_file(path, flags, mode);
  // If standard input is closed, open() returns its number. The file must not become the standard input of the process.
  if (file.get() == 0) file.reset();
  if (!file) KELO_LOG_AS(function, LOG_LVL_ERR, "open %s failed.\n", path);
  return file;
}

}  // namespace kelo::files
