// SPDX-License-Identifier: MIT
// AT commands to a modem that is there and answers, well or badly.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kelo-app-common/src/at_reply.hpp"
#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/descriptors.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/socket_faults.hpp"
#include "tools/modem/modem.hpp"

namespace {

using kelo::at::kFinalResults;
using kelo::modem::Datagram;
using kelo::modem::Modem;
using kelo::modem::read_script;
using kelo::modem::Script;
using kelo::tests::LogCapture;
using kelo::tests::open_descriptors;
using kelo::tests::Waits;
using namespace std::string_literals;

const std::string kFailure = "\r\nERROR\r\n";
const std::string kInfo = "INFO ";
const std::string kDebug = "DBUG ";

// A modem that answers every command with these datagrams.
Script always(const std::vector<std::string>& datagrams) {
  Script script{{{"*", {}}}};
  for (const std::string& bytes : datagrams) script.answers[0].datagrams.push_back(Datagram{bytes});
  return script;
}

class AtChannel : public testing::Test {
 protected:
  void TearDown() override {
    for (const auto& line : log.lines()) EXPECT_EQ(line.function, "oem_util_send_at") << line;
    EXPECT_EQ(open_descriptors(), descriptors_before_);
  }

  // The whole buffer that a command gives.
  static std::string buffer_of(const std::string& command) {
    const kelo::tests::ExactBuffer given(command);
    char* const reply = kelo_util_send_at(given.data());
    EXPECT_EQ(given.data(), command) << "the caller's text was changed";
    std::string bytes(reply, KELO_AT_REPLY_SIZE);
    std::free(reply);
    EXPECT_EQ(bytes.back(), '\0');
    return bytes;
  }

  // The text in it.
  static std::string send(const std::string& command) {
    const std::string bytes = buffer_of(command);
    return bytes.substr(0, bytes.find('\0'));
  }

  // The reply of a modem that sends these and then nothing more.
  static std::string reply_to(const std::vector<std::string>& datagrams) {
    const Modem modem(always(datagrams));
    std::set<int> silent;
    for (int wait = static_cast<int>(datagrams.size()) + 1; wait <= 3; ++wait) silent.insert(wait);
    const Waits waits(silent);
    return send("AT");
  }

  // What was logged, each line after its level.
  std::vector<std::string> logged() const {
    std::vector<std::string> texts;
    for (const auto& line : log.lines())
      texts.push_back(kelo::tests::level_name(line.level) + " " + line.text);
    return texts;
  }

  LogCapture log;

 private:
  std::set<std::string> descriptors_before_ = open_descriptors();
};

TEST_F(AtChannel, SendsTheCommandInUpperCaseWithOneCarriageReturn) {
  const Modem modem(always({"\r\nOK\r\n"}));
  for (const char* const command :
       {"at+cgsn\n", "AT\r\n", "AT", "at+cpin=\"a\xe4z\"", "", "\r\n", "AT\n\r"}) {
    const bool empty = command[0] == '\0' || command[0] == '\r';  // its echo is any carriage return
    EXPECT_EQ(send(command), empty ? "OK\r\n" : "\r\nOK\r\n") << command;
  }
  const std::vector<std::string> expected = {"AT+CGSN\r", "AT\r", "AT\r",  "AT+CPIN=\"A\xe4Z\"\r",
                                             "\r",        "\r",   "AT\n\r"};
  EXPECT_EQ(modem.received(), expected);
  EXPECT_EQ(log.count(LOG_LVL_INFO, "send at cmd:[8,AT+CGSN\r]\n"), 1) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_INFO, "send at cmd:[3,AT\r]\n"), 2) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_INFO, "send at cmd:[1,\r]\n"), 2) << log.dump();
}

TEST_F(AtChannel, ReturnsTheReplyWithoutTheEcho) {
  const Modem modem(read_script("command AT+CGSN\n send echo \"\\r\\n123\\r\\nOK\\r\\n\"\n"));
  EXPECT_EQ(buffer_of("at+cgsn\r\n"), "123\r\nOK\r\n" + std::string(KELO_AT_REPLY_SIZE - 9, '\0'));
}

TEST_F(AtChannel, ReturnsTheReplyOfAModemThatDoesNotEcho) {
  EXPECT_EQ(reply_to({"\r\n123\r\n\r\nOK\r\n"}), "\r\n123\r\n\r\nOK\r\n");
}

