// SPDX-License-Identifier: MIT
// AT commands of the C++ face, with a modem that answers by a script: every code, the lines and the reason.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "kelo_utils/kelo.hpp"
#include "tools/modem/modem.hpp"

namespace {

using kelo::AtReply;
using kelo::Result;
using kelo::modem::Datagram;
using kelo::modem::Modem;
using kelo::modem::Script;
using namespace std::chrono_literals;

Result<AtReply> reply_to(const std::string& datagram, std::chrono::milliseconds limit = 60s, int most = 100) {
  Script script{{{"*", {}}}};
  script.answers[0].datagrams.push_back(Datagram{datagram});
  const Modem modem(script);
  return kelo::at_exchange("AT+X", limit, most);
}

TEST(FaceAt, CollectsLines) {
  const auto reply = reply_to("\r\n+CSQ: 20,99\r\n+CREG: 1\r\nOK\r\n");
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply.value().lines, "+CSQ: 20,99\n+CREG: 1\n");
  EXPECT_EQ(reply.value().reason, -1);
}

TEST(FaceAt, OtherFinalResultsAreCodes) {
  EXPECT_EQ(reply_to("ERROR\r\n").code(), KELO_AT_ERROR);
  EXPECT_EQ(reply_to("NO CARRIER\r\n").code(), KELO_AT_NO_CARRIER);
  const auto cms = reply_to("a\r\n+CMS ERROR: 321\r\n");
  EXPECT_EQ(cms.code(), KELO_AT_CMS_ERROR);
  EXPECT_EQ(cms.value().reason, 321);
  EXPECT_EQ(cms.value().lines, "a\n");
  EXPECT_EQ(reply_to("+CME ERROR: 10\r\n").code(), KELO_AT_CME_ERROR);
}

TEST(FaceAt, Failures) {
  const auto late = reply_to("a\r\n", 100ms);
  EXPECT_EQ(late.code(), KELO_AT_TIMED_OUT);
  EXPECT_EQ(late.value().lines, "a\n");
  const auto too_long = reply_to("ab\r\nc\r\nOK\r\n", 60s, 3);
  EXPECT_EQ(too_long.code(), KELO_AT_TOO_LONG);
  EXPECT_EQ(too_long.value().lines, "ab\n");
  EXPECT_TRUE(reply_to("ab\r\nOK\r\n", 60s, 3));
  EXPECT_EQ(kelo::at_exchange(nullptr, 1s).code(), KELO_AT_BAD_ARGUMENT);
  EXPECT_EQ(kelo::at_exchange("AT", 0ms).code(), KELO_AT_BAD_ARGUMENT);
  EXPECT_EQ(kelo::at_exchange(std::string(70000, 'A').c_str(), 1s).code(), KELO_AT_NOT_SENT);
}

TEST(FaceAt, SendsAndWaitsForTheWholeReply) {
  Script script{{{"*", {}}}};
  script.answers[0].datagrams.push_back(Datagram{"\r\n+CSQ: 20,99\r\n\r\nOK\r\n"});
  const Modem modem(script);
  EXPECT_EQ(kelo::send_at("at+csq"), "\r\n+CSQ: 20,99\r\n\r\nOK\r\n");
  EXPECT_EQ(modem.received(), std::vector<std::string>{"AT+CSQ\r"});
}

}  // namespace
