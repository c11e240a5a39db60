// SPDX-License-Identifier: MIT
// A chapter of the demo: an AT command, a USSD reply, the address of the bridge.
#include "tools/demo/network.hpp"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "kelo_utils/app_common.h"
#include "kelo_utils/app_os_al.h"
#include "tools/demo/claims.hpp"
#include "tools/demo/store_files.hpp"
#include "tools/modem/modem.hpp"

namespace kelo::demo {
namespace {

constexpr const char* kBridge = "br0";
constexpr const char* kBridgeAddress = "192.168.8.1";

// Requests to the kernel about the interfaces of the sandbox's network, which it may administer.
class Interfaces {
 public:
  Interfaces() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
  ~Interfaces() { close(socket_); }
  Interfaces(const Interfaces&) = delete;
  Interfaces& operator=(const Interfaces&) = delete;

  [[nodiscard]] bool bring_up(const char* name) const {
    ifreq request = about(name);
    request.ifr_flags = IFF_UP;
    return ioctl(socket_, SIOCSIFFLAGS, &request) == 0;
  }

  // Null where the kernel makes no bridges.
  [[nodiscard]] std::optional<bool> add_bridge(const char* name, const char* address) const {
    ifreq request = about(name);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    inet_pton(AF_INET, address, &own.sin_addr);
    std::memcpy(&request.ifr_addr, &own, sizeof own);
    if (ioctl(socket_, SIOCBRADDBR, name) != 0) {
      if (errno == ENOSYS || errno == ENOPKG) return std::nullopt;
      return false;
    }
    return ioctl(socket_, SIOCSIFADDR, &request) == 0;
  }

 private:
  static ifreq about(const char* name) {
    ifreq request{};
    kelo_strlcpy(request.ifr_name, name, sizeof request.ifr_name);
    return request;
  }

  const int socket_;
};

struct Free {
  void operator()(char* text) const { std::free(text); }
};

// Control characters as a programmer writes them.
std::string quoted(const std::string& text) {
  std::string shown = "\"";
  for (const char c : text) {
    if (c == '\r') {
      shown += "\\r";
    } else if (c == '\n') {
      shown += "\\n";
    } else {
      shown += c;
    }
  }
  return shown + '"';
}

void ask_modem() {
  const modem::Modem modem(
      modem::read_script("command AT+CGSN\n"
                         "  send echo \"\\r\\r\\n861536030196001\\r\\n\"\n"
                         "  send \"OK\\r\\n\"\n"));
  const std::unique_ptr<char, Free> reply(kelo_util_send_at("at+cgsn\n"));
  const auto commands = modem.received();
  claim(commands.size() == 1 && commands[0] == "AT+CGSN\r", "the modem is sent %s",
        commands.empty() ? "nothing" : quoted(commands[0]).c_str());
  claim(std::string(reply.get()) == "861536030196001\r\nOK\r\n",
        "its echoed reply in two datagrams comes back as %s", quoted(reply.get()).c_str());
}

void decode_ussd() {
  // "Balance: 5 £" in packed septets.
  static constexpr std::array<std::uint8_t, 11> kPacked = {0xC2, 0x30, 0x3B, 0xEC, 0x1E, 0x97,
                                                           0x75, 0xA0, 0x1A, 0x28, 0x00};
  std::array<std::uint8_t, 16> septets{};
  const int count = kelo_util_ussd_unpack(septets.data(), septets.size(), kPacked.data(), kPacked.size());
  std::array<char, 64> text{};
  const int length =
      kelo_util_convert_ussd_string_to_utf8(0x0F, kPacked.data(), kPacked.size(), text.data(), text.size());
  claim(length == static_cast<int>(std::strlen(text.data())) && std::string(text.data()) == "Balance: 5 £",
        "a USSD reply of %zu octets, %d septets, reads \"%s\"", kPacked.size(), count, text.data());
}

void find_bridge(const Interfaces& interfaces) {
  const std::optional<bool> added = interfaces.add_bridge(kBridge, kBridgeAddress);
  if (!added) {
    tell("left out: the search for the LAN bridge, since this machine makes no bridges");
    return;
  }
  claim(*added, "the router's LAN bridge is %s", kBridge);
  std::uint32_t address = 0;
  const int found = kelo_util_get_main_bridge_addr(&address);
  std::array<char, 16> text{};
  ConvertIPv4NumToStr(ntohl(address), text.data(), text.size());
  claim(found == 0 && std::string(text.data()) == kBridgeAddress, "its address is found: %s", text.data());
}

}  // namespace

void network() {
  chapter("On the network: an AT command, a USSD reply, the bridge's address");
  life([] {
    hide_log();
    const Interfaces interfaces;
    claim(interfaces.bring_up("lo"), "a network of the demo's own, with a loopback");
    ask_modem();
    decode_ussd();
    find_bridge(interfaces);
  });
}

}  // namespace kelo::demo
