// SPDX-License-Identifier: MIT
// The gateway in one route message.
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/route_messages.hpp"

namespace {

using kelo::tests::address_bytes;
using kelo::tests::ExactBuffer;
using kelo::tests::LogCapture;
using kelo::tests::NetlinkMessage;
using kelo::tests::number_bytes;
using kelo::tests::route;
using kelo::tests::route_body;
using kelo::tests::route_via;

constexpr std::size_t kTextSize = 46;
constexpr char kRoute[] = "oem_dump_route";
constexpr char kGateway[] = "2001:db8::1";

std::string loopback() { return number_bytes(if_nametoindex("lo")); }

class DumpRoute : public testing::Test {
 protected:
  void expect_gateway(const NetlinkMessage& message, const std::string& expected) {
    log.clear();
    EXPECT_EQ(dump(message.bytes()), 0);
    EXPECT_STREQ(text.data(), expected.c_str());
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kRoute, "IPv6 gateway via " + expected + "\n"), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  }

  void expect_none(const NetlinkMessage& message) {
    log.clear();
    EXPECT_EQ(dump(message.bytes()), -1);
    EXPECT_TRUE(text.untouched());
    EXPECT_TRUE(log.lines().empty()) << log.dump();
  }

  int dump(const std::string& message, const char* interface_name = "lo") {
    text = ExactBuffer(kTextSize);
    const ExactBuffer bytes(message, message.size() + 1);
    return kelo_dump_route(reinterpret_cast<const nlmsghdr*>(bytes.data()), interface_name, text.data());
  }

  LogCapture log;
  ExactBuffer text{kTextSize};
};

TEST_F(DumpRoute, WritesTheGatewayOfARouteThroughTheInterface) {
  expect_gateway(route().add(RTA_OIF, loopback()).add(RTA_GATEWAY, address_bytes(kGateway)), kGateway);
}

TEST_F(DumpRoute, ReadsTheAttributesInAnyOrder) {
  expect_gateway(route().add(RTA_GATEWAY, address_bytes(kGateway)).add(RTA_OIF, loopback()), kGateway);
}

TEST_F(DumpRoute, WritesTheLongestAddress) {
  const std::string longest = "1111:2222:3333:4444:5555:6666:7777:8888";
  expect_gateway(route_via(longest), longest);
}

TEST_F(DumpRoute, AcceptsARouteWithoutAnOutputInterface) { expect_gateway(route_via("fe80::1"), "fe80::1"); }

TEST_F(DumpRoute, AcceptsAnyDestinationTableAndType) {
  rtmsg body = route_body();
  body.rtm_dst_len = 64;
  body.rtm_table = RT_TABLE_LOCAL;
  body.rtm_type = RTN_BLACKHOLE;
  NetlinkMessage message(RTM_DELROUTE, 0, body);
  expect_gateway(message.add(RTA_GATEWAY, address_bytes(kGateway)), kGateway);
}

TEST_F(DumpRoute, RefusesAnotherOutputInterface) {
  NetlinkMessage message = route_via(kGateway);
  expect_none(message.add(RTA_OIF, number_bytes(if_nametoindex("lo") + 1)));
}

TEST_F(DumpRoute, RefusesARouteWithoutAGateway) { expect_none(route().add(RTA_OIF, loopback())); }

TEST_F(DumpRoute, RefusesAnotherFamily) {
  for (const std::uint8_t family : std::vector<std::uint8_t>{0, AF_INET, 255}) {
    NetlinkMessage message(RTM_NEWROUTE, 0, route_body(family));
    expect_none(message.add(RTA_GATEWAY, address_bytes(kGateway)));
  }
}

TEST_F(DumpRoute, CountsAGatewayOfFewerThan16BytesAsAbsent) {
  for (const std::size_t size : {0U, 4U, 15U}) {
    expect_none(route().add(RTA_GATEWAY, address_bytes(kGateway).substr(0, size)));
  }
  expect_gateway(route().add(RTA_GATEWAY, address_bytes(kGateway) + "more"), kGateway);
}

TEST_F(DumpRoute, CountsAnOutputInterfaceOfFewerThan4BytesAsAbsent) {
  const std::string other = number_bytes(0xFFFFFFFF);
  for (const std::size_t size : {0U, 3U}) {
    NetlinkMessage message = route_via(kGateway);
    expect_gateway(message.add(RTA_OIF, other.substr(0, size)), kGateway);
  }
  NetlinkMessage message = route_via(kGateway);
  expect_none(message.add(RTA_OIF, other));
}

