// SPDX-License-Identifier: MIT
// Finds the IPv6 gateway of an interface in the routes of the kernel.
#include "kelo-app-os-al/route_query.hpp"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

#include "base/heap.hpp"
#include "kelo-app-os-al/rtnl_socket.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace kelo::os {
namespace {

// The function names in the messages of steps that several functions share. They replace __func__ in the functions
// themselves, where it would be a second text.
constexpr char kDumpRoute[] = "kelo_dump_route";
constexpr char kReadResponse[] = "kelo_get_route_dump_response";

struct RouteRequest {
  nlmsghdr header;
  rtmsg route;
};
constexpr int kRouteHeaderSize = sizeof(RouteRequest);
static_assert(kRouteHeaderSize == 28);

constexpr std::uint32_t kSequenceNumber = 0x1231;

// Whether a route leads through the interface to a gateway. If so, the address of the gateway is written as text. If
// `length` is 28 or more, `message` must have that many bytes.
bool dump_route(const std::byte* message, std::int32_t length, unsigned interface_index, char* gateway) {
  if (length < kRouteHeaderSize) {
    const auto missing = static_cast<int>(std::int64_t{length} - kRouteHeaderSize);
    KELO_LOG_AS(kDumpRoute, LOG_LVL_ERR, "Wrong message length:%d:%d:%ld\n", length, missing,
                long{kRouteHeaderSize});
    return false;
  }
  if (interface_index == 0) {
    // Field tools search for this message, which has nothing between the brackets.
    KELO_LOG_AS(kDumpRoute, LOG_LVL_ERR, "Can't map iface name(%s) to index\n", "");
    return false;
  }
  const ByteSpan bytes(message, static_cast<std::size_t>(length));
  const auto route = leading<rtmsg>(after(bytes, sizeof(nlmsghdr)));
  if (!route || route->rtm_family != AF_INET6) return false;
  std::optional<std::uint32_t> output_interface;
  std::optional<in6_addr> address;
  RtnlAttributes attributes(after(bytes, kRouteHeaderSize));
  while (const auto attribute = attributes.next()) {
    if (attribute->header.rta_type == RTA_OIF)
      output_interface = leading<std::uint32_t>(attribute->payload());
    if (attribute->header.rta_type == RTA_GATEWAY) address = leading<in6_addr>(attribute->payload());
  }
  if (!address || (output_interface && *output_interface != interface_index)) return false;
  inet_ntop(AF_INET6, &*address, gateway, INET6_ADDRSTRLEN);
  KELO_LOG_AS(kDumpRoute, LOG_LVL_DBUG, "IPv6 gateway via %s\n", gateway);
  return true;
}

// Never returns. It sleeps, because an endless loop would use a whole processor.
[[noreturn]] void sleep_forever() {
  for (;;) poll(nullptr, 0, -1);
}

struct Reply {
  base::HeapPtr<std::byte[]> bytes;
  ssize_t length = 0;  // negative after an error
  std::uint32_t sender = 0;
};

ssize_t kelo_rtnl_receive(const base::Descriptor& socket, msghdr& message, int flags) {
  ssize_t length = 0;
  do {
    length = base::retry_interrupted([&] { return ::recvmsg(socket.get(), &message, flags); });
  } while (length == -1 && errno == EAGAIN);
  if (length < 0) KELO_LOG(LOG_LVL_ERR, "Can't receive from socket:%d\n", errno);
  if (length == 0) KELO_LOG(LOG_LVL_ERR, "EOF in the link\n");
  return length;
}

Reply kelo_rtnl_recvmsg(const base::Descriptor& socket) {
  sockaddr_nl sender{};
  iovec room{};
  msghdr message{};
  message.msg_name = &sender;
  message.msg_namelen = sizeof sender;
  message.msg_iov = &room;
  message.msg_iovlen = 1;

  Reply reply;
  reply.length = kelo_rtnl_receive(socket, message, MSG_PEEK | MSG_TRUNC);
  if (reply.length <= 0) return reply;
  room.iov_len = static_cast<std::size_t>(reply.length);
  reply.bytes = base::zeroed_array<std::byte>(room.iov_len);
  if (!reply.bytes) {
    KELO_LOG(LOG_LVL_ERR, "oem_MALLOC failed\n");
    reply.length = -ENOMEM;
    return reply;
  }
  room.iov_base = reply.bytes.get();
  reply.length = kelo_rtnl_receive(socket, message, 0);
  reply.sender = sender.nl_pid;
  return reply;
}

bool request_routes(const base::Descriptor& socket) {
  RouteRequest request{};
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = RTM_GETROUTE;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.header.nlmsg_seq = kSequenceNumber;
  request.route.rtm_family = AF_INET6;
  request.route.rtm_flags = RTM_F_CLONED;
  return ::send(socket.get(), &request, sizeof request, 0) >= 0;
}

void kelo_get_route_dump_response(const base::Descriptor& socket, unsigned interface_index, char* gateway) {
  const Reply reply = kelo_rtnl_recvmsg(socket);
  KELO_LOG_AS(kReadResponse, LOG_LVL_DBUG, "Dump IPv6 default gateway:%d\n", static_cast<int>(reply.length));
  if (reply.length <= 0) return;
  find_gateway({reply.bytes.get(), static_cast<std::size_t>(reply.length)}, reply.sender, interface_index,
               gateway);
}

}  // namespace

