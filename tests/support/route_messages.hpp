// SPDX-License-Identifier: MIT
// Messages about IPv6 routes, as the kernel sends them or nearly so.
#ifndef KELO_TESTS_SUPPORT_ROUTE_MESSAGES_HPP
#define KELO_TESTS_SUPPORT_ROUTE_MESSAGES_HPP

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cstdint>
#include <string>

#include "tests/support/netlink_message.hpp"

namespace kelo::tests {

inline std::string address_bytes(const std::string& text) {
  std::string bytes(sizeof(in6_addr), '\0');
  EXPECT_EQ(inet_pton(AF_INET6, text.c_str(), bytes.data()), 1) << text;
  return bytes;
}

inline std::string number_bytes(std::uint32_t number) {
  return {reinterpret_cast<const char*>(&number), sizeof number};
}

inline rtmsg route_body(std::uint8_t family = AF_INET6) {
  rtmsg body{};
  body.rtm_family = family;
  return body;
}

inline NetlinkMessage route(std::uint16_t flags = NLM_F_MULTI) { return {RTM_NEWROUTE, flags, route_body()}; }

inline NetlinkMessage route_via(const std::string& gateway) {
  NetlinkMessage message = route();
  message.add(RTA_GATEWAY, address_bytes(gateway));
  return message;
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_ROUTE_MESSAGES_HPP
