// SPDX-License-Identifier: MIT
// Setting keys, byte for byte.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kelo_utils/ini.h"
#include "tests/support/settings_file.hpp"

namespace {

using namespace std::string_literals;
using kelo::tests::after_put;
using kelo::tests::file_exists;
using kelo::tests::inode_of;
using kelo::tests::kSettings;
using kelo::tests::put;
using kelo::tests::read_file;
using kelo::tests::write_file;

struct Case {
  std::string before;
  const char* section;
  const char* key;
  std::string after;
};

// Sets the key to "new value".
void expect_files(const std::vector<Case>& cases) {
  for (const auto& [before, section, key, expected] : cases) {
    EXPECT_EQ(after_put(before, section, key, "new value"), expected) << "from " << before;
    EXPECT_EQ(kelo::tests::value_of(section, key), "new value");
    const std::string once = read_file(kSettings);
    EXPECT_EQ(after_put(once, section, key, "new value"), once) << "set again";
  }
}

TEST(IniRewrite, MakesAFileThatIsNotThere) {
  std::filesystem::remove(kSettings);
  EXPECT_EQ(put("Net", "IP", "1.2.3.4"), 1);
  EXPECT_EQ(read_file(kSettings), "[Net]\nIP=1.2.3.4\n");
  for (const char* const section : {"", static_cast<const char*>(nullptr)}) {
    ASSERT_TRUE(std::filesystem::remove(kSettings));
    EXPECT_EQ(put(section, "IP", "1.2.3.4"), 1);
    EXPECT_EQ(read_file(kSettings), "IP=1.2.3.4\n");
  }
}

TEST(IniRewrite, PutsANewValueInThePlaceOfTheLine) {
  expect_files({{"[s]\na=1\nk=2\nb=3\n[t]\nk=4\n", "s", "k", "[s]\na=1\nk=new value\nb=3\n[t]\nk=4\n"},
                {"[s]\na=1\nk=2\n[t]\nk=4\n", "t", "k", "[s]\na=1\nk=2\n[t]\nk=new value\n"},
                {"k=1\n[s]\nk=2\n", nullptr, "k", "k=new value\n[s]\nk=2\n"},
                {"k=1\n[s]\nk=2\n", "", "k", "k=new value\n[s]\nk=2\n"},
                {"k=1\nk=2\n", nullptr, "k", "k=new value\nk=2\n"},
                {"[s]\nk=1\n[s]\nk=2\n", "s", "k", "[s]\nk=new value\n[s]\nk=2\n"},
                {"k=", nullptr, "k", "k=new value\n"},
                {"[s]\nk = 1", "s", "k", "[s]\nk=new value\n"}});
}

TEST(IniRewrite, WritesTheLineAnew) {
  expect_files({{"  K : \"1\" ; why\n", nullptr, "k", "k=new value\n"},
                {"[ S]\n\tKey\t=1\r\n\r\n", " s", "kEY", "[ S]\nkEY=new value\n\r\n"}});
}

TEST(IniRewrite, AddsAKeyAfterTheLastLineOfItsSection) {
  expect_files({{"[s]\na=1\n[t]\nk=2\n", "s", "k", "[s]\na=1\nk=new value\n[t]\nk=2\n"},
                {"[s]\na=1\n\n; of t\n[t]\n", "s", "k", "[s]\na=1\n\n; of t\nk=new value\n[t]\n"},
                {"[s]\n[t]\n", "s", "k", "[s]\nk=new value\n[t]\n"},
                {"[s]\n[t]\n", "t", "k", "[s]\n[t]\nk=new value\n"},
                {"[s]\na=1\n[t]", "s", "k", "[s]\na=1\nk=new value\n[t]"},
                {"[s]\n  [t]\n", "s", "k", "[s]\nk=new value\n  [t]\n"},
                {"[s]\na=1\n[s]\nk=2\n", "s", "k", "[s]\na=1\nk=new value\n[s]\nk=2\n"},
                {"[s]\n\n", "s", "k", "[s]\n\nk=new value\n"},
                {"[s]\r\na=1\r\n", "s", "k", "[s]\r\na=1\r\nk=new value\n"}});
}

TEST(IniRewrite, AddsAKeyToTheNamelessSection) {
  expect_files({{"[s]\nk=1\n", nullptr, "k", "k=new value\n[s]\nk=1\n"},
                {"a=1\n\n[s]\n", "", "k", "a=1\n\nk=new value\n[s]\n"},
                {"a=1\n", nullptr, "k", "a=1\nk=new value\n"},
                {"[]\nk=1\n", "", "k", "k=new value\n[]\nk=1\n"},
                {"", nullptr, "k", "k=new value\n"},
                {"\n", nullptr, "k", "\nk=new value\n"}});
}

TEST(IniRewrite, BeginsALineOfItsOwnAfterALastLineWithoutNewline) {
  expect_files({{"a=1", nullptr, "k", "a=1\nk=new value\n"},
                {"[s]", "s", "k", "[s]\nk=new value\n"},
                {"[s]\na=1", "s", "k", "[s]\na=1\nk=new value\n"},
                {"[s]\n; c", "s", "k", "[s]\n; c\nk=new value\n"},
                {"[s]\na=1\r", "s", "k", "[s]\na=1\r\nk=new value\n"},
                {"[s]\na=1", "t", "k", "[s]\na=1\n[t]\nk=new value\n"},
                {"x", "t", "k", "x\n[t]\nk=new value\n"}});
}

TEST(IniRewrite, AddsASectionAtTheEnd) {
  expect_files({{"[s]\na=1\n", "t", "k", "[s]\na=1\n[t]\nk=new value\n"},
                {"[s]\na=1\n\n", "t", "k", "[s]\na=1\n\n[t]\nk=new value\n"},
                {"[s]\r\na=1\r\n", "t", "k", "[s]\r\na=1\r\n[t]\nk=new value\n"},
                {"x\n", "t", "k", "x\n[t]\nk=new value\n"}});
}

TEST(IniRewrite, PutsAnEmptyLineBeforeTheSectionWhereTheCopyEndsWithNothingOrOneNewline) {
  expect_files({{"", "t", "k", "\n[t]\nk=new value\n"}, {"\n", "t", "k", "\n\n[t]\nk=new value\n"}});
  // The copy is made in chunks of whole lines, at most 512 bytes.
  const std::string half = std::string(255, ';') + '\n';
  const std::string chunk = half + half;
  const std::string shorter = half + half.substr(1);
  const std::string added = "[t]\nk=new value\n";
  expect_files({{chunk, "t", "k", chunk + added},
                {chunk + "\n", "t", "k", chunk + "\n\n" + added},
                {chunk + "\n\n", "t", "k", chunk + "\n\n" + added},
                {chunk + "x", "t", "k", chunk + "x\n" + added},
                {chunk + "x\n", "t", "k", chunk + "x\n" + added},
                {chunk + chunk + "\n", "t", "k", chunk + chunk + "\n\n" + added},
                {shorter, "t", "k", shorter + added},
                {shorter + "\n", "t", "k", shorter + "\n" + added},
                {shorter + "\n\n", "t", "k", shorter + "\n\n\n" + added}});
}

TEST(IniRewrite, KeepsLinesWholeInItsChunks) {
  const std::string full = std::string(299, ';') + '\n' + std::string(211, ';') + "\n\n";
  ASSERT_EQ(full.size(), 513U);
  EXPECT_EQ(after_put(full, "t", "k", "1"), full + "\n[t]\nk=1\n");
  const std::string shared = std::string(300, ';') + '\n' + std::string(211, ';') + '\n';
  ASSERT_EQ(shared.size(), 513U);
  EXPECT_EQ(after_put(shared, "t", "k", "1"), shared + "[t]\nk=1\n") << "a last chunk of 212 bytes";
  EXPECT_EQ(after_put(shared + "\n", "t", "k", "1"), shared + "\n[t]\nk=1\n");
}

TEST(IniRewrite, KeepsEveryOtherByte) {
  std::string any;
  for (int i = 0; i < 3000; ++i) any += static_cast<char>(i * 37 + i / 256);
  for (std::size_t size : {0U, 1U, 511U, 512U, 513U, 1023U, 1024U, 1025U, 3000U}) {
    const std::string front = "[s]\nx=1\n;" + std::string(size, 'c') + "\nk=";
    const std::string back = "\n[t]\n" + any.substr(0, size);
    EXPECT_EQ(after_put(std::string(front).append("old").append(back), "s", "k", "newer"),
              std::string(front).append("newer").append(back))
        << size;
  }
}

TEST(IniRewrite, ReplacesTheFileByItsCopy) {
  write_file(kSettings, "[s]\nk=1\n");
  const auto before = inode_of(kSettings);
  EXPECT_EQ(put("s", "k", "12"), 1);
  EXPECT_NE(inode_of(kSettings), before);
  EXPECT_FALSE(file_exists(kelo::tests::kCopy));
}

TEST(IniRewrite, TouchesNothingForTheValueThatIsThere) {
  for (const std::string text : {"[s]\nk=v\n", "[s]\n K : \"v\" ; c", "[s]\nk=v\nk=w\n"}) {
    write_file(kSettings, text);
    const auto before = inode_of(kSettings);
    const auto written = std::filesystem::last_write_time(kSettings);
    EXPECT_EQ(put("s", "k", "v"), 1);
    EXPECT_EQ(inode_of(kSettings), before);
    EXPECT_EQ(std::filesystem::last_write_time(kSettings), written);
    EXPECT_EQ(read_file(kSettings), text);
  }
}

TEST(IniRewrite, ComparesTheValuesWithTheirCase) {
  EXPECT_EQ(after_put("k=yes\n", nullptr, "k", "YES"), "k=YES\n");
}

TEST(IniRewrite, SetsAnEmptyValue) {
  EXPECT_EQ(after_put("k=1\nl=2\n", nullptr, "k", ""), "k=\nl=2\n");
  EXPECT_EQ(after_put("l=2\n", nullptr, "k", ""), "l=2\nk=\n");
  EXPECT_EQ(after_put("k\nk =;\n", nullptr, "k", ""), "k\nk =;\n");
}

TEST(IniRewrite, SetsAKeyWithoutAName) {
  EXPECT_EQ(after_put("=1\n", nullptr, "", "23"), "=23\n");
  EXPECT_EQ(after_put("a=1\n", nullptr, "", "23"), "a=1\n=23\n");
}

TEST(IniRewrite, ChangesPiecesOfLongLines) {
  const std::string piece = "k=" + std::string(509, 'v');
  ASSERT_EQ(piece.size(), 511U);
  EXPECT_EQ(after_put(piece + "rest\nl=1\n", nullptr, "k", "new"), "k=new\nrest\nl=1\n");
  EXPECT_EQ(after_put(piece + "l=1\nm=2\n", nullptr, "l", "23"), piece + "l=23\nm=2\n");
  EXPECT_EQ(after_put(piece + "[t]\n", nullptr, "l", "1"), piece + "l=1\n[t]\n");
  EXPECT_EQ(kelo::tests::value_of(nullptr, "l"), "1");
  EXPECT_EQ(after_put(piece, nullptr, "l", "1"), piece + "\nl=1\n");
}

}  // namespace
