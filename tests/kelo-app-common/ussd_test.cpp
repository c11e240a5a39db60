// SPDX-License-Identifier: MIT
// USSD messages in each data coding scheme.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::ExactBuffer;
using kelo::tests::FailingHeap;
using kelo::tests::LogCapture;
using testing::ElementsAre;
using namespace std::string_literals;

constexpr std::uint8_t k7Bit = 0x0F;
constexpr std::uint8_t k8Bit = 0x44;
constexpr std::uint8_t kUcs2 = 0x48;
constexpr std::uint8_t kUcs2AfterLanguage = 0x11;
constexpr std::uint8_t kUnsupported = 0x80;

// "D:" for debug or "E:" for error, and the text without its line end; under another function's name that
// too.
std::vector<std::string> told(const LogCapture& log) {
  std::vector<std::string> lines;
  for (const auto& line : log.lines()) {
    const std::string level = line.level == LOG_LVL_DBUG ? "D:" : line.level == LOG_LVL_ERR ? "E:" : "?:";
    EXPECT_EQ(line.text.back(), '\n');
    lines.push_back(level + line.text.substr(0, line.text.size() - 1));
    if (line.function != "oem_util_convert_ussd_string_to_utf8") lines.back() += " @" + line.function;
  }
  return lines;
}

struct Decoded {
  int length;
  std::string buffer;
  std::vector<std::string> log;
};

// Decodes `data`, beyond which nothing can be read, in a buffer of `size` bytes.
Decoded decode(std::uint8_t dcs, const std::string& data, std::size_t size) {
  const LogCapture log;
  const ExactBuffer from(data.size());
  std::copy(data.begin(), data.end(), from.data());
  const ExactBuffer out(size);
  const int length =
      kelo_util_convert_ussd_string_to_utf8(dcs, reinterpret_cast<const std::uint8_t*>(from.data()),
                                            static_cast<int>(data.size()), out.data(), size);
  return {length, out.bytes(), told(log)};
}

std::string untouched(std::size_t size) { return std::string(size, ExactBuffer::kUntouched); }

// A text with its terminator, and untouched bytes after it.
std::string terminated(const std::string& text, std::size_t size) {
  const std::string bytes = text + '\0';
  return bytes + untouched(size - bytes.size());
}

// ---- kelo_util_UssdStringIsAscii ----

TEST(UssdStringIsAscii, IsTrueBelow128AtEveryPlace) {
  for (int byte = 1; byte < 256; ++byte) {
    for (std::size_t position = 0; position < 3; ++position) {
      std::string text = "abc";
      text[position] = static_cast<char>(byte);
      EXPECT_EQ(byte < 128 ? 1 : 0, kelo_util_UssdStringIsAscii(ExactBuffer(text).data())) << byte;
    }
  }
}

TEST(UssdStringIsAscii, IsTrueForTheEmptyText) {
  EXPECT_EQ(kelo_util_UssdStringIsAscii(ExactBuffer("").data()), 1);
  EXPECT_EQ(kelo_util_UssdStringIsAscii("\0\xFF"), 1) << "after the terminator";
}

TEST(UssdStringIsAscii, IsFalseForANullPointer) {
  const LogCapture log;
  EXPECT_EQ(kelo_util_UssdStringIsAscii(nullptr), 0);
  EXPECT_THAT(told(log), ElementsAre("E:kelo_util_UssdStringIsAscii param NULL @oem_util_UssdStringIsAscii"));
}

// ---- The coding schemes ----

enum class Coding { none, septets, octets, ucs2, ucs2_after_language };

Coding general_coding(int low) {
  switch (low / 4) {
    case 0:
      return Coding::septets;
    case 1:
      return Coding::octets;
    case 2:
      return Coding::ucs2;
    default:
      return Coding::none;
  }
}

Coding coding_of(int high, int low) {
  if (high == 0 || high == 2 || high == 3) return Coding::septets;
  if (high == 1 && low == 0) return Coding::septets;
  if (high == 1 && low == 1) return Coding::ucs2_after_language;
  if ((high >= 4 && high <= 7) || high == 9) return general_coding(low);
  if (high == 15) return low % 8 < 4 ? Coding::septets : Coding::octets;
  return Coding::none;
}

