// SPDX-License-Identifier: MIT
// The GSM alphabet with its extension table, mapped to text.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/unicode_oracle.hpp"

namespace {

using kelo::tests::bytes_of;
using kelo::tests::ExactBuffer;
using kelo::tests::Iconv;
using kelo::tests::kHostUtf16;
using kelo::tests::LogCapture;
using Bytes = std::vector<std::uint8_t>;

constexpr char kMapName[] = "oem_util_convert_gsm8bit_alpha_string_to_utf8";
constexpr char kUnpackName[] = "oem_util_convert_gsm_def_alpha_string_to_utf8";
constexpr std::uint8_t kEscape = 27;

// The characters of septets 0 to 127, by their code points.
constexpr std::array<std::uint16_t, 128> kCodePoints = {
    0x0040, 0x00A3, 0x0024, 0x00A5, 0x00E8, 0x00E9, 0x00F9, 0x00EC, 0x00F2, 0x00C7, 0x000A, 0x00D8, 0x00F8,
    0x000D, 0x00C5, 0x00E5, 0x0394, 0x005F, 0x03A6, 0x0393, 0x039B, 0x03A9, 0x03A0, 0x03A8, 0x03A3, 0x0398,
    0x039E, 0x0020, 0x00C6, 0x00E6, 0x00DF, 0x00C9, 0x0020, 0x0021, 0x0022, 0x0023, 0x00A4, 0x0025, 0x0026,
    0x0027, 0x0028, 0x0029, 0x002A, 0x002B, 0x002C, 0x002D, 0x002E, 0x002F, 0x0030, 0x0031, 0x0032, 0x0033,
    0x0034, 0x0035, 0x0036, 0x0037, 0x0038, 0x0039, 0x003A, 0x003B, 0x003C, 0x003D, 0x003E, 0x003F, 0x00A1,
    0x0041, 0x0042, 0x0043, 0x0044, 0x0045, 0x0046, 0x0047, 0x0048, 0x0049, 0x004A, 0x004B, 0x004C, 0x004D,
    0x004E, 0x004F, 0x0050, 0x0051, 0x0052, 0x0053, 0x0054, 0x0055, 0x0056, 0x0057, 0x0058, 0x0059, 0x005A,
    0x00C4, 0x00D6, 0x00D1, 0x00DC, 0x00A7, 0x00BF, 0x0061, 0x0062, 0x0063, 0x0064, 0x0065, 0x0066, 0x0067,
    0x0068, 0x0069, 0x006A, 0x006B, 0x006C, 0x006D, 0x006E, 0x006F, 0x0070, 0x0071, 0x0072, 0x0073, 0x0074,
    0x0075, 0x0076, 0x0077, 0x0078, 0x0079, 0x007A, 0x00E4, 0x00F6, 0x00F1, 0x00FC, 0x00E0,
};

// What one unpacked byte stands for.
std::string form_of(std::uint8_t byte) {
  if (byte == '\r') return "";
  static const std::array<std::string, 128> forms = [] {
    std::array<std::string, 128> all;
    const Iconv utf8("UTF-8", kHostUtf16);
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = utf8.convert(bytes_of({kCodePoints[i]}));
    return all;
  }();
  return byte < 128 ? forms[byte] : std::string(1, static_cast<char>(byte));
}

// The text of unpacked bytes in a buffer of `size` bytes: whatever still fits, in order.
std::string expected_text(const Bytes& bytes, std::size_t size) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    const std::string form = form_of(byte);
    if (text.size() + form.size() < size) text += form;
  }
  return text;
}

struct Converted {
  int length;
  std::string buffer;
};

Converted map(const Bytes& septets, std::size_t size) {
  const ExactBuffer out(size);
  const int length = kelo_util_convert_gsm8bit_alpha_string_to_utf8(
      septets.data(), static_cast<int>(septets.size()), out.data(), size);
  return {length, out.bytes()};
}

Converted unpack_and_map(const Bytes& octets, int packed_len, std::size_t size) {
  const ExactBuffer out(size);
  const int length =
      kelo_util_convert_gsm_def_alpha_string_to_utf8(octets.data(), packed_len, out.data(), size);
  return {length, out.bytes()};
}

// The text, its terminator, and untouched bytes after it.
void expect_text(const std::string& text, std::size_t size, const Converted& result) {
  ASSERT_EQ(static_cast<int>(text.size()), result.length);
  std::string expected = text + '\0';
  expected.resize(size, ExactBuffer::kUntouched);
  ASSERT_EQ(result.buffer, expected);
}

std::mt19937& generator() {
  static std::mt19937 random(20260302);
  return random;
}

Bytes random_bytes(std::size_t count, unsigned most) {
  Bytes bytes(count);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(generator()() % (most + 1));
  return bytes;
}

// ---- kelo_util_convert_gsm8bit_alpha_string_to_utf8 ----

