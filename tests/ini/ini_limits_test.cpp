// SPDX-License-Identifier: MIT
// Long lines and long files.
#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "kelo_utils/ini.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/settings_file.hpp"

namespace {

using kelo::tests::ExactBuffer;
using kelo::tests::kAbsent;
using kelo::tests::kSettings;
using kelo::tests::value_of;
using kelo::tests::write_file;

// "k=", then `c` up to that length.
std::string line_of(std::size_t length, char c = 'v') { return "k=" + std::string(length - 2, c); }

TEST(IniLimits, ReadsLinesUpTo511BytesWhole) {
  for (const std::size_t length : {509U, 510U, 511U}) {
    for (const std::string end : {"", "\n", "\nl=1\n"}) {
      write_file(kSettings, line_of(length) + end);
      EXPECT_EQ(value_of(nullptr, "k"), std::string(length - 2, 'v')) << length;
      EXPECT_EQ(value_of(nullptr, "l"), end.size() > 1 ? "1" : kAbsent);
    }
  }
}

TEST(IniLimits, ReadsALongerLineAsSeveral) {
  for (const std::size_t length : {512U, 600U, 1021U, 1022U, 1024U}) {
    write_file(kSettings, line_of(length) + "\nl=1\n");
    EXPECT_EQ(value_of(nullptr, "k"), std::string(509, 'v')) << length;
    EXPECT_EQ(value_of(nullptr, "l"), "1") << length;
  }
}

TEST(IniLimits, FindsKeysAndSectionsAfterTheFirst511Bytes) {
  const std::string first = "k=" + std::string(509, ' ');
  ASSERT_EQ(first.size(), 511U);
  write_file(kSettings, first + "l=1" + std::string(86, ' ') + "\n");
  EXPECT_EQ(value_of(nullptr, "k"), "");
  EXPECT_EQ(value_of(nullptr, "l"), "1");
  write_file(kSettings, first + "[s]" + std::string(508, ' ') + "m=2\n");
  EXPECT_EQ(value_of("s", "m"), "2");
  write_file(kSettings, std::string(511, ';') + "l=3\n");
  EXPECT_EQ(value_of(nullptr, "l"), "3") << "a comment ends with its line, too";
  write_file(kSettings, std::string(510, ';') + "l=3\n");
  EXPECT_EQ(value_of(nullptr, "=3"), kAbsent);
  EXPECT_EQ(value_of(nullptr, ""), "3");
}

TEST(IniLimits, TakesALineEndThatIsCutOffForALineOfItsOwn) {
  write_file(kSettings, line_of(511) + "\n[s]\nl=1\n");
  EXPECT_EQ(value_of("s", "l"), "1");
  write_file(kSettings, line_of(510) + "\r\n[s]\nl=1\n");
  EXPECT_EQ(value_of(nullptr, "k"), std::string(508, 'v'));
  EXPECT_EQ(value_of("s", "l"), "1");
}

TEST(IniLimits, NeedsBothQuotesOnOneLine) {
  write_file(kSettings, "k=\"" + std::string(507, ';') + "\"\n");
  EXPECT_EQ(value_of(nullptr, "k"), std::string(507, ';'));
  write_file(kSettings, "k=\"" + std::string(508, ';') + "\"\n");
  EXPECT_EQ(value_of(nullptr, "k"), "\"" + std::string(508, ';'));
}

TEST(IniLimits, ReadsTheLongestNames) {
  const std::string section(509, 's');
  const std::string key(510, 'n');
  write_file(kSettings, "[" + section + "]\n" + key + "=\n");
  EXPECT_EQ(value_of(section.c_str(), key.c_str()), "");
  const ExactBuffer buffer(INI_BUFFERSIZE);
  EXPECT_EQ(ini_getsection(0, buffer.data(), INI_BUFFERSIZE, kSettings), 509);
  EXPECT_EQ(buffer.data(), section);
  EXPECT_EQ(ini_getkey(section.c_str(), 0, buffer.data(), INI_BUFFERSIZE, kSettings), 510);
  EXPECT_EQ(buffer.data(), key);
  write_file(kSettings, "[" + section + "s]\n");
  EXPECT_EQ(ini_getsection(0, buffer.data(), INI_BUFFERSIZE, kSettings), 0)
      << "the bracket is not on the line";
}

// Lines lie across every place where one piece of reading may end.
TEST(IniLimits, FindsEveryKeyOfALongFile) {
  for (std::size_t shift = 0; shift < 60; ++shift) {
    std::string text(shift, ';');
    text += '\n';
    for (int i = 0; i < 300; ++i) text += "key" + std::to_string(i) + " = value " + std::to_string(i) + "\n";
    write_file(kSettings, text);
    for (const int i : {0, 89, 90, 91, 92, 178, 179, 180, 181, 182, 183, 268, 299})
      EXPECT_EQ(value_of(nullptr, ("key" + std::to_string(i)).c_str()), "value " + std::to_string(i))
          << shift;
    EXPECT_EQ(value_of(nullptr, "key300"), kAbsent);
  }
}

TEST(IniLimits, ReadsAnyBytes) {
  std::string text;
  for (int i = 0; i < 5000; ++i) text += static_cast<char>(i * 37 + i / 256);
  write_file(kSettings, text + "\n[end]\nk=1\n");
  EXPECT_EQ(value_of("end", "k"), "1");
}

}  // namespace
