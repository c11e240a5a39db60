// SPDX-License-Identifier: MIT
// Sockets of the routing family of netlink.
#ifndef KELO_APP_OS_AL_RTNL_SOCKET_HPP
#define KELO_APP_OS_AL_RTNL_SOCKET_HPP

#include <cstdint>

#include "base/file.hpp"

namespace kelo::os {

// Returns an empty Descriptor on failure, and logs it under the name of the calling operation.
base::Descriptor open_rtnl_socket(const char* operation);

// Binds the socket. With port id 0 the kernel chooses a port id. Returns false on failure, which is logged as above.
bool bind_rtnl_socket(const base::Descriptor& socket, std::uint32_t port_id, std::uint32_t groups,
                      const char* operation);

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_RTNL_SOCKET_HPP
