// SPDX-License-Identifier: MIT
// The wait for an IPv6 address, on real interfaces, and when the system calls before it fail.
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/address_query.hpp"
#include "tests/support/interfaces.hpp"

namespace {

using kelo::tests::add_address;
using kelo::tests::AddressQuery;
using kelo::tests::bring_up;
using kelo::tests::ExactBuffer;
using kelo::tests::Fault;
using kelo::tests::Link;
using Clock = std::chrono::steady_clock;

constexpr char kQuery[] = "oem_check_global_ipv6_addr";
constexpr char kLoop[] = "oem_epoll_event_handle";
constexpr char kDrain[] = "oem_nl_netlink_handle";
constexpr char kGlobal[] = "2001:0db8:0000:0000:0000:0000:0000:0005";
constexpr char kLinkLocal[] = "fe80:0000:0000:0000:0000:0000:0000:0005";

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// The kernel announces an address some time after it was set.
class RealAddress : public AddressQuery {
 protected:
  RealAddress() { calls.in_haste = false; }

 private:
  const Link wan_{"wan"};
  const Link lan_{"lan"};
};

TEST_F(RealAddress, IsReturnedInFull) {
  EXPECT_EQ(query_while([] { add_address("wan", "2001:db8::5", 64); }, "wan"), 0);
  EXPECT_STREQ(text.data(), kGlobal);
  const auto lines = log.lines();
  ASSERT_EQ(lines.size(), 4U) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kLoop, "Process fd count:1\n"), 1) << log.dump();
  EXPECT_TRUE(lines[1].text.starts_with("rx len:") && lines[1].text.ends_with(" \n")) << log.dump();
  EXPECT_EQ(lines[1].function, kDrain);
  EXPECT_EQ(lines[1].level, LOG_LVL_DBUG);
  EXPECT_EQ(lines[2].text, "Return IPv6 addr:" + std::string(kGlobal) + " scope:0\n");
  EXPECT_EQ(lines[2].function, kDrain);
  EXPECT_EQ(lines[2].level, LOG_LVL_DBUG);
  EXPECT_TRUE(found()) << log.dump();
}

TEST_F(RealAddress, MayComeWhileTheQueryWaits) {
  calls.before_wait = [] { add_address("wan", "2001:db8::5", 64); };
  EXPECT_EQ(query("wan"), 0);
  EXPECT_STREQ(text.data(), kGlobal);
}

TEST_F(RealAddress, MayFollowALinkLocalOne) {
  EXPECT_EQ(query_while(
                [] {
                  add_address("wan", "fe80::5", 64);
                  add_address("wan", "2001:db8::5", 64);
                },
                "wan"),
            0);
  EXPECT_STREQ(text.data(), kGlobal);
  EXPECT_TRUE(found()) << log.dump();
}

TEST_F(RealAddress, MayComeAfterALinkLocalOneWasRead) {
  calls.before_wait = [this] {
    add_address("wan", "fe80::5", 64);
    calls.before_wait = [] { add_address("wan", "2001:db8::5", 64); };
  };
  EXPECT_EQ(query("wan"), 0);
  EXPECT_STREQ(text.data(), kGlobal);
  EXPECT_GE(log.count(LOG_LVL_DBUG, kLoop, "Process fd count:1\n"), 2) << log.dump();
}

TEST_F(RealAddress, ThatIsLinkLocalStaysInTheBufferForThreeSeconds) {
  const auto start = Clock::now();
  EXPECT_EQ(query_while([] { add_address("wan", "fe80::5", 64); }, "wan"), 0);
  EXPECT_GE(seconds_since(start), 2.9);
  EXPECT_LT(seconds_since(start), 30);
  EXPECT_STREQ(text.data(), kLinkLocal);
  EXPECT_TRUE(timed_out()) << log.dump();
  EXPECT_EQ(log.count_containing(LOG_LVL_DBUG, "Return IPv6 addr"), 0) << log.dump();
}