Decoded expected_of(Coding coding, int high, int low) {
  const std::string scheme = " str, hi " + std::to_string(high) + " lo " + std::to_string(low) + ": ";
  switch (coding) {
    case Coding::septets:
      return {6, terminated("@\xCE\x94\xC2\xA3H", 16), {"D:USSD DCS 7-bit" + scheme + "@\xCE\x94\xC2\xA3H"}};
    case Coding::octets:
      return {4, terminated("\0H\0i"s, 16), {"D:USSD DCS 8-bit" + scheme + untouched(16)}};
    case Coding::ucs2:
      return {2, terminated("Hi", 16), {"D:ussd string size = 4", "D:USSD DCS UCS2" + scheme + "Hi"}};
    case Coding::ucs2_after_language:
      return {4,
              terminated("\xE4\xA0\x80i", 16),
              {"D:ussd string size preceded by language = 4", "D:USSD DCS UCS2" + scheme + "\xE4\xA0\x80i"}};
    case Coding::none:
      return {0, untouched(16), {}};
  }
  return {};
}

TEST(UssdDecoding, FollowsEveryCodingScheme) {
  for (int high = 0; high < 16; ++high) {
    for (int low = 0; low < 16; ++low) {
      const Decoded expected = expected_of(coding_of(high, low), high, low);
      const Decoded result = decode(static_cast<std::uint8_t>(16 * high + low), "\0H\0i"s, 16);
      EXPECT_EQ(result.length, expected.length) << high << ' ' << low;
      EXPECT_EQ(result.buffer, expected.buffer) << high << ' ' << low;
      EXPECT_EQ(result.log, expected.log) << high << ' ' << low;
    }
  }
}

TEST(UssdDecoding, KnowsTheseSchemes) {
  EXPECT_EQ(decode(0x0F, "a", 2).buffer.c_str(), "a"s);
  EXPECT_EQ(decode(0x44, "a", 3).length, 1);
  EXPECT_EQ(decode(0x48, "\0H\0i"s, 3).length, 2);
  EXPECT_EQ(decode(0x4C, "a", 3).length, 0);
  EXPECT_EQ(decode(0x80, "a", 3).length, 0);
  EXPECT_EQ(decode(0xF4, "a", 3).length, 1);
}

TEST(UssdDecoding, RefusesWhatItCannotDecode) {
  const ExactBuffer out(8);
  const std::uint8_t octet = 'a';
  const auto refused = [](std::uint8_t dcs, const std::uint8_t* data, int len, char* to, std::size_t size) {
    const LogCapture log;
    EXPECT_EQ(kelo_util_convert_ussd_string_to_utf8(dcs, data, len, to, size), 0);
    EXPECT_THAT(told(log), ElementsAre("E:FATAL : CHECK FAILED"));
  };
  for (const std::uint8_t dcs : {k7Bit, k8Bit, kUcs2, kUcs2AfterLanguage, kUnsupported}) {
    refused(dcs, nullptr, 1, out.data(), 8);
    refused(dcs, &octet, 1, nullptr, 8);
    refused(dcs, nullptr, 0, nullptr, 0);
    refused(dcs, &octet, -1, out.data(), 8);
    refused(dcs, &octet, INT32_MIN, out.data(), 8);
  }
  EXPECT_TRUE(out.untouched());
}

// ---- GSM 7 bit ----

constexpr char kHelloHello[] = "\xE8\x32\x9B\xFD\x46\x97\xD9\xEC\x37";

TEST(Ussd7Bit, DecodesAndShowsTheText) {
  const Decoded result = decode(k7Bit, kHelloHello, 12);
  EXPECT_EQ(result.length, 10);
  EXPECT_EQ(terminated("hellohello", 12), result.buffer);
  EXPECT_THAT(result.log, ElementsAre("D:USSD DCS 7-bit str, hi 0 lo 15: hellohello"));
}

TEST(Ussd7Bit, CutsTheTextToTheBuffer) {
  for (std::size_t size = 1; size <= 11; ++size) {
    const Decoded result = decode(k7Bit, kHelloHello, size);
    EXPECT_EQ(static_cast<int>(size) - 1, result.length);
    EXPECT_EQ("hellohello"s.substr(0, size - 1) + '\0', result.buffer);
  }
}

