// SPDX-License-Identifier: MIT
// What the lines of a settings file mean.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "kelo_utils/ini.h"
#include "tests/support/settings_file.hpp"

namespace {

using namespace std::string_literals;
using kelo::tests::kAbsent;
using kelo::tests::kSettings;
using kelo::tests::value_of;
using kelo::tests::value_of_text;
using kelo::tests::write_file;

void expect_values(const std::vector<std::pair<std::string, std::string>>& cases) {
  for (const auto& [text, value] : cases) EXPECT_EQ(value_of_text(text), value) << "of " << text;
}

TEST(IniSyntax, FindsAKeyOfASectionWhateverTheCase) {
  write_file(kSettings, "[Net]\nIP = 1.2.3.4\n");
  EXPECT_EQ(value_of("net", "ip"), "1.2.3.4");
  EXPECT_EQ(value_of("NET", "Ip"), "1.2.3.4");
}

TEST(IniSyntax, DoesNotWaitAtAPipe) {
  std::remove(kSettings);
  ASSERT_EQ(mkfifo(kSettings, 0600), 0);
  alarm(60);  // ends the test
  EXPECT_EQ(value_of("net", "ip"), kAbsent);
  EXPECT_EQ(ini_puts("net", "ip", "1.2.3.4", kSettings), 0);
  alarm(0);
  std::remove(kSettings);
}

TEST(IniSyntax, TakesOnlyAsciiLettersForTheSame) {
  write_file(kSettings, "[\xC4@Z]\n`{=1\nAZaz09=2\n");
  EXPECT_EQ(value_of("\xE4@z", "azAZ09"), kAbsent);
  EXPECT_EQ(value_of("\xC4`z", "azAZ09"), kAbsent);
  EXPECT_EQ(value_of("\xC4@z", "@["), kAbsent);
  EXPECT_EQ(value_of("\xC4@z", "`{"), "1");
  EXPECT_EQ(value_of("\xC4@z", "azAZ09"), "2");
}

TEST(IniSyntax, ComparesNamesInTheirFullLength) {
  write_file(kSettings, "[network]\nkey=1\n[net]\nkeys=2\nke=3\nkey=4\n");
  EXPECT_EQ(value_of("net", "key"), "4");
  EXPECT_EQ(value_of("net", "k"), kAbsent);
  EXPECT_EQ(value_of("net", "keys2"), kAbsent);
  EXPECT_EQ(value_of("networks", "key"), kAbsent);
}

TEST(IniSyntax, SeparatesAtTheFirstEqualsSignOrElseTheFirstColon) {
  write_file(kSettings, "key: value\na=b:c\nd:e=f\ng:h:i\nj==k\nl=:m\nn\n:o\n");
  EXPECT_EQ(value_of(nullptr, "key"), "value");
  EXPECT_EQ(value_of(nullptr, "a"), "b:c");
  EXPECT_EQ(value_of(nullptr, "d:e"), "f");
  EXPECT_EQ(value_of(nullptr, "d"), kAbsent);
  EXPECT_EQ(value_of(nullptr, "g"), "h:i");
  EXPECT_EQ(value_of(nullptr, "j"), "=k");
  EXPECT_EQ(value_of(nullptr, "l"), ":m");
  EXPECT_EQ(value_of(nullptr, "n"), kAbsent);
  EXPECT_EQ(value_of(nullptr, ""), "o");
}

TEST(IniSyntax, FindsTheSeparatorAfterACommentCharacter) {
  write_file(kSettings, "a: b ; c=d\ne#f=g\n");
  EXPECT_EQ(value_of(nullptr, "a"), kAbsent);
  EXPECT_EQ(value_of(nullptr, "a: b ; c"), "d");
  EXPECT_EQ(value_of(nullptr, "e#f"), "g");
}

// A text with that character in the place of each "_".
std::string with(char c, std::string text) {
  std::replace(text.begin(), text.end(), '_', c);
  return text;
}

TEST(IniSyntax, StripsEveryWhiteByteAroundKeyAndValue) {
  for (int byte = 1; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    if (c == '\n' || c == '"') continue;
    write_file(kSettings, with(c, "__k_=_v_w_\n"));
    if (byte <= ' ') {
      EXPECT_EQ(value_of(nullptr, "k"), with(c, "v_w")) << byte;
    } else if (c == '#' || c == ';' || c == '=' || c == ':') {
      EXPECT_EQ(value_of(nullptr, "k"), kAbsent) << byte;
    } else {
      EXPECT_EQ(value_of(nullptr, with(c, "__k_").c_str()), with(c, "_v_w_")) << byte;
    }
  }
}

TEST(IniSyntax, KeepsWhiteSpaceInsideNames) {
  write_file(kSettings, "  [ a b ] \n\t c  d\t= e  f \n");
  EXPECT_EQ(value_of(" a b ", "c  d"), "e  f");
  EXPECT_EQ(value_of("a b", "c  d"), kAbsent);
}

TEST(IniSyntax, EndsASectionNameAtTheLastBracket) {
  write_file(kSettings, "[a] ; b]\nk=1\n[c]=d\nk=2\n[]]\nk=3\n[[e]\nk=4\n[]\nk=5\n");
  EXPECT_EQ(value_of("a] ; b", "k"), "1");
  EXPECT_EQ(value_of("a", "k"), kAbsent);
  EXPECT_EQ(value_of("c", "k"), "2");
  EXPECT_EQ(value_of("]", "k"), "3");
  EXPECT_EQ(value_of("[e", "k"), "4");
}

TEST(IniSyntax, TakesABracketThatIsNotClosedForPartOfAKey) {
  write_file(kSettings, "[a]\n[k=1\n[b\nl=2\n]c[=3\n");
  EXPECT_EQ(value_of("a", "[k"), "1");
  EXPECT_EQ(value_of("a", "l"), "2");
  EXPECT_EQ(value_of("a", "]c["), "3");
}

TEST(IniSyntax, SkipsCommentsAndOtherLines) {
  write_file(kSettings, "#k=1\n ;k=2\n\t# [s]\nk\n\n \t\n;[s]\nk=3\n#[t]\n");
  EXPECT_EQ(value_of(nullptr, "k"), "3");
  EXPECT_EQ(value_of("s", "k"), kAbsent);
  EXPECT_EQ(value_of(nullptr, "#k"), kAbsent);
}

TEST(IniSyntax, KnowsTheNamelessSectionByNullAndByTheEmptyName) {
  write_file(kSettings, "k=1\n[]\nk=2\n[s]\nk=3\nl=4\n");
  EXPECT_EQ(value_of(nullptr, "k"), "1");
  EXPECT_EQ(value_of("", "k"), "1");
  EXPECT_EQ(value_of("", "l"), kAbsent) << "the nameless section ends at the first header";
  EXPECT_EQ(value_of("s", "k"), "3");
}

TEST(IniSyntax, TakesTheFirstOfSectionsAndKeysThatAreThereTwice) {
  write_file(kSettings, "[s]\nk=1\nk=2\n[t]\nk=3\n[S]\nk=4\nl=5\n");
  EXPECT_EQ(value_of("s", "k"), "1");
  EXPECT_EQ(value_of("s", "l"), kAbsent);
}

TEST(IniSyntax, CutsCommentsOff) {
  expect_values({{"x ; comment", "x"},
                 {"x;y", "x"},
                 {"x # comment", "x"},
                 {"x#y;z", "x"},
                 {"; comment", ""},
                 {"#", ""},
                 {"", ""},
                 {" \t ", ""},
                 {"a b\t;", "a b"}});
}

TEST(IniSyntax, TakesAValueOutOfItsQuotes) {
  expect_values({{R"("x;y" ; comment)", "x;y"},
                 {R"("x")", "x"},
                 {R"(" x ")", " x "},
                 {R"("")", ""},
                 {R"("x#y"#z)", "x#y"},
                 {R"("a\"b")", R"(a"b)"},
                 {R"("a""b")", R"(a"b)"},
                 {R"("\"")", R"(")"},
                 {R"("""")", R"(")"},
                 {R"("\";\"")", R"(";")"},
                 {R"("a\\b")", R"(a\\b)"},
                 {R"("a\n")", R"(a\n)"},
                 {R"("a"";""b" ;)", R"(a";"b)"}});
}

TEST(IniSyntax, KeepsQuotesThatDoNotEncloseTheValue) {
  expect_values({{R"(")", R"(")"},
                 {R"(x")", R"(x")"},
                 {R"("x)", R"("x)"},
                 {R"("a" b)", R"("a" b)"},
                 {R"(a "b")", R"(a "b")"},
                 {R"(a\"b)", R"(a\"b)"},
                 {R"(a""b)", R"(a""b)"}});
}

TEST(IniSyntax, DropsTheOuterQuotesWhateverIsBetweenThem) {
  expect_values({{R"("a" "b")", R"(a" "b)"}, {R"("a\")", R"(a\)"}, {R"("a"")", R"(a")"}, {R"(""")", R"(")"}});
}

TEST(IniSyntax, FindsNoCommentInAnyQuotedStretch) {
  expect_values({{R"(a "b;c" d ; e)", R"(a "b;c" d)"},
                 {R"(a "b;c)", R"(a "b;c)"},
                 {R"(a "b" ; "c)", R"(a "b")"},
                 {R"("a\";b" ; c)", R"(a";b)"},
                 {R"("a"";b" ; c)", R"(a";b)"},
                 {R"(a\";b" ; c)", R"(a\";b")"}});
}

TEST(IniSyntax, ReadsFilesWithOtherLineEnds) {
  write_file(kSettings, "a=1\r\n[s]\r\nb = 2 \r\nc=\"3 \"\r\n\r\nd=4");
  EXPECT_EQ(value_of(nullptr, "a"), "1");
  EXPECT_EQ(value_of("s", "b"), "2");
  EXPECT_EQ(value_of("s", "c"), "3 ");
  EXPECT_EQ(value_of("s", "d"), "4") << "the last line needs no newline";
}

TEST(IniSyntax, EndsTheTextOfALineAtAZeroByte) {
  write_file(kSettings,
             "a=1\0"
             "2\nb\0=3\n[s]\0x\nc=\0\n[t\0]\nd=4\0"s);
  EXPECT_EQ(value_of(nullptr, "a"), "1");
  EXPECT_EQ(value_of(nullptr, "b"), kAbsent);
  EXPECT_EQ(value_of("s", "c"), "");
  EXPECT_EQ(value_of("s", "d"), "4");
}

}  // namespace
