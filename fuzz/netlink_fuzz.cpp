// SPDX-License-Identifier: MIT
// What the kernel's routing family sends, as any sender might write it: the index of attributes, one route,
// the routes of a datagram, and the addresses of one.
#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

#include "fuzz/input.hpp"
#include "kelo-app-os-al/address_watch.hpp"
#include "kelo-app-os-al/route_query.hpp"
#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"

using kelo::fuzz::require;

namespace {

constexpr unsigned kInterface = 1;
constexpr int kHighestType = 29;
using Bytes = std::vector<std::uint8_t>;

// Each attribute in the table lies in the bytes, as a whole, and is of its type.
void index_attributes(Bytes bytes) {
  std::vector<rtattr*> table(kHighestType + 1);
  auto* const first = reinterpret_cast<rtattr*>(bytes.data());
  if (first == nullptr) return;
  kelo_parse_rtattr(table.data(), kHighestType, first, static_cast<int>(bytes.size()));
  for (std::size_t type = 0; type < table.size(); ++type) {
    if (table[type] == nullptr) continue;
    const auto offset = static_cast<std::size_t>(reinterpret_cast<std::uint8_t*>(table[type]) - bytes.data());
    rtattr found;
    require(offset % RTA_ALIGNTO == 0 && bytes.size() - offset >= sizeof found);
    std::memcpy(&found, bytes.data() + offset, sizeof found);
    require(found.rta_type == type && found.rta_len >= sizeof found &&
            found.rta_len <= bytes.size() - offset);
  }
}

// A gateway is an address as inet_ntop() writes it.
void require_gateway(const std::vector<char>& text) {
  in6_addr address;
  std::array<char, INET6_ADDRSTRLEN> again;
  require(inet_pton(AF_INET6, text.data(), &address) == 1);
  require(inet_ntop(AF_INET6, &address, again.data(), again.size()) != nullptr);
  require(std::strcmp(text.data(), again.data()) == 0);
}

void read_routes(std::span<const std::byte> datagram) {
  std::vector<char> text(INET6_ADDRSTRLEN, '\0');
  kelo::os::find_gateway(datagram, 0, kInterface, text.data());
  if (text[0] != '\0') require_gateway(text);

  std::vector<char> of_none(INET6_ADDRSTRLEN, 'x');
  kelo::os::find_gateway(datagram, 0, 0, of_none.data());
  require(of_none == std::vector<char>(INET6_ADDRSTRLEN, 'x'));
}

void read_addresses(std::span<const std::byte> datagram) {
  std::vector<char> text(40, '\0');
  const bool found = kelo::os::find_global_address(datagram, kInterface, text.data());
  require(!found || (text[0] != '\0' && std::strncmp(text.data(), "fe80", 4) != 0));
  if (text[0] == '\0') return;
  in6_addr address;
  require(std::strlen(text.data()) == 39 && inet_pton(AF_INET6, text.data(), &address) == 1);
  require(found || std::strncmp(text.data(), "fe80", 4) == 0);
}

// The message contains its own length: it gets as many bytes as it says, or is too short for a route.
void read_route(Bytes message) {
  if (message.size() < sizeof(nlmsghdr)) return;
  const auto length = static_cast<std::uint32_t>(message.size());
  std::memcpy(message.data(), &length, sizeof length);
  std::vector<char> text(INET6_ADDRSTRLEN, '\0');
  const auto* const header = reinterpret_cast<const nlmsghdr*>(message.data());
  const int result = kelo_dump_route(header, "lo", text.data());
  require((result == 0) == (text[0] != '\0'));
  if (result == 0) require_gateway(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kelo_set_log_level(LOG_LVL_EMR);
  const Bytes bytes = kelo::fuzz::Input(data, size).rest();
  const auto datagram = std::as_bytes(std::span(bytes));
  read_routes(datagram);
  read_addresses(datagram);
  index_attributes(bytes);
  read_route(bytes);
  return 0;
}
