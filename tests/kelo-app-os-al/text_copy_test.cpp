// SPDX-License-Identifier: MIT
// Bounded copies end with a terminator and cut no character of UTF-8.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/child_process.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::ChildResult;
using kelo::tests::ExactBuffer;
using kelo::tests::LogCapture;
using kelo::tests::run_in_child;
using namespace std::string_literals;

constexpr std::size_t kMarker = 777;

std::string every_byte_but_nul() {
  std::string text;
  for (int byte = 1; byte <= 255; ++byte) text += static_cast<char>(byte);
  return text;
}

std::string untouched(std::size_t count) { return std::string(count, ExactBuffer::kUntouched); }

// What a bounded copy leaves in a block of `size` bytes.
std::string cut_and_terminated(const std::string& text, std::size_t size) {
  if (size == 0) return "";
  std::string bytes = text.substr(0, size - 1) + '\0';
  return bytes + untouched(size - bytes.size());
}

// ---- kelo_strlcpy ----

TEST(Strlcpy, CopiesWhatFitsAndReturnsTheLengthOfTheSource) {
  for (const std::string& text : {""s, "a"s, "abcdef"s, every_byte_but_nul()}) {
    const ExactBuffer source(text);
    for (std::size_t size = 0; size <= text.size() + 3; ++size) {
      const ExactBuffer destination(size);
      EXPECT_EQ(text.size(), kelo_strlcpy(destination.data(), source.data(), size)) << size;
      EXPECT_EQ(cut_and_terminated(text, size), destination.bytes()) << size;
    }
  }
}

TEST(Strlcpy, KeepsThreeOfSixCharactersInFourBytes) {
  const ExactBuffer destination(4);
  EXPECT_EQ(kelo_strlcpy(destination.data(), "abcdef", 4), 6u);
  EXPECT_STREQ(destination.data(), "abc");
}

TEST(Strlcpy, WritesNothingAtSizeZero) {
  const ExactBuffer destination(1);
  EXPECT_EQ(kelo_strlcpy(destination.data(), "abc", 0), 3u);
  EXPECT_TRUE(destination.untouched());
}

