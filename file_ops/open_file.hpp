// SPDX-License-Identifier: MIT
// Opens the files of the file operations.
#ifndef KELO_FILE_OPS_OPEN_FILE_HPP
#define KELO_FILE_OPS_OPEN_FILE_HPP

#include <sys/types.h>

#include "base/file.hpp"

namespace kelo::files {

// Returns an empty Descriptor when the file cannot be opened, and logs that under the name of the operation,
// `function`.
base::Descriptor open_or_log(const char* function, const char* path, int flags, mode_t mode = 0);

}  // namespace kelo::files

#endif  // KELO_FILE_OPS_OPEN_FILE_HPP