TEST(Ussd7Bit, CountsOctetsModulo256) {
  for (const std::size_t length : {255u, 257u, 511u, 513u, 65535u, 65537u}) {
    const std::size_t septets = std::min<std::size_t>(length % 256 * 8 / 7, 255);
    const Decoded result = decode(k7Bit, std::string(length, '\0'), 300);
    EXPECT_EQ(static_cast<int>(septets), result.length) << length;
    EXPECT_EQ(terminated(std::string(septets, '@'), 300), result.buffer) << length;
  }
}

TEST(Ussd7Bit, ShowsTheOldBufferWhenNothingIsLeftToDecode) {
  for (const std::size_t length : {0u, 256u, 512u, 65536u}) {
    const Decoded result = decode(k7Bit, std::string(length, 'a'), 4);
    EXPECT_EQ(result.length, 0);
    EXPECT_EQ(untouched(4), result.buffer);
    EXPECT_THAT(result.log,
                ElementsAre("E:Invalid parameters for GSM alphabet to UTF8 conversion, input len = 0 "
                            "@oem_util_convert_gsm_def_alpha_string_to_utf8",
                            "D:USSD DCS 7-bit str, hi 0 lo 15: " + untouched(4)));
  }
}

TEST(Ussd7Bit, LeavesABufferOfNoBytesAlone) {
  const Decoded result = decode(k7Bit, kHelloHello, 0);
  EXPECT_EQ(result.length, 0);
  EXPECT_THAT(result.log,
              ElementsAre("E:Invalid parameters for GSM alphabet to UTF8 conversion, input len = 9 "
                          "@oem_util_convert_gsm_def_alpha_string_to_utf8",
                          "D:USSD DCS 7-bit str, hi 0 lo 15: "));
}

TEST(Ussd7Bit, LogsThatMemoryRanOut) {
  const LogCapture log;
  const ExactBuffer out(4);
  const std::uint8_t octet = 'a';
  int result = -1;
  {
    const FailingHeap heap(0);
    result = kelo_util_convert_ussd_string_to_utf8(k7Bit, &octet, 1, out.data(), 4);
  }
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(out.untouched());
  EXPECT_THAT(told(log), ElementsAre("E:Fail to allocate buffer for GSM alphabet to UTF8 conversion "
                                     "@oem_util_convert_gsm_def_alpha_string_to_utf8",
                                     "D:USSD DCS 7-bit str, hi 0 lo 15: ZZZZ"));
}

// ---- 8 bit ----

TEST(Ussd8Bit, NeedsTwoBytesMoreThanTheText) {
  const std::string text = "0123456789";
  for (std::size_t size = 0; size <= 11; ++size) {
    const Decoded refused = decode(k8Bit, text, size);
    EXPECT_EQ(refused.length, 0) << size;
    EXPECT_EQ(untouched(size), refused.buffer);
    EXPECT_THAT(refused.log,
                ElementsAre("D:USSD DCS 8-bit str, hi 4 lo 4: " + untouched(size),
                            "E:Destination buffer (sz " + std::to_string(size) + ") less than required 11"));
  }
  for (std::size_t size = 12; size <= 14; ++size) {
    const Decoded copied = decode(k8Bit, text, size);
    EXPECT_EQ(copied.length, 10) << size;
    EXPECT_EQ(terminated(text, size), copied.buffer);
    EXPECT_THAT(copied.log, ElementsAre("D:USSD DCS 8-bit str, hi 4 lo 4: " + untouched(size)));
  }
}

TEST(Ussd8Bit, CopiesEveryByteAsItIs) {
  std::string text;
  for (int byte = 0; byte < 256; ++byte) text += static_cast<char>(byte);
  const Decoded result = decode(k8Bit, text, 258);
  EXPECT_EQ(result.length, 256);
  EXPECT_EQ(terminated(text, 258), result.buffer);
}

