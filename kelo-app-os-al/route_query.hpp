// SPDX-License-Identifier: MIT
// Reads the answer of the kernel to a query for the gateway.
#ifndef KELO_APP_OS_AL_ROUTE_QUERY_HPP
#define KELO_APP_OS_AL_ROUTE_QUERY_HPP

#include <cstdint>

#include "kelo-app-os-al/rtnl_chain.hpp"

namespace kelo::os {

// Writes the first gateway of the interface in a datagram of a route dump into `gateway`, a buffer of 46 bytes.
// Without a gateway the buffer is unchanged. Index 0 means that the interface does not exist. If `sender`, a port id,
// is not 0, which is the port id of the kernel, the function never returns.
void find_gateway(ByteSpan datagram, std::uint32_t sender, unsigned interface_index, char* gateway);

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_ROUTE_QUERY_HPP