TEST(GsmAlphabet, HasTheCharacterOfEverySeptet) {
  for (int septet = 0; septet < 128; ++septet) {
    const auto byte = static_cast<std::uint8_t>(septet);
    expect_text(form_of(byte), 3, map({byte}, 3));
    if (HasFatalFailure()) FAIL() << septet;
  }
}

TEST(GsmAlphabet, HasTheseCharactersAtTheirPlaces) {
  expect_text("@", 8, map({0}, 8));
  expect_text("\xC2\xA3", 8, map({1}, 8));
  expect_text("\xCE\x94", 8, map({16}, 8));
  expect_text("\xC3\xA0", 8, map({127}, 8));
}

TEST(GsmAlphabet, ShowsTheEscapeAsASpace) { expect_text(" e", 8, map({kEscape, 'e'}, 8)); }

TEST(GsmAlphabet, CopiesBytesAbove127) {
  for (int byte = 128; byte < 256; ++byte) {
    const auto octet = static_cast<std::uint8_t>(byte);
    expect_text(std::string(1, static_cast<char>(byte)), 3, map({octet}, 3));
    if (HasFatalFailure()) FAIL() << byte;
  }
}

TEST(GsmAlphabet, LeavesOutAndLogsCarriageReturns) {
  const LogCapture log;
  expect_text("ab", 8, map({13, 'a', 13, 13, 'b', 13}, 8));
  for (const int index : {0, 2, 3, 5}) {
    EXPECT_EQ(
        log.count(LOG_LVL_DBUG, kMapName, "ignored CR charecter at index = " + std::to_string(index) + "\n"),
        1)
        << log.dump();
  }
  EXPECT_EQ(log.lines().size(), 4u) << log.dump();
}