TEST(Ussd8Bit, NeedsTwoBytesForTheEmptyText) {
  EXPECT_THAT(decode(k8Bit, "", 0).log, ElementsAre("D:USSD DCS 8-bit str, hi 4 lo 4: ",
                                                    "E:Destination buffer (sz 0) less than required 1"));
  EXPECT_THAT(decode(k8Bit, "", 1).log, ElementsAre("D:USSD DCS 8-bit str, hi 4 lo 4: Z",
                                                    "E:Destination buffer (sz 1) less than required 1"));
  EXPECT_EQ(terminated("", 2), decode(k8Bit, "", 2).buffer);
  EXPECT_EQ(decode(k8Bit, "", 2).length, 0);
}

TEST(Ussd8Bit, ShowsWhatTheBufferHeldBefore) {
  const LogCapture log;
  const ExactBuffer out("before", 16);
  const std::uint8_t octet = 'a';
  EXPECT_EQ(kelo_util_convert_ussd_string_to_utf8(k8Bit, &octet, 1, out.data(), out.size()), 1);
  EXPECT_STREQ(out.data(), "a");
  EXPECT_THAT(told(log), ElementsAre("D:USSD DCS 8-bit str, hi 4 lo 4: before"));
}

TEST(Ussd8Bit, CopiesMoreThanSixteenBitsCount) {
  for (const std::size_t length : {255u, 256u, 257u, 65535u, 65536u, 70000u}) {
    const std::string text(length, 'a');
    const ExactBuffer out(length + 2);
    EXPECT_EQ(static_cast<int>(length),
              kelo_util_convert_ussd_string_to_utf8(k8Bit, reinterpret_cast<const std::uint8_t*>(text.data()),
                                                    static_cast<int>(length), out.data(), out.size()));
    EXPECT_EQ(text + '\0' + ExactBuffer::kUntouched, out.bytes());
  }
}

TEST(Ussd8Bit, TakesAnySizeThatABufferMayClaim) {
  for (const std::size_t size : {SIZE_MAX, SIZE_MAX / 2 + 1}) {
    const LogCapture log;
    const ExactBuffer out("old", 5);
    const std::uint8_t octet = 'a';
    EXPECT_EQ(kelo_util_convert_ussd_string_to_utf8(k8Bit, &octet, 1, out.data(), size), 1);
    EXPECT_STREQ(out.data(), "a");
    EXPECT_THAT(told(log), ElementsAre("D:USSD DCS 8-bit str, hi 4 lo 4: old"));
  }
}

// ---- UCS-2 ----

constexpr char kUcs2Error[] = "E:Error in converting ucs2 string to utf8 @oem_util_convert_ucs2_to_utf8";

std::string truncated_to(std::size_t size) {
  return "D:String has been truncated. Buffer size of " + std::to_string(size) +
         " not large enough @oem_util_convert_ucs2_to_utf8";
}

TEST(UssdUcs2, TakesTheHighByteFirst) {
  // e with acute accent, the euro sign, a face beyond 16 bits
  const Decoded result = decode(kUcs2, "\x00\xE9\x20\xAC\xD8\x3D\xDE\x00"s, 16);
  EXPECT_EQ(result.length, 9);
  EXPECT_EQ(terminated("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", 16), result.buffer);
}

TEST(UssdUcs2, CutsTheTextToTheBuffer) {
  const Decoded exact = decode(kUcs2, "\0H\0i"s, 3);
  EXPECT_EQ(exact.length, 2);
  EXPECT_EQ(exact.buffer, "Hi\0"s);
  const Decoded cut = decode(kUcs2, "\0H\0i"s, 2);
  EXPECT_EQ(cut.length, 1);
  EXPECT_EQ(cut.buffer, "H\0"s);
  EXPECT_THAT(cut.log,
              ElementsAre("D:ussd string size = 4", truncated_to(2), "D:USSD DCS UCS2 str, hi 4 lo 8: H"));
  const Decoded one = decode(kUcs2, "\0H\0i"s, 1);
  EXPECT_EQ(one.length, 0);
  EXPECT_EQ(one.buffer, "\0"s);
}

TEST(UssdUcs2, LeavesABufferOfNoBytesAlone) {
  const Decoded result = decode(kUcs2, "\0H\0i"s, 0);
  EXPECT_EQ(result.length, 0);
  EXPECT_THAT(result.log,
              ElementsAre("D:ussd string size = 4", truncated_to(0), "D:USSD DCS UCS2 str, hi 4 lo 8: "));
}