TEST(Strlcpy, ReturnsZeroForANullPointerSilently) {
  const LogCapture log;
  const ExactBuffer destination(4);
  EXPECT_EQ(kelo_strlcpy(nullptr, "abc", 4), 0u);
  EXPECT_EQ(kelo_strlcpy(destination.data(), nullptr, 4), 0u);
  EXPECT_EQ(kelo_strlcpy(nullptr, nullptr, 4), 0u);
  EXPECT_TRUE(destination.untouched());
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

// ---- kelo_strlcat ----

TEST(Strlcat, AppendsWhatFitsAndReturnsTheLengthItTriedToMake) {
  for (const std::string& head : {""s, "x"s, "head"s, "\xFF\x80"s}) {
    for (const std::string& tail : {""s, "y"s, "tail\x80\xFF"s}) {
      const ExactBuffer source(tail);
      for (std::size_t size = head.size() + 1; size <= head.size() + tail.size() + 3; ++size) {
        const ExactBuffer destination(head, size);
        EXPECT_EQ(head.size() + tail.size(), kelo_strlcat(destination.data(), source.data(), size));
        EXPECT_EQ(cut_and_terminated(head + tail, size), destination.bytes()) << head << tail << size;
      }
    }
  }
}

TEST(Strlcat, LeavesABufferWithoutATerminatorAlone) {
  for (std::size_t size = 1; size <= 5; ++size) {
    const ExactBuffer destination(size);
    EXPECT_EQ(size + 3, kelo_strlcat(destination.data(), "abc", size));
    EXPECT_TRUE(destination.untouched()) << size;
  }
}

TEST(Strlcat, ReturnsTheLengthOfTheSourceAtSizeZero) {
  const ExactBuffer destination("head");
  EXPECT_EQ(kelo_strlcat(destination.data(), "tail", 0), 4u);
  EXPECT_STREQ(destination.data(), "head");
}

TEST(Strlcat, ReturnsZeroForANullPointerSilently) {
  const LogCapture log;
  const ExactBuffer destination("head", 16);
  EXPECT_EQ(kelo_strlcat(nullptr, "abc", 16), 0u);
  EXPECT_EQ(kelo_strlcat(destination.data(), nullptr, 16), 0u);
  EXPECT_STREQ(destination.data(), "head");
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

// ---- kelo_string_memcpy ----

TEST(StringMemcpy, FillsTheFieldWithTextAndZeros) {
  for (const std::string& text : {""s, "a"s, "abcdef"s, every_byte_but_nul()}) {
    const ExactBuffer source(text);
    for (std::size_t n = 0; n <= text.size() + 3; ++n) {
      const ExactBuffer destination(n + 1);
      kelo_string_memcpy(destination.data(), source.data(), n);
      std::string expected = text.substr(0, n);
      expected.resize(n, '\0');
      EXPECT_EQ(destination.bytes(), expected + ExactBuffer::kUntouched) << n;
    }
  }
}

TEST(StringMemcpy, ReadsNoMoreOfTheSourceThanTheFieldHolds) {
  const ExactBuffer source(3);  // without a terminator
  const ExactBuffer destination(3);
  kelo_string_memcpy(destination.data(), source.data(), 3);
  EXPECT_EQ(source.bytes(), destination.bytes());
}

TEST(StringMemcpy, LogsANullPointerAndDoesNothing) {
  const LogCapture log;
  const ExactBuffer destination(4);
  kelo_string_memcpy(destination.data(), nullptr, 4);
  kelo_string_memcpy(nullptr, "abc", 4);
  kelo_string_memcpy(nullptr, nullptr, 0);
  EXPECT_TRUE(destination.untouched());
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_string_memcpy", "Invalid string parameter.\n"), 3) << log.dump();
  EXPECT_EQ(log.lines().size(), 3u);
}

// ---- kelo_utf8_NumBytesInChar ----

TEST(Utf8NumBytesInChar, KnowsEveryByte) {
  for (int byte = 0; byte <= 255; ++byte) {
    int expected = 0;
    if (byte <= 0x7F) expected = 1;
    if (byte >= 0xC0 && byte <= 0xDF) expected = 2;
    if (byte >= 0xE0 && byte <= 0xEF) expected = 3;
    if (byte >= 0xF0 && byte <= 0xF7) expected = 4;
    EXPECT_EQ(kelo_utf8_NumBytesInChar(static_cast<char>(byte)), expected) << byte;
  }
}

// ---- kelo_utf8_Copy ----

struct Utf8Case {
  std::string source;
  std::vector<std::string> characters;  // the whole ones, in order
  bool cut_by_the_end;                  // whether a part of one follows them
};

const std::vector<Utf8Case>& utf8_cases() {
  static const std::vector<Utf8Case> cases = {
      {"", {}, false},
      {"a", {"a"}, false},
      {"abc", {"a", "b", "c"}, false},
      {"\xC3\xA4", {"\xC3\xA4"}, false},
      {"\xE2\x82\xAC", {"\xE2\x82\xAC"}, false},
      {"\xF0\x9F\x98\x80", {"\xF0\x9F\x98\x80"}, false},
      {"a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z",
       {"a", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "z"},
       false},
      // The bytes after the first of a character are not looked at.
      {"\xE2yz\xF7\xFF\xFF\xFF", {"\xE2yz", "\xF7\xFF\xFF\xFF"}, false},
      {"\xC3", {}, true},
      {"ab\xC3", {"a", "b"}, true},
      {"\xE2", {}, true},
      {"a\xE2\x82", {"a"}, true},
      {"\xF0", {}, true},
      {"\xF0\x9F", {}, true},
      {"\xC3\xA4\xF0\x9F\x98", {"\xC3\xA4"}, true},
  };
  return cases;
}

TEST(Utf8Copy, CopiesWholeCharactersAtEverySize) {
  for (const Utf8Case& item : utf8_cases()) {
    const ExactBuffer source(item.source);  // nothing follows the terminator
    for (std::size_t size = 1; size <= item.source.size() + 3; ++size) {
      std::string expected;
      bool all = !item.cut_by_the_end;
      for (const std::string& character : item.characters) {
        if (expected.size() + character.size() + 1 > size) {
          all = false;
          break;
        }
        expected += character;
      }
      const ExactBuffer destination(size);
      std::size_t copied = kMarker;
      EXPECT_EQ(all ? 0 : -1, kelo_utf8_Copy(destination.data(), source.data(), size, &copied))
          << item.source << " into " << size;
      EXPECT_EQ(copied, expected.size()) << item.source << " into " << size;
      EXPECT_EQ(destination.data(), expected) << item.source << " into " << size;
    }
  }
}

TEST(Utf8Copy, LeavesOutACharacterOfThreeBytesInABufferOfThree) {
  const ExactBuffer destination(3);
  std::size_t copied = kMarker;
  EXPECT_EQ(kelo_utf8_Copy(destination.data(), "\xE2\x82\xAC", 3, &copied), -1);
  EXPECT_STREQ(destination.data(), "");
  EXPECT_EQ(copied, 0u);
}

TEST(Utf8Copy, MakesTheCopyEmptyAtAByteThatStartsNoCharacter) {
  for (int byte = 0x80; byte <= 0xFF; ++byte) {
    if (byte >= 0xC0 && byte <= 0xF7) continue;
    for (const std::string& head : {""s, "ab"s, "\xC3\xA4"s}) {
      const ExactBuffer source(head + static_cast<char>(byte) + "tail");
      // It is also met where the text before it has filled the buffer.
      for (const std::size_t size : {head.size() + 1, head.size() + 2, head.size() + 10}) {
        const ExactBuffer destination(size);
        std::size_t copied = kMarker;
        EXPECT_EQ(kelo_utf8_Copy(destination.data(), source.data(), size, &copied), 0) << byte;
        EXPECT_EQ(*destination.data(), '\0') << byte;
        EXPECT_EQ(copied, 0u) << byte;
      }
    }
  }
}

TEST(Utf8Copy, StopsBeforeABadByteThatItDoesNotReach) {
  const ExactBuffer destination(2);
  std::size_t copied = kMarker;
  EXPECT_EQ(kelo_utf8_Copy(destination.data(), "ab\x80", 2, &copied), -1);
  EXPECT_STREQ(destination.data(), "a");
  EXPECT_EQ(copied, 1u);
}

TEST(Utf8Copy, NeedsNoCount) {
  const ExactBuffer destination(3);
  EXPECT_EQ(kelo_utf8_Copy(destination.data(), "ab", 3, nullptr), 0);
  EXPECT_STREQ(destination.data(), "ab");
  EXPECT_EQ(kelo_utf8_Copy(destination.data(), "abc", 3, nullptr), -1);
  EXPECT_EQ(kelo_utf8_Copy(destination.data(), "\x80", 3, nullptr), 0);
  EXPECT_STREQ(destination.data(), "");
}

void expect_fatal(char* destination, const char* source, std::size_t size) {
  const ChildResult child = run_in_child([=] {
    std::size_t copied = 0;
    kelo_utf8_Copy(destination, source, size, &copied);
  });
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_TRUE(std::regex_match(child.standard_output,
                               std::regex(R"(kelo-app-os-al/kelo_app_os_al\.c, line: [1-9][0-9]*\n)")))
      << child.standard_output;
}

TEST(Utf8Copy, AbortsWithoutABufferATextOrASize) {
  const ExactBuffer destination(4);
  expect_fatal(nullptr, "abc", 4);
  expect_fatal(destination.data(), nullptr, 4);
  expect_fatal(destination.data(), "abc", 0);
}

}  // namespace
