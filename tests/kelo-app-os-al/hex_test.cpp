// SPDX-License-Identifier: MIT
// Bytes as pairs of hexadecimal digits, and back.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/every_text.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/hex_text.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::every_text;
using kelo::tests::ExactBuffer;
using kelo::tests::is_digits;
using kelo::tests::LogCapture;
using kelo::tests::pair_of;
using namespace std::string_literals;

std::uint8_t* bytes_of(const ExactBuffer& buffer) { return reinterpret_cast<std::uint8_t*>(buffer.data()); }

std::string printed_digits(const std::string& bytes) {
  std::string digits;
  for (const char byte : bytes) {
    std::array<char, 3> pair;
    std::snprintf(pair.data(), pair.size(), "%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    digits += pair.data();
  }
  return digits;
}

std::string scanned_bytes(const std::string& digits) {
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2)
    bytes += static_cast<char>(std::strtoul(digits.substr(i, 2).c_str(), nullptr, 16));
  return bytes;
}

// ---- hex_BinaryToString and kelo_hex_BinaryToString ----

using Write = int (*)(const std::uint8_t*, std::uint32_t, char*, std::uint32_t);
constexpr std::array<Write, 2> kWriters = {hex_BinaryToString, kelo_hex_BinaryToString};

std::string too_small(std::uint32_t size, std::uint32_t count) {
  return "Hex string array (" + std::to_string(size) + ") is too small to convert (" + std::to_string(count) +
         ") bytes\n";
}

// Calls both at this size; only one of them has something to say about it.
void expect_too_small(const std::uint8_t* bytes, std::uint32_t count, const ExactBuffer& text,
                      std::uint32_t size) {
  LogCapture log;
  EXPECT_EQ(hex_BinaryToString(bytes, count, text.data(), size), -1) << count << " into " << size;
  EXPECT_TRUE(log.lines().empty()) << log.dump();
  EXPECT_EQ(kelo_hex_BinaryToString(bytes, count, text.data(), size), -1) << count << " into " << size;
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_hex_BinaryToString", too_small(size, count)), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(text.untouched()) << count << " into " << size;
}

TEST(BinaryToString, WritesWhatPrintfWrites) {
  for (int first = 0; first <= 255; ++first) {
    for (int second = 0; second <= 255; ++second) {
      const std::string bytes = pair_of(first, second);
      const std::string expected = printed_digits(bytes);
      for (const Write write : kWriters) {
        std::array<char, 5> text;
        ASSERT_EQ(write(reinterpret_cast<const std::uint8_t*>(bytes.data()), 2, text.data(), text.size()), 4);
        ASSERT_EQ(text.data(), expected);
      }
    }
  }
}

TEST(BinaryToString, NeedsTwoDigitsForEachByteAndATerminator) {
  for (std::uint32_t count = 0; count <= 6; ++count) {
    const ExactBuffer bytes(count);
    const std::string digits = printed_digits(bytes.bytes());
    const std::uint32_t needed = 2 * count + 1;
    for (std::uint32_t size = 0; size < needed; ++size)
      expect_too_small(bytes_of(bytes), count, ExactBuffer(size), size);
    for (std::uint32_t size = needed; size <= needed + 2; ++size) {
      for (const Write write : kWriters) {
        const ExactBuffer text(size);
        EXPECT_EQ(static_cast<int>(2 * count), write(bytes_of(bytes), count, text.data(), size)) << size;
        EXPECT_EQ(digits + '\0' + std::string(size - needed, ExactBuffer::kUntouched), text.bytes()) << size;
      }
    }
  }
}

TEST(BinaryToString, RefusesCountsWhoseDigitsNoNumberHolds) {
  const ExactBuffer bytes(1);
  const ExactBuffer text(1);
  for (const std::uint32_t count : {0x40000000u, 0x7FFFFFFFu, 0x80000000u, 0x80000001u, 0xFFFFFFFFu}) {
    for (const std::uint32_t size : {1u, 3u, 0x80000000u, 0xFFFFFFFFu})
      expect_too_small(bytes_of(bytes), count, text, size);
  }
  expect_too_small(bytes_of(bytes), 0x3FFFFFFF, text, 0x7FFFFFFE);
}

TEST(BinaryToString, LogsANullPointer) {
  LogCapture log;
  const ExactBuffer bytes(1);
  const ExactBuffer text(3);
  EXPECT_EQ(hex_BinaryToString(nullptr, 1, text.data(), 3), -1);
  EXPECT_EQ(hex_BinaryToString(bytes_of(bytes), 1, nullptr, 3), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "hex_BinaryToString", "hex_BinaryToString param NULL\n"), 2) << log.dump();
  EXPECT_EQ(kelo_hex_BinaryToString(nullptr, 1, text.data(), 3), -1);
  EXPECT_EQ(kelo_hex_BinaryToString(bytes_of(bytes), 1, nullptr, 3), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_hex_BinaryToString", "kelo_hex_BinaryToString param NULL\n"), 2)
      << log.dump();
  EXPECT_EQ(log.lines().size(), 4u);
  EXPECT_TRUE(text.untouched());
}

