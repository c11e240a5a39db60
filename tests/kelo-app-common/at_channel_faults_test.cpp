// SPDX-License-Identifier: MIT
// AT commands when nothing answers, or when the system calls under them fail.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/child_process.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/socket_faults.hpp"
#include "tools/modem/modem.hpp"

namespace {

using kelo::modem::Modem;
using kelo::modem::read_script;
using kelo::tests::FailingHeap;
using kelo::tests::Fault;
using kelo::tests::LogCapture;
using kelo::tests::open_descriptors;
using kelo::tests::Waits;

const std::string kFailure = "\r\nERROR\r\n";
constexpr char kFunction[] = "oem_util_send_at";
constexpr char kTimedOut[] = "select fail:ret=0\n";
constexpr char kWaitFailed[] = "select fail:ret=-1\n";

std::string send(const char* command = "AT") {
  char* const reply = kelo_util_send_at(command);
  std::string text = reply;
  std::free(reply);
  return text;
}

class AtChannelFaults : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(open_descriptors(), descriptors_before_); }

  LogCapture log;

 private:
  std::set<std::string> descriptors_before_ = open_descriptors();
};

std::string receive_failure(int error) {
  return "recvfrom fail:error=" + std::to_string(error) + ",[" + std::strerror(error) + "]\n";
}

TEST_F(AtChannelFaults, FailsAfterThreeSilentWaits) {
  const Waits waits({1, 2, 3});
  EXPECT_EQ(send(), kFailure);
  EXPECT_EQ(waits.milliseconds(), (std::vector<int>{20000, 20000, 20000}));
  EXPECT_EQ(log.count(LOG_LVL_INFO, kFunction, "send at cmd:[3,AT\r]\n"), 1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, kTimedOut), 3);
  EXPECT_EQ(log.lines().size(), 4U) << log.dump();
}

TEST_F(AtChannelFaults, HearsAModemInTheThirdAttempt) {
  const Modem modem(read_script("command *\n send \"\\r\\nOK\\r\\n\"\n"));
  const Waits waits({1, 2});
  EXPECT_EQ(send(), "\r\nOK\r\n");
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, kTimedOut), 2);
  EXPECT_EQ(log.count(LOG_LVL_INFO, kFunction, "recvfrom[3,0] 6 bytes:[6, \r\nOK\r\n]\n"), 1) << log.dump();
}

TEST_F(AtChannelFaults, GoesOnAfterAWaitThatFails) {
  const Modem modem(read_script("command *\n send \"\\r\\nOK\\r\\n\"\n"));
  const Fault fault({"poll", ENOMEM});
  EXPECT_EQ(send(), "\r\nOK\r\n");
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, kWaitFailed), 1) << log.dump();
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "fail"), 1);
  EXPECT_EQ(log.count(LOG_LVL_INFO, kFunction, "recvfrom[2,0] 6 bytes:[6, \r\nOK\r\n]\n"), 1);
}

TEST_F(AtChannelFaults, FailsAfterThreeWaitsThatFail) {
  const Fault fault({.call = "poll", .code = ENOMEM, .times = 4});
  EXPECT_EQ(send(), kFailure);
  EXPECT_EQ(fault.seen(), 3);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, kWaitFailed), 3);
  EXPECT_EQ(log.lines().size(), 4U) << log.dump();
}

TEST_F(AtChannelFaults, GoesOnAfterAReceptionThatFails) {
  const Modem modem(read_script("command *\n send echo \"\\r\\nOK\\r\\n\"\n"));
  for (const int error : {EAGAIN, ENOBUFS, ECONNREFUSED}) {
    log.clear();
    const Fault fault({"recvfrom", error});
    EXPECT_EQ(send(), "AT\r\r\nOK\r\n") << "an echo in the second attempt is part of the reply";
    EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, receive_failure(error)), 1) << log.dump();
    EXPECT_EQ(log.count(LOG_LVL_INFO, kFunction, "recvfrom[2,0] 9 bytes:[9, AT\r\r\nOK\r\n]\n"), 1);
  }
}

TEST_F(AtChannelFaults, DoesNotWaitForADatagramThatIsGone) {
  const Waits waits({}, {1, 2, 3});
  EXPECT_EQ(send(), kFailure);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, receive_failure(EAGAIN)), 3) << log.dump();
  EXPECT_EQ(log.lines().size(), 4U) << log.dump();
}

