// Sockets to the kernel's routing family.
#ifndef KELO_APP_OS_AL_RTNL_SOCKET_HPP
#define KELO_APP_OS_AL_RTNL_SOCKET_HPP

#include <cstdint>

#include "base/file.hpp"

namespace kelo::os {

// An empty Descriptor on failure, which is logged under the name of the calling operation.
base::Descriptor open_rtnl_socket(const char* operation);

// Port id 0 lets the kernel choose one. False on failure, logged as above.
bool bind_rtnl_socket(const base::Descriptor& socket, std::uint32_t port_id, std::uint32_t groups,
                      const char* operation);

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_RTNL_SOCKET_HPP
