// SPDX-License-Identifier: MIT
// Text is replaced in place and split at delimiters.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/every_text.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::every_text;
using kelo::tests::ExactBuffer;
using kelo::tests::LogCapture;
using namespace std::string_literals;

// ---- replace_str ----

constexpr std::size_t kMostCharacters = 1023;

// What becomes of a buffer that starts with `text`.
std::string replaced(const std::string& buffer, const std::string& text, const std::string& pattern,
                     const std::string& replacement) {
  std::string result = text;
  result.replace(text.find(pattern), pattern.size(), replacement);
  result.resize(std::min(result.size(), kMostCharacters));
  return result + buffer.substr(result.size());
}

void expect_replaced(const std::string& text, const std::string& pattern, const std::string& replacement) {
  // As large as it must be: for the text with its terminator, or for the result without one.
  const std::size_t room = std::max(text.size() + 1, text.size() - pattern.size() + replacement.size());
  const ExactBuffer buffer(text, room);
  const std::string expected = replaced(buffer.bytes(), text, pattern, replacement);
  const ExactBuffer exact_pattern(pattern);
  const ExactBuffer exact_replacement(replacement);
  EXPECT_EQ(replace_str(buffer.data(), exact_pattern.data(), exact_replacement.data()), 0);
  EXPECT_EQ(buffer.bytes(), expected) << text << ' ' << pattern << ' ' << replacement;
}

TEST(ReplaceStr, AgreesWithAPlainReplacement) {
  const std::vector<std::string> patterns = every_text("ab\xFF", 2);
  const std::vector<std::string> replacements = every_text("xb", 3);
  for (const std::string& text : every_text("ab\xFF", 5)) {
    for (const std::string& pattern : patterns) {
      if (text.find(pattern) == std::string::npos) {
        const ExactBuffer buffer(text);
        EXPECT_EQ(replace_str(buffer.data(), pattern.c_str(), "x"), -1) << text << ' ' << pattern;
        EXPECT_EQ(text, buffer.data());
        continue;
      }
      for (const std::string& replacement : replacements) expect_replaced(text, pattern, replacement);
    }
  }
}

TEST(ReplaceStr, LeavesTheTailOfTheOldTextAfterAShorterOne) {
  const ExactBuffer buffer("abcdef");
  EXPECT_EQ(replace_str(buffer.data(), "cd", "X"), 0);
  EXPECT_STREQ(buffer.data(), "abXeff");
}

TEST(ReplaceStr, WritesNoTerminatorAfterALongerOne) {
  const ExactBuffer buffer("abcdef", 9);
  EXPECT_EQ(replace_str(buffer.data(), "cd", "WXYZ"), 0);
  EXPECT_EQ(buffer.bytes(), "abWXYZef"s + ExactBuffer::kUntouched);
}

TEST(ReplaceStr, WorksOnTheFirst1023Characters) {
  for (const std::size_t length : {1021u, 1022u, 1023u, 1024u, 1025u, 3000u}) {
    for (const std::size_t at : {0u, 500u, 1019u}) {
      std::string text;
      for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('a' + i % 7);
      text.replace(at, 2, "##");
      for (const std::string& replacement : {""s, "X"s, "XY"s, "XYZ"s, std::string(2000, '-')})
        expect_replaced(text, "##", replacement);
    }
  }
}

TEST(ReplaceStr, ChangesNothingAfterTheFirst1023Characters) {
  for (const std::size_t at : {1020u, 1021u, 1022u, 1023u, 1024u, 1500u}) {
    const std::string text = std::string(at, 'a') + "##" + std::string(10, 'b');
    const ExactBuffer buffer(text);
    EXPECT_EQ(replace_str(buffer.data(), "##", "XY"), 0) << at;
    std::string expected = text;
    if (at < kMostCharacters) expected[at] = 'X';
    if (at + 1 < kMostCharacters) expected[at + 1] = 'Y';
    EXPECT_EQ(buffer.data(), expected) << at;
  }
}

TEST(ReplaceStr, ReturnsAFailureForANullPointer) {
  const LogCapture log;
  const ExactBuffer buffer("abc");
  EXPECT_EQ(replace_str(buffer.data(), nullptr, "x"), -1);
  EXPECT_EQ(replace_str(buffer.data(), "b", nullptr), -1);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
  EXPECT_EQ(replace_str(nullptr, "b", "x"), -1);
  EXPECT_STREQ(buffer.data(), "abc");
  EXPECT_EQ(log.count(LOG_LVL_ERR, "replace_str", "replace_str param NULL\n"), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1u);
}

// ---- strsep ----

std::vector<std::string> tokens_of(const std::string& text, const std::string& delimiters) {
  std::vector<std::string> tokens;
  std::size_t begin = 0;
  while (true) {
    const std::size_t end = text.find_first_of(delimiters, begin);
    tokens.push_back(text.substr(begin, end - begin));
    if (end == std::string::npos) return tokens;
    begin = end + 1;
  }
}