TEST_F(RealAddress, OfAnotherInterfaceIsNotLookedAt) {
  EXPECT_EQ(query_while([] { add_address("lan", "2001:db8::5", 64); }, "wan"), 0);
  EXPECT_TRUE(text.untouched());
  EXPECT_TRUE(timed_out()) << log.dump();
  EXPECT_GE(log.count_containing(LOG_LVL_DBUG, "rx len:"), 1) << log.dump();
}

TEST_F(AddressQuery, SeesNoAddressThatWasThereBefore) {
  // The loopback has its address as soon as it is up.
  bring_up("lo");
  EXPECT_EQ(query(), 0);
  EXPECT_TRUE(text.untouched());
  EXPECT_TRUE(timed_out()) << log.dump();
}

TEST_F(RealAddress, OfIPv4IsNotAnnounced) {
  EXPECT_EQ(query_while([] { add_address("wan", "192.0.2.5", 24); }, "wan"), 0);
  EXPECT_TRUE(text.untouched());
  EXPECT_EQ(log.count_containing(LOG_LVL_DBUG, "rx len:"), 0) << log.dump();
}

TEST_F(RealAddress, WithAPeerIsThePeers) {
  EXPECT_EQ(query_while([] { add_address("wan", "2001:db8::1", 128, "2001:db8::5"); }, "wan"), 0);
  EXPECT_STREQ(text.data(), kGlobal);
}

TEST_F(AddressQuery, GivesUpAfterTwoSeconds) {
  calls.in_haste = false;
  const auto start = Clock::now();
  EXPECT_EQ(query(), 0);
  EXPECT_GE(seconds_since(start), 1.9);
  EXPECT_LT(seconds_since(start), 30);
  EXPECT_TRUE(text.untouched());
  EXPECT_TRUE(timed_out()) << log.dump();
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
}

TEST_F(AddressQuery, ListensToIPv6AddressesUnderTheProcessId) {
  EXPECT_EQ(query(), 0);
  EXPECT_EQ(calls.socket_domain, AF_NETLINK);
  EXPECT_EQ(calls.socket_type, SOCK_RAW | SOCK_CLOEXEC);
  EXPECT_EQ(calls.socket_protocol, NETLINK_ROUTE);
  EXPECT_EQ(calls.receive_time.tv_sec, 1);
  EXPECT_EQ(calls.receive_time.tv_usec, 0);
  EXPECT_EQ(calls.bound.nl_family, AF_NETLINK);
  EXPECT_EQ(calls.bound.nl_pid, static_cast<unsigned>(getpid()));
  EXPECT_EQ(calls.bound.nl_groups, 0x20100U);
  EXPECT_EQ(calls.epoll_flags, EPOLL_CLOEXEC);
  EXPECT_EQ(calls.awaited_events, 0x80000001U);
  EXPECT_EQ(calls.most_events, 32);
  EXPECT_EQ(calls.wait_milliseconds, 2000);
  EXPECT_EQ(calls.waits, 1);
  EXPECT_EQ(calls.sent, "");
}

TEST_F(AddressQuery, WaitsAgainAfterAnInterruption) {
  constexpr int kInterruptions = 3;
  const Fault fault({.call = "epoll_wait", .code = EINTR, .times = kInterruptions});
  EXPECT_EQ(query(), 0);
  EXPECT_EQ(fault.seen(), kInterruptions + 1);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kLoop, "Process fd count:-1\n"), kInterruptions) << log.dump();
  EXPECT_TRUE(timed_out()) << log.dump();
  EXPECT_TRUE(text.untouched());
}

// A timer of 100 ms whose handler runs in whatever the process is doing.
class Interruptions {
 public:
  Interruptions() {
    count = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { ++count; };
    sigaction(SIGALRM, &action, &before_);
    constexpr itimerval kEvery = {{0, 100'000}, {0, 100'000}};
    setitimer(ITIMER_REAL, &kEvery, nullptr);
  }
  ~Interruptions() {
    stop();
    sigaction(SIGALRM, &before_, nullptr);
  }
  Interruptions(const Interruptions&) = delete;
  Interruptions& operator=(const Interruptions&) = delete;

  static void stop() {
    constexpr itimerval kNever{};
    setitimer(ITIMER_REAL, &kNever, nullptr);
  }

