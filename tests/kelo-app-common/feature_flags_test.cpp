// SPDX-License-Identifier: MIT
// The flags that say which features a project has.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "kelo_utils/app_common.h"

namespace {

struct Flag {
  std::string name;
  std::int32_t (*function)();
};

class FeatureFlags : public testing::TestWithParam<Flag> {};

TEST_P(FeatureFlags, IsNotSupported) { EXPECT_EQ(GetParam().function(), 0); }

INSTANTIATE_TEST_SUITE_P(
    ThisBuild, FeatureFlags,
    testing::Values(Flag{"ModelA", kelo_support_MODEL_A}, Flag{"ModelB", kelo_support_MODEL_B},
                    Flag{"ModelC", kelo_support_MODEL_C}, Flag{"StatusLed", kelo_support_STATUS_LED},
                    Flag{"LinkMain", kelo_support_LINK_MAIN}, Flag{"LinkAux", kelo_support_LINK_AUX},
                    Flag{"UsbSense", kelo_support_USB_SENSE}, Flag{"FanCtrl", kelo_support_FAN_CTRL}),
    [](const auto& flag) { return flag.param.name; });

}  // namespace