const std::vector<std::string>& delimiter_sets() {
  static const std::vector<std::string> sets = {"", ",", ",\xFF", "\xFF,a"};
  return sets;
}

TEST(Strsep, AgreesWithAPlainSearch) {
  for (const std::string& delimiters : delimiter_sets()) {
    const ExactBuffer set(delimiters);
    for (const std::string& text : every_text("a,\xFF", 6)) {
      const ExactBuffer buffer(text);
      char* rest = buffer.data();
      std::size_t begin = 0;
      for (const std::string& expected : tokens_of(text, delimiters)) {
        EXPECT_EQ(buffer.data() + begin, rest) << text;
        const char* const token = strsep(&rest, set.data());
        ASSERT_EQ(buffer.data() + begin, token) << text;
        EXPECT_EQ(token, expected) << text;
        begin += expected.size() + 1;
      }
      EXPECT_EQ(rest, nullptr) << text;
      EXPECT_EQ(strsep(&rest, set.data()), nullptr) << text;
      EXPECT_EQ(rest, nullptr) << text;
    }
  }
}

TEST(Strsep, LeavesATextWithoutDelimitersUnwritten) {
  static const char kReadOnly[] = "abc";
  char* rest = const_cast<char*>(kReadOnly);
  EXPECT_EQ(strsep(&rest, ","), kReadOnly);
  EXPECT_EQ(rest, nullptr);
}

TEST(Strsep, ReturnsNullForANullTextSilently) {
  const LogCapture log;
  char* rest = nullptr;
  EXPECT_EQ(strsep(&rest, ","), nullptr);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Strsep, LogsANullPointer) {
  const LogCapture log;
  // Without the promises of the C library's declaration, which the compiler would hold the call to.
  char* (*const volatile call)(char**, const char*) = strsep;
  const ExactBuffer buffer("a,b");
  char* rest = buffer.data();
  EXPECT_EQ(call(nullptr, ","), nullptr);
  EXPECT_EQ(call(&rest, nullptr), nullptr);
  EXPECT_EQ(buffer.data(), rest);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "strsep", "strsep param NULL\n"), 2) << log.dump();
  EXPECT_EQ(log.lines().size(), 2u);
}

// ---- split_string_to_array ----

// A block for exactly the tokens expected, so that one too many is seen.
std::vector<std::string> split(const std::string& text, const std::string& delimiters, std::uint32_t flags,
                               std::size_t most) {
  const ExactBuffer buffer(text);
  const std::unique_ptr<char*[]> array(new char*[most]);
  const int count = split_string_to_array(buffer.data(), delimiters.c_str(), array.get(), flags);
  EXPECT_EQ(static_cast<int>(most), count) << text;
  return {array.get(), array.get() + std::min<std::size_t>(most, static_cast<std::size_t>(count))};
}

TEST(SplitStringToArray, AgreesWithAPlainSearch) {
  for (const std::string& delimiters : delimiter_sets()) {
    for (const std::string& text : every_text("a,\xFF", 6)) {
      const std::vector<std::string> all = tokens_of(text, delimiters);
      std::vector<std::string> filled = all;
      std::erase(filled, "");
      EXPECT_EQ(all, split(text, delimiters, 0, all.size())) << text;
      EXPECT_EQ(all, split(text, delimiters, ~std::uint32_t{KELO_SPLIT_SKIP_EMPTY}, all.size())) << text;
      EXPECT_EQ(filled, split(text, delimiters, KELO_SPLIT_SKIP_EMPTY, filled.size())) << text;
      EXPECT_EQ(filled, split(text, delimiters, ~std::uint32_t{0}, filled.size())) << text;
    }
  }
}

TEST(SplitStringToArray, SkipsEmptyTokensOnDemand) {
  EXPECT_EQ(split("a,,b", ",", 0, 3), (std::vector<std::string>{"a", "", "b"}));
  EXPECT_EQ(split("a,,b", ",", 1, 2), (std::vector<std::string>{"a", "b"}));
}

TEST(SplitStringToArray, ReturnsAFailureForANullPointer) {
  const LogCapture log;
  const ExactBuffer buffer("a,b");
  char mark = 'm';
  char* array[2] = {&mark, &mark};
  EXPECT_EQ(split_string_to_array(nullptr, ",", array, 0), -1);
  EXPECT_EQ(split_string_to_array(buffer.data(), ",", nullptr, 0), -1);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
  EXPECT_EQ(split_string_to_array(buffer.data(), nullptr, array, 0), -1);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "split_string_to_array", "split_string_to_array param NULL\n"), 1)
      << log.dump();
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_STREQ(buffer.data(), "a,b");
  EXPECT_EQ(&mark, array[0]);
}

}  // namespace
