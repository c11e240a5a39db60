// SPDX-License-Identifier: MIT
// 8-bit text becomes UTF-8 within the buffer that is given.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>
#include <string_view>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/unicode_oracle.hpp"

namespace {

using kelo::tests::ExactBuffer;
using kelo::tests::exactly;
using kelo::tests::Iconv;
using kelo::tests::LogCapture;
using namespace std::string_literals;

constexpr const char* kFunction = "oem_util_ss_ascii_to_utf8";
constexpr const char* kTooSmall = "the utf8 str buffer length is not enough\n";
constexpr std::size_t kNegative = static_cast<std::size_t>(-1);
constexpr std::size_t kBeyondAnyArray = static_cast<std::size_t>(PTRDIFF_MAX) + 1;

struct Converted {
  int length;
  std::string buffer;

  bool operator==(const Converted&) const = default;
};

void PrintTo(const Converted& converted, std::ostream* out) {
  *out << converted.length << ' ' << testing::PrintToString(converted.buffer);
}

Converted convert(std::string_view text, std::size_t size) {
  const ExactBuffer source = exactly(text);
  const ExactBuffer out(size);
  const int length = kelo_util_ss_ascii_to_utf8(source.data(), source.size(), out.data(), size);
  return {length, out.bytes()};
}

Converted terminated(const std::string& text, std::size_t size) {
  return {static_cast<int>(text.size()),
          text + '\0' + std::string(size - text.size() - 1, ExactBuffer::kUntouched)};
}

std::string ignored_return(std::size_t index) {
  return "ignored charecter at index = " + std::to_string(index) + " \n";
}

std::string ignored_character(std::size_t index, std::size_t length, std::size_t written, std::size_t size) {
  return "ignored extended character at index = " + std::to_string(index) +
         " not enough bytes. al: " + std::to_string(length) + "ui: " + std::to_string(written) +
         " us: " + std::to_string(size) + "\n";
}

std::string invalid(const void* text, const void* out) {
  std::array<char, 99> line{};
  std::snprintf(line.data(), line.size(), "Invalid parameters; ascii_str = %p, utf8_str = %p\n", text, out);
  return line.data();
}

TEST(Latin1ToUtf8, ConvertsEveryByteAsIconvDoes) {
  const LogCapture log;
  const Iconv iconv("UTF-8", "ISO-8859-1");
  for (int value = 0; value <= 255; ++value) {
    if (value == '\r') continue;
    const std::string text(1, static_cast<char>(value));
    EXPECT_EQ(terminated(iconv.convert(text), 3), convert(text, 3)) << value;
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Latin1ToUtf8, ConvertsEveryPairOfBytesAsIconvDoes) {
  const LogCapture log;
  const Iconv iconv("UTF-8", "ISO-8859-1");
  for (int first = 0; first <= 255; ++first) {
    for (int second = 0; second <= 255; ++second) {
      if (first == '\r' || second == '\r') continue;
      const std::string text = {static_cast<char>(first), static_cast<char>(second)};
      ASSERT_EQ(terminated(iconv.convert(text), 5), convert(text, 5)) << first << ' ' << second;
    }
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Latin1ToUtf8, RefusesABufferOfLessThanTwiceTheLength) {
  for (const std::string& text : {"a"s, "ab"s, "abc"s, "\xE9\xE9\xE9"s, std::string(300, 'a')}) {
    for (std::size_t size = 1; size < 2 * text.size(); ++size) {
      const LogCapture log;
      const Converted refused = {0, std::string(size, ExactBuffer::kUntouched)};
      ASSERT_EQ(refused, convert(text, size)) << size;
      ASSERT_EQ(log.count(LOG_LVL_ERR, kFunction, kTooSmall), 1) << log.dump();
      ASSERT_EQ(log.lines().size(), 1u) << log.dump();
    }
  }
}

TEST(Latin1ToUtf8, AcceptsABufferOfTwiceTheLength) {
  const LogCapture log;
  EXPECT_EQ(terminated("abc", 6), convert("abc", 6));
  EXPECT_EQ(terminated("a", 2), convert("a", 2));
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Latin1ToUtf8, LeavesOutAnExtendedCharacterWithoutRoomForTheTerminator) {
  const LogCapture log;
  EXPECT_EQ(terminated("", 2), convert("\xE9", 2));
  EXPECT_EQ(log.count(LOG_LVL_INFO, kFunction, ignored_character(0, 1, 0, 2)), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1u) << log.dump();
}

TEST(Latin1ToUtf8, PlacesAnExtendedCharacterWithRoomForTheTerminator) {
  const LogCapture log;
  EXPECT_EQ(terminated("\xC3\xA9", 3), convert("\xE9", 3));
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Latin1ToUtf8, LeavesOutTheLastOfAllExtendedCharacters) {
  const LogCapture log;
  EXPECT_EQ(terminated("\xC2\x80\xC3\xBF", 6), convert("\x80\xFF\xE9", 6));
  EXPECT_EQ(log.count(LOG_LVL_INFO, kFunction, ignored_character(2, 3, 4, 6)), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1u) << log.dump();
  EXPECT_EQ(terminated("\xC2\x80\xC3\xBF\xC3\xA9", 7), convert("\x80\xFF\xE9", 7));
}

TEST(Latin1ToUtf8, DropsCarriageReturns) {
  const LogCapture log;
  EXPECT_EQ(terminated("ab\xC3\xA9", 12), convert("\ra\rb\xE9\r", 12));
  for (const std::size_t index : {0U, 2U, 5U}) {
    EXPECT_EQ(log.count(LOG_LVL_INFO, kFunction, ignored_return(index)), 1) << log.dump();
  }
  EXPECT_EQ(log.lines().size(), 3u) << log.dump();
}

TEST(Latin1ToUtf8, TakesTheRoomOfACarriageReturnForAnExtendedCharacter) {
  const LogCapture log;
  EXPECT_EQ(terminated("\xC3\xA9", 4), convert("\r\xE9", 4));
  EXPECT_EQ(log.lines().size(), 1u) << log.dump();
}

TEST(Latin1ToUtf8, ConvertsTextOfMoreThan65535Bytes) {
  for (const std::size_t count : {255U, 256U, 257U, 32767U, 32768U, 65535U, 65536U, 70000U}) {
    const std::string text(count, '\xE9');
    EXPECT_TRUE(terminated(Iconv("UTF-8", "ISO-8859-1").convert(text), 2 * count + 1) ==
                convert(text, 2 * count + 1))
        << count;
  }
}

TEST(Latin1ToUtf8, ReportsInvalidParametersAndWritesNothing) {
  const ExactBuffer text = exactly("a");
  const ExactBuffer out(4);
  const auto refused = [](const char* source, std::size_t length, char* target, std::size_t size) {
    const LogCapture log;
    EXPECT_EQ(kelo_util_ss_ascii_to_utf8(source, length, target, size), 0);
    EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, invalid(source, target)), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1u) << log.dump();
  };
  refused(nullptr, 1, out.data(), 4);
  refused(text.data(), 1, nullptr, 4);
  refused(nullptr, 1, nullptr, 4);
  refused(text.data(), 0, out.data(), 4);
  refused(text.data(), 1, out.data(), 0);
  for (const std::size_t size : {kNegative, kBeyondAnyArray}) {
    refused(text.data(), size, out.data(), 4);
    refused(text.data(), 1, out.data(), size);
  }
  EXPECT_TRUE(out.untouched());
}

// Twice the length does not fit into the number that holds it.
TEST(Latin1ToUtf8, RefusesALengthWhoseDoubleIsTooLarge) {
  const LogCapture log;
  const ExactBuffer text = exactly("a");
  const ExactBuffer out(4);
  for (const std::size_t length : {kBeyondAnyArray - 1, kBeyondAnyArray / 2, kBeyondAnyArray / 2 + 1}) {
    EXPECT_EQ(kelo_util_ss_ascii_to_utf8(text.data(), length, out.data(), 4), 0);
  }
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, kTooSmall), 3) << log.dump();
  EXPECT_TRUE(out.untouched());
}

#if SIZE_MAX > UINT32_MAX
// A length is an int.
TEST(Latin1ToUtf8, RefusesATextWhoseLengthNoIntMayHold) {
  const LogCapture log;
  const ExactBuffer text = exactly("a");
  const ExactBuffer out(4);
  EXPECT_EQ(kelo_util_ss_ascii_to_utf8(text.data(), 0x40000000, out.data(), 0x80000000), 0);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, kTooSmall), 1) << log.dump();
  EXPECT_TRUE(out.untouched());
}
#endif

TEST(Latin1ToUtf8, KeepsErrno) {
  const LogCapture log;
  errno = E2BIG;
  convert("\r\xE9", 4);
  EXPECT_EQ(errno, E2BIG);
}

}  // namespace
