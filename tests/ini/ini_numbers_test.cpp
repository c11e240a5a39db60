// SPDX-License-Identifier: MIT
// Values as numbers and truth values.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kelo_utils/ini.h"
#include "tests/support/c_library.hpp"
#include "tests/support/settings_file.hpp"

namespace {

using kelo::tests::kGnuLibrary;
using kelo::tests::kSettings;
using kelo::tests::write_file;

constexpr int kDefault = -77;

void set_value(std::string_view text) { write_file(kSettings, "[n]\nk = " + std::string(text) + "\n"); }

std::int32_t number(std::string_view text) {
  set_value(text);
  return ini_getl("n", "k", kDefault, kSettings);
}

float decimal(std::string_view text) {
  set_value(text);
  return ini_getf("n", "k", kDefault, kSettings);
}

int truth(std::string_view text) {
  set_value(text);
  return ini_getbool("n", "k", kDefault, kSettings);
}

TEST(IniNumbers, ReadsWholeNumbers) {
  const std::vector<std::pair<std::string_view, std::int32_t>> cases = {
      {"0", 0},      {"1", 1},   {"-1", -1},       {"+5", 5}, {"010", 10}, {"42abc", 42},     {"7 8", 7},
      {"12;34", 12}, {"abc", 0}, {R"("1\"2")", 1}, {"-", 0},  {"1.9", 1},  {R"(" 12 ")", 12}, {"'1'", 0}};
  for (const auto& [text, value] : cases) EXPECT_EQ(number(text), value) << text;
}

TEST(IniNumbers, ReadsHexadecimalByTheSecondCharacter) {
  const std::vector<std::pair<std::string_view, std::int32_t>> cases = {{"0x1F", 31},
                                                                        {"0X10", 16},
                                                                        {"0x10", 16},
                                                                        {"0xfFg", 255},
                                                                        {"0x", 0},
                                                                        {"1x5", 1},
                                                                        {"ax5", 10},
                                                                        {"xx", 0},
                                                                        {"-x5", 0},
                                                                        {"-0x10", 0},
                                                                        {"00x10", 0},
                                                                        {"+0x10", 0},
                                                                        {"0x7fffffff", INT32_MAX}};
  for (const auto& [text, value] : cases) EXPECT_EQ(number(text), value) << text;
}

TEST(IniNumbers, StopsAtTheEndsOfTheRange) {
  const std::vector<std::pair<std::string_view, std::int32_t>> cases = {
      {"2147483647", INT32_MAX},  {"2147483648", INT32_MAX},           {"-2147483648", INT32_MIN},
      {"-2147483649", INT32_MIN}, {"99999999999999999999", INT32_MAX}, {"-99999999999999999999", INT32_MIN},
      {"4294967296", INT32_MAX},  {"0x80000000", INT32_MAX},           {"0xFFFFFFFFFFFFFFFFFF", INT32_MAX}};
  for (const auto& [text, value] : cases) EXPECT_EQ(number(text), value) << text;
}

TEST(IniNumbers, ReadsTheFirst63Characters) {
  EXPECT_EQ(number(std::string(62, '0') + "12"), 1);
  EXPECT_EQ(number(std::string(61, '0') + "12"), 12);
  EXPECT_EQ(decimal(std::string(62, '0') + "12"), 1.0F);
  EXPECT_EQ(decimal(std::string(61, '0') + "12"), 12.0F);
}

TEST(IniNumbers, ReadsDecimals) {
  const std::vector<std::pair<std::string_view, float>> cases = {{"1.5", 1.5F},
                                                                 {"-0.25", -0.25F},
                                                                 {"2", 2.0F},
                                                                 {".5", 0.5F},
                                                                 {"5.", 5.0F},
                                                                 {"1e3", 1000.0F},
                                                                 {"1.5E-1", 0.15F},
                                                                 {"+3.5", 3.5F},
                                                                 {"1.5V", 1.5F},
                                                                 {"1.2.3", 1.2F},
                                                                 {"abc", 0.0F},
                                                                 {"0x1F", 0.0F},
                                                                 {"16777217", 16777216.0F},
                                                                 {"1,5", 1.0F},
                                                                 {"3.4028235e38", FLT_MAX},
                                                                 {R"(" 1.5 ")", 1.5F},
                                                                 {"1.5 2.5", 1.5F},
                                                                 {"0.1", 0.1F},
                                                                 {"1e-45", 1e-45F},
                                                                 {"1e-60", 0.0F},
                                                                 {".", 0.0F},
                                                                 {"-.5e1e1", -5.0F}};
  for (const auto& [text, value] : cases) EXPECT_EQ(decimal(text), value) << text;
  EXPECT_EQ(decimal("1e99"), HUGE_VALF);
  EXPECT_EQ(decimal("-inf"), -HUGE_VALF);
  EXPECT_EQ(decimal("Infinity"), HUGE_VALF);
  EXPECT_TRUE(std::isnan(decimal("nan")));
  EXPECT_TRUE(std::signbit(decimal("-0.0")));
}

TEST(IniNumbers, KeepsTheDecimalPointInEveryLocale) {
  if (std::system("localedef -i de_DE -f UTF-8 /tmp/de_DE.UTF-8 2>/tmp/localedef.log") != 0)
    GTEST_SKIP() << "this machine cannot make a locale with another decimal point";
  ASSERT_EQ(setenv("LOCPATH", "/tmp", 1), 0);
  ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
  if (!kGnuLibrary && std::string_view(std::localeconv()->decimal_point) == ".")
    GTEST_SKIP() << "this C library has the same decimal point in every locale";
  ASSERT_STREQ(std::localeconv()->decimal_point, ",");
  EXPECT_EQ(decimal("1.5"), 1.5F);
  EXPECT_EQ(decimal("-1.25e1 V"), -12.5F);
  EXPECT_EQ(decimal("1,5"), 1.0F);
  EXPECT_EQ(decimal("1.2.3"), 1.2F);
  EXPECT_EQ(decimal("0." + std::string(60, '5') + "999"), 5.0F / 9.0F) << "63 characters";
  write_file(kSettings, "");
  for (const auto& [number, text] : std::vector<std::pair<float, std::string>>{
           {1.5F, "1.500000"}, {-12.25F, "-12.250000"}, {HUGE_VALF, "inf"}}) {
    EXPECT_EQ(ini_putf("n", "k", number, kSettings), 1);
    EXPECT_EQ(kelo::tests::value_of("n", "k"), text);
  }
}

TEST(IniNumbers, ReadsTruthByTheFirstCharacter) {
  for (const char* const text : {"T", "t", "Y", "y", "1", "true", "yes", "True", "10", "Yes ; no", "\"yes\""})
    EXPECT_EQ(truth(text), 1) << text;
  for (const char* const text : {"F", "f", "N", "n", "0", "false", "no", "No", "0x1", "\"no\""})
    EXPECT_EQ(truth(text), 0) << text;
  for (const char* const text : {"maybe", "on", "off", "2", "-1", "", "; true", "+1", "\" yes\""})
    EXPECT_EQ(truth(text), kDefault) << text;
}

TEST(IniNumbers, KnowsTheWordsForTruthByTenCharactersOnly) {
  const std::string_view yes = "TtYy1";
  const std::string_view no = "FfNn0";
  for (int byte = '!'; byte < 256; ++byte) {
    const char c = static_cast<char>(byte);
    const int expected = yes.find(c) != yes.npos ? 1 : no.find(c) != no.npos ? 0 : kDefault;
    EXPECT_EQ(truth(std::string(1, c)), expected) << byte;
  }
}

TEST(IniNumbers, AnswersWithTheDefaultForWhatIsNotThere) {
  write_file(kSettings, "[n]\nempty=\nquoted=\"\"\ncomment=;1\n");
  for (const char* const key : {"none", "empty", "quoted", "comment", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(ini_getl("n", key, kDefault, kSettings), kDefault);
    EXPECT_EQ(ini_getf("n", key, -7.5F, kSettings), -7.5F);
    EXPECT_EQ(ini_getbool("n", key, kDefault, kSettings), kDefault);
  }
  for (const char* const path : {"/tmp/none.ini", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(ini_getl("n", "k", INT32_MIN, path), INT32_MIN);
    EXPECT_EQ(ini_getf("n", "k", FLT_MAX, path), FLT_MAX);
    EXPECT_EQ(ini_getbool("n", "k", INT_MAX, path), INT_MAX);
  }
}

TEST(IniNumbers, ReadTheNamelessSectionToo) {
  write_file(kSettings, "k=1\n");
  EXPECT_EQ(ini_getl(nullptr, "k", 0, kSettings), 1);
  EXPECT_EQ(ini_getf("", "k", 0, kSettings), 1.0F);
  EXPECT_EQ(ini_getbool(nullptr, "k", 0, kSettings), 1);
}

// The value that a number is written as.
std::string written(std::int32_t number) {
  write_file(kSettings, "");
  EXPECT_EQ(ini_putl(nullptr, "k", number, kSettings), 1);
  EXPECT_EQ(ini_getl(nullptr, "k", 1 - (number / 2), kSettings), number);
  return kelo::tests::read_file(kSettings);
}

std::string written(float number) {
  write_file(kSettings, "");
  EXPECT_EQ(ini_putf(nullptr, "k", number, kSettings), 1);
  return kelo::tests::read_file(kSettings);
}

TEST(IniNumbers, WritesWholeNumbers) {
  const std::vector<std::pair<std::int32_t, std::string>> cases = {
      {0, "0"}, {7, "7"}, {-1, "-1"}, {100, "100"}, {INT32_MAX, "2147483647"}, {INT32_MIN, "-2147483648"}};
  for (const auto& [number, text] : cases) EXPECT_EQ(written(number), "k=" + text + "\n");
}

TEST(IniNumbers, WritesSixDigitsAfterThePoint) {
  const std::vector<std::pair<float, std::string>> cases = {
      {0.0F, "0.000000"},
      {-0.0F, "-0.000000"},
      {1.5F, "1.500000"},
      {-0.25F, "-0.250000"},
      {1e-7F, "0.000000"},
      {0.1F, "0.100000"},
      {16777216.0F, "16777216.000000"},
      {FLT_MAX, "340282346638528859811704183484516925440.000000"},
      {-FLT_MAX, "-340282346638528859811704183484516925440.000000"},
      {HUGE_VALF, "inf"},
      {-HUGE_VALF, "-inf"},
      {NAN, "nan"}};
  for (const auto& [number, text] : cases) {
    EXPECT_EQ(written(number), "k=" + text + "\n");
    const float back = ini_getf(nullptr, "k", -7.0F, kSettings);
    if (std::isnan(number)) {
      EXPECT_TRUE(std::isnan(back));
    } else {
      EXPECT_EQ(back, number == 1e-7F ? 0.0F : number) << text;
    }
  }
}

TEST(IniNumbers, AnswerAsTheTextsThatTheyAre) {
  EXPECT_EQ(ini_putl("s", "k", 1, "/tmp/none/settings.ini"), 0);
  EXPECT_EQ(ini_putf("s", "k", 1, "/tmp/none/settings.ini"), 0);
  write_file(kSettings, "[s]\nk=1\n[t]\n");
  EXPECT_EQ(ini_putl("t", "k", 2, kSettings), 1);
  EXPECT_EQ(ini_putf("t", "l", 3, kSettings), 1);
  EXPECT_EQ(kelo::tests::read_file(kSettings), "[s]\nk=1\n[t]\nk=2\nl=3.000000\n");
  EXPECT_EQ(ini_putl("t", nullptr, 2, kSettings), 1);
  EXPECT_EQ(kelo::tests::read_file(kSettings), "[s]\nk=1\n") << "no key deletes the section";
}

}  // namespace
