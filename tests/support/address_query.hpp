// SPDX-License-Identifier: MIT
// The address query under test. Include it in exactly one source file of a test program, as
// netlink_faults.hpp.
#ifndef KELO_TESTS_SUPPORT_ADDRESS_QUERY_HPP
#define KELO_TESTS_SUPPORT_ADDRESS_QUERY_HPP

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/descriptors.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/netlink_faults.hpp"

namespace kelo::tests {

class AddressQuery : public testing::Test {
 protected:
  AddressQuery() { calls.in_haste = true; }
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_before_); }

  int query(const char* interface_name = "lo") {
    text = ExactBuffer(40);
    log.clear();
    return kelo_check_global_ipv6_addr(interface_name, text.data());
  }

  // The query that `notify` is made after: it runs when the query's socket has been bound.
  template <typename Notify>
  int query_while(const Notify& notify, const char* interface_name = "lo") {
    calls.after_bind = [&](int) { notify(); };
    return query(interface_name);
  }

  [[nodiscard]] bool timed_out() const {
    return !log.lines().empty() && log.lines().back().text == "Timeout to wait for IPv6 event\n" &&
           log.count(LOG_LVL_ERR, "oem_epoll_event_handle", "Timeout to wait for IPv6 event\n") == 1;
  }
  [[nodiscard]] bool found() const {
    return !log.lines().empty() && log.lines().back().text == "Get IPv6 address\n" &&
           log.count(LOG_LVL_DBUG, "oem_nl_netlink_handle", "Get IPv6 address\n") == 1;
  }

  LogCapture log;
  ExactBuffer text{40};
  NetlinkCalls calls;

 private:
  std::set<std::string> descriptors_before_ = open_descriptors();
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_ADDRESS_QUERY_HPP
