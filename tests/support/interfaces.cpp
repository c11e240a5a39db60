// SPDX-License-Identifier: MIT
// Makes and removes interfaces in the private network of a test.
#include "tests/support/interfaces.hpp"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "tests/support/netlink_message.hpp"

namespace kelo::tests {
namespace {

// Sends a request and expects the kernel to comply.
void send(const NetlinkMessage& message, const std::string& what) {
  const std::string request = message.bytes();
  const int kernel = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  ASSERT_GE(kernel, 0) << std::strerror(errno);
  EXPECT_EQ(::send(kernel, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
  struct {
    nlmsghdr header;
    nlmsgerr error;
    std::array<char, 1024> request;
  } answer;
  const ssize_t received = recv(kernel, &answer, sizeof answer, 0);
  ::close(kernel);
  ASSERT_GE(received, static_cast<ssize_t>(NLMSG_LENGTH(sizeof answer.error))) << what;
  ASSERT_EQ(answer.header.nlmsg_type, NLMSG_ERROR) << what;
  EXPECT_EQ(answer.error.error, 0) << what << ": " << std::strerror(-answer.error.error);
}

ifinfomsg existing_interface(const std::string& name) {
  ifinfomsg link{};
  link.ifi_index = static_cast<int>(if_nametoindex(name.c_str()));
  EXPECT_NE(link.ifi_index, 0) << name;
  return link;
}

constexpr std::uint16_t kComply = NLM_F_REQUEST | NLM_F_ACK;
constexpr std::uint16_t kMakeNew = kComply | NLM_F_CREATE | NLM_F_EXCL;

void add_name(NetlinkMessage& request, const std::string& name) {
  request.add(IFLA_IFNAME, name.c_str(), name.size() + 1);
}

struct Address {
  std::uint8_t family;
  std::string bytes;
};

Address parse_address(const std::string& text) {
  const std::uint8_t family = text.find(':') != std::string::npos ? AF_INET6 : AF_INET;
  std::string bytes(family == AF_INET6 ? sizeof(in6_addr) : sizeof(in_addr), '\0');
  EXPECT_EQ(inet_pton(family, text.c_str(), bytes.data()), 1) << text;
  return {family, bytes};
}

}  // namespace

void add_bridge(const std::string& name) {
  NetlinkMessage request(RTM_NEWLINK, kMakeNew, ifinfomsg{});
  add_name(request, name);
  const std::size_t info = request.open(IFLA_LINKINFO);
  request.add(IFLA_INFO_KIND, "bridge");
  request.close(info);
  send(request, "bridge " + name);
}

void add_veth_pair(const std::string& name, const std::string& peer) {
  NetlinkMessage request(RTM_NEWLINK, kMakeNew, ifinfomsg{});
  add_name(request, name);
  const std::size_t info = request.open(IFLA_LINKINFO);
  request.add(IFLA_INFO_KIND, "veth");
  const std::size_t data = request.open(IFLA_INFO_DATA);
  const std::size_t other_end = request.open(VETH_INFO_PEER);
  request.append(ifinfomsg{});
  add_name(request, peer);
  request.close(other_end);
  request.close(data);
  request.close(info);
  send(request, "veth pair " + name + " " + peer);
}

void remove_interface(const std::string& name) {
  send(NetlinkMessage(RTM_DELLINK, kComply, existing_interface(name)), "no " + name);
}

void bring_up(const std::string& name) {
  ifinfomsg link = existing_interface(name);
  link.ifi_flags = IFF_UP;
  link.ifi_change = IFF_UP;
  send(NetlinkMessage(RTM_NEWLINK, kComply, link), name + " up");
}

void move_to_namespace_of(const std::string& name, int process) {
  NetlinkMessage request(RTM_NEWLINK, kComply, existing_interface(name));
  request.add(IFLA_NET_NS_PID, &process, sizeof process);
  send(request, name + " to another namespace");
}

void make_no_addresses(const std::string& name) {
  NetlinkMessage request(RTM_NEWLINK, kComply, existing_interface(name));
  const std::size_t families = request.open(IFLA_AF_SPEC);
  const std::size_t family = request.open(AF_INET6);
  request.add(IFLA_INET6_ADDR_GEN_MODE, std::string(1, IN6_ADDR_GEN_MODE_NONE));
  request.close(family);
  request.close(families);
  send(request, name + " without addresses of its own");
}

void add_address(const std::string& name, const std::string& address, int prefix_length,
                 const std::string& peer) {
  const Address own = parse_address(address);
  ifaddrmsg body{};
  body.ifa_family = own.family;
  body.ifa_prefixlen = static_cast<std::uint8_t>(prefix_length);
  body.ifa_flags = own.family == AF_INET6 ? IFA_F_NODAD : 0;
  body.ifa_index = static_cast<std::uint32_t>(existing_interface(name).ifi_index);
  NetlinkMessage request(RTM_NEWADDR, kMakeNew, body);
  request.add(IFA_LOCAL, own.bytes);
  request.add(IFA_ADDRESS, peer.empty() ? own.bytes : parse_address(peer).bytes);
  send(request, name + " " + address);
}

void add_route(const std::string& name, const std::string& destination, int prefix_length,
               const std::string& gateway) {
  const Address to = parse_address(destination);
  const int index = existing_interface(name).ifi_index;
  rtmsg body{};
  body.rtm_family = to.family;
  body.rtm_dst_len = static_cast<std::uint8_t>(prefix_length);
  body.rtm_table = RT_TABLE_MAIN;
  body.rtm_protocol = RTPROT_STATIC;
  body.rtm_scope = RT_SCOPE_UNIVERSE;
  body.rtm_type = RTN_UNICAST;
  NetlinkMessage request(RTM_NEWROUTE, kMakeNew, body);
  request.add(RTA_DST, to.bytes);
  request.add(RTA_OIF, &index, sizeof index);
  if (!gateway.empty()) request.add(RTA_GATEWAY, parse_address(gateway).bytes);
  send(request, destination + " dev " + name + " via " + gateway);
}

Link::Link(std::string name) : name_(std::move(name)) {
  const std::string far_end = name_ + "-far";
  add_veth_pair(name_, far_end);
  for (const std::string& end : {name_, far_end}) {
    make_no_addresses(end);
    bring_up(end);
  }
}

Link::~Link() {
  if (if_nametoindex(name_.c_str()) != 0) remove_interface(name_);
}

}  // namespace kelo::tests
