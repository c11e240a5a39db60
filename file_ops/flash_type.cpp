// SPDX-License-Identifier: MIT
// Tells what kind of memory the system runs from.
#include <array>

#include "base/pipe_stream.hpp"
#include "kelo_utils/file_ops.h"

int get_flash_type(void) {
  const auto pipe = kelo::base::PipeStream::reading("cat /proc/partitions 2>/dev/null | grep mtd");
  if (!pipe) return KELO_FILE_NOT_OPENED;
  std::array<char, 32> partitions;
  return pipe.read(partitions) > 0 ? 1 : 0;
}