TEST_F(AtChannel, LogsTheStagesOfAnExchange) {
  EXPECT_EQ(reply_to({"AT\r\r\n1 ERROR ERROR", "\r\nOK\r\n"}), "1 ERROR ERROR\r\nOK\r\n");
  const std::vector<std::string> expected = {
      kInfo + "send at cmd:[3,AT\r]\n",
      kInfo + "recvfrom[1,0] 18 bytes:[18, AT\r\r\n1 ERROR ERROR]\n",
      kDebug + "str_end_rsp[k]=ERROR\r\n",
      kDebug + "no correct end:<1 ERROR ERROR>,< ERROR ERROR>,<32>\r\n",
      kDebug + "no correct end:< ERROR>,< ERROR>,<32>\r\n",
      kDebug + "str_end_rsp[k]=OK\r\n\r\n",
      kDebug + "str_end_rsp[k]=0\r\r\n",
      kDebug + "str_end_rsp[k]=3\r\r\n",
      kDebug + "str_end_rsp[k]=3\r\n",
      kDebug + "str_end_rsp[k]=4\r\r\n",
      kDebug + "str_end_rsp[k]=NO CARRIER\r\n",
      kDebug + "str_end_rsp[k]=+CME ERROR:\r\n",
      kInfo + "recvfrom[2,13] 6 bytes:[19, 1 ERROR ERROR\r\nOK\r\n]\n",
      kDebug + "str_end_rsp[k]=ERROR\r\n",
      kDebug +
          "no correct end:<1 ERROR ERROR\r\nOK\r\n>,"
          "< ERROR ERROR\r\nOK\r\n>,<32>\r\n",
      kDebug +
          "no correct end:< ERROR\r\nOK\r\n>,"
          "< ERROR\r\nOK\r\n>,<32>\r\n",
      kDebug + "str_end_rsp[k]=OK\r\n\r\n"};
  EXPECT_EQ(logged(), expected);
}

TEST_F(AtChannel, LogsTheCodeOfAnyByteBeforeAResult) {
  EXPECT_EQ(reply_to({"\xff"
                      "ERROR"}),
            kFailure);
  EXPECT_EQ(log.count(LOG_LVL_DBUG,
                      "no correct end:<\xff"
                      "ERROR>,<\xff"
                      "ERROR>,<255>\r\n"),
            1)
      << log.dump();
}

TEST_F(AtChannel, EndsWithEachFinalResultAtTheStartOfALine) {
  for (const std::string result : kFinalResults) {
    for (const std::string before : {"", "\r", "\n", "line\r\n"}) {
      EXPECT_EQ(reply_to({before + result}), before + result);
    }
  }
  EXPECT_EQ(reply_to({"\r\n+CME ERROR: 10\r\n"}), "\r\n+CME ERROR: 10\r\n");
}

TEST_F(AtChannel, DoesNotEndWithAFinalResultInMidLine) {
  for (const std::string result : kFinalResults) {
    log.clear();
    std::string reply = "x";
    reply += result;
    EXPECT_EQ(reply_to({reply}), kFailure) << result;
    std::string line = "no correct end:<";
    line.append(reply).append(">,<").append(reply).append(">,<120>\r\n");
    EXPECT_GE(log.count(LOG_LVL_DBUG, line), 1) << log.dump();
    EXPECT_EQ(log.count(LOG_LVL_ERR, "select fail:ret=0\n"), 2);
  }
}

TEST_F(AtChannel, PutsAReplyTogether) {
  EXPECT_EQ(reply_to({"\r\nline\r\n", "\r\nOK\r\n"}), "\r\nline\r\n\r\nOK\r\n");
  EXPECT_EQ(reply_to({"\r\nline\r\nO", "K", "\r\n"}), "\r\nline\r\nOK\r\n");
  EXPECT_EQ(reply_to({"AT\r", "\r\nOK\r\n"}), "\r\nOK\r\n");
  EXPECT_EQ(reply_to({"AT\r\r\nO", "K\r\n"}), "OK\r\n");
}

TEST_F(AtChannel, ListensToThreeDatagrams) {
  EXPECT_EQ(reply_to({"1\r\n", "2\r\n", "OK\r\n", "more"}), "1\r\n2\r\nOK\r\n");
  const Modem modem(always({"1\r\n", "2\r\n", "5\r\n", "OK\r\n"}));
  EXPECT_EQ(send("AT"), kFailure);
}

TEST_F(AtChannel, EndsAtTheFirstDatagramThatHoldsAResult) {
  EXPECT_EQ(reply_to({"\r\nOK\r\n", "late"}), "\r\nOK\r\n");
}

