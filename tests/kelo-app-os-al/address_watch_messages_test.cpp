// SPDX-License-Identifier: MIT
// The wait for an IPv6 address on notifications that a kernel seldom or never sends.
#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "tests/support/address_query.hpp"
#include "tests/support/netlink_message.hpp"
#include "tests/support/route_messages.hpp"

namespace {

using kelo::tests::address_bytes;
using kelo::tests::AddressQuery;
using kelo::tests::NetlinkMessage;
using kelo::tests::send_datagram;

constexpr char kGlobal[] = "2001:0db8:0000:0000:0000:0000:0000:0005";
constexpr char kOther[] = "2001:0db8:0000:0000:0000:0000:0000:0007";
constexpr char kLinkLocal[] = "fe80:0000:0000:0000:0000:0000:0000:0005";
constexpr std::size_t kDatagramSize = 4096;

ifaddrmsg body(std::uint8_t scope = 0) {
  ifaddrmsg message{};
  message.ifa_family = AF_INET6;
  message.ifa_scope = scope;
  message.ifa_index = if_nametoindex("lo");
  return message;
}

NetlinkMessage notification() { return {RTM_NEWADDR, 0, body()}; }

NetlinkMessage notification_of(const std::string& address) {
  NetlinkMessage message = notification();
  message.add(IFA_ADDRESS, address_bytes(address));
  return message;
}

class AddressMessages : public AddressQuery {
 protected:
  // What the query is sent, each in a datagram of its own.
  int query_on(const std::vector<std::string>& datagrams) {
    return query_while([&] {
      for (const std::string& datagram : datagrams)
        send_datagram(static_cast<std::uint32_t>(getpid()), datagram);
    });
  }

  void expect_address(const std::vector<std::string>& datagrams, const std::string& expected = kGlobal) {
    EXPECT_EQ(query_on(datagrams), 0);
    EXPECT_STREQ(text.data(), expected.c_str()) << log.dump();
    EXPECT_TRUE(found()) << log.dump();
  }

  void expect_none(const std::vector<std::string>& datagrams) {
    EXPECT_EQ(query_on(datagrams), 0);
    EXPECT_TRUE(text.untouched()) << text.data();
    EXPECT_TRUE(timed_out()) << log.dump();
    EXPECT_EQ(log.count_containing(LOG_LVL_DBUG, "rx len:"), static_cast<int>(datagrams.size()))
        << log.dump();
  }
};

TEST_F(AddressMessages, EachDatagramIsLoggedWithItsLength) {
  const std::string first = notification().bytes();
  const std::string second = notification_of(kGlobal).bytes();
  expect_address({first, second});
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 5U) << log.dump();
  EXPECT_EQ(lines[1].text, "rx len:" + std::to_string(first.size()) + " \n");
  EXPECT_EQ(lines[2].text, "rx len:" + std::to_string(second.size()) + " \n");
}

TEST_F(AddressMessages, AreReadOnlyWhenAnEventSaysThatThereIsInput) {
  struct Case {
    unsigned event;
    int beside_the_socket;
  };
  for (const Case& c : {Case{EPOLLERR, 0}, Case{EPOLLIN, 1}}) {
    calls.after_bind = [&](int socket) {
      send_datagram(static_cast<std::uint32_t>(getpid()), notification_of(kGlobal).bytes());
      epoll_event other{};
      other.events = c.event;
      other.data.fd = socket + c.beside_the_socket;
      calls.events = {other};
    };
    EXPECT_EQ(query(), 0);
    EXPECT_STREQ(text.data(), kGlobal);
    EXPECT_EQ(log.lines()[0].text, "Process fd count:1\n") << log.dump();
    EXPECT_EQ(log.lines()[1].text, "Process fd count:1\n") << log.dump();
  }
}

TEST_F(AddressMessages, TheScopeIsLoggedAndNotTested) {
  NetlinkMessage message(RTM_NEWADDR, 0, body(253));
  expect_address({message.add(IFA_ADDRESS, address_bytes(kGlobal)).bytes()});
  EXPECT_EQ(log.count(LOG_LVL_DBUG, "Return IPv6 addr:" + std::string(kGlobal) + " scope:253\n"), 1);
}

TEST_F(AddressMessages, EveryDigitIsWritten) {
  const std::string address = "0123:4567:89ab:cdef:fedc:ba98:7654:3210";
  expect_address({notification_of(address).bytes()}, address);
}

TEST_F(AddressMessages, OnlyFe80IsPassedOver) {
  for (const std::string prefix : {"fe81", "fe90", "febf", "fec0", "ff80", "0e80", "fd80"}) {
    const std::string address = prefix + ":0000:0000:0000:0000:0000:0000:0005";
    expect_address({notification_of(address).bytes()}, address);
  }
  EXPECT_EQ(query_on({notification_of("fe80:1234::5").bytes()}), 0);
  EXPECT_STREQ(text.data(), "fe80:1234:0000:0000:0000:0000:0000:0005");
  EXPECT_TRUE(timed_out()) << log.dump();
}

TEST_F(AddressMessages, TheFirstAddressEndsTheWait) {
  expect_address({notification_of(kGlobal).bytes() + notification_of(kOther).bytes()});
  NetlinkMessage message = notification_of(kGlobal);
  expect_address({message.add(IFA_ADDRESS, address_bytes(kOther)).bytes()});
  expect_address({notification_of(kGlobal).bytes(), notification_of(kOther).bytes()});
}

TEST_F(AddressMessages, ALinkLocalAddressIsFollowedByAnother) {
  expect_address({notification_of(kLinkLocal).bytes() + notification_of(kGlobal).bytes()});
  expect_address({notification_of(kLinkLocal).bytes(), notification_of(kGlobal).bytes()});
  NetlinkMessage message = notification_of(kLinkLocal);
  expect_address({message.add(IFA_ADDRESS, address_bytes(kGlobal)).bytes()});
}

