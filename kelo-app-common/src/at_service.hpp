// SPDX-License-Identifier: MIT
// Where the modem's AT service is, and whose datagrams are its answers.
#ifndef KELO_APP_COMMON_AT_SERVICE_HPP
#define KELO_APP_COMMON_AT_SERVICE_HPP

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>

namespace kelo::at {

inline constexpr std::uint16_t kServicePort = 5555;

inline bool is_of_this_host(const sockaddr_in& sender) {
  return ntohl(sender.sin_addr.s_addr) >> IN_CLASSA_NSHIFT == IN_LOOPBACKNET;
}

inline sockaddr_in service_address() {
  sockaddr_in service{};
  service.sin_family = AF_INET;
  service.sin_port = htons(kServicePort);
  service.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return service;
}

}  // namespace kelo::at

#endif  // KELO_APP_COMMON_AT_SERVICE_HPP