// ---- kelo_hex_StringToBinary ----

constexpr char kReader[] = "oem_hex_StringToBinary";

// `digits` in a block without a terminator.
ExactBuffer unterminated(const std::string& digits) {
  ExactBuffer buffer(digits.size());
  std::copy(digits.begin(), digits.end(), buffer.data());
  return buffer;
}

int read_bytes(const std::string& digits, const ExactBuffer& bytes) {
  const ExactBuffer text = unterminated(digits);
  return kelo_hex_StringToBinary(text.data(), static_cast<std::uint32_t>(digits.size()), bytes_of(bytes),
                                 static_cast<std::uint32_t>(bytes.size()));
}

TEST(StringToBinary, ReadsEveryPairOfCharacters) {
  for (int first = 0; first <= 255; ++first) {
    for (int second = 0; second <= 255; ++second) {
      const std::string pair = pair_of(first, second);
      std::uint8_t byte = 0x5A;
      const int result = kelo_hex_StringToBinary(pair.data(), 2, &byte, 1);
      const bool good = is_digits(pair);
      ASSERT_EQ(good ? 1 : -1, result) << first << ' ' << second;
      ASSERT_EQ(good ? scanned_bytes(pair) : "\x5A", std::string(1, static_cast<char>(byte)))
          << first << second;
    }
  }
}

TEST(StringToBinary, ReadsWhatFits) {
  LogCapture log;
  const std::string digits = "00fFA5c3E7";
  for (std::size_t length = 0; length <= digits.size(); length += 2) {
    for (std::size_t size = 0; size <= length / 2 + 2; ++size) {
      log.clear();
      const ExactBuffer bytes(size);
      const bool fits = size >= length / 2;
      EXPECT_EQ(fits ? static_cast<int>(length / 2) : -1, read_bytes(digits.substr(0, length), bytes));
      if (fits) {
        const std::string expected = scanned_bytes(digits.substr(0, length));
        EXPECT_EQ(expected + std::string(size - expected.size(), ExactBuffer::kUntouched), bytes.bytes());
        EXPECT_TRUE(log.lines().empty()) << log.dump();
      } else {
        EXPECT_TRUE(bytes.untouched());
        EXPECT_EQ(log.count(LOG_LVL_DBUG, kReader,
                            "The stringLength (" + std::to_string(length) +
                                ") is too long to convert into a byte array of length (" +
                                std::to_string(size) + ")\n"),
                  1)
            << log.dump();
        EXPECT_EQ(log.lines().size(), 1u);
      }
    }
  }
}

TEST(StringToBinary, RefusesAnOddLengthFirst) {
  LogCapture log;
  for (const std::size_t size : {0u, 1u, 8u}) {
    for (const std::string& digits : {"1"s, "123"s, "zz1"s}) {
      log.clear();
      const ExactBuffer bytes(size);
      EXPECT_EQ(read_bytes(digits, bytes), -1);
      EXPECT_TRUE(bytes.untouched());
      EXPECT_EQ(
          log.count(LOG_LVL_DBUG, kReader,
                    "The input stringLength=" + std::to_string(digits.size()) + " is not a multiple of 2\n"),
          1)
          << log.dump();
      EXPECT_EQ(log.lines().size(), 1u);
    }
  }
}

TEST(StringToBinary, KeepsTheBytesBeforeACharacterThatIsNoDigit) {
  LogCapture log;
  const std::string digits = "12345678";
  for (std::size_t at = 0; at < digits.size(); ++at) {
    for (const char bad : "gG/:@`x \xC1"s) {
      log.clear();
      std::string text = digits;
      text[at] = bad;
      const ExactBuffer bytes(4);
      EXPECT_EQ(read_bytes(text, bytes), -1);
      const std::string before = scanned_bytes(digits.substr(0, at / 2 * 2));
      EXPECT_EQ(before + std::string(4 - before.size(), ExactBuffer::kUntouched), bytes.bytes()) << text;
      EXPECT_EQ(log.count(LOG_LVL_DBUG, kReader, "Invalid string to convert (" + text + ")\n"), 1)
          << log.dump();
      EXPECT_EQ(log.lines().size(), 1u);
    }
  }
}

TEST(StringToBinary, StopsAtTheEndOfATextShorterThanItsLength) {
  for (const std::string& digits : {""s, "1"s, "12"s, "123"s}) {
    const ExactBuffer text(digits);
    const ExactBuffer bytes(4);
    EXPECT_EQ(kelo_hex_StringToBinary(text.data(), 8, bytes_of(bytes), 4), -1) << digits;
  }
}