TEST(GsmAlphabet, StopsAtTheEndOfTheBuffer) {
  const LogCapture log;
  expect_text("ab", 3, map({'a', 'b', 13, 'c'}, 3));
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(GsmAlphabet, TruncatesSilentlyAtEverySize) {
  const LogCapture log;
  for (int round = 0; round < 50; ++round) {
    Bytes bytes = random_bytes(1 + generator()() % 40, round % 2 == 0 ? 127 : 255);
    std::replace(bytes.begin(), bytes.end(), std::uint8_t{13}, std::uint8_t{1});
    for (std::size_t size = 1; size <= 2 * bytes.size() + 2; ++size) {
      expect_text(expected_text(bytes, size), size, map(bytes, size));
      if (HasFatalFailure()) FAIL() << size;
    }
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(GsmAlphabet, DropsACharacterOfTwoBytesWhereOneIsLeft) {
  expect_text("", 2, map({1}, 2));
  expect_text("\xC2\xA3", 3, map({1}, 3));
  expect_text("ab", 3, map({'a', 1, 16, 'b', 'c'}, 3));
}

TEST(GsmAlphabet, StoresOnlyTheTerminatorInOneByte) {
  const LogCapture log;
  expect_text("", 1, map({'a', 13, 1}, 1));
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(GsmAlphabet, CountsItsResultInSixteenBits) {
  const Bytes septets(65540, 'a');
  const std::size_t size = 70000;
  const ExactBuffer out(size);
  for (const auto& [count, result] : {std::pair{65535, 65535}, {65536, 0}, {65537, 1}, {65540, 4}}) {
    EXPECT_EQ(result,
              kelo_util_convert_gsm8bit_alpha_string_to_utf8(septets.data(), count, out.data(), size));
    EXPECT_EQ(static_cast<std::size_t>(count), std::strlen(out.data()));
  }
}

TEST(GsmAlphabet, TakesTheWholeAddressSpaceForASize) {
  const ExactBuffer out(3);
  const Bytes septets = {'o', 'k'};
  EXPECT_EQ(kelo_util_convert_gsm8bit_alpha_string_to_utf8(septets.data(), 2, out.data(), SIZE_MAX), 2);
  EXPECT_STREQ(out.data(), "ok");
}

TEST(GsmAlphabet, RefusesWhatItCannotConvert) {
  const ExactBuffer out(4);
  const Bytes septets = {'a'};
  const auto refused = [&](const std::uint8_t* from, int count, char* to, std::size_t size) {
    const LogCapture log;
    EXPECT_EQ(kelo_util_convert_gsm8bit_alpha_string_to_utf8(from, count, to, size), 0);
    EXPECT_EQ(log.count(LOG_LVL_ERR, kMapName,
                        "Invalid parameters for GSM alphabet to UTF8 conversion, input len = " +
                            std::to_string(count) + "\n"),
              1)
        << log.dump();
    EXPECT_EQ(log.lines().size(), 1u);
  };
  refused(nullptr, 1, out.data(), 4);
  refused(septets.data(), 1, nullptr, 4);
  refused(septets.data(), 0, out.data(), 4);
  refused(septets.data(), -1, out.data(), 4);
  refused(septets.data(), INT32_MIN, out.data(), 4);
  refused(septets.data(), 1, out.data(), 0);
  refused(nullptr, 70000, nullptr, 0);
  EXPECT_TRUE(out.untouched());
}

// ---- kelo_util_convert_gsm_def_alpha_string_to_utf8 ----

TEST(GsmPackedText, ConvertsHelloHello) {
  const Bytes octets = {0xE8, 0x32, 0x9B, 0xFD, 0x46, 0x97, 0xD9, 0xEC, 0x37};
  expect_text("hellohello", 11, unpack_and_map(octets, 9, 11));
  expect_text("hellohell", 10, unpack_and_map(octets, 9, 10));
  expect_text("", 1, unpack_and_map(octets, 9, 1));
}

// Packed seven in eight: "abc\rdef" and a carriage return as padding.
TEST(GsmPackedText, LeavesOutCarriageReturnsWhereverTheyAre) {
  const Bytes octets = {0x61, 0xF1, 0xB8, 0x41, 0x2E, 0x9B, 0x1B};
  const LogCapture log;
  expect_text("abcdef", 16, unpack_and_map(octets, 7, 16));
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kMapName, "ignored CR charecter at index = 3\n"), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1u) << "the padding never reaches the mapping: " << log.dump();
}

TEST(GsmPackedText, AgreesWithTheTwoStepsAtEveryLengthAndSize) {
  const LogCapture log;
  kelo_set_log_level(LOG_LVL_ERR);
  for (int length = 1; length <= 256; ++length) {
    const Bytes octets = random_bytes(static_cast<std::size_t>(length), 255);
    Bytes septets(255);
    septets.resize(
        static_cast<std::size_t>(kelo_util_ussd_unpack(septets.data(), 255, octets.data(), length)));
    for (std::size_t size = 1; size <= 512; size += size < 8 || size > 505 ? 1 : 23) {
      expect_text(expected_text(septets, size), size, unpack_and_map(octets, length, size));
      if (HasFatalFailure()) FAIL() << length << " octets into " << size;
    }
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(GsmPackedText, NeverUnpacksMoreThan255Septets) {
  for (const int length : {223, 224, 255, 256}) {
    const Bytes octets(static_cast<std::size_t>(length), 0x00);
    expect_text(std::string(length == 223 ? 254 : 255, '@'), 600, unpack_and_map(octets, length, 600));
    if (HasFatalFailure()) FAIL() << length;
  }
}

TEST(GsmPackedText, NeedsAtMost511Bytes) {
  Bytes octets;  // of septets 1, a character of two bytes
  while (octets.size() < 256) octets.insert(octets.end(), {0x81, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02});
  std::string pounds;
  for (int i = 0; i < 255; ++i) pounds += "\xC2\xA3";
  expect_text(pounds, 511, unpack_and_map(octets, 256, 511));
  expect_text(pounds.substr(2), 510, unpack_and_map(octets, 256, 510));
}

TEST(GsmPackedText, ReadsLengthsModulo256) {
  for (const auto& [given, read] :
       {std::pair{257, 1}, {300, 44}, {512, 256}, {65536, 256}, {65537, 1}, {INT32_MAX, 255}}) {
    const Bytes octets(static_cast<std::size_t>(read), 0x00);  // nothing after what is read
    const auto septets = static_cast<std::size_t>(read * 8 / 7);
    expect_text(std::string(std::min<std::size_t>(septets, 255), '@'), 600,
                unpack_and_map(octets, given, 600));
    if (HasFatalFailure()) FAIL() << given;
  }
}

TEST(GsmPackedText, RefusesWhatItCannotConvert) {
  const ExactBuffer out(4);
  const Bytes octets = {'a'};
  const auto refused = [&](const std::uint8_t* from, int length, char* to, std::size_t size) {
    const LogCapture log;
    EXPECT_EQ(kelo_util_convert_gsm_def_alpha_string_to_utf8(from, length, to, size), 0);
    EXPECT_EQ(log.count(LOG_LVL_ERR, kUnpackName,
                        "Invalid parameters for GSM alphabet to UTF8 conversion, input len = " +
                            std::to_string(length) + "\n"),
              1)
        << log.dump();
    EXPECT_EQ(log.lines().size(), 1u);
  };
  refused(nullptr, 1, out.data(), 4);
  refused(octets.data(), 1, nullptr, 4);
  refused(octets.data(), 0, out.data(), 4);
  refused(octets.data(), -1, out.data(), 4);
  refused(octets.data(), INT32_MIN, out.data(), 4);
  refused(octets.data(), 1, out.data(), 0);
  EXPECT_TRUE(out.untouched());
}

TEST(GsmPackedText, LogsThatMemoryRanOut) {
  LogCapture log;
  const ExactBuffer out(4);
  const Bytes octets = {'a'};
  int result = -1;
  {
    const kelo::tests::FailingHeap heap(0);
    result = kelo_util_convert_gsm_def_alpha_string_to_utf8(octets.data(), 1, out.data(), 4);
  }
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(out.untouched());
  kelo::tests::expect_lines(log, "oem_util_convert_gsm_def_alpha_string_to_utf8",
                            {{LOG_LVL_ERR, "Fail to allocate buffer for GSM alphabet to UTF8 conversion\n"}});
}

}  // namespace
