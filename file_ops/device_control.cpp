// SPDX-License-Identifier: MIT
// Sends single requests to device nodes.
#include <sys/ioctl.h>

#include "base/file.hpp"
#include "file_ops/open_file.hpp"
#include "kelo_utils/file_ops.h"
#include "log/library_log.hpp"

namespace {

constexpr char kTimeCodeNode[] = "/dev/kelo_irig_b_config";
// Drivers take this number on every processor. The macros of the system would make another one on some of them.
constexpr unsigned long kConfigureTimeCode = 0x40325A1E;
static_assert((kConfigureTimeCode >> 16 & 0x3FFF) == KELO_IRIG_B_CONFIG_SIZE);

// The kernel reads 32 bits of the number of a request. C libraries take it as an int or as a long.
template <typename Number>
Number number_taken_by(int (*call)(int, Number, ...));
using Request = decltype(number_taken_by(ioctl));

}  // namespace

int kelo_ioctl_file(const char* path, unsigned long request, void* argument) {
  if (path == nullptr) {
    kelo::log::param_null(__func__);
    return KELO_FILE_NOT_OPENED;
  }
  const auto node = kelo::files::open_or_log(__func__, path, O_RDWR);
  if (!node) return KELO_FILE_NOT_OPENED;
  if (ioctl(node.get(), static_cast<Request>(request), argument) == 0) return 0;
  KELO_LOG(LOG_LVL_ERR, "ioctl cmd %ld failed.\n", static_cast<long>(request));
  return -1;
}

int kelo_irig_b_ioctl(const void* config) {
  if (config == nullptr) {
    KELO_LOG(LOG_LVL_DBUG, "input error.\r\n");
    return -1;
  }
  const auto node = kelo::base::open_file(kTimeCodeNode, O_RDWR);
  if (!node) {
    KELO_LOG(LOG_LVL_DBUG, "open %s fail.\r\n", kTimeCodeNode);
    return -1;
  }
  const int result = ioctl(node.get(), static_cast<Request>(kConfigureTimeCode), config);
  if (result != 0) KELO_LOG(LOG_LVL_ERR, "ioctl cmd fail.\r\n");
  return result;
}
