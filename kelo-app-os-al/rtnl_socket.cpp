// SPDX-License-Identifier: MIT
// Sockets of the routing family of netlink.
#include "kelo-app-os-al/rtnl_socket.hpp"

#include <linux/netlink.h>
#include <sys/socket.h>

#include <cerrno>

#include "log/library_log.hpp"

namespace kelo::os {

base::Descriptor open_rtnl_socket(const char* operation) {
  base::Descriptor opened(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  if (!opened) KELO_LOG_AS(operation, LOG_LVL_ERR, "couldn't open NETLINK_ROUTE socket:%d\n", errno);
  return opened;
}

bool bind_rtnl_socket(const base::Descriptor& socket, std::uint32_t port_id, std::uint32_t groups,
                      const char* operation) {
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_pid = port_id;
  address.nl_groups = groups;
  if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return true;
  KELO_LOG_AS(operation, LOG_LVL_ERR, "couldn't bind:%d\n", errno);
  return false;
}

}  // namespace kelo::os
