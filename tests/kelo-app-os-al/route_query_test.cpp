// SPDX-License-Identifier: MIT
// The IPv6 gateway of an interface, on real routes, and when the system calls before the answer fail.
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <set>
#include <sstream>
#include <string>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/gateway_query.hpp"
#include "tests/support/interfaces.hpp"

namespace {

using namespace std::string_literals;
using kelo::tests::add_address;
using kelo::tests::add_route;
using kelo::tests::Fault;
using kelo::tests::GatewayQuery;
using kelo::tests::Link;
using kelo::tests::remove_interface;

constexpr char kQuery[] = "oem_get_ipv6_default_gw";
constexpr char kResponse[] = "oem_get_route_dump_response";
constexpr char kRoute[] = "oem_dump_route";
constexpr char kCannotMap[] = "Can't map iface name() to index\n";
constexpr char kGateway[] = "2001:db8::1";

// Real interfaces "wan" and "lan" with an address each.
class RealGateway : public GatewayQuery {
 protected:
  RealGateway() {
    add_address("wan", "2001:db8::2", 64);
    add_address("lan", "2001:db8:1::2", 64);
  }

 private:
  const Link wan_{"wan"};
  const Link lan_{"lan"};
};

TEST_F(RealGateway, IsThatOfTheDefaultRoute) {
  add_route("wan", "::", 0, kGateway);
  expect_text(kGateway, "wan");
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kRoute, "IPv6 gateway via 2001:db8::1\n"), 1) << log.dump();
  EXPECT_EQ(log.count_matching(LOG_LVL_DBUG, "Dump IPv6 default gateway:[1-9][0-9]+\n"), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 2U) << log.dump();
  EXPECT_EQ(log.lines()[0].function, kResponse);
}

TEST_F(RealGateway, IsThatOfAnyOtherRouteToo) {
  add_route("wan", "2001:db8:77::", 48, "2001:db8::3");
  expect_text("2001:db8::3", "wan");
}

TEST_F(RealGateway, CanBeLinkLocal) {
  add_address("wan", "fe80::2", 64);
  add_route("wan", "::", 0, "fe80::1");
  expect_text("fe80::1", "wan");
}

TEST_F(RealGateway, IsThatOfItsOwnInterface) {
  add_route("wan", "2001:db8:77::", 48, kGateway);
  add_route("lan", "2001:db8:88::", 48, "2001:db8:1::1");
  expect_text(kGateway, "wan");
  expect_text("2001:db8:1::1", "lan");
}

TEST_F(RealGateway, IsNotThatOfAnotherInterface) {
  add_route("lan", "::", 0, "2001:db8:1::1");
  expect_text("", "wan");
  EXPECT_EQ(log.count_containing(LOG_LVL_DBUG, "IPv6 gateway via"), 0) << log.dump();
}

TEST_F(RealGateway, IsNotThatOfAnIPv4Route) {
  add_address("wan", "192.0.2.2", 24);
  add_route("wan", "0.0.0.0", 0, "192.0.2.1");
  expect_text("", "wan");
}

TEST_F(RealGateway, OfAnUnknownInterfaceIsEmptyAndLoggedForEachRoute) {
  add_route("wan", "::", 0, kGateway);
  for (const char* name : {"missing", "", "averylonginterfacename", "wan............."}) {
    expect_text("", name);
    EXPECT_GE(log.count(LOG_LVL_ERR, kRoute, kCannotMap), 3) << log.dump();
    EXPECT_EQ(log.count_containing(LOG_LVL_DBUG, "IPv6 gateway via"), 0) << log.dump();
  }
}

TEST_F(RealGateway, IsSoughtInTheFirstDatagramOnly) {
  constexpr int kRoutes = 300;
  std::set<std::string> destinations;
  for (int i = 0; i < kRoutes; ++i) {
    std::ostringstream destination;
    destination << "2001:db8:1000:" << std::hex << i << "::";
    add_route("lan", destination.str(), 64);
  }
  add_route("wan", "2001:db8:ffff::", 64, kGateway);
  expect_text("", "wan");

  // Each message but those that are no routes logs one such line.
  expect_text("", "missing");
  EXPECT_GE(log.count(LOG_LVL_ERR, kRoute, kCannotMap), 10);
  EXPECT_LT(log.count(LOG_LVL_ERR, kRoute, kCannotMap), kRoutes);

  // The route is there: without those before it, it is found.
  remove_interface("lan");
  expect_text(kGateway, "wan");
}

TEST_F(GatewayQuery, LogsTheEndOfTheDumpAsAWrongLength) {
  // The loopback is down and has no route.
  expect_text("");
  EXPECT_EQ(log.count(LOG_LVL_ERR, kRoute, "Wrong message length:20:-8:28\n"), 1) << log.dump();
}

TEST_F(GatewayQuery, SendsOneRequestFromAnUnboundPort) {
  EXPECT_EQ(query(), 0);
  EXPECT_EQ(calls.socket_domain, AF_NETLINK);
  EXPECT_EQ(calls.socket_type, SOCK_RAW | SOCK_CLOEXEC);
  EXPECT_EQ(calls.socket_protocol, NETLINK_ROUTE);
  EXPECT_EQ(calls.bound.nl_family, AF_NETLINK);
  EXPECT_EQ(calls.bound.nl_pid, 0U);
  EXPECT_EQ(calls.bound.nl_groups, 0U);
  const std::string request =
      "\x1C\0\0\0\x1A\0\x01\x03\x31\x12\0\0\0\0\0\0"  // header
      "\x0A\0\0\0\0\0\0\0\0\x02\0\0"s;                // route
  EXPECT_EQ(calls.sent, request);
}

TEST_F(GatewayQuery, LogsNullArguments) {
  EXPECT_EQ(kelo_get_ipv6_default_gw(nullptr, text.data()), -1);
  EXPECT_EQ(kelo_get_ipv6_default_gw("lo", nullptr), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kQuery, "kelo_get_ipv6_default_gw param NULL\n"), 2) << log.dump();
  EXPECT_EQ(log.lines().size(), 2U) << log.dump();
  EXPECT_TRUE(text.untouched());
}

TEST_F(GatewayQuery, LogsASocketThatCannotBeOpened) {
  const Fault fault({"socket", EMFILE});
  EXPECT_EQ(query(), -1);
  EXPECT_EQ(
      log.count(LOG_LVL_ERR, kQuery, "couldn't open NETLINK_ROUTE socket:" + std::to_string(EMFILE) + "\n"),
      1);
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_TRUE(text.untouched());
}

TEST_F(GatewayQuery, LogsASocketThatCannotBeBound) {
  const Fault fault({"bind", EADDRINUSE});
  EXPECT_EQ(query(), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kQuery, "couldn't bind:" + std::to_string(EADDRINUSE) + "\n"), 1);
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_TRUE(text.untouched());
}

TEST_F(GatewayQuery, LogsARequestThatCannotBeSent) {
  const Fault fault({"send", ENOBUFS});
  EXPECT_EQ(query(), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kQuery, "Failed to perfom request\n"), 1);
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_TRUE(text.untouched());
}

}  // namespace
