// SPDX-License-Identifier: MIT
// The gateway query under test. Include it in exactly one source file of a test program, as
// netlink_faults.hpp.
#ifndef KELO_TESTS_SUPPORT_GATEWAY_QUERY_HPP
#define KELO_TESTS_SUPPORT_GATEWAY_QUERY_HPP

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "kelo_utils/app_os_al.h"
#include "tests/support/descriptors.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/netlink_faults.hpp"

namespace kelo::tests {

class GatewayQuery : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_before_); }

  int query(const char* interface_name = "lo") {
    return kelo_get_ipv6_default_gw(interface_name, text.data());
  }

  void expect_text(const std::string& expected, const char* interface_name = "lo") {
    log.clear();
    EXPECT_EQ(query(interface_name), 0);
    EXPECT_STREQ(text.data(), expected.c_str()) << log.dump();
  }

  LogCapture log;
  ExactBuffer text{46};
  NetlinkCalls calls;

 private:
  std::set<std::string> descriptors_before_ = open_descriptors();
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_GATEWAY_QUERY_HPP
