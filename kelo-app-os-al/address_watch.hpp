// The part of the address query that reads what the kernel announces.
#ifndef KELO_APP_OS_AL_ADDRESS_WATCH_HPP
#define KELO_APP_OS_AL_ADDRESS_WATCH_HPP

#include "kelo-app-os-al/rtnl_chain.hpp"

namespace kelo::os {

// Writes the addresses that a datagram announces for the interface into a buffer of 40 bytes, each over the
// one before, up to the first that does not begin with fe80. Whether there was such a one.
bool find_global_address(ByteSpan datagram, unsigned interface_index, char* text);

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_ADDRESS_WATCH_HPP
