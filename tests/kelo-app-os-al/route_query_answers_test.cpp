// SPDX-License-Identifier: MIT
// The gateway query on answers that a kernel seldom or never gives.
#include <gtest/gtest.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/gateway_query.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/route_messages.hpp"

namespace {

using kelo::tests::address_bytes;
using kelo::tests::ExactBuffer;
using kelo::tests::FailingHeap;
using kelo::tests::Fault;
using kelo::tests::GatewayQuery;
using kelo::tests::LogCapture;
using kelo::tests::NetlinkCalls;
using kelo::tests::NetlinkMessage;
using kelo::tests::route;
using kelo::tests::route_via;
using kelo::tests::send_datagram;

constexpr char kReceive[] = "oem_rtnl_receive";
constexpr char kResponse[] = "oem_get_route_dump_response";
constexpr char kRoute[] = "oem_dump_route";
constexpr char kGateway[] = "2001:db8::1";

class Answer : public GatewayQuery {
 protected:
  Answer() { calls.answers = true; }

  void expect_gateway(const std::string& datagram, const std::string& expected = kGateway) {
    calls.datagram = datagram;
    expect_text(expected);
    EXPECT_EQ(log.lines().back().text, "IPv6 gateway via " + expected + "\n") << log.dump();
  }

  // Nothing is found, and the lines after the first one are these errors.
  void expect_none(const std::string& datagram,
                   const std::vector<std::pair<std::string, std::string>>& errors) {
    calls.datagram = datagram;
    expect_text("");
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), errors.size() + 1) << log.dump();
    EXPECT_EQ(lines[0].function, kResponse);
    EXPECT_EQ(lines[0].text, "Dump IPv6 default gateway:" + std::to_string(datagram.size()) + "\n");
    for (std::size_t i = 0; i < errors.size(); ++i) {
      EXPECT_EQ(lines[i + 1].level, LOG_LVL_ERR);
      EXPECT_EQ(lines[i + 1].function, errors[i].first);
      EXPECT_EQ(lines[i + 1].text, errors[i].second);
    }
  }
};

TEST_F(Answer, IsReadWithTheRoomThatItTakes) {
  expect_gateway(route_via(kGateway).bytes());
  ASSERT_EQ(calls.receive_count, 2U);
  EXPECT_EQ(calls.receives[0].flags, MSG_PEEK | MSG_TRUNC);
  EXPECT_EQ(calls.receives[0].room, 0U);
  EXPECT_EQ(calls.receives[1].flags, 0);
  EXPECT_EQ(calls.receives[1].room, calls.datagram.size());
}

TEST_F(Answer, GivesTheFirstGateway) {
  expect_gateway(route().bytes() + route_via(kGateway).bytes() + route_via("2001:db8::9").bytes());
}

TEST_F(Answer, GoesOnAfterMessagesThatAreNoRoutes) {
  expect_gateway(NetlinkMessage(NLMSG_NOOP, 0).bytes() + NetlinkMessage(NLMSG_DONE, 0).append(0).bytes() +
                 route_via(kGateway).bytes());
  EXPECT_EQ(log.count(LOG_LVL_ERR, kRoute, "Wrong message length:16:-12:28\n"), 1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kRoute, "Wrong message length:20:-8:28\n"), 1);
}

TEST_F(Answer, AdvancesByWholeWords) {
  for (const std::size_t length : {29U, 30U, 31U, 32U}) {
    NetlinkMessage first = route();
    expect_gateway(first.append("pad", 4).claiming(length) + route_via(kGateway).bytes());
  }
}

TEST_F(Answer, EndsWithAMessageThatWasInterrupted) {
  NetlinkMessage interrupted = route(NLM_F_MULTI | NLM_F_DUMP_INTR);
  interrupted.add(RTA_GATEWAY, address_bytes(kGateway));
  expect_none(interrupted.bytes() + route_via(kGateway).bytes(), {{kResponse, "Dump was interrupted\n"}});
}

TEST_F(Answer, GivesAGatewayBeforeTheInterruption) {
  expect_gateway(route_via(kGateway).bytes() + route(NLM_F_DUMP_INTR).bytes());
}

TEST_F(Answer, EndsWithAnError) {
  NetlinkMessage error(NLMSG_ERROR, 0, nlmsgerr{});
  expect_none(error.bytes() + route_via(kGateway).bytes(), {{kResponse, "netlink reported error\n"}});
}