TEST(StringToBinary, RefusesHugeLengths) {
  const ExactBuffer text("12");
  const ExactBuffer bytes(1);
  for (const std::uint32_t length : {0x80000000u, 0xFFFFFFFEu, 0xFFFFFFFFu})
    EXPECT_EQ(kelo_hex_StringToBinary(text.data(), length, bytes_of(bytes), 1), -1) << length;
  EXPECT_TRUE(bytes.untouched());
}

TEST(StringToBinary, LogsNoMoreThanItsLengthOfAText) {
  const LogCapture log;
  const ExactBuffer bytes(2);
  EXPECT_EQ(kelo_hex_StringToBinary("12zz5678", 4, bytes_of(bytes), 2), -1);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kReader, "Invalid string to convert (12zz)\n"), 1) << log.dump();
}

TEST(StringToBinary, LogsATextThatEndsBeforeItsLengthUpToItsEnd) {
  LogCapture log;
  for (const std::string text : {"", "1", "12", "123", "1234567"}) {
    log.clear();
    const ExactBuffer exact(text);
    const ExactBuffer bytes(10);
    EXPECT_EQ(kelo_hex_StringToBinary(exact.data(), 20, bytes_of(bytes), 10), -1) << text;
    EXPECT_EQ(scanned_bytes(text.substr(0, text.size() / 2 * 2)), bytes.bytes().substr(0, text.size() / 2));
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kReader, "Invalid string to convert (" + text + ")\n"), 1)
        << log.dump();
  }
}

TEST(StringToBinary, LogsALongTextUpToTheLengthOfALine) {
  const LogCapture log;
  const ExactBuffer text = unterminated(std::string(10000, 'z'));
  const ExactBuffer bytes(5000);
  EXPECT_EQ(kelo_hex_StringToBinary(text.data(), 10000, bytes_of(bytes), 5000), -1);
  EXPECT_EQ(log.count_containing(LOG_LVL_DBUG, "Invalid string to convert (" + std::string(3000, 'z')), 1);
}

TEST(StringToBinary, LogsANullPointer) {
  const LogCapture log;
  const ExactBuffer bytes(1);
  EXPECT_EQ(kelo_hex_StringToBinary(nullptr, 2, bytes_of(bytes), 1), -1);
  EXPECT_EQ(kelo_hex_StringToBinary("12", 2, nullptr, 1), -1);
  EXPECT_TRUE(bytes.untouched());
  EXPECT_EQ(log.count(LOG_LVL_ERR, kReader, "kelo_hex_StringToBinary param NULL\n"), 2) << log.dump();
  EXPECT_EQ(log.lines().size(), 2u);
}

// ---- kelo_change_hexstr_to_str ----

TEST(ChangeHexstrToStr, ReadsAllOrNothing) {
  for (const std::string& text : every_text("09aFgG\xC1", 5)) {
    const ExactBuffer digits(text);
    const ExactBuffer bytes(text.size() / 2 + 1);
    const bool good = text.size() % 2 == 0 && is_digits(text);
    EXPECT_EQ(good ? 0 : -1, kelo_change_hexstr_to_str(digits.data(), bytes_of(bytes))) << text;
    std::string expected = good ? scanned_bytes(text) : "";
    expected.resize(bytes.size(), ExactBuffer::kUntouched);
    EXPECT_EQ(bytes.bytes(), expected) << text;
  }
}

TEST(ChangeHexstrToStr, ReadsEveryPairOfCharacters) {
  for (int first = 1; first <= 255; ++first) {
    for (int second = 1; second <= 255; ++second) {
      const std::string pair = pair_of(first, second);
      std::uint8_t byte = 0x5A;
      const bool good = is_digits(pair);
      ASSERT_EQ(good ? 0 : -1, kelo_change_hexstr_to_str(pair.c_str(), &byte)) << pair;
      ASSERT_EQ(good ? scanned_bytes(pair) : "\x5A", std::string(1, static_cast<char>(byte))) << pair;
    }
  }
}

TEST(ChangeHexstrToStr, FillsABlockOfHalfTheLength) {
  for (std::size_t count = 0; count <= 6; ++count) {
    const ExactBuffer bytes(count);
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += "e7";
    EXPECT_EQ(kelo_change_hexstr_to_str(text.c_str(), bytes_of(bytes)), 0);
    EXPECT_EQ(bytes.bytes(), std::string(count, '\xE7'));
  }
}

TEST(ChangeHexstrToStr, ReturnsAFailureForANullPointerSilently) {
  const LogCapture log;
  const ExactBuffer bytes(1);
  EXPECT_EQ(kelo_change_hexstr_to_str(nullptr, bytes_of(bytes)), -1);
  EXPECT_EQ(kelo_change_hexstr_to_str("12", nullptr), -1);
  EXPECT_TRUE(bytes.untouched());
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

}  // namespace
