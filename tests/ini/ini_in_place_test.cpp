// SPDX-License-Identifier: MIT
// Lines that are written over.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "kelo_utils/ini.h"
#include "tests/support/settings_file.hpp"

namespace {

using namespace std::string_literals;
using kelo::tests::inode_of;
using kelo::tests::kSettings;
using kelo::tests::put;
using kelo::tests::read_file;
using kelo::tests::write_file;

// Sets k of section s, and tells whether the file is the same one, with that in it.
bool in_place(const std::string& before, const char* value, const std::string& after) {
  write_file(kSettings, before);
  const auto inode = inode_of(kSettings);
  EXPECT_EQ(put("s", "k", value), 1);
  EXPECT_EQ(read_file(kSettings), after) << "from " << before;
  EXPECT_FALSE(kelo::tests::file_exists(kelo::tests::kCopy));
  return inode_of(kSettings) == inode;
}

TEST(IniInPlace, WritesOverALineOfTheSameLength) {
  EXPECT_TRUE(in_place("[s]\nk=12\nl=3\n", "34", "[s]\nk=34\nl=3\n"));
  EXPECT_FALSE(in_place("[s]\nk=12\nl=3\n", "345", "[s]\nk=345\nl=3\n"));
  EXPECT_FALSE(in_place("[s]\nk=12\nl=3\n", "3", "[s]\nk=3\nl=3\n"));
  EXPECT_TRUE(in_place("a=1\n[s]\n\nk=1\n", "2", "a=1\n[s]\n\nk=2\n")) << "the last line";
}

TEST(IniInPlace, CountsTheWholeLine) {
  EXPECT_TRUE(in_place("[s]\n k = 1 ;c\nl=3\n", "1234567", "[s]\nk=1234567\nl=3\n"));
  EXPECT_TRUE(in_place("[s]\nk=1\r\nl=3\r\n", "12", "[s]\nk=12\nl=3\r\n"));
  EXPECT_FALSE(in_place("[s]\nk=1\r\nl=3\r\n", "2", "[s]\nk=2\nl=3\r\n"));
  EXPECT_TRUE(in_place("[s]\nK:12\n", "34", "[s]\nk=34\n"));
  EXPECT_TRUE(in_place("[s]\nk=1234\n", "1;", "[s]\nk=\"1;\"\n"));
  EXPECT_TRUE(in_place("[s]\nk=\"1;\"\n", "1234", "[s]\nk=1234\n"));
}

TEST(IniInPlace, NeverWritesOverALastLineWithoutNewline) {
  EXPECT_FALSE(in_place("[s]\nk=12", "34", "[s]\nk=34\n"));
  EXPECT_FALSE(in_place("[s]\nk=12", "3", "[s]\nk=3\n")) << "as long as the line with its newline";
}

TEST(IniInPlace, WritesOverAPieceThatEndsALongLine) {
  const std::string piece(511, ';');
  EXPECT_TRUE(in_place("[s]\n" + piece + "k=1\n", "2", "[s]\n" + piece + "k=2\n"));
}

// Of the longest line, whose section's header begins at `begin`.
bool longest_in_place(std::size_t begin) {
  const std::string start = std::string(begin, '\n') + "[s]\nk=";
  const std::string value(507, 'w');
  return in_place(start + std::string(507, 'v') + "\n", value.c_str(), start + value + "\n");
}

TEST(IniInPlace, WritesOverTheLongestLineInOneSector) {
  EXPECT_TRUE(longest_in_place(508)) << "at the sector's begin";
  EXPECT_TRUE(longest_in_place(510)) << "at the sector's end";
  EXPECT_FALSE(longest_in_place(507));
  EXPECT_FALSE(longest_in_place(511));
  EXPECT_FALSE(longest_in_place(0));
}

// A line of four bytes, the last of which has this offset.
bool short_in_place(std::size_t last) {
  const std::string start = "[s]\n;" + std::string(last - 9, 'c') + "\n";
  return in_place(start + "k=1\nl=3\n", "2", start + "k=2\nl=3\n");
}

// A power cut may leave one of two sectors written, and the line would be torn.
TEST(IniInPlace, ReplacesTheFileWhereALineIsInTwoSectors) {
  EXPECT_TRUE(short_in_place(511)) << "it ends with the sector";
  EXPECT_FALSE(short_in_place(512)) << "one byte is in the next one";
  EXPECT_FALSE(short_in_place(514)) << "one byte is in the one before";
  EXPECT_TRUE(short_in_place(515)) << "it begins with the sector";
  EXPECT_FALSE(short_in_place(1024)) << "between later ones";
  EXPECT_TRUE(short_in_place(1027));
}

TEST(IniInPlace, NeverWritesOverAPieceThatALongLineBeginsWith) {
  const std::string before = "[s]\nk=" + std::string(509, 'v') + "x\n";
  const std::string value(507, 'w');
  EXPECT_FALSE(in_place(before, value.c_str(), "[s]\nk=" + value + "\nx\n"));
}

TEST(IniInPlace, KeepsLinksAndModes) {
  std::filesystem::remove(kSettings);
  write_file("/tmp/kept", "[s]\nk=1\n");
  ASSERT_EQ(symlink("/tmp/kept", kSettings), 0);
  ASSERT_EQ(chmod("/tmp/kept", 0604), 0);
  EXPECT_EQ(put("s", "k", "2"), 1);
  EXPECT_EQ(read_file("/tmp/kept"), "[s]\nk=2\n");
  struct stat status {};
  ASSERT_EQ(lstat(kSettings, &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  ASSERT_EQ(stat(kSettings, &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0604U);
}

TEST(IniInPlace, WorksForNamesThatHaveNoCopy) {
  write_file("/tmp/settings~", "k=1\n");
  EXPECT_EQ(ini_puts(nullptr, "k", "2", "/tmp/settings~"), 1);
  EXPECT_EQ(read_file("/tmp/settings~"), "k=2\n");
  write_file("/tmp/settings~", std::string(510, '\n') + "k=1\n");
  EXPECT_EQ(ini_puts(nullptr, "k", "2", "/tmp/settings~"), 1);
  EXPECT_EQ(read_file("/tmp/settings~"), std::string(510, '\n') + "k=2\n") << "in two sectors";
}

}  // namespace