TEST_F(DumpRoute, TakesTheLastOfSeveralAttributesOfOneType) {
  NetlinkMessage message = route_via("2001:db8::7");
  message.add(RTA_OIF, number_bytes(0xFFFFFFFF)).add(RTA_OIF, loopback());
  expect_gateway(message.add(RTA_GATEWAY, address_bytes(kGateway)), kGateway);
}

TEST_F(DumpRoute, EndsAtAnAttributeThatCannotBe) {
  for (const std::uint16_t length : std::vector<std::uint16_t>{0, 3, 9, 0xFFFF}) {
    NetlinkMessage after = route();
    expect_none(after.add_claiming(length, RTA_PRIORITY, "").add(RTA_GATEWAY, address_bytes(kGateway)));
  }
  for (const std::uint16_t length : std::vector<std::uint16_t>{0, 3, 21, 0xFFFF}) {
    expect_none(route().add_claiming(length, RTA_GATEWAY, address_bytes(kGateway)));
  }
}

TEST_F(DumpRoute, ReadsAGatewayAfterAnAttributeOfOddLength) {
  expect_gateway(route().add(RTA_PRIORITY, "odd..").add(RTA_GATEWAY, address_bytes(kGateway)), kGateway);
}

TEST_F(DumpRoute, LogsAMessageTooShortForARoute) {
  struct Case {
    std::size_t length;
    const char* line;
  };
  for (const Case& c :
       {Case{27, "Wrong message length:27:-1:28\n"}, Case{20, "Wrong message length:20:-8:28\n"},
        Case{16, "Wrong message length:16:-12:28\n"}, Case{0, "Wrong message length:0:-28:28\n"},
        Case{0xFFFFFFFF, "Wrong message length:-1:-29:28\n"}}) {
    EXPECT_EQ(dump(route().claiming(c.length)), -1);
    EXPECT_EQ(log.count(LOG_LVL_ERR, kRoute, c.line), 1) << log.dump();
  }
  EXPECT_EQ(log.lines().size(), 5U) << log.dump();
  EXPECT_TRUE(text.untouched());
}

TEST_F(DumpRoute, ReadsNoBodyOfAMessageTooShortForIt) {
  NetlinkMessage done(NLMSG_DONE, NLM_F_MULTI);
  EXPECT_EQ(dump(done.bytes()), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kRoute, "Wrong message length:16:-12:28\n"), 1) << log.dump();
}

TEST_F(DumpRoute, FindsNothingInABareRoute) {
  EXPECT_EQ(route().bytes().size(), 28U);
  expect_none(route());
}

TEST_F(DumpRoute, LogsAnUnknownInterfaceWithoutItsName) {
  for (const char* name : {"missing", "", "averylonginterfacename", "lo.............."}) {
    log.clear();
    EXPECT_EQ(dump(route_via(kGateway).bytes(), name), -1);
    EXPECT_EQ(log.count(LOG_LVL_ERR, kRoute, "Can't map iface name() to index\n"), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  }
  EXPECT_TRUE(text.untouched());
}

TEST_F(DumpRoute, LooksAtTheLengthBeforeTheInterface) {
  EXPECT_EQ(dump(route().claiming(27), "missing"), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "Wrong message length:27:-1:28\n"), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
}

TEST_F(DumpRoute, ReadsAMessageOfAnyAlignment) {
  const std::string message = "x" + route_via(kGateway).bytes();
  const ExactBuffer bytes(message, message.size() + 1);
  EXPECT_EQ(kelo_dump_route(reinterpret_cast<const nlmsghdr*>(bytes.data() + 1), "lo", text.data()), 0);
  EXPECT_STREQ(text.data(), kGateway);
}

TEST_F(DumpRoute, LogsNullArguments) {
  const std::string message = route_via(kGateway).bytes();
  const auto* const header = reinterpret_cast<const nlmsghdr*>(message.data());
  EXPECT_EQ(kelo_dump_route(nullptr, "lo", text.data()), -1);
  EXPECT_EQ(kelo_dump_route(header, nullptr, text.data()), -1);
  EXPECT_EQ(kelo_dump_route(header, "lo", nullptr), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kRoute, "kelo_dump_route param NULL\n"), 3) << log.dump();
  EXPECT_TRUE(text.untouched());
}

}  // namespace
