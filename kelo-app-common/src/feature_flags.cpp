// SPDX-License-Identifier: MIT
// Tells which features this build of the library supports. The build of a product changes only the numbers below.
#include <cstdint>

#include "kelo_utils/app_common.h"

#define FEATURE_FLAG(name, value) \
  std::int32_t kelo_support_##name() { return value; }

FEATURE_FLAG(MODEL_A, 0)
FEATURE_FLAG(MODEL_B, 0)
FEATURE_FLAG(MODEL_C, 0)
FEATURE_FLAG(STATUS_LED, 0)
FEATURE_FLAG(LINK_MAIN, 0)
FEATURE_FLAG(LINK_AUX, 0)
FEATURE_FLAG(USB_SENSE, 0)
FEATURE_FLAG(FAN_CTRL, 0)