TEST_F(AtChannelFaults, FailsAfterThreeReceptionsThatFail) {
  const Modem modem(read_script("command *\n send \"\\r\\nOK\\r\\n\"\n"));
  const Fault fault({.call = "recvfrom", .code = EIO, .times = 4});
  EXPECT_EQ(send(), kFailure);
  EXPECT_EQ(fault.seen(), 3);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, receive_failure(EIO)), 3) << log.dump();
  EXPECT_EQ(log.lines().size(), 4U) << log.dump();
}

TEST_F(AtChannelFaults, FailsWithoutASocket) {
  const Modem modem(read_script("command *\n send \"\\r\\nOK\\r\\n\"\n"));
  const Fault fault({"socket", EMFILE});
  EXPECT_EQ(send(), kFailure);
  const std::string expected =
      std::string("socket error [") + std::strerror(EMFILE) + "]" + std::to_string(EMFILE) + "\n";
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, expected), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_TRUE(modem.received().empty());
}

TEST_F(AtChannelFaults, FailsWhenTheCommandCannotBeSent) {
  const Modem modem(read_script("command *\n send \"\\r\\nOK\\r\\n\"\n"));
  const Fault fault({"sendto", ENETUNREACH});
  EXPECT_EQ(send(), kFailure);
  EXPECT_EQ(fault.seen(), 1);
  EXPECT_EQ(log.count(LOG_LVL_INFO, kFunction, "send at cmd:[3,AT\r]\n"), 1);
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_TRUE(modem.received().empty());
}

TEST_F(AtChannelFaults, SendsOnAfterSignals) {
  const Modem modem(read_script("command *\n send \"\\r\\nOK\\r\\n\"\n"));
  const Fault fault({.call = "sendto", .code = EINTR, .times = 2});
  EXPECT_EQ(send(), "\r\nOK\r\n");
  EXPECT_EQ(fault.seen(), 3);
  EXPECT_EQ(modem.received(), std::vector<std::string>{"AT\r"});
}

TEST_F(AtChannelFaults, WaitsOnAfterSignalsForTheTimeThatIsLeft) {
  constexpr int kSignals = 5;
  constexpr int kPause = 30;
  const Modem modem(read_script("command *\n send \"AT\\r\\nOK\\r\\n\"\n"));
  Waits waits;
  waits.before = [](int number) {
    if (number <= kSignals) usleep(kPause * 1000);
  };
  const Fault fault({.call = "poll", .code = EINTR, .times = kSignals});
  EXPECT_EQ(send(), "OK\r\n") << "the attempt is still the first";
  const std::vector<int>& given = waits.milliseconds();
  ASSERT_EQ(given.size(), kSignals + 1U);
  EXPECT_EQ(given[0], 20000);
  for (std::size_t i = 1; i < given.size(); ++i) {
    EXPECT_LE(given[i], given[i - 1] - kPause + 1);
    EXPECT_GT(given[i], 0);
  }
  EXPECT_EQ(log.count_containing(LOG_LVL_ERR, "fail"), 0) << log.dump();
}

TEST_F(AtChannelFaults, AbortsWhenMemoryRunsOut) {
  for (const int served : {0, 1}) {
    const auto child = kelo::tests::run_in_child([served] {
      const FailingHeap heap(served);
      send();
    });
    EXPECT_EQ(child.signal, SIGABRT) << served;
    EXPECT_THAT(child.standard_output,
                testing::MatchesRegex("kelo-app-common/src/kelo_common_def.c, line: [0-9]+\n"));
  }
}

TEST_F(AtChannelFaults, NeedsMemoryForTheReplyAndTheCommandAlone) {
  const Modem modem(read_script("command *\n send \"\\r\\nOK\\r\\n\"\n"));
  kelo_set_log_level(LOG_LVL_CRT);  // the capture allocates
  const FailingHeap heap(2);
  char* const reply = kelo_util_send_at("AT");
  EXPECT_STREQ(reply, "\r\nOK\r\n");
  std::free(reply);
}

TEST_F(AtChannelFaults, AbortsWithoutMemoryForTheReplyToo) {
  const auto child = kelo::tests::run_in_child([] {
    const FailingHeap heap(0);
    std::free(kelo_util_send_at(nullptr));
  });
  EXPECT_EQ(child.signal, SIGABRT);
}

}  // namespace
