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

namespace kelo::tests {
namespace {

// A request to the kernel's routing family: header, fixed part, attributes.
class Request {
 public:
  template <typename Body>
  Request(std::uint16_t type, std::uint16_t flags, const Body& body) {
    nlmsghdr header{};
    header.nlmsg_type = type;
    header.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    append(&header, sizeof header);
    append(&body, sizeof body);
  }

  void add(std::uint16_t type, const void* value, std::size_t size) {
    const std::size_t start = open(type);
    append(value, size);
    close(start);
  }
  void add(std::uint16_t type, const std::string& text) { add(type, text.c_str(), text.size() + 1); }

  // An attribute that holds what is appended until it is closed.
  std::size_t open(std::uint16_t type) {
    const std::size_t start = bytes_.size();
    const rtattr attribute{0, type};
    append(&attribute, sizeof attribute);
    return start;
  }
  void close(std::size_t start) {
    const auto length = static_cast<std::uint16_t>(bytes_.size() - start);
    std::memcpy(bytes_.data() + start, &length, sizeof length);
    bytes_.resize(NLMSG_ALIGN(bytes_.size()));
  }

  template <typename Body>
  void append_body(const Body& body) {
    append(&body, sizeof body);
  }

  // Sends it and expects the kernel to comply.
  void send(const std::string& what) {
    const auto length = static_cast<std::uint32_t>(bytes_.size());
    std::memcpy(bytes_.data(), &length, sizeof length);
    const int kernel = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    ASSERT_GE(kernel, 0) << std::strerror(errno);
    EXPECT_EQ(::send(kernel, bytes_.data(), bytes_.size(), 0), static_cast<ssize_t>(bytes_.size()));
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

 private:
  void append(const void* value, std::size_t size) { bytes_.append(static_cast<const char*>(value), size); }

  std::string bytes_;
};

ifinfomsg existing_interface(const std::string& name) {
  ifinfomsg link{};
  link.ifi_index = static_cast<int>(if_nametoindex(name.c_str()));
  EXPECT_NE(link.ifi_index, 0) << name;
  return link;
}

constexpr std::uint16_t kMakeNew = NLM_F_CREATE | NLM_F_EXCL;

}  // namespace

void add_bridge(const std::string& name) {
  Request request(RTM_NEWLINK, kMakeNew, ifinfomsg{});
  request.add(IFLA_IFNAME, name);
  const std::size_t info = request.open(IFLA_LINKINFO);
  request.add(IFLA_INFO_KIND, "bridge");
  request.close(info);
  request.send("bridge " + name);
}

void add_veth_pair(const std::string& name, const std::string& peer) {
  Request request(RTM_NEWLINK, kMakeNew, ifinfomsg{});
  request.add(IFLA_IFNAME, name);
  const std::size_t info = request.open(IFLA_LINKINFO);
  request.add(IFLA_INFO_KIND, "veth");
  const std::size_t data = request.open(IFLA_INFO_DATA);
  const std::size_t other_end = request.open(VETH_INFO_PEER);
  request.append_body(ifinfomsg{});
  request.add(IFLA_IFNAME, peer);
  request.close(other_end);
  request.close(data);
  request.close(info);
  request.send("veth pair " + name + " " + peer);
}

void remove_interface(const std::string& name) {
  Request(RTM_DELLINK, 0, existing_interface(name)).send("no " + name);
}

void bring_up(const std::string& name) {
  ifinfomsg link = existing_interface(name);
  link.ifi_flags = IFF_UP;
  link.ifi_change = IFF_UP;
  Request(RTM_NEWLINK, 0, link).send(name + " up");
}

void add_address(const std::string& name, const std::string& address, int prefix_length) {
  const bool is_v6 = address.find(':') != std::string::npos;
  ifaddrmsg body{};
  body.ifa_family = is_v6 ? AF_INET6 : AF_INET;
  body.ifa_prefixlen = static_cast<std::uint8_t>(prefix_length);
  body.ifa_flags = is_v6 ? IFA_F_NODAD : 0;
  body.ifa_index = static_cast<std::uint32_t>(existing_interface(name).ifi_index);
  std::array<std::uint8_t, sizeof(in6_addr)> bytes{};
  ASSERT_EQ(inet_pton(body.ifa_family, address.c_str(), bytes.data()), 1) << address;
  const std::size_t size = is_v6 ? sizeof(in6_addr) : sizeof(in_addr);
  Request request(RTM_NEWADDR, kMakeNew, body);
  request.add(IFA_LOCAL, bytes.data(), size);
  request.add(IFA_ADDRESS, bytes.data(), size);
  request.send(name + " " + address);
}

}  // namespace kelo::tests
