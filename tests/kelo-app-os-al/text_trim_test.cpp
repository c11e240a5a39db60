// SPDX-License-Identifier: MIT
// White space, quotes and given characters are taken off both ends of a text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <set>
#include <string>
#include <string_view>

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

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

std::set<int> classified;

// `text` without the characters of `set` at its ends.
std::string stripped(const std::string& text, std::string_view set) {
  const std::size_t first = text.find_first_not_of(set);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(set) + 1 - first);
}

}  // namespace

// The library's calls land here.
extern "C" int isspace(int character) noexcept {
  classified.insert(character);
  return character > 0 && kWhiteSpace.find(static_cast<char>(character)) != std::string_view::npos ? 1 : 0;
}

namespace {

// ---- kelo_trim_string ----

TEST(TrimString, RemovesWhiteSpaceFromBothEndsOnly) {
  for (const std::string& text : every_text(" \ta\x85\xA0", 6)) {
    const ExactBuffer buffer(text);
    EXPECT_EQ(buffer.data(), kelo_trim_string(buffer.data()));
    EXPECT_EQ(stripped(text, " \t"), buffer.data()) << '[' << text << ']';
  }
}

TEST(TrimString, KnowsEveryByte) {
  for (int byte = 1; byte <= 255; ++byte) {
    const auto character = static_cast<char>(byte);
    const bool white = kWhiteSpace.find(character) != std::string_view::npos;
    const ExactBuffer buffer(character + "x"s + character);
    kelo_trim_string(buffer.data());
    EXPECT_EQ(white ? 1u : 3u, std::string_view(buffer.data()).size()) << byte;
  }
}

TEST(TrimString, ClassifiesBytesAbove127AsPositiveValues) {
  classified.clear();
  const ExactBuffer buffer("\x80\xFF");
  kelo_trim_string(buffer.data());
  EXPECT_EQ(classified, (std::set<int>{0x80, 0xFF}));
}

TEST(TrimString, ReturnsNullForNullSilently) {
  const LogCapture log;
  EXPECT_EQ(kelo_trim_string(nullptr), nullptr);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

// ---- kelo_at_param_strip ----

TEST(AtParamStrip, CutsTheSetFromBothEndsWithoutMovingTheRest) {
  for (const std::string set : {"", "\"", " \"", "\xA0 \"", "a\" \xA0"}) {
    for (const std::string& text : every_text("a\" \xA0", 5)) {
      const ExactBuffer buffer(text);
      const char* const begin = kelo_at_param_strip(buffer.data(), set.c_str());

      const std::string kept = stripped(text, set);
      const std::size_t skipped = std::min(text.find_first_not_of(set), text.size());
      std::string expected = text.substr(0, skipped) + kept;
      expected.resize(text.size() + 1, '\0');
      EXPECT_EQ(buffer.data() + skipped, begin) << '[' << text << "] [" << set << ']';
      EXPECT_EQ(buffer.bytes(), expected) << '[' << text << "] [" << set << ']';
    }
  }
}

TEST(AtParamStrip, ReturnsTheTerminatorOfATextOfSetCharacters) {
  const ExactBuffer buffer("\" \"");
  EXPECT_EQ(buffer.data() + 3, kelo_at_param_strip(buffer.data(), " \""));
}

TEST(AtParamStrip, LogsANullPointer) {
  const LogCapture log;
  const ExactBuffer buffer("\"a\"");
  EXPECT_EQ(kelo_at_param_strip(nullptr, " "), nullptr);
  EXPECT_EQ(kelo_at_param_strip(buffer.data(), nullptr), nullptr);
  EXPECT_STREQ(buffer.data(), "\"a\"");
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_at_param_strip", "kelo_at_param_strip param NULL\n"), 2)
      << log.dump();
  EXPECT_EQ(log.lines().size(), 2u);
}

// ---- kelo_strip_quotes_out ----

constexpr char kFunction[] = "oem_strip_quotes_out";
constexpr char kNotQuoted[] = "The in_str must be quoted\n";
constexpr char kNotTerminated[] = "String is not terminated after end quote found\n";

std::string open_or_small(std::size_t size) {
  return "The in_str has opened quotes, or out_str is small: " + std::to_string(size) + "\n";
}

struct QuotesResult {
  int result;
  std::string output;
  std::string message;  // empty: none
};

// Character by character, as a plain reader would do it.
QuotesResult read_quotes(const std::string& input, std::size_t size) {
  std::string output(size, ExactBuffer::kUntouched);
  if (input.empty() || input[0] != '"') return {0, output, kNotQuoted};
  std::size_t at = 1;
  std::size_t copied = 0;
  while (at < input.size() && input[at] != '"' && copied < size) output[copied++] = input[at++];
  if (copied == size || at == input.size() || input[at] != '"') return {0, output, open_or_small(size)};
  if (at + 1 != input.size()) return {0, output, kNotTerminated};
  output[copied] = '\0';
  return {1, output, ""};
}

TEST(StripQuotesOut, AgreesWithAPlainReaderAtEverySize) {
  LogCapture log;
  for (const std::string& input : every_text("\"a\\\xFF", 5)) {
    const ExactBuffer source(input);
    for (std::size_t size = 0; size <= input.size() + 1; ++size) {
      log.clear();
      const ExactBuffer output(size);
      const QuotesResult expected = read_quotes(input, size);
      EXPECT_EQ(kelo_strip_quotes_out(source.data(), output.data(), size), expected.result) << input << size;
      EXPECT_EQ(output.bytes(), expected.output) << input << " into " << size;
      EXPECT_EQ(log.lines().size(), expected.message.empty() ? 0u : 1u) << input << " into " << size;
      if (!expected.message.empty()) {
        EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, expected.message), 1) << input << log.dump();
      }
    }
  }
}

