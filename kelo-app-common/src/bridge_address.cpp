// SPDX-License-Identifier: MIT
// Finds the IPv4 address of the router's LAN bridge.
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <optional>

#include "base/file.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

// Messages about one interface carry this function name.
#define INTERFACE_LOG(level, ...) KELO_LOG_AS("kelo_util_get_if_addr", level, __VA_ARGS__)

namespace {

// The names of the bridge on the different platforms, in the order of preference.
constexpr char kBridgeNames[][8] = {"bridge0", "br-lan", "brlan0", "br0"};

// Returns the address in network byte order, or nothing when there is no such interface or it has no address.
std::optional<std::uint32_t> interface_address(const char* name) {
  if (name == nullptr || *name == '\0') {
    INTERFACE_LOG(LOG_LVL_ERR, "ifname is NULL\n");
    return std::nullopt;
  }
  ifreq request{};
  request.ifr_addr.sa_family = AF_INET;
  std::memcpy(request.ifr_name, name, strnlen(name, IFNAMSIZ));
  const kelo::base::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket) {
    INTERFACE_LOG(LOG_LVL_ERR, "sfd is invalid\n");
    return std::nullopt;
  }
  if (ioctl(socket.get(), SIOCGIFADDR, &request) != 0) return std::nullopt;
  sockaddr_in address{};
  std::memcpy(&address, &request.ifr_addr, sizeof address);
  return address.sin_addr.s_addr;
}

}  // namespace

int kelo_util_get_main_bridge_addr(std::uint32_t* if_addr) {
  if (if_addr == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "if_addr is NULL\n");
    return -1;
  }
  for (const auto& name : kBridgeNames) {
    if (const auto address = interface_address(name)) {
      KELO_LOG(LOG_LVL_DBUG, "getip:ifname=%s,ip=0x%X\n", name, *address);
      *if_addr = *address;
      return 0;
    }
  }
  return -1;
}