TEST_F(AtChannel, WaitsForMoreAfterTheEchoAlone) {
  const Modem modem(always({"AT\r\r\n", "OK\r\n"}));
  const Waits waits;
  EXPECT_EQ(send("AT"), "OK\r\n");
  EXPECT_EQ(waits.milliseconds(), (std::vector<int>{20000, 20000}));
  EXPECT_EQ(log.count(LOG_LVL_INFO, "recvfrom[1,0] 5 bytes:[5, AT\r\r\n]\n"), 1) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_INFO, "recvfrom[2,0] 4 bytes:[4, OK\r\n]\n"), 1) << log.dump();
}

TEST_F(AtChannel, LooksForTheEchoInTheFirstAttemptAlone) {
  EXPECT_EQ(reply_to({"noise\r\n", "AT\r\r\nOK\r\n"}), "noise\r\nAT\r\r\nOK\r\n");
  const Modem modem(always({"AT\r\r\nOK\r\n"}));
  const Waits waits({1});
  EXPECT_EQ(send("AT"), "AT\r\r\nOK\r\n");
  EXPECT_EQ(log.count(LOG_LVL_INFO, "recvfrom[2,0] 9 bytes:[9, AT\r\r\nOK\r\n]\n"), 1) << log.dump();
}

TEST_F(AtChannel, TakesNoiseBeforeTheResult) {
  EXPECT_EQ(reply_to({"\r\n+CREG: 1\r\n", "AT\r\r\nOK\r\n"}), "\r\n+CREG: 1\r\nAT\r\r\nOK\r\n");
}

TEST_F(AtChannel, ListensToOtherPortsOfThisHost) {
  const Modem modem(
      read_script("command AT\n stranger \"noise\\r\\n\"\n send \"OK\\r\\n\"\n"
                  "command *\n stranger \"OK\\r\\n\"\n"));
  EXPECT_EQ(send("AT"), "noise\r\nOK\r\n");
  EXPECT_EQ(send("ATI"), "OK\r\n");
}

TEST_F(AtChannel, CountsADatagramOfNoBytesAsAnAttempt) {
  EXPECT_EQ(reply_to({"", "OK\r\n"}), "OK\r\n");
  EXPECT_EQ(log.count(LOG_LVL_INFO, "recvfrom[1,0] 0 bytes:[0, ]\n"), 1) << log.dump();
  EXPECT_EQ(reply_to({"", "", "", "OK\r\n"}), kFailure);
}

TEST_F(AtChannel, LooksAtNothingAfterANul) {
  EXPECT_EQ(reply_to({"line\0\r\nOK\r\n"s, "\r\nOK\r\n"}), kFailure);
  EXPECT_EQ(log.count(LOG_LVL_INFO, "recvfrom[1,0] 11 bytes:[11, line]\n"), 1) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_INFO, "recvfrom[2,11] 6 bytes:[17, line]\n"), 1) << log.dump();
}

TEST_F(AtChannel, ReturnsWhatArrivedAfterANul) {
  const Modem modem(always({"\r\nOK\r\n\0tail"s}));
  EXPECT_EQ(buffer_of("AT").substr(0, 12), "\r\nOK\r\n\0tail\0"s);
}

TEST_F(AtChannel, DropsWhatIsAfterANulWithTheEcho) {
  const Modem modem(always({"AT\r\r\nli\0ne"s, "\r\nOK\r\n"}));
  EXPECT_EQ(buffer_of("AT"), "li\r\nOK\r\n" + std::string(KELO_AT_REPLY_SIZE - 8, '\0'));
  EXPECT_EQ(log.count(LOG_LVL_INFO, "recvfrom[2,2] 6 bytes:[8, li\r\nOK\r\n]\n"), 1) << log.dump();
}

TEST_F(AtChannel, HoldsAReplyOf2047Bytes) {
  for (const std::size_t length : {2046U, 2047U}) {
    const std::string reply = std::string(length - 5, 'x') + "\nOK\r\n";
    EXPECT_EQ(reply_to({reply}), reply);
  }
}

TEST_F(AtChannel, CutsADatagramAt2047Bytes) {
  EXPECT_EQ(reply_to({std::string(2048 - 5, 'x') + "\nOK\r\n"}), kFailure);
  EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "recvfrom[1,0] 2047 bytes:[2047, xxx"), 1);
  EXPECT_EQ(reply_to({"OK\r\n" + std::string(5000, 'x')}), "OK\r\n" + std::string(2043, 'x'));
}

