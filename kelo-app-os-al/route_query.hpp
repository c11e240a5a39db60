// The part of the gateway query that reads what the kernel has answered.
#ifndef KELO_APP_OS_AL_ROUTE_QUERY_HPP
#define KELO_APP_OS_AL_ROUTE_QUERY_HPP

#include <cstdint>

#include "kelo-app-os-al/rtnl_chain.hpp"

namespace kelo::os {

// Looks through one datagram of a route dump and writes the first gateway of the interface into a buffer of
// 46 bytes; none leaves it alone. Index 0 stands for an interface that does not exist. Never returns from a
// datagram whose `sender`, a port id, is not the kernel's 0.
void find_gateway(ByteSpan datagram, std::uint32_t sender, unsigned interface_index, char* gateway);

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_ROUTE_QUERY_HPP