TEST_F(Answer, OfAnInterruptionGoesBeforeTheError) {
  NetlinkMessage error(NLMSG_ERROR, NLM_F_DUMP_INTR, nlmsgerr{});
  expect_none(error.bytes(), {{kResponse, "Dump was interrupted\n"}});
}

TEST_F(Answer, EndsBeforeALengthBelowTheHeader) {
  for (const std::size_t length : {0U, 3U, 15U}) {
    expect_none(route_via(kGateway).claiming(length) + route_via(kGateway).bytes(), {});
  }
}

TEST_F(Answer, EndsBeforeALengthBeyondTheEnd) {
  const std::size_t size = route_via(kGateway).bytes().size();
  for (const std::size_t length : {size + 1, std::size_t{0x7FFFFFFF}, std::size_t{0xFFFFFFFF}}) {
    expect_none(route_via(kGateway).claiming(length), {});
  }
}

TEST_F(Answer, EndsWhereNoHeaderFits) {
  expect_none(route_via(kGateway).bytes().substr(0, 15), {});
  expect_none(route().bytes() + route_via(kGateway).bytes().substr(0, 15), {});
}

TEST_F(Answer, LogsAHeaderWithoutARoute) {
  expect_none(NetlinkMessage(RTM_NEWROUTE, 0).bytes(), {{kRoute, "Wrong message length:16:-12:28\n"}});
  expect_none(route().claiming(27), {{kRoute, "Wrong message length:27:-1:28\n"}});
}

TEST_F(Answer, WithAttributesThatCannotBeGivesNothing) {
  for (const std::uint16_t length : std::vector<std::uint16_t>{0, 3, 21, 0xFFFF}) {
    expect_none(route().add_claiming(length, RTA_GATEWAY, address_bytes(kGateway)).bytes(), {});
  }
  expect_none(route().add(RTA_GATEWAY, address_bytes(kGateway).substr(0, 15)).bytes(), {});
}

TEST_F(Answer, OfAnotherProcessThatWasInterruptedEndsTheQuery) {
  calls.sender = 77;
  expect_none(route(NLM_F_DUMP_INTR).bytes(), {{kResponse, "Dump was interrupted\n"}});
}

TEST_F(Answer, OfAnotherProcessWithoutAMessageEndsTheQuery) {
  calls.sender = 77;
  expect_none(route().bytes().substr(0, 15), {});
}

TEST_F(Answer, ThatIsEmptyIsAnEnd) {
  expect_text("");
  EXPECT_EQ(log.lines().size(), 2U) << log.dump();
  EXPECT_EQ(log.lines()[0].text, "EOF in the link\n");
  EXPECT_EQ(log.count(LOG_LVL_ERR, kReceive, "EOF in the link\n"), 1);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kResponse, "Dump IPv6 default gateway:0\n"), 1);
}

TEST_F(Answer, ThatCannotBeReceivedIsLogged) {
  calls.datagram = route_via(kGateway).bytes();
  for (const int at : {1, 2}) {
    const Fault fault({.call = "recvmsg", .code = ENOBUFS, .at = at});
    expect_text("");
    EXPECT_EQ(fault.seen(), at);
    EXPECT_EQ(log.lines().size(), 2U) << log.dump();
    EXPECT_EQ(log.count(LOG_LVL_ERR, kReceive, "Can't receive from socket:" + std::to_string(ENOBUFS) + "\n"),
              1);
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kResponse, "Dump IPv6 default gateway:-1\n"), 1);
  }
}

TEST_F(Answer, IsAwaitedThroughInterruptions) {
  calls.datagram = route_via(kGateway).bytes();
  for (const int error : {EINTR, EAGAIN}) {
    for (const int at : {1, 2}) {
      const Fault fault({.call = "recvmsg", .code = error, .at = at, .times = 3});
      expect_text(kGateway);
      EXPECT_EQ(fault.seen(), 5);
      EXPECT_EQ(log.lines().size(), 2U) << log.dump();
    }
  }
}

