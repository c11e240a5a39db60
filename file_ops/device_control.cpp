// SPDX-License-Identifier: MIT
// Sends single requests to device nodes.
#include <sys/ioctl.h>

#include "base/file.hpp"
#include "file_ops/open_file.hpp"
#include "kelo_utils/file_ops.h"
#include "log/library_log.hpp"

namespace {

constexpr char kTimeCodeNode[] = "/dev/kelo_irig_b_config";
constexpr unsigned long kConfigureTimeCode = _IOW('Z', 30, char[KELO_IRIG_B_CONFIG_SIZE]);
static_assert(kConfigureTimeCode == 0x40325A1E);

}  // namespace

int kelo_ioctl_file(const char* path, unsigned long request, void* argument) {
  if (path == nullptr) {
    kelo::log::param_null(__func__);
    return KELO_FILE_NOT_OPENED;
  }
  const auto node = kelo::files::open_or_log(__func__, path, O_RDWR);
  if (!node) return KELO_FILE_NOT_OPENED;
  if (ioctl(node.get(), request, argument) == 0) return 0;
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
  const int result = ioctl(node.get(), kConfigureTimeCode, config);
  if (result != 0) KELO_LOG(LOG_LVL_ERR, "ioctl cmd fail.\r\n");
  return result;
}
