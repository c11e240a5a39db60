// SPDX-License-Identifier: MIT
// Reads the kernel's announcements of IPv6 addresses.
#ifndef KELO_APP_OS_AL_ADDRESS_WATCH_HPP
#define KELO_APP_OS_AL_ADDRESS_WATCH_HPP

#include "kelo-app-os-al/rtnl_chain.hpp"

namespace kelo::os {

// Writes the addresses that a datagram announces for the interface into `text`, a buffer of 40 bytes. Each address
// overwrites the previous one. Returns true at the first address that does not begin with fe80.
bool find_global_address(ByteSpan datagram, unsigned interface_index, char* text);

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_ADDRESS_WATCH_HPP