TEST(AnswerWithoutMemory, IsLoggedAndLeft) {
  NetlinkCalls calls;
  calls.answers = true;
  calls.datagram = route_via(kGateway).bytes();
  const ExactBuffer text(46);
  const LogCapture log;
  int result = 1;
  {
    const FailingHeap heap(0);
    result = kelo_get_ipv6_default_gw("lo", text.data());
  }
  EXPECT_EQ(result, 0);
  EXPECT_STREQ(text.data(), "");
  EXPECT_EQ(calls.receive_count, 1U);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_rtnl_recvmsg", "oem_MALLOC failed\n"), 1);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, "oem_get_route_dump_response", "Dump IPv6 default gateway:-12\n"), 1);
  ASSERT_EQ(log.lines().size(), 2U) << log.dump();
  EXPECT_EQ(log.lines()[0].level, LOG_LVL_ERR);
}

// A query in a child, killed in the end.
class ChildQuery {
 public:
  // `before_request` runs in this process, with the port id of the query's socket, before the kernel is
  // asked.
  explicit ChildQuery(const std::function<void(std::uint32_t)>& before_request) {
    std::array<int, 2> port{};
    std::array<int, 2> go{};
    EXPECT_EQ(pipe(port.data()) + pipe(go.data()), 0);
    child_ = fork();
    if (child_ == 0) run(port[1], go[0]);
    std::uint32_t port_id = 0;
    EXPECT_EQ(read(port[0], &port_id, sizeof port_id), static_cast<ssize_t>(sizeof port_id));
    before_request(port_id);
    EXPECT_EQ(write(go[1], "", 1), 1);
    for (const int end : {port[0], port[1], go[0], go[1]}) close(end);
  }
  ~ChildQuery() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  ChildQuery(const ChildQuery&) = delete;
  ChildQuery& operator=(const ChildQuery&) = delete;

  [[nodiscard]] bool runs() const { return waitpid(child_, nullptr, WNOHANG) == 0; }
  void interrupt() const { kill(child_, SIGUSR1); }

  // Waits until the child sleeps, for a while at most. Whether it does.
  [[nodiscard]] bool falls_asleep() const {
    for (int i = 0; i < 1000; ++i) {
      if (status().first == 'S') return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
  // Clock ticks of the processor that it has used.
  [[nodiscard]] long ticks() const { return status().second; }

 private:
  [[noreturn]] static void run(int port, int go) {
    signal(SIGUSR1, [](int) {});
    NetlinkCalls calls;
    calls.before_send = [&](int socket) {
      sockaddr_nl own{};
      socklen_t size = sizeof own;
      getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size);
      char byte = 0;
      if (write(port, &own.nl_pid, sizeof own.nl_pid) != sizeof own.nl_pid || read(go, &byte, 1) != 1)
        _exit(2);
    };
    std::array<char, 46> text{};
    _exit(kelo_get_ipv6_default_gw("lo", text.data()) == 0 ? 0 : 1);
  }

  // The state's letter, and the ticks in user and in kernel mode.
  [[nodiscard]] std::pair<char, long> status() const {
    std::ifstream file("/proc/" + std::to_string(child_) + "/stat");
    std::string line;
    std::getline(file, line);
    std::istringstream fields(line.substr(line.rfind(')') + 2));
    char state = 0;
    fields >> state;
    std::string skipped;
    for (int i = 0; i < 10; ++i) fields >> skipped;
    long user = 0;
    long kernel = 0;
    fields >> user >> kernel;
    return {state, user + kernel};
  }

  pid_t child_ = -1;
};

TEST(ForeignAnswer, KeepsTheQueryWaitingForEver) {
  const ChildQuery query([](std::uint32_t port) { send_datagram(port, route_via(kGateway).bytes()); });
  for (int interruptions = 0; interruptions < 2; ++interruptions) {
    ASSERT_TRUE(query.falls_asleep());
    const long before = query.ticks();
    std::this_thread::sleep_for(std::chrono::seconds(1));
    ASSERT_TRUE(query.runs());
    EXPECT_LE(query.ticks() - before, 5);
    query.interrupt();
  }
  ASSERT_TRUE(query.falls_asleep());
  EXPECT_TRUE(query.runs());
}

TEST(ForeignAnswer, ThatIsNotSentLeavesTheQueryToEnd) {
  const ChildQuery query([](std::uint32_t) {});
  bool ran = true;
  for (int i = 0; i < 1000 && ran; ++i) {
    ran = query.runs();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_FALSE(ran);
}

}  // namespace
