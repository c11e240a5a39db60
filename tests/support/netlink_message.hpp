// SPDX-License-Identifier: MIT
// A netlink message under construction, well-formed or not.
#ifndef KELO_TESTS_SUPPORT_NETLINK_MESSAGE_HPP
#define KELO_TESTS_SUPPORT_NETLINK_MESSAGE_HPP

#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace kelo::tests {

class NetlinkMessage {
 public:
  NetlinkMessage(std::uint16_t type, std::uint16_t flags) {
    nlmsghdr header{};
    header.nlmsg_type = type;
    header.nlmsg_flags = flags;
    append(header);
  }
  template <typename Body>
  NetlinkMessage(std::uint16_t type, std::uint16_t flags, const Body& body) : NetlinkMessage(type, flags) {
    append(body);
  }

  template <typename Body>
  NetlinkMessage& append(const Body& body) {
    return append(&body, sizeof body);
  }
  NetlinkMessage& append(const void* bytes, std::size_t size) {
    bytes_.append(static_cast<const char*>(bytes), size);
    return *this;
  }

  NetlinkMessage& add(std::uint16_t type, const void* value, std::size_t size) {
    const std::size_t start = open(type);
    append(value, size);
    return close(start);
  }
  NetlinkMessage& add(std::uint16_t type, std::string_view value) {
    return add(type, value.data(), value.size());
  }

  // An attribute that says what length it likes, and then some bytes.
  NetlinkMessage& add_claiming(std::uint16_t length, std::uint16_t type, std::string_view value) {
    append(rtattr{length, type}).append(value.data(), value.size());
    bytes_.resize(NLMSG_ALIGN(bytes_.size()));
    return *this;
  }

  // An attribute that holds what is appended until it is closed.
  std::size_t open(std::uint16_t type) {
    const std::size_t start = bytes_.size();
    append(rtattr{0, type});
    return start;
  }
  NetlinkMessage& close(std::size_t start) {
    const auto length = static_cast<std::uint16_t>(bytes_.size() - start);
    std::memcpy(bytes_.data() + start, &length, sizeof length);
    bytes_.resize(NLMSG_ALIGN(bytes_.size()));
    return *this;
  }

  // The message with its length in its header.
  [[nodiscard]] std::string bytes() const { return claiming(bytes_.size()); }
  // The same with any length in its header.
  [[nodiscard]] std::string claiming(std::size_t length) const {
    std::string bytes = bytes_;
    const auto claimed = static_cast<std::uint32_t>(length);
    std::memcpy(bytes.data(), &claimed, sizeof claimed);
    return bytes;
  }

 private:
  std::string bytes_;
};

// Sends a datagram to the socket of that port id, as another process would: this takes CAP_NET_ADMIN.
inline void send_datagram(std::uint32_t port_id, const std::string& datagram) {
  const int peer = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
  sockaddr_nl to{};
  to.nl_family = AF_NETLINK;
  to.nl_pid = port_id;
  EXPECT_EQ(
      sendto(peer, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to),
      static_cast<ssize_t>(datagram.size()))
      << std::strerror(errno);
  close(peer);
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_NETLINK_MESSAGE_HPP