TEST(UssdUcs2, LeavesOutHalfAUnitAtTheEnd) {
  const Decoded one = decode(kUcs2, "\0"s, 4);
  EXPECT_EQ(one.length, 0);
  EXPECT_EQ(terminated("", 4), one.buffer);
  EXPECT_THAT(one.log, ElementsAre("D:ussd string size = 1", kUcs2Error, "D:USSD DCS UCS2 str, hi 4 lo 8: "));
  const Decoded three = decode(kUcs2, "\0HA"s, 4);
  EXPECT_EQ(three.length, 1);
  EXPECT_EQ(terminated("H", 4), three.buffer);
  EXPECT_THAT(three.log,
              ElementsAre("D:ussd string size = 3", kUcs2Error, "D:USSD DCS UCS2 str, hi 4 lo 8: H"));
}

TEST(UssdUcs2, HasNoTextInNoBytes) {
  const Decoded result = decode(kUcs2, "", 4);
  EXPECT_EQ(result.length, 0);
  EXPECT_EQ(terminated("", 4), result.buffer);
  EXPECT_THAT(result.log,
              ElementsAre("D:ussd string size = 0", kUcs2Error, "D:USSD DCS UCS2 str, hi 4 lo 8: "));
}

TEST(UssdUcs2, ConvertsTheLanguageUnswapped) {
  const Decoded result = decode(kUcs2AfterLanguage, "en\0H\0i"s, 16);
  EXPECT_EQ(result.length, 5);
  EXPECT_EQ(terminated("\xE6\xB9\xA5Hi", 16), result.buffer) << "U+6E65 stands for the language";
  EXPECT_THAT(result.log, ElementsAre("D:ussd string size preceded by language = 6",
                                      "D:USSD DCS UCS2 str, hi 1 lo 1: \xE6\xB9\xA5Hi"));
}

TEST(UssdUcs2, TakesALanguageThatIsCutOff) {
  const auto lines = [](int length, const std::string& text, bool error) {
    std::vector<std::string> all = {"D:ussd string size preceded by language = " + std::to_string(length)};
    if (error) all.emplace_back(kUcs2Error);
    all.push_back("D:USSD DCS UCS2 str, hi 1 lo 1: " + text);
    return all;
  };
  const std::string text = "en\0H"s;
  const std::vector<std::string> expected = {"", "", "\xE6\xB9\xA5", "\xE6\xB9\xA5", "\xE6\xB9\xA5H"};
  for (std::size_t length = 0; length < expected.size(); ++length) {
    const Decoded result = decode(kUcs2AfterLanguage, text.substr(0, length), 8);
    EXPECT_EQ(result.length, static_cast<int>(expected[length].size())) << length;
    EXPECT_EQ(terminated(expected[length], 8), result.buffer) << length;
    const bool error = length == 0 || length % 2 == 1;
    EXPECT_EQ(lines(static_cast<int>(length), expected[length], error), result.log) << length;
  }
}

TEST(UssdUcs2, CountsItsResultInSixteenBits) {
  for (const auto& [units, result] : {std::pair{21845u, 65535}, {21846u, 2}, {22000u, 464}}) {
    std::string text;
    for (unsigned i = 0; i < units; ++i) text += "\x4E\x00"s;
    const ExactBuffer out(3 * units + 1);
    EXPECT_EQ(result,
              kelo_util_convert_ussd_string_to_utf8(kUcs2, reinterpret_cast<const std::uint8_t*>(text.data()),
                                                    static_cast<int>(text.size()), out.data(), out.size()));
    EXPECT_EQ(3 * units, std::strlen(out.data()));
  }
}

TEST(UssdUcs2, LogsThatMemoryRanOut) {
  for (const std::uint8_t dcs : {kUcs2, kUcs2AfterLanguage}) {
    const LogCapture log;
    const ExactBuffer out(4);
    const std::uint8_t octets[] = {'a', 'b'};
    int result = -1;
    {
      const FailingHeap heap(0);
      result = kelo_util_convert_ussd_string_to_utf8(dcs, octets, 2, out.data(), 4);
    }
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(out.untouched());
    EXPECT_THAT(told(log), ElementsAre("E:USC2 to UTF8 conversion failed due to lack of memory"));
  }
}

}  // namespace