void find_gateway(ByteSpan datagram, std::uint32_t sender, unsigned interface_index, char* gateway) {
  RtnlMessages messages(datagram);
  while (const auto message = messages.next()) {
    if ((message->header.nlmsg_flags & NLM_F_DUMP_INTR) != 0) {
      KELO_LOG_AS(kReadResponse, LOG_LVL_ERR, "Dump was interrupted\n");
      return;
    }
    if (sender != 0) sleep_forever();
    if (message->header.nlmsg_type == NLMSG_ERROR) {
      KELO_LOG_AS(kReadResponse, LOG_LVL_ERR, "netlink reported error\n");
      return;
    }
    const auto length = static_cast<std::int32_t>(message->bytes.size());
    if (dump_route(message->bytes.data(), length, interface_index, gateway)) return;
  }
}

}  // namespace kelo::os

void kelo_parse_rtattr(rtattr** table, int max, rtattr* attribute, int remaining) {
  if (table == nullptr) {
    kelo::log::param_null(__func__);
    return;
  }
  if (max >= 0) std::fill_n(table, static_cast<std::size_t>(max) + 1, nullptr);
  if (attribute == nullptr) {
    kelo::log::param_null(__func__);
    return;
  }
  auto* const first = reinterpret_cast<std::byte*>(attribute);
  const kelo::os::ByteSpan bytes(first, static_cast<std::size_t>(std::max(remaining, 0)));
  kelo::os::RtnlAttributes attributes(bytes);
  while (const auto found = attributes.next()) {
    if (found->header.rta_type > max) continue;
    table[found->header.rta_type] = reinterpret_cast<rtattr*>(first + (found->bytes.data() - first));
  }
}

int kelo_dump_route(const nlmsghdr* message, const char* interface_name, char* gateway) {
  if (message == nullptr || interface_name == nullptr || gateway == nullptr)
    return kelo::log::param_null(kelo::os::kDumpRoute);
  const auto* const bytes = reinterpret_cast<const std::byte*>(message);
  std::int32_t length = 0;
  std::memcpy(&length, bytes + offsetof(nlmsghdr, nlmsg_len), sizeof length);
  return kelo::os::dump_route(bytes, length, if_nametoindex(interface_name), gateway) ? 0 : -1;
}

int kelo_get_ipv6_default_gw(const char* interface_name, char* gateway) {
  if (interface_name == nullptr || gateway == nullptr) return kelo::log::param_null(__func__);
  const kelo::base::Descriptor socket = kelo::os::open_rtnl_socket(__func__);
  if (!socket || !kelo::os::bind_rtnl_socket(socket, 0, 0, __func__)) return -1;
  if (!kelo::os::request_routes(socket)) {
    KELO_LOG(LOG_LVL_ERR, "Failed to perfom request\n");
    return -1;
  }
  gateway[0] = '\0';
  kelo::os::kelo_get_route_dump_response(socket, if_nametoindex(interface_name), gateway);
  return 0;
}
