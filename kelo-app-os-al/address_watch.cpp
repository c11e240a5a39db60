// SPDX-License-Identifier: MIT
// Waits for the kernel to announce a global IPv6 address of an interface.
#include "kelo-app-os-al/address_watch.hpp"

#include <linux/if_addr.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/deadline.hpp"
#include "kelo-app-os-al/rtnl_socket.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"

namespace kelo::os {
namespace {

constexpr std::uint32_t kGroups = RTMGRP_IPV6_IFADDR | RTMGRP_IPV6_PREFIX;
constexpr std::size_t kDatagramSize = 4096;
constexpr std::size_t kMostEvents = 32;
constexpr int kEventTimeoutMilliseconds = 2000;
constexpr timeval kReceiveTimeout = {1, 0};

// The function name in the messages about a datagram.
constexpr char kHandleDatagram[] = "kelo_nl_netlink_handle";

// Writes all 8 groups with 4 digits each, because callers compare the whole text.
void write_in_full(const in6_addr& address, char* text) {
  constexpr char kDigits[] = "0123456789abcdef";
  for (std::size_t i = 0; i < sizeof address.s6_addr; ++i) {
    if (i != 0 && i % 2 == 0) *text++ = ':';
    *text++ = kDigits[address.s6_addr[i] >> 4U];
    *text++ = kDigits[address.s6_addr[i] & 0xFU];
  }
  *text = '\0';
}

// Only fe80 is tested: the other prefixes of fe80::/10 are not in use, and callers accept addresses with them.
bool begins_with_fe80(const in6_addr& address) {
  return address.s6_addr[0] == 0xFE && address.s6_addr[1] == 0x80;
}

bool find_in_message(ByteSpan message, unsigned interface_index, char* text) {
  const ByteSpan payload = after(message, sizeof(nlmsghdr));
  const auto body = leading<ifaddrmsg>(payload);
  if (!body || body->ifa_index != interface_index) return false;
  RtnlAttributes attributes(after(payload, sizeof *body));
  while (const auto attribute = attributes.next()) {
    if (attribute->header.rta_type != IFA_ADDRESS) continue;
    const auto address = leading<in6_addr>(attribute->payload());
    if (!address) continue;
    write_in_full(*address, text);
    if (begins_with_fe80(*address)) continue;
    KELO_LOG_AS(kHandleDatagram, LOG_LVL_DBUG, "Return IPv6 addr:%s scope:%d\n", text, body->ifa_scope);
    KELO_LOG_AS(kHandleDatagram, LOG_LVL_DBUG, "Get IPv6 address\n");
    return true;
  }
  return false;
}

// Reads until nothing arrives for the receive timeout of the socket. The event is edge-triggered, so it reports only
// the first of several datagrams.
bool kelo_nl_netlink_handle(const base::Descriptor& socket, unsigned interface_index, char* text) {
  std::array<unsigned char, kDatagramSize> datagram;  // the stack protector guards arrays of characters only
  for (;;) {
    const ssize_t length = ::recvfrom(socket.get(), datagram.data(), datagram.size(), 0, nullptr, nullptr);
    if (length < 0) return false;
    KELO_LOG_AS(kHandleDatagram, LOG_LVL_DBUG, "rx len:%d \n", static_cast<int>(length));
    const ByteSpan received = std::as_bytes(std::span(datagram.data(), static_cast<std::size_t>(length)));
    if (find_global_address(received, interface_index, text)) return true;
  }
}

void kelo_epoll_event_handle(const base::Descriptor& events, const base::Descriptor& socket,
                             unsigned interface_index, char* text) {
  std::array<epoll_event, kMostEvents> ready;
  int timeout = kEventTimeoutMilliseconds;
  base::Deadline end(kEventTimeoutMilliseconds);
  for (;;) {
    const int count = epoll_wait(events.get(), ready.data(), kMostEvents, timeout);
    if (count == 0) {
      KELO_LOG(LOG_LVL_ERR, "Timeout to wait for IPv6 event\n");
      return;
    }
    KELO_LOG(LOG_LVL_DBUG, "Process fd count:%d\n", count);
    if (count < 0) {  // repeated signals must not make the wait endless
      timeout = end.milliseconds_left();
      continue;
    }
    for (const epoll_event& event : std::span(ready).first(static_cast<std::size_t>(count))) {
      if (event.data.fd != socket.get() || (event.events & EPOLLIN) == 0) continue;
      if (kelo_nl_netlink_handle(socket, interface_index, text)) return;
    }
    timeout = kEventTimeoutMilliseconds;
    end = base::Deadline(kEventTimeoutMilliseconds);
  }
}

bool add_to_events(const base::Descriptor& events, const base::Descriptor& socket) {
  epoll_event event{};
  event.events = EPOLLIN | EPOLLET;
  event.data.fd = socket.get();
  return epoll_ctl(events.get(), EPOLL_CTL_ADD, socket.get(), &event) == 0;
}

}  // namespace

bool find_global_address(ByteSpan datagram, unsigned interface_index, char* text) {
  RtnlMessages messages(datagram);
  while (const auto message = messages.next()) {
    if (message->header.nlmsg_type == NLMSG_DONE) return false;
    if (message->header.nlmsg_type != RTM_NEWADDR) continue;
    if (find_in_message(message->bytes, interface_index, text)) return true;
  }
  return false;
}

}  // namespace kelo::os

int kelo_check_global_ipv6_addr(const char* interface_name, char* address) {
  if (interface_name == nullptr || address == nullptr) {
    kelo::log::param_null(__func__);
    return 1;
  }
  const unsigned interface_index = if_nametoindex(interface_name);
  if (interface_index == 0) {
    KELO_LOG(LOG_LVL_ERR, "if_nametoindex failed:%s\n", interface_name);
    return 1;
  }
  const kelo::base::Descriptor events(epoll_create1(EPOLL_CLOEXEC));
  if (!events) {
    KELO_LOG(LOG_LVL_ERR, "epoll create failure:%d\n", errno);
    return 1;
  }
  const kelo::base::Descriptor socket = kelo::os::open_rtnl_socket(__func__);
  if (!socket) return 1;
  // The call can fail only for wrong arguments.
  (void)setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &kelo::os::kReceiveTimeout,
                   sizeof kelo::os::kReceiveTimeout);
  const auto process = static_cast<std::uint32_t>(getpid());
  if (!kelo::os::bind_rtnl_socket(socket, process, kelo::os::kGroups, __func__)) return 1;
  if (!kelo::os::add_to_events(events, socket)) {
    KELO_LOG(LOG_LVL_ERR, "epoll add sock_fd error\n");
    return 1;
  }
  kelo::os::kelo_epoll_event_handle(events, socket, interface_index, address);
  return 0;
}
