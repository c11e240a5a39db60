// SPDX-License-Identifier: MIT
// The bridge's address on real interfaces.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/descriptors.hpp"
#include "tests/support/interfaces.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/socket_faults.hpp"

namespace {

using kelo::tests::add_address;
using kelo::tests::add_bridge;
using kelo::tests::Fault;
using kelo::tests::LogCapture;
using kelo::tests::open_descriptors;
using kelo::tests::remove_interface;

constexpr std::array<const char*, 4> kNames = {"bridge0", "br-lan", "brlan0", "br0"};
constexpr std::uint32_t kPreset = 0x5A5A5A5A;
constexpr char kFunction[] = "oem_util_get_main_bridge_addr";
constexpr char kStep[] = "oem_util_get_if_addr";

std::string as_text(std::uint32_t address) {
  std::array<char, INET_ADDRSTRLEN> text{};
  return inet_ntop(AF_INET, &address, text.data(), text.size());
}

void add_bridge_with(const std::string& name, const std::string& address) {
  add_bridge(name);
  add_address(name, address, 24);
}

class BridgeAddress : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_before_); }

  void expect_found(const std::string& name, const std::string& expected) {
    log.clear();
    std::uint32_t address = kPreset;
    EXPECT_EQ(kelo_util_get_main_bridge_addr(&address), 0);
    EXPECT_EQ(as_text(address), expected);
    std::array<char, 64> line{};
    std::snprintf(line.data(), line.size(), "getip:ifname=%s,ip=0x%X\n", name.c_str(), address);
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kFunction, line.data()), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  }

  // Logs of its own are left to the test.
  void expect_not_found() {
    std::uint32_t address = kPreset;
    EXPECT_EQ(kelo_util_get_main_bridge_addr(&address), -1);
    EXPECT_EQ(address, kPreset);
  }

  LogCapture log;

 private:
  std::set<std::string> descriptors_before_ = open_descriptors();
};

TEST_F(BridgeAddress, RefusesANullAddressWithALine) {
  add_bridge_with("br0", "192.168.8.1");
  EXPECT_EQ(kelo_util_get_main_bridge_addr(nullptr), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, "if_addr is NULL\n"), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(BridgeAddress, FindsNothingWithoutABridgeAndSaysNothing) {
  const Fault requests({.call = "ioctl", .at = kelo::tests::kNever});
  expect_not_found();
  EXPECT_EQ(requests.seen(), 4);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(BridgeAddress, FindsTheLastNameAfterThreeFailedRequests) {
  add_bridge_with("br0", "192.168.8.1");
  const Fault requests({.call = "ioctl", .at = kelo::tests::kNever});
  expect_found("br0", "192.168.8.1");
  EXPECT_EQ(requests.seen(), 4);
}

TEST_F(BridgeAddress, LogsTheAddressAsTheNumberThatItStores) {
  add_bridge_with("br0", "10.1.2.3");
  std::uint32_t address = kPreset;
  EXPECT_EQ(kelo_util_get_main_bridge_addr(&address), 0);
  EXPECT_EQ(address, htonl(0x0A010203));
  const char* const number = htonl(1) == 1 ? "0xA010203" : "0x302010A";
  EXPECT_EQ(log.count(LOG_LVL_DBUG, std::string("getip:ifname=br0,ip=") + number + "\n"), 1) << log.dump();
}

TEST_F(BridgeAddress, PrefersTheNamesInTheirOrder) {
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    add_bridge_with(kNames[i], "10.0." + std::to_string(i) + ".1");
  }
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    expect_found(kNames[i], "10.0." + std::to_string(i) + ".1");
    remove_interface(kNames[i]);
  }
  log.clear();
  expect_not_found();
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST_F(BridgeAddress, StopsAtTheFirstNameThatHasAnAddress) {
  add_bridge_with("bridge0", "10.0.0.1");
  const Fault requests({.call = "ioctl", .at = kelo::tests::kNever});
  expect_found("bridge0", "10.0.0.1");
  EXPECT_EQ(requests.seen(), 1);
}

TEST_F(BridgeAddress, PassesOverABridgeWithoutAnIpv4Address) {
  add_bridge("bridge0");
  add_bridge("br-lan");
  add_address("br-lan", "2001:db8::1", 64);
  add_bridge_with("brlan0", "10.0.2.1");
  expect_found("brlan0", "10.0.2.1");
}

TEST_F(BridgeAddress, GivesTheFirstOfSeveralAddresses) {
  add_bridge_with("br-lan", "10.0.1.1");
  add_address("br-lan", "10.0.1.2", 24);
  add_address("br-lan", "172.16.0.1", 16);
  expect_found("br-lan", "10.0.1.1");
}

TEST_F(BridgeAddress, AsksForTheNameWhateverKindOfInterfaceItIs) {
  kelo::tests::add_veth_pair("brlan0", "port");
  add_address("brlan0", "10.0.2.1", 24);
  expect_found("brlan0", "10.0.2.1");
  kelo::tests::bring_up("brlan0");
  expect_found("brlan0", "10.0.2.1");
}

TEST_F(BridgeAddress, TakesNoInterfaceOfASimilarName) {
  for (const char* const name : {"bridge00", "bridge", "br-lan1", "BR0", "br", "br1"}) add_bridge(name);
  add_address("bridge00", "10.0.0.1", 24);
  add_address("br-lan1", "10.0.1.1", 24);
  add_address("BR0", "10.0.2.1", 24);
  expect_not_found();
}

TEST_F(BridgeAddress, GoesOnToTheNextNameWithoutASocket) {
  add_bridge_with("bridge0", "10.0.0.1");
  add_bridge_with("br-lan", "10.0.1.1");
  const Fault fault({"socket", EMFILE});
  std::uint32_t address = kPreset;
  EXPECT_EQ(kelo_util_get_main_bridge_addr(&address), 0);
  EXPECT_EQ(as_text(address), "10.0.1.1");
  EXPECT_EQ(log.count(LOG_LVL_ERR, kStep, "sfd is invalid\n"), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 2U) << log.dump();
}

TEST_F(BridgeAddress, SaysForEachNameThatThereIsNoSocket) {
  add_bridge_with("br0", "10.0.0.1");
  const Fault fault({.call = "socket", .code = ENFILE, .times = 4});
  expect_not_found();
  EXPECT_EQ(fault.seen(), 4);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kStep, "sfd is invalid\n"), 4) << log.dump();
  EXPECT_EQ(log.lines().size(), 4U) << log.dump();
}

TEST_F(BridgeAddress, GoesOnToTheNextNameWhenARequestFails) {
  add_bridge_with("bridge0", "10.0.0.1");
  add_bridge_with("br-lan", "10.0.1.1");
  const Fault fault({"ioctl", ENODEV});
  expect_found("br-lan", "10.0.1.1");
}

TEST_F(BridgeAddress, OpensItsSocketCloseOnExec) {
  expect_not_found();
  EXPECT_EQ(kelo::tests::last_socket_type, SOCK_DGRAM | SOCK_CLOEXEC);
}

TEST_F(BridgeAddress, ServesThreadsAtOnce) {
  add_bridge_with("br0", "10.0.3.1");
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int call = 0; call < 50; ++call) {
        std::uint32_t address = kPreset;
        EXPECT_EQ(kelo_util_get_main_bridge_addr(&address), 0);
        EXPECT_EQ(address, htonl(0x0A000301));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