  static inline std::atomic<int> count{0};

 private:
  struct sigaction before_ {};
};

TEST_F(AddressQuery, GivesUpAfterTwoSecondsWhateverSignalsArrive) {
  calls.in_haste = false;
  constexpr int kFarTooMany = 100;
  const Interruptions interruptions;
  std::atomic<bool> over{false};
  std::thread limit([&] {
    while (!over && Interruptions::count < kFarTooMany) usleep(10'000);
    Interruptions::stop();
  });
  EXPECT_EQ(query(), 0);
  over = true;
  limit.join();
  EXPECT_LT(Interruptions::count, kFarTooMany);
  EXPECT_GE(log.count(LOG_LVL_DBUG, kLoop, "Process fd count:-1\n"), 1) << log.dump();
  EXPECT_TRUE(timed_out()) << log.dump();
  EXPECT_TRUE(text.untouched());
}

TEST_F(AddressQuery, LeavesOtherEventsAlone) {
  calls.after_bind = [this](int socket) {
    epoll_event error{};
    error.events = EPOLLERR;
    error.data.fd = socket;
    epoll_event elsewhere{};
    elsewhere.events = EPOLLIN;
    elsewhere.data.fd = socket + 1;
    calls.events = {error, elsewhere};
  };
  EXPECT_EQ(query(), 0);
  EXPECT_EQ(calls.waits, 2);
  EXPECT_EQ(log.lines().size(), 2U) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kLoop, "Process fd count:2\n"), 1) << log.dump();
  EXPECT_TRUE(timed_out()) << log.dump();
}

TEST_F(AddressQuery, FailsWhileAnotherOneListens) {
  int second = 0;
  ExactBuffer other(40);
  EXPECT_EQ(query_while([&] {
              std::thread([&] { second = kelo_check_global_ipv6_addr("lo", other.data()); }).join();
            }),
            0);
  EXPECT_EQ(second, 1);
  EXPECT_TRUE(other.untouched());
  EXPECT_EQ(log.count(LOG_LVL_ERR, kQuery, "couldn't bind:" + std::to_string(EADDRINUSE) + "\n"), 1);
  EXPECT_TRUE(timed_out()) << log.dump();
}

TEST_F(AddressQuery, LogsAnUnknownInterface) {
  for (const std::string name : {"missing", "", "averylonginterfacename", "lo.............."}) {
    EXPECT_EQ(query(name.c_str()), 1);
    EXPECT_EQ(log.count(LOG_LVL_ERR, kQuery, "if_nametoindex failed:" + name + "\n"), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
    EXPECT_TRUE(text.untouched());
  }
}

TEST_F(AddressQuery, LogsNullArguments) {
  EXPECT_EQ(kelo_check_global_ipv6_addr(nullptr, text.data()), 1);
  EXPECT_EQ(kelo_check_global_ipv6_addr("lo", nullptr), 1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kQuery, "kelo_check_global_ipv6_addr param NULL\n"), 2) << log.dump();
  EXPECT_EQ(log.lines().size(), 2U) << log.dump();
  EXPECT_TRUE(text.untouched());
}

TEST_F(AddressQuery, LogsEachCallThatFails) {
  struct Case {
    const char* call;
    int error;
    std::string line;
  };
  for (const Case& c :
       {Case{"epoll_create1", EMFILE, "epoll create failure:" + std::to_string(EMFILE) + "\n"},
        Case{"socket", ENFILE, "couldn't open NETLINK_ROUTE socket:" + std::to_string(ENFILE) + "\n"},
        Case{"bind", EPERM, "couldn't bind:" + std::to_string(EPERM) + "\n"},
        Case{"epoll_ctl", ENOSPC, "epoll add sock_fd error\n"}}) {
    const Fault fault({c.call, c.error});
    EXPECT_EQ(query(), 1);
    EXPECT_EQ(fault.seen(), 1) << c.call;
    EXPECT_EQ(log.count(LOG_LVL_ERR, kQuery, c.line), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
    EXPECT_TRUE(text.untouched());
    EXPECT_EQ(calls.waits, 0);
  }
}

}  // namespace