TEST_F(AddressMessages, OtherAttributesAreNotAddresses) {
  expect_none({notification().add(IFA_LOCAL, address_bytes(kGlobal)).bytes()});
  expect_none({notification().add(IFA_ANYCAST, address_bytes(kGlobal)).bytes()});
  expect_address({notification()
                      .add(IFA_LOCAL, address_bytes(kOther))
                      .add(IFA_ADDRESS, address_bytes(kGlobal))
                      .bytes()});
}

TEST_F(AddressMessages, OtherMessagesAreNotLookedAt) {
  for (const std::uint16_t type :
       std::vector<std::uint16_t>{RTM_DELADDR, RTM_NEWROUTE, NLMSG_ERROR, NLMSG_NOOP}) {
    NetlinkMessage message(type, 0, body());
    message.add(IFA_ADDRESS, address_bytes(kOther));
    expect_none({message.bytes()});
    expect_address({message.bytes() + notification_of(kGlobal).bytes()});
  }
}

TEST_F(AddressMessages, AnotherInterfaceIsNotLookedAt) {
  for (const unsigned index : {0U, if_nametoindex("lo") + 1, 0x01000000U + if_nametoindex("lo")}) {
    ifaddrmsg other = body();
    other.ifa_index = index;
    NetlinkMessage message(RTM_NEWADDR, 0, other);
    expect_none({message.add(IFA_ADDRESS, address_bytes(kGlobal)).bytes()});
  }
}

TEST_F(AddressMessages, AnEndEndsTheDatagramAlone) {
  const std::string end = NetlinkMessage(NLMSG_DONE, 0).bytes();
  expect_none({end + notification_of(kGlobal).bytes()});
  expect_address({end + notification_of(kOther).bytes(), notification_of(kGlobal).bytes()});
}

TEST_F(AddressMessages, AnAddressOfFewerThan16BytesIsPassedOver) {
  for (const std::size_t size : {0U, 4U, 15U}) {
    const std::string cut = address_bytes(kOther).substr(0, size);
    expect_none({notification().add(IFA_ADDRESS, cut).bytes()});
    expect_address({notification().add(IFA_ADDRESS, cut).add(IFA_ADDRESS, address_bytes(kGlobal)).bytes()});
  }
  expect_address({notification().add(IFA_ADDRESS, address_bytes(kGlobal) + "more").bytes()});
}

TEST_F(AddressMessages, AnAttributeThatCannotBeEndsTheMessage) {
  for (const std::uint16_t length : std::vector<std::uint16_t>{0, 1, 3, 29, 0xFFFF}) {
    NetlinkMessage message = notification().add_claiming(length, IFA_FLAGS, "");
    message.add(IFA_ADDRESS, address_bytes(kOther));
    expect_none({message.bytes()});
    expect_address({message.bytes() + notification_of(kGlobal).bytes()});
  }
  for (const std::uint16_t length : std::vector<std::uint16_t>{21, 0xFFFF}) {
    expect_none({notification().add_claiming(length, IFA_ADDRESS, address_bytes(kGlobal)).bytes()});
  }
}

TEST_F(AddressMessages, AttributesAreAlignedToWords) {
  for (const std::size_t size : {1U, 2U, 3U, 4U}) {
    const std::string odd(size, 'x');
    expect_address({notification().add(IFA_LABEL, odd).add(IFA_ADDRESS, address_bytes(kGlobal)).bytes()});
  }
}

TEST_F(AddressMessages, AMessageWithoutAWholeBodyIsPassedOver) {
  for (const std::size_t length : {16U, 20U, 23U}) {
    // What follows would do as the rest of the body.
    const std::string cut = notification_of(kOther).claiming(length);
    expect_none({cut.substr(0, length)});
    expect_address({cut.substr(0, (length + 3) / 4 * 4) + notification_of(kGlobal).bytes()});
  }
  expect_none({notification().bytes()});
}

TEST_F(AddressMessages, AMessageThatCannotBeEndsTheDatagram) {
  const std::size_t size = notification_of(kGlobal).bytes().size();
  for (const std::size_t length : {std::size_t{0}, std::size_t{3}, std::size_t{15}, size + 1,
                                   std::size_t{0x7FFFFFFF}, std::size_t{0xFFFFFFFF}}) {
    expect_none({notification_of(kGlobal).claiming(length)});
  }
  expect_none({notification_of(kGlobal).bytes().substr(0, 15)});
  expect_address({notification_of(kOther).claiming(0), notification_of(kGlobal).bytes()});
}

TEST_F(AddressMessages, MessagesAreAlignedToWords) {
  for (const std::size_t length : {17U, 18U, 19U, 20U}) {
    NetlinkMessage first(NLMSG_NOOP, 0);
    expect_address({first.append("pad", 4).claiming(length) + notification_of(kGlobal).bytes()});
  }
}

TEST_F(AddressMessages, ADatagramIsReadUpTo4096Bytes) {
  const std::string last = notification_of(kGlobal).bytes();
  NetlinkMessage filler(NLMSG_NOOP, 0);
  const std::string padding(kDatagramSize - last.size() - filler.bytes().size(), 'x');
  filler.append(padding.data(), padding.size());
  expect_address({filler.bytes() + last});

  NetlinkMessage longer(NLMSG_NOOP, 0);
  longer.append(padding.data(), padding.size()).append(0);
  expect_none({longer.bytes() + last});
  EXPECT_EQ(log.count(LOG_LVL_DBUG, "rx len:4096 \n"), 1) << log.dump();
}

}  // namespace
