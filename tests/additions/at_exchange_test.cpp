// SPDX-License-Identifier: MIT
// kelo_at_exchange() with a modem that answers by a script: every result, lines, echo, time and sizes.
#include "kelo_utils/at_exchange.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/descriptors.hpp"
#include "tools/modem/modem.hpp"

namespace {

using kelo::modem::Datagram;
using kelo::modem::Modem;
using kelo::modem::Script;
using namespace std::chrono_literals;
using namespace std::string_literals;
using Clock = std::chrono::steady_clock;

constexpr std::int32_t kUntouched = 77;
constexpr std::int32_t kLong = 60000;

struct Reply {
  std::int32_t result;
  std::int32_t reason;
  std::string lines;

  bool operator==(const Reply&) const = default;
};

void PrintTo(const Reply& reply, std::ostream* out) {
  *out << reply.result << ", reason " << reply.reason << ", " << testing::PrintToString(reply.lines);
}

Reply exchange(const char* command, std::int32_t timeout_ms = kLong, std::size_t size = 256) {
  std::string lines(size + 8, '#');
  std::int32_t reason = kUntouched;
  const std::int32_t result =
      kelo_at_exchange(command, timeout_ms, lines.data(), static_cast<std::int32_t>(size), &reason);
  EXPECT_EQ(lines.substr(size), "########");
  return {result, reason, size == 0 ? "" : lines.c_str()};
}

// A modem that answers every command with these datagrams.
Script always(const std::vector<std::string>& datagrams) {
  Script script{{{"*", {}}}};
  for (const std::string& bytes : datagrams) script.answers[0].datagrams.push_back(Datagram{bytes});
  return script;
}

Reply reply_to(const std::vector<std::string>& datagrams, std::int32_t timeout_ms = kLong,
               std::size_t size = 256) {
  const Modem modem(always(datagrams));
  return exchange("AT+X", timeout_ms, size);
}

TEST(AtExchange, FinalResults) {
  const struct {
    const char* line;
    std::int32_t result;
    std::int32_t reason;
  } finals[] = {
      {"OK", KELO_AT_OK, -1},
      {"ERROR", KELO_AT_ERROR, -1},
      {"NO CARRIER", KELO_AT_NO_CARRIER, -1},
      {"+CME ERROR: 10", KELO_AT_CME_ERROR, 10},
      {"+CMS ERROR: 321", KELO_AT_CMS_ERROR, 321},
      {"+CMS ERROR:0", KELO_AT_CMS_ERROR, 0},
      {"+CMS ERROR: 999999", KELO_AT_CMS_ERROR, 999999},
      {"+CMS ERROR: 1000000", KELO_AT_CMS_ERROR, -1},
      {"+CMS ERROR: 9999990", KELO_AT_CMS_ERROR, -1},
      {"+CME ERROR: SIM failure", KELO_AT_CME_ERROR, -1},
      {"+CME ERROR: 10 b", KELO_AT_CME_ERROR, -1},
      {"+CME ERROR:", KELO_AT_CME_ERROR, -1},
      {"+CME ERROR: -1", KELO_AT_CME_ERROR, -1},
  };
  for (const auto& [line, result, reason] : finals) {
    EXPECT_EQ(reply_to({"\r\n"s + line + "\r\n"}), (Reply{result, reason, ""})) << line;
    EXPECT_EQ(reply_to({"a\r\n"s + line + "\r"}), (Reply{result, reason, "a\n"})) << line;
    EXPECT_EQ(reply_to({line}, 100), (Reply{result, reason, ""})) << line << " without its end";
  }
}

TEST(AtExchange, OtherLinesAreNoResult) {
  EXPECT_EQ(reply_to({"OKAY\r\n OK\r\nOK \r\nERROR 5\r\n0\r\n3\r\n+CMX ERROR: 1\r\nBUSY\r\nOK\r\n"}),
            (Reply{KELO_AT_OK, -1, "OKAY\n OK\nOK \nERROR 5\n0\n3\n+CMX ERROR: 1\nBUSY\n"}));
}

TEST(AtExchange, LinesAreCollectedFromAnyDatagrams) {
  const std::string whole = "\r\n+CSQ: 20,99\r\n\r\n+CREG: 1\n\r\nO\0K\r\nlater\r\n"s;
  EXPECT_EQ(reply_to({whole}), (Reply{KELO_AT_OK, -1, "+CSQ: 20,99\n+CREG: 1\n"}));
  std::vector<std::string> bytes;
  for (const char byte : whole) bytes.emplace_back(1, byte);
  EXPECT_EQ(reply_to(bytes), (Reply{KELO_AT_OK, -1, "+CSQ: 20,99\n+CREG: 1\n"}));
}

TEST(AtExchange, EchoIsLeftOut) {
  EXPECT_EQ(reply_to({"AT+X\r\r\na\r\nAT+X\r\nOK\r\n"}), (Reply{KELO_AT_OK, -1, "a\nAT+X\n"}));
  EXPECT_EQ(reply_to({"AT+X\r\nAT+X\r\nOK\r\n"}), (Reply{KELO_AT_OK, -1, "AT+X\n"})) << "only the first line";
  EXPECT_EQ(reply_to({"AT+\r\nOK\r\n"}), (Reply{KELO_AT_OK, -1, "AT+\n"}));
  EXPECT_EQ(reply_to({"AT+XY\r\nOK\r\n"}), (Reply{KELO_AT_OK, -1, "AT+XY\n"}));
  EXPECT_EQ(reply_to({"xAT+X\r\nOK\r\n"}), (Reply{KELO_AT_OK, -1, "xAT+X\n"}));
}

TEST(AtExchange, CommandIsSentAsItIs) {
  const Modem modem(always({"OK\r\n"}));
  for (const char* const command : {"at+cpin=\"aB\"", "AT\r", "AT\n", "AT\r\n", "AT\n\r\n", ""})
    EXPECT_EQ(exchange(command).result, KELO_AT_OK) << command;
  EXPECT_EQ(modem.received(),
            (std::vector<std::string>{"at+cpin=\"aB\"\r", "AT\r", "AT\r", "AT\r", "AT\r", "\r"}));
}

TEST(AtExchange, LinesFit) {
  for (const std::size_t size : {1U, 2U, 3U, 4U, 5U, 6U, 7U}) {
    const bool fits = size >= 6;  // "ab" and "c", two line feeds and the terminator
    EXPECT_EQ(reply_to({"ab\r\nc\r\nOK\r\n"}, kLong, size),
              (Reply{fits ? KELO_AT_OK : KELO_AT_TOO_LONG, -1, "ab\nc\n"s.substr(0, size - 1)}))
        << size;
  }
}

TEST(AtExchange, EchoAndFinalResultNeedNoSpace) {
  EXPECT_EQ(reply_to({"AT+X\r\r\nNO CARRIER\r\n"}, kLong, 1), (Reply{KELO_AT_NO_CARRIER, -1, ""}));
  EXPECT_EQ(reply_to({"AT+X\r\r\na\r\nNO CARRIER\r\n"}, kLong, 3), (Reply{KELO_AT_NO_CARRIER, -1, "a\n"}));
}

TEST(AtExchange, LinesMayBeLeftOut) {
  const Modem modem(always({"abc\r\n+CMS ERROR: 5\r\n"}));
  char lines[] = "##";
  EXPECT_EQ(kelo_at_exchange("AT", kLong, nullptr, 100, nullptr), KELO_AT_CMS_ERROR);
  EXPECT_EQ(kelo_at_exchange("AT", kLong, lines, 0, nullptr), KELO_AT_CMS_ERROR);
  EXPECT_EQ(kelo_at_exchange("AT", kLong, lines, -1, nullptr), KELO_AT_CMS_ERROR);
  EXPECT_STREQ(lines, "##");
}

TEST(AtExchange, LargeDatagramIsReported) {
  EXPECT_EQ(reply_to({std::string(4092, '\n') + "OK\r\n", "OK\r\n"}).result, KELO_AT_OK);
  EXPECT_EQ(reply_to({std::string(4093, '\n') + "OK\r\n", "OK\r\n"}).result, KELO_AT_TOO_LONG);
}

TEST(AtExchange, TimeIsLimited) {
  const auto start = Clock::now();
  EXPECT_EQ(reply_to({"a\r\n", "b"}, 200), (Reply{KELO_AT_TIMED_OUT, kUntouched, "a\nb\n"}));
  EXPECT_GE(Clock::now() - start, 200ms);
  EXPECT_LT(Clock::now() - start, 10s);
  EXPECT_EQ(exchange("AT", 100), (Reply{KELO_AT_TIMED_OUT, kUntouched, ""})) << "no service listens";
}

// Each datagram comes in time, but all of them together do not.
TEST(AtExchange, DatagramsDoNotLengthenTheTime) {
  Script script = always(std::vector<std::string>(50, "a\r\n"));
  for (Datagram& datagram : script.answers[0].datagrams) datagram.pause = 100ms;
  const Modem modem(script);
  const auto start = Clock::now();
  EXPECT_EQ(exchange("AT", 300).result, KELO_AT_TIMED_OUT);
  EXPECT_LT(Clock::now() - start, 4s);
}

TEST(AtExchange, AnotherPortOfThisHostMayAnswer) {
  Script script = always({"a\r\n", "OK\r\n"});
  for (Datagram& datagram : script.answers[0].datagrams) datagram.from_stranger = true;
  const Modem modem(script);
  EXPECT_EQ(exchange("AT"), (Reply{KELO_AT_OK, -1, "a\n"}));
}

TEST(AtExchange, BadArgumentsAreRefused) {
  EXPECT_EQ(exchange(nullptr), (Reply{KELO_AT_BAD_ARGUMENT, kUntouched, ""}));
  for (const std::int32_t timeout_ms : {0, -1, INT32_MIN})
    EXPECT_EQ(exchange("AT", timeout_ms), (Reply{KELO_AT_BAD_ARGUMENT, kUntouched, ""}));
}

TEST(AtExchange, CommandThatIsNoDatagramIsNotSent) {
  const Modem modem(always({"OK\r\n"}));
  EXPECT_EQ(exchange(std::string(65506, 'A').c_str()).result, KELO_AT_OK);
  EXPECT_EQ(exchange(std::string(65507, 'A').c_str()), (Reply{KELO_AT_NOT_SENT, kUntouched, ""}));
}

TEST(AtExchange, NoSocketAndNoneLeft) {
  const auto before = kelo::tests::open_descriptors();
  EXPECT_EQ(exchange("AT", 10).result, KELO_AT_TIMED_OUT);
  EXPECT_EQ(kelo::tests::open_descriptors(), before);
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{3, limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_EQ(exchange("AT"), (Reply{KELO_AT_NOT_SENT, kUntouched, ""}));
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(AtExchange, ThreadsExchangeAtOnce) {
  const Modem modem(always({"a\r\n", "OK\r\n"}));
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([] { EXPECT_EQ(exchange("AT"), (Reply{KELO_AT_OK, -1, "a\n"})); });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
