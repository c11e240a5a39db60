// SPDX-License-Identifier: MIT
// A daemon on the network: what it shares with the modem and the router's LAN.
#ifndef KELO_DEMO_NETWORK_HPP
#define KELO_DEMO_NETWORK_HPP

namespace kelo::demo {

// An AT command that a scripted modem answers, a USSD reply in its packed form, and the LAN bridge's address.
void network();

}  // namespace kelo::demo

#endif  // KELO_DEMO_NETWORK_HPP
