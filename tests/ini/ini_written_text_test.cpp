// SPDX-License-Identifier: MIT
// The lines that are written: quotes, and what is cut.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "kelo_utils/ini.h"
#include "tests/support/settings_file.hpp"

namespace {

using kelo::tests::after_put;
using kelo::tests::value_of;

// The line with which a value is written.
std::string line_of(const std::string& value, const std::string& key = "k") {
  return after_put("", nullptr, key.c_str(), value.c_str());
}

TEST(IniWrittenText, EnclosesValuesThatWouldReadOtherwise) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"abc ", R"("abc ")"},     {" ", R"(" ")"},
      {"a;b", R"("a;b")"},       {";", R"(";")"},
      {"#a", R"("#a")"},         {"a#", R"("a#")"},
      {R"(")", R"("\"")"},       {R"("a")", R"("\"a\"")"},
      {R"(a"b)", R"("a\"b")"},   {R"(a""b)", R"("a\"\"b")"},
      {R"(a\"b)", R"("a\\"b")"}, {R"(;\)", R"(";\")"}};
  for (const auto& [value, written] : cases) {
    EXPECT_EQ(line_of(value), "k=" + written + "\n");
    EXPECT_EQ(value_of(nullptr, "k"), value);
  }
}

TEST(IniWrittenText, WritesOtherValuesAsTheyAre) {
  for (const std::string value :
       {"", "abc", "a b", "a=b", "a:b", R"(a\b)", R"(\)", "[a]", "a\tb", "'a'", "\xC3\xA4"}) {
    EXPECT_EQ(line_of(value), "k=" + value + "\n");
    EXPECT_EQ(value_of(nullptr, "k"), value);
  }
}

TEST(IniWrittenText, KeepsNoOtherWhiteSpaceAtTheEnds) {
  EXPECT_EQ(line_of(" a"), "k= a\n");
  EXPECT_EQ(value_of(nullptr, "k"), "a");
  EXPECT_EQ(line_of("a\t"), "k=a\t\n");
  EXPECT_EQ(value_of(nullptr, "k"), "a");
  EXPECT_EQ(line_of(" a "), "k=\" a \"\n");
  EXPECT_EQ(value_of(nullptr, "k"), " a ");
}

// A line has at most 510 bytes.
TEST(IniWrittenText, CutsASectionName) {
  for (const std::size_t length : {506U, 507U, 508U, 600U}) {
    const std::string name(length, 's');
    EXPECT_EQ(after_put("x\n", name.c_str(), "k", "1"), "x\n[" + name.substr(0, 507) + "]\nk=1\n") << length;
  }
}

TEST(IniWrittenText, CutsAKey) {
  for (const std::size_t length : {507U, 508U, 509U, 600U}) {
    const std::string key(length, 'k');
    EXPECT_EQ(line_of("", key), key.substr(0, 508) + "=\n") << length;
    EXPECT_EQ(line_of("v", key), key.substr(0, 508) + (length == 507 ? "=v\n" : "=\n")) << length;
  }
}

TEST(IniWrittenText, CutsAValueToTheRoomThatRemains) {
  for (const std::size_t key_length : {1U, 2U, 400U, 507U, 508U}) {
    const std::string key(key_length, 'k');
    const std::size_t room = 508 - key_length;
    for (const std::size_t length : {room - std::min<std::size_t>(room, 1), room, room + 1, room + 600}) {
      const std::string value(length, 'v');
      EXPECT_EQ(line_of(value, key), key + "=" + value.substr(0, room) + "\n") << key_length;
      EXPECT_EQ(value_of(nullptr, key.c_str()), value.substr(0, room));
    }
  }
}

TEST(IniWrittenText, CutsAnEnclosedValueBetweenItsQuotes) {
  const std::string marks(600, ';');
  for (const std::size_t key_length : {1U, 400U, 505U, 506U}) {
    const std::string key(key_length, 'k');
    const std::string kept = marks.substr(0, 506 - key_length);
    EXPECT_EQ(line_of(marks, key), std::string(key).append("=\"").append(kept).append("\"\n"));
    EXPECT_EQ(value_of(nullptr, key.c_str()), kept);
  }
  for (const std::size_t key_length : {507U, 508U})
    EXPECT_EQ(line_of(marks, std::string(key_length, 'k')), std::string(key_length, 'k') + "=\n");
}

TEST(IniWrittenText, CutsNoEscapedQuoteInTwo) {
  for (const std::size_t key_length : {500U, 501U}) {
    const std::string key(key_length, 'k');
    EXPECT_EQ(line_of(R"(""""""")", key), key + (key_length == 500 ? R"(="\"\"\"")" : R"(="\"\"")") + "\n");
  }
}

TEST(IniWrittenText, NeverFindsANameAgainThatWasCut) {
  const std::string key(509, 'k');
  const std::string line = line_of("", key);
  EXPECT_EQ(after_put(line, nullptr, key.c_str(), ""), line + line);
}

// Every short text of these characters reads back as it was written, but for white space that is not kept.
TEST(IniWrittenText, ReadsBackWhatItWrites) {
  const std::string alphabet = "a\";#\\ =[";
  std::vector<std::string> texts = {""};
  for (std::size_t begin = 0; begin < texts.size() && texts[begin].size() < 4; ++begin)
    for (const char c : alphabet) texts.push_back(texts[begin] + c);
  for (const std::string& value : texts) {
    line_of(value);
    const bool enclosed = value.ends_with(' ') || value.find_first_of("\";#") != value.npos;
    const std::string kept =
        enclosed ? value : value.substr(std::min(value.find_first_not_of(' '), value.size()));
    EXPECT_EQ(value_of(nullptr, "k"), kept) << "of " << value;
  }
}

}  // namespace