TEST_F(AtChannel, KeepsTheFirst2047BytesOfSeveralDatagrams) {
  const std::string first = std::string(1000, 'x') + "\n";
  EXPECT_EQ(reply_to({first, "OK\r\n" + std::string(2000, 'y')}), first + "OK\r\n" + std::string(1042, 'y'));
  EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "recvfrom[2,1001] 1046 bytes:[2047, xxx"), 1);
  EXPECT_EQ(reply_to({std::string(2046, 'x'), "\nOK\r\n"}), kFailure);
  EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "recvfrom[2,2046] 1 bytes:[2047, xxx"), 1);
}

TEST_F(AtChannel, EndsWithAFullBufferAfterTheThirdAttempt) {
  const std::string full(2047, 'x');
  const Modem modem(always({full, "\r\nOK\r\n", "\r\nOK\r\n", "\r\nOK\r\n"}));
  EXPECT_EQ(buffer_of("AT"), kFailure + '\0' + full.substr(10) + '\0');
  EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "recvfrom[2,2047] 0 bytes:[2047, xxx"), 1);
  EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "recvfrom[3,2047] 0 bytes:[2047, xxx"), 1);
}

TEST_F(AtChannel, WritesTheFailureOverTheStartOfTheReply) {
  const Modem modem(always({"a partial reply"}));
  const Waits waits({2, 3});
  EXPECT_EQ(buffer_of("AT"), kFailure + "\0reply"s + std::string(KELO_AT_REPLY_SIZE - 15, '\0'));
}

TEST_F(AtChannel, TakesTheLongestCommandOfADatagram) {
  const Modem modem(always({"OK\r\n"}));
  EXPECT_EQ(send(std::string(65506, 'x')), "OK\r\n");
  EXPECT_EQ(modem.received(), std::vector<std::string>{std::string(65506, 'X') + "\r"});
  EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "send at cmd:[65507,XXX"), 1);
}

TEST_F(AtChannel, FailsWithALongerCommand) {
  for (const std::size_t length : {65507U, 200000U}) {
    log.clear();
    EXPECT_EQ(send(std::string(length, 'x')), kFailure);
    EXPECT_EQ(log.lines().size(), 1U) << log.dump();
    EXPECT_EQ(log.count_containing(LOG_LVL_INFO, "send at cmd:[" + std::to_string(length + 1) + ",XXX"), 1);
  }
}

TEST_F(AtChannel, FailsWithoutACommand) {
  char* const reply = kelo_util_send_at(nullptr);
  EXPECT_EQ(kFailure + std::string(KELO_AT_REPLY_SIZE - 9, '\0'), std::string(reply, KELO_AT_REPLY_SIZE));
  std::free(reply);
  EXPECT_EQ(logged(), std::vector<std::string>{"ERR kelo_util_send_at param NULL\n"});
}

TEST_F(AtChannel, OpensItsSocketCloseOnExec) {
  EXPECT_EQ(reply_to({"OK\r\n"}), "OK\r\n");
  EXPECT_EQ(kelo::tests::last_socket_type, SOCK_DGRAM | SOCK_CLOEXEC);
}

TEST_F(AtChannel, UsesDescriptorsFrom1024On) {
  constexpr int kHigh = 1500;
  rlimit limits{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limits), 0);
  if (limits.rlim_max <= kHigh) GTEST_SKIP() << "this machine allows " << limits.rlim_max << " descriptors";
  limits.rlim_cur = limits.rlim_max;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limits), 0);
  const Modem modem(always({"AT\r", "line\r\n", "OK\r\n"}));
  kelo::tests::lowest_socket = kHigh;
  EXPECT_EQ(send("AT"), "line\r\nOK\r\n");
  kelo::tests::lowest_socket = 0;
}

TEST_F(AtChannel, ServesThreadsAtOnce) {
  Script script;
  for (int i = 0; i < 4; ++i) {
    const std::string name = std::to_string(i);
    std::vector<Datagram> datagrams = {{"+NUMBER: " + name + ".\r\n", true}, {"OK\r\n"}};
    script.answers.push_back({"AT" + name, datagrams});
  }
  const Modem modem(script);
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([name = std::to_string(i)] {
      for (int call = 0; call < 50; ++call) {
        EXPECT_EQ(send("at" + name), "+NUMBER: " + name + ".\r\nOK\r\n");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