TEST(StripQuotesOut, CopiesWhatIsQuoted) {
  for (const std::string& text : {""s, "a"s, "cabin"s, "\\"s, "\xC3\xA4"s}) {
    const ExactBuffer input('"' + text + '"');
    const ExactBuffer output(text.size() + 1);
    EXPECT_EQ(kelo_strip_quotes_out(input.data(), output.data(), output.size()), 1) << text;
    EXPECT_EQ(text, output.data());
  }
}

void expect_refusal(const char* input, std::size_t size, const std::string& message) {
  const LogCapture log;
  const ExactBuffer output(size);
  EXPECT_EQ(kelo_strip_quotes_out(input, output.data(), size), 0) << input;
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, message), 1) << input << log.dump();
  EXPECT_EQ(log.lines().size(), 1u) << log.dump();
}

TEST(StripQuotesOut, SaysWhyItRefuses) {
  expect_refusal("", 8, kNotQuoted);
  expect_refusal("cabin\"", 8, kNotQuoted);
  expect_refusal("\"cabin", 8, open_or_small(8));
  expect_refusal("\"", 8, open_or_small(8));
  expect_refusal("\"cabin\"", 5, open_or_small(5));
  expect_refusal("\"\"", 0, open_or_small(0));
  expect_refusal("\"cabin\" ", 8, kNotTerminated);
  expect_refusal("\"ca\"bin\"", 8, kNotTerminated);
}

TEST(StripQuotesOut, LogsANullPointer) {
  const LogCapture log;
  const ExactBuffer output(4);
  EXPECT_EQ(kelo_strip_quotes_out(nullptr, output.data(), 4), 0);
  EXPECT_EQ(kelo_strip_quotes_out("\"a\"", nullptr, 4), 0);
  EXPECT_TRUE(output.untouched());
  EXPECT_EQ(log.count(LOG_LVL_ERR, kFunction, "kelo_strip_quotes_out param NULL\n"), 2) << log.dump();
  EXPECT_EQ(log.lines().size(), 2u);
}

}  // namespace
