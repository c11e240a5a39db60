// SPDX-License-Identifier: MIT
// The text of an AT exchange, without a modem.
#include "kelo-app-common/src/at_reply.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/exact_buffer.hpp"

namespace {

using kelo::at::kFinalResults;
using kelo::tests::ExactBuffer;

std::string prepared(const std::string& command) {
  const ExactBuffer given(command);
  const ExactBuffer buffer(command.size() + kelo::at::kPreparedExtra);
  const std::size_t length = kelo::at::prepare_command(given.data(), buffer.data());
  EXPECT_EQ(length, std::strlen(buffer.data()));
  EXPECT_EQ(given.data(), command) << "the caller's text was changed";
  return buffer.data();
}

TEST(PrepareCommand, EndsInOneCarriageReturn) {
  EXPECT_EQ(prepared("AT"), "AT\r");
  EXPECT_EQ(prepared("AT\n"), "AT\r");
  EXPECT_EQ(prepared("AT\r"), "AT\r");
  EXPECT_EQ(prepared("AT\r\n"), "AT\r");
}

TEST(PrepareCommand, RemovesOneLineFeedAndThenOneCarriageReturn) {
  EXPECT_EQ(prepared("AT\n\r"), "AT\n\r");
  EXPECT_EQ(prepared("AT\n\n"), "AT\n\r");
  EXPECT_EQ(prepared("AT\r\r\n"), "AT\r\r");
  EXPECT_EQ(prepared("\nAT"), "\nAT\r");
  EXPECT_EQ(prepared("AT "), "AT \r");
}

TEST(PrepareCommand, TakesACommandWithoutCharacters) {
  for (const char* const command : {"", "\n", "\r", "\r\n"}) EXPECT_EQ(prepared(command), "\r");
}

TEST(PrepareCommand, ChangesTheCaseOfAsciiLettersAlone) {
  EXPECT_EQ(prepared("at+cgdcont=1,\"ip\",\"Internet.az\""), "AT+CGDCONT=1,\"IP\",\"INTERNET.AZ\"\r");
  std::string all;
  std::string expected;
  for (int c = 1; c < 256; ++c) {
    all += static_cast<char>(c);
    expected += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
  }
  EXPECT_EQ(prepared(all), expected + '\r');
}

TEST(PrepareCommand, TakesALongCommand) {
  EXPECT_EQ(prepared(std::string(65506, 'a')), std::string(65506, 'A') + '\r');
}

struct Stripped {
  bool found;
  std::string reply;
};

// The reply after its echo was looked for, in a buffer that is `room` bytes larger than it.
Stripped stripped(const std::string& reply, const char* sent, std::size_t room = 1) {
  const ExactBuffer buffer(reply.size() + room);
  std::memset(buffer.data(), 0, buffer.size());
  std::memcpy(buffer.data(), reply.data(), reply.size());
  const bool found = kelo::at::strip_echo({buffer.data(), buffer.size()}, sent);
  const std::string bytes = buffer.bytes();
  const std::size_t length = std::strlen(buffer.data());
  if (!found) return {false, bytes.substr(0, reply.size())};
  EXPECT_EQ(bytes.find_first_not_of('\0', length), std::string::npos) << "not zeros after the text";
  return {true, bytes.substr(0, length)};
}

struct EchoCase {
  const char* reply;
  const char* rest;
};

TEST(StripEcho, DropsTheEchoAndTheLineEndsAfterIt) {
  for (const auto& [reply, rest] :
       std::initializer_list<EchoCase>{{"AT+CGSN\r\r\n123\r\nOK\r\n", "123\r\nOK\r\n"},
                                       {"AT+CGSN\rOK\r\n", "OK\r\n"},
                                       {"AT+CGSN\r  \r\r\n\nOK\r\n", "OK\r\n"},
                                       {"AT+CGSN\r \t\r\nOK\r\n", "\t\r\nOK\r\n"},
                                       {"AT+CGSN\r\n\rOK\r\n", "\rOK\r\n"},
                                       {"AT+CGSN\r\r OK\r\n", " OK\r\n"},
                                       {"AT+CGSN\r\n OK\r\n", " OK\r\n"},
                                       {"noise AT+CGSN\r\r\nOK\r\n", "OK\r\n"},
                                       {"AT+CGSN\rAT+CGSN\r\r\nOK\r\n", "AT+CGSN\r\r\nOK\r\n"},
                                       {"AT+CGSN\r", ""},
                                       {"AT+CGSN\r \r\n", ""},
                                       {"AT+CGSN\r\r\n\n\n", ""}}) {
    const Stripped result = stripped(reply, "AT+CGSN\r");
    EXPECT_TRUE(result.found) << reply;
    EXPECT_EQ(result.reply, rest) << reply;
  }
}

TEST(StripEcho, LeavesAReplyWithoutTheEchoAlone) {
  for (const char* const reply :
       {"", "AT+CGSN", "at+cgsn\r\r\nOK\r\n", "AT+CGSN\n\r\nOK\r\n", "+CGSN\rOK\r\n"}) {
    const Stripped result = stripped(reply, "AT+CGSN\r");
    EXPECT_FALSE(result.found) << reply;
    EXPECT_EQ(result.reply, reply);
  }
}

TEST(StripEcho, SeesNothingAfterANul) {
  using namespace std::string_literals;
  EXPECT_FALSE(stripped("x\0AT\rOK\r\n"s, "AT\r").found);
  EXPECT_EQ(stripped("x\0AT\rOK\r\n"s, "AT\r").reply, "x\0AT\rOK\r\n"s);
  EXPECT_EQ(stripped("AT\r\r\nab\0OK\r\n"s, "AT\r").reply, "ab");
  EXPECT_EQ(stripped("AT\r\0OK\r\n"s, "AT\r").reply, "");
}

TEST(StripEcho, OfAnEmptyCommandIsTheFirstCarriageReturn) {
  EXPECT_EQ(stripped("\r\nOK\r\n", "\r").reply, "OK\r\n");
  EXPECT_EQ(stripped("OK\r\n", "\r").reply, "");
}

TEST(StripEcho, ClearsAFullBuffer) {
  const std::string rest(2047 - 3, 'x');
  EXPECT_EQ(stripped("AT\r" + rest, "AT\r").reply, rest);
  EXPECT_EQ(stripped("AT\r" + rest, "AT\r", 100).reply, rest);
  EXPECT_EQ(stripped(std::string(2044, ' ') + "AT\r", "AT\r").reply, "");
}

// What a search looked for and came upon.
struct Search {
  bool complete;
  std::vector<std::string> events;
};

Search search(const std::string& reply) {
  static Search result;  // callbacks capture nothing
  result = {};
  const ExactBuffer text(reply);
  result.complete = kelo::at::has_final_result(
      text.data(), [](const char* marker) { result.events.emplace_back(marker); },
      [](const char* start, const char* found) {
        EXPECT_LT(start, found);
        result.events.push_back("<" + std::string(start) + "><" + (found - 1) + ">");
      });
  return result;
}

bool ends(const std::string& reply) { return search(reply).complete; }

TEST(FinalResult, AreLookedForInThisOrder) {
  const std::vector<std::string> order = {"ERROR", "OK\r\n", "0\r",        "3\r",
                                          "3",     "4\r",    "NO CARRIER", "+CME ERROR:"};
  EXPECT_EQ(search("").events, order);
  EXPECT_EQ(search("nothing final\r\n").events, order);
  EXPECT_FALSE(ends(""));
}

TEST(FinalResult, CountAtTheStartAndAfterALineEnd) {
  for (std::size_t k = 0; k < kFinalResults.size(); ++k) {
    const std::string result = kFinalResults[k];
    for (const std::string before : {"", "\r", "\n", "\r\n", "abc\r\n", "abc\r", "abc\n", "\r\n\r\n"}) {
      const Search found = search(before + result);
      EXPECT_TRUE(found.complete) << before << result;
      std::vector<std::string> looked_for = found.events;
      std::erase_if(looked_for, [](const std::string& event) { return event[0] == '<'; });
      EXPECT_EQ(looked_for, std::vector<std::string>(kFinalResults.begin(), kFinalResults.begin() + k + 1));
      EXPECT_TRUE(ends(before + result + "more\r\n")) << before << result;
    }
  }
}

TEST(FinalResult, DoNotCountInMidLine) {
  for (const std::string result : kFinalResults) {
    for (const std::string before : {"x", " ", "\t", "abc\r\nx", "\r\n ", "1", "-", "\xff"}) {
      EXPECT_FALSE(ends(before + result)) << before << result;
    }
  }
}

TEST(FinalResult, WantTheirWholeText) {
  for (const char* const reply :
       {"ERRO", "OK", "OK\r", "OK\n", "0", "0\n", "4", "4\n", "NO CARRIE", "+CME ERROR",
        "+CMS ERRO:", "error", "ok\r\n", "No carrier", "BUSY\r\n", "1\r", "2\r"}) {
    EXPECT_FALSE(ends(reply)) << reply;
  }
}

TEST(FinalResult, MayFollowOneThatDoesNotCount) {
  EXPECT_TRUE(ends("an ERROR\r\nERROR\r\n"));
  EXPECT_TRUE(ends("1OK\r\nOK\r\n"));
  EXPECT_TRUE(ends("+CSQ: 10\r\n0\r"));
  EXPECT_TRUE(ends("+CREG: 0\r\nNO CARRIER\r\n"));
}

TEST(FinalResult, CountRightAfterOneThatDoesNot) {
  EXPECT_TRUE(ends("x33"));
  EXPECT_TRUE(ends("xERRORERROR"));
  EXPECT_FALSE(ends("x3x3"));
  EXPECT_FALSE(ends("xERROR ERROR"));
}

TEST(FinalResult, TellEachThatIsInTheWrongPlace) {
  const std::vector<std::string> expected = {"ERROR",
                                             "<an ERROR, no ERROR.>< ERROR, no ERROR.>",
                                             "<, no ERROR.>< ERROR.>",
                                             "OK\r\n",
                                             "0\r",
                                             "3\r",
                                             "3",
                                             "4\r",
                                             "NO CARRIER",
                                             "+CME ERROR:"};
  EXPECT_EQ(search("an ERROR, no ERROR.").events, expected);
}

TEST(FinalResult, OfAnExtendedErrorIsFoundLast) {
  const std::vector<std::string> expected = {"ERROR",
                                             "<\r\n+CME ERROR: 10\r\n>< ERROR: 10\r\n>",
                                             "OK\r\n",
                                             "0\r",
                                             "<\r\n+CME ERROR: 10\r\n><10\r\n>",
                                             "3\r",
                                             "3",
                                             "4\r",
                                             "NO CARRIER",
                                             "+CME ERROR:"};
  const Search found = search("\r\n+CME ERROR: 10\r\n");
  EXPECT_TRUE(found.complete);
  EXPECT_EQ(found.events, expected);
  EXPECT_FALSE(ends("\r\n+CMS ERROR: 10\r\n"));
}

TEST(FinalResult, IsTakenForAnyLineThatBeginsWithAThree) {
  EXPECT_TRUE(ends("\r\n35693803564380\r\n"));
  EXPECT_FALSE(ends("\r\n25693803564380\r\n+CSQ: 1\r\n"));
}

TEST(FinalResult, AreFoundInALongReply) {
  EXPECT_FALSE(ends(std::string(2047, '0')));
  EXPECT_TRUE(ends(std::string(2043, 'x') + "\n" + "OK\r\n"));
  EXPECT_FALSE(ends(std::string(2043, 'x') + "OK\r\n"));
}

}  // namespace
