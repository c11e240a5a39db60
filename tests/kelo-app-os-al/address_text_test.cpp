// SPDX-License-Identifier: MIT
// IP, netmask and MAC addresses as text: checks and conversions.
#include <arpa/inet.h>
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"

namespace {

bool conversions_fail = false;

}  // namespace

// The library's calls land here. The C library's declaration has reserved parameter names.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
extern "C" const char* inet_ntop(int family, const void* address, char* text, socklen_t size) noexcept {
  static const auto real = reinterpret_cast<decltype(&inet_ntop)>(dlsym(RTLD_NEXT, "inet_ntop"));
  if (!conversions_fail) return real(family, address, text, size);
  errno = ENOSPC;
  return nullptr;
}

namespace {

using kelo::tests::ExactBuffer;
using kelo::tests::LogCapture;

constexpr std::array<std::uint8_t, 4> kAddress = {192, 168, 0, 1};
using Ipv6 = std::array<std::uint8_t, 16>;

class ConversionFault {
 public:
  ConversionFault() { conversions_fail = true; }
  ~ConversionFault() { conversions_fail = false; }
  ConversionFault(const ConversionFault&) = delete;
  ConversionFault& operator=(const ConversionFault&) = delete;
};

std::string padded(const std::string& text, std::size_t size) {
  return text + std::string(size - text.size(), '\0');
}

void expect_one_line(const LogCapture& log, int level, const char* function, const std::string& text) {
  EXPECT_EQ(log.lines().size(), 1U) << log.dump();
  EXPECT_EQ(log.count(level, function, text), 1) << log.dump();
}

// ---- ConvertIPv4ArrayToStr ----

TEST(Ipv4ArrayToText, WritesTheTextAndZerosAfterIt) {
  for (const std::size_t size : {16U, 17U, 64U}) {
    const ExactBuffer text(size);
    EXPECT_EQ(ConvertIPv4ArrayToStr(kAddress.data(), text.data(), static_cast<std::int32_t>(size)), 0);
    EXPECT_EQ(text.bytes(), padded("192.168.0.1", size));
  }
}

TEST(Ipv4ArrayToText, HasRoomForTheLongestInSixteenBytes) {
  constexpr std::array<std::uint8_t, 4> longest = {255, 255, 255, 255};
  const ExactBuffer text(16);
  EXPECT_EQ(ConvertIPv4ArrayToStr(longest.data(), text.data(), 16), 0);
  EXPECT_STREQ(text.data(), "255.255.255.255");
}

TEST(Ipv4ArrayToText, RefusesASmallerBuffer) {
  for (const std::int32_t size : {15, 1, 0, -1, INT32_MIN}) {
    const LogCapture log;
    const ExactBuffer text(15);
    EXPECT_EQ(ConvertIPv4ArrayToStr(kAddress.data(), text.data(), size), -1);
    EXPECT_TRUE(text.untouched());
    expect_one_line(log, LOG_LVL_ERR, "ConvertIPv4ArrayToStr",
                    "ipStr size is " + std::to_string(size) + "; must be at least 16\n");
  }
}

TEST(Ipv4ArrayToText, RefusesNull) {
  const ExactBuffer text(16);
  {
    const LogCapture log;
    EXPECT_EQ(ConvertIPv4ArrayToStr(nullptr, text.data(), 16), -1);
    expect_one_line(log, LOG_LVL_ERR, "ConvertIPv4ArrayToStr", "input ipNum is NULL now !!!\n");
  }
  const LogCapture log;
  EXPECT_EQ(ConvertIPv4ArrayToStr(kAddress.data(), nullptr, 16), -1);
  expect_one_line(log, LOG_LVL_ERR, "ConvertIPv4ArrayToStr", "ConvertIPv4ArrayToStr param NULL\n");
  EXPECT_TRUE(text.untouched());
}

// ---- ConvertIPv4NumToStr ----

TEST(Ipv4NumberToText, TakesTheNumberInHostOrder) {
  const ExactBuffer text(16);
  EXPECT_EQ(ConvertIPv4NumToStr(0xC0A80001, text.data(), 16), 0);
  EXPECT_STREQ(text.data(), "192.168.0.1");
  EXPECT_EQ(ConvertIPv4NumToStr(0, text.data(), 16), 0);
  EXPECT_STREQ(text.data(), "0.0.0.0");
  EXPECT_EQ(ConvertIPv4NumToStr(0xFFFFFFFF, text.data(), 16), 0);
  EXPECT_STREQ(text.data(), "255.255.255.255");
}

TEST(Ipv4NumberToText, RefusesASmallerBufferAndNull) {
  for (const std::int32_t size : {15, 0, -1}) {
    const LogCapture log;
    const ExactBuffer text(15);
    EXPECT_EQ(ConvertIPv4NumToStr(1, text.data(), size), -1);
    EXPECT_TRUE(text.untouched());
    expect_one_line(log, LOG_LVL_ERR, "ConvertIPv4NumToStr",
                    "ipStr size is " + std::to_string(size) + "; must be at least 16\n");
  }
  const LogCapture log;
  EXPECT_EQ(ConvertIPv4NumToStr(1, nullptr, 16), -1);
  expect_one_line(log, LOG_LVL_ERR, "ConvertIPv4NumToStr", "ConvertIPv4NumToStr param NULL\n");
}

TEST(Ipv4NumberToText, SaysWhichNumberFailed) {
  const LogCapture log;
  const ConversionFault fault;
  const ExactBuffer text(16);
  EXPECT_EQ(ConvertIPv4NumToStr(0xC0A80001, text.data(), 16), -1);
  expect_one_line(log, LOG_LVL_ERR, "ConvertIPv4NumToStr", "Error converting C0A80001 to IP string\n");
}

// ---- ConvertIPv6NumToStr ----

struct Ipv6Text {
  Ipv6 bytes;
  const char* text;
};

constexpr Ipv6Text kIpv6Texts[] = {
    {{}, "::"},
    {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, "::1"},
    {{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, "2001:db8::"},
    {{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 2, 0, 0x5e, 0xff, 0xfe, 0, 0x53, 0xaf}, "fe80::200:5eff:fe00:53af"},
    {{0x20, 0x01, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1}, "2001:0:0:1::1"},
    {{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 192, 0, 2, 33}, "::ffff:192.0.2.33"},
    {{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
     "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
};

TEST(Ipv6ToText, WritesTheCompressedFormAndZerosAfterIt) {
  for (const Ipv6Text& example : kIpv6Texts) {
    for (const std::size_t size : {46U, 47U, 100U}) {
      const ExactBuffer text(size);
      EXPECT_EQ(ConvertIPv6NumToStr(example.bytes.data(), text.data(), static_cast<std::int32_t>(size)), 0);
      EXPECT_EQ(text.bytes(), padded(example.text, size));
    }
    EXPECT_EQ(is_valid_ipv6(example.text), 1) << example.text;
  }
}

TEST(Ipv6ToText, RefusesASmallerBufferAndNull) {
  const Ipv6 bytes{};
  for (const std::int32_t size : {45, 16, 0, -1}) {
    const LogCapture log;
    const ExactBuffer text(45);
    EXPECT_EQ(ConvertIPv6NumToStr(bytes.data(), text.data(), size), -1);
    EXPECT_TRUE(text.untouched());
    expect_one_line(log, LOG_LVL_ERR, "ConvertIPv6NumToStr",
                    "ipStr size is " + std::to_string(size) + "; must be at least 46\n");
  }
  const ExactBuffer text(46);
  const LogCapture log;
  EXPECT_EQ(ConvertIPv6NumToStr(nullptr, text.data(), 46), -1);
  EXPECT_EQ(ConvertIPv6NumToStr(bytes.data(), nullptr, 46), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "ConvertIPv6NumToStr", "ConvertIPv6NumToStr param NULL\n"), 2)
      << log.dump();
  EXPECT_TRUE(text.untouched());
}

TEST(Ipv6ToText, LeavesHexadecimalDigitsWhenTheConversionFails) {
  const LogCapture log;
  const ConversionFault fault;
  const ExactBuffer text(46);
  EXPECT_EQ(ConvertIPv6NumToStr(kIpv6Texts[3].bytes.data(), text.data(), 46), -1);
  EXPECT_EQ(text.bytes(), padded("FE8000000000000002005EFFFE0053AF", 46));
  expect_one_line(log, LOG_LVL_ERR, "ConvertIPv6NumToStr",
                  "Error converting FE8000000000000002005EFFFE0053AF to IP string\n");
}

// ---- validity of addresses ----

TEST(AddressText, KnowsStrictDottedQuads) {
  for (const char* text : {"0.0.0.0", "1.2.3.4", "255.255.255.255", "192.168.0.1", "10.0.0.255"}) {
    EXPECT_EQ(kelo_check_v4_ip(text), 1) << text;
    EXPECT_EQ(is_valid_ip(text), 1) << text;
    EXPECT_EQ(is_valid_ipv6(text), 0) << text;
  }
  for (const char* text : {"",           "1",          "1.2.3",    "1.2.3.4.5", "1.2.3.256", "1.2.3.-4",
                           "1.2.3.+4",   "1.2.3.4 ",   " 1.2.3.4", "1.2.3.4\n", "1..2.3",    ".1.2.3.4",
                           "1.2.3.4.",   "01.2.3.4",   "1.2.3.04", "1.2.3.0x4", "a.b.c.d",   "1,2,3,4",
                           "1.2.3.4/24", "1.2.3.1000", "16909060", "\xFF.2.3.4"}) {
    EXPECT_EQ(kelo_check_v4_ip(text), 0) << text;
    EXPECT_EQ(is_valid_ip(text), 0) << text;
  }
}

TEST(AddressText, KnowsEveryNumberOfADottedQuad) {
  for (int number = 0; number < 1000; ++number) {
    for (int position = 0; position < 4; ++position) {
      std::string text;
      for (int i = 0; i < 4; ++i) text += (i > 0 ? "." : "") + std::to_string(i == position ? number : 7);
      EXPECT_EQ(is_valid_ip(text.c_str()), number <= 255 ? 1 : 0) << text;
    }
  }
}

TEST(AddressText, KnowsIpv6) {
  for (const char* text :
       {"::", "::1", "1::", "2001:DB8::1", "2001:db8:0:0:8:800:200C:417A", "::FFFF:129.144.52.38",
        "::13.1.68.3", "1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7::", "::2:3:4:5:6:7:8", "fe80::1", "0001::"}) {
    EXPECT_EQ(is_valid_ipv6(text), 1) << text;
    EXPECT_EQ(is_valid_ip(text), 0) << text;
  }
  for (const char* text : {"", ":", ":::", "1", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1::2::3",
                           ":1:2:3:4:5:6:7", "1:2:3:4:5:6:7:", "12345::", "g::", "::1.2.3", "::1.2.3.256",
                           "1.2.3.4::", "fe80::1%eth0", "2001:db8::/32", "[::1]", " ::1", "::1 "}) {
    EXPECT_EQ(is_valid_ipv6(text), 0) << text;
  }
}

TEST(AddressText, TakesNullForNoAddressWithoutALine) {
  const LogCapture log;
  EXPECT_EQ(kelo_check_v4_ip(nullptr), 0);
  EXPECT_EQ(is_valid_ip(nullptr), 0);
  EXPECT_EQ(is_valid_ipv6(nullptr), 0);
  EXPECT_EQ(Is_valid_SubnetMask(nullptr), 0);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

// ---- Is_valid_SubnetMask ----

std::string dotted(std::uint32_t number) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8)
    text += std::to_string(number >> shift & 255) + (shift > 0 ? "." : "");
  return text;
}

std::uint32_t mask_of(int ones) {
  std::uint32_t mask = 0;
  for (int i = 0; i < ones; ++i) mask |= 0x80000000U >> i;
  return mask;
}

TEST(SubnetMask, AcceptsTheThirtyThreeMasks) {
  for (int ones = 0; ones <= 32; ++ones) {
    EXPECT_EQ(Is_valid_SubnetMask(dotted(mask_of(ones)).c_str()), 1) << dotted(mask_of(ones));
  }
}

TEST(SubnetMask, RefusesEveryMaskWithOneBitChangedUnlessThatIsAnother) {
  for (int ones = 0; ones <= 32; ++ones) {
    for (int bit = 0; bit < 32; ++bit) {
      const std::uint32_t changed = mask_of(ones) ^ 1U << bit;
      const bool is_a_mask = changed == mask_of(std::popcount(changed));
      EXPECT_EQ(Is_valid_SubnetMask(dotted(changed).c_str()), is_a_mask ? 1 : 0) << dotted(changed);
    }
  }
}

TEST(SubnetMask, RefusesWhatIsNoAddress) {
  for (const char* text : {"", "255.255.255", "255.255.255.256", "255.255.255.0 ", "24", "/24", "0xffffff00",
                           "255.255.255.129", "255.0.255.0"}) {
    EXPECT_EQ(Is_valid_SubnetMask(text), 0) << text;
  }
  EXPECT_EQ(Is_valid_SubnetMask("255.255.255.128"), 1);
}

// ---- ereg ----

TEST(RegularExpression, MatchesExtendedPatternsWithCase) {
  EXPECT_EQ(ereg("^a(b|c)+$", "abcb"), 0);
  EXPECT_EQ(ereg("^a(b|c)+$", "abd"), 1);
  EXPECT_EQ(ereg("b{2}", "abba"), 0);
  EXPECT_EQ(ereg("ABBA", "abba"), 1);
  EXPECT_EQ(ereg("", "anything"), 0);
  EXPECT_EQ(ereg("^$", ""), 0);
  EXPECT_EQ(ereg("(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)(l)", "abcdefghijkl"), 0);
  EXPECT_EQ(ereg("^b", "a\nb"), 1);
}

TEST(RegularExpression, TakesAMalformedPatternForNoMatch) {
  const LogCapture log;
  for (const char* pattern : {"(", "[", "a{2", "*(", "a{3,1}"})
    EXPECT_EQ(ereg(pattern, "(aa["), 1) << pattern;
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(RegularExpression, RefusesNull) {
  const LogCapture log;
  EXPECT_EQ(ereg(nullptr, "a"), 1);
  EXPECT_EQ(ereg("a", nullptr), 1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "ereg", "ereg param NULL\n"), 2) << log.dump();
}

// ---- Is_valid_Mac ----

void expect_mac(const std::string& text, bool valid) {
  const LogCapture log;
  EXPECT_EQ(Is_valid_Mac(text.c_str()), valid ? 1 : 0) << text;
  expect_one_line(log, valid ? LOG_LVL_DBUG : LOG_LVL_ERR, "Is_valid_Mac",
                  valid ? "Yes Match!!! \n" : "No Match!!! \n");
}

TEST(MacText, TakesItsThreeSeparatorsAndNoOther) {
  for (int separator = 1; separator < 256; ++separator) {
    std::string text;
    for (const char* group : {"00", "1A", "2b", "3C", "4d", "5E"})
      text += (text.empty() ? "" : std::string(1, static_cast<char>(separator))) + group;
    expect_mac(text, separator == ':' || separator == 's' || separator == '\\');
  }
  expect_mac("00:1As2b\\3C:4ds5E", true);
  expect_mac("001A2b3C4d5E", false);
  expect_mac("00::1A:2b:3C:4d:5E", false);
}

TEST(MacText, WantsSixGroupsOfTwoDigits) {
  expect_mac("00:1A:2b:3C:4d", false);
  expect_mac("00:1A:2b:3C:4d:5E:6f", false);
  expect_mac("0:1:2:3:4:5", false);
  expect_mac("00:1A:2b:3C:4d:5", false);
  expect_mac("00:1A:2b:3C:4d:5E0", false);
  expect_mac("000:1A:2b:3C:4d:5E", false);
  expect_mac("", false);
  expect_mac(" 00:1A:2b:3C:4d:5E", false);
  expect_mac("00:1A:2b:3C:4d:5E\n", false);
  expect_mac("ff:FF:ff:FF:ff:FF", true);
}

TEST(MacText, TakesHexadecimalDigitsOfEitherCaseAlone) {
  for (int digit = 1; digit < 256; ++digit) {
    const bool hexadecimal =
        (digit >= '0' && digit <= '9') || (digit >= 'a' && digit <= 'f') || (digit >= 'A' && digit <= 'F');
    expect_mac(std::string("0") + static_cast<char>(digit) + ":1A:2b:3C:4d:5E", hexadecimal);
    expect_mac(std::string("00:1A:2b:3C:4d:") + static_cast<char>(digit) + "E", hexadecimal);
  }
}

TEST(MacText, RefusesNull) {
  const LogCapture log;
  EXPECT_EQ(Is_valid_Mac(nullptr), 0);
  expect_one_line(log, LOG_LVL_ERR, "Is_valid_Mac", "Is_valid_Mac param NULL\n");
}

}  // namespace
