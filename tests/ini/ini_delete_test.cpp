// SPDX-License-Identifier: MIT
// Deleting keys and sections.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "kelo_utils/ini.h"
#include "tests/support/settings_file.hpp"

namespace {

using kelo::tests::after_put;
using kelo::tests::file_exists;
using kelo::tests::inode_of;
using kelo::tests::kSettings;
using kelo::tests::put;
using kelo::tests::read_file;
using kelo::tests::write_file;

TEST(IniDelete, TakesTheLineOfAKeyAway) {
  const struct {
    std::string before;
    const char* section;
    std::string after;
  } cases[] = {{"[s]\na=1\nk=2 ; c\nb=3\n", "s", "[s]\na=1\nb=3\n"},
               {"[s]\nk=1\n", "s", "[s]\n"},
               {"[s]\nk=1", "s", "[s]\n"},
               {"[s]\nk=1\n[t]\nk=2\n", "t", "[s]\nk=1\n[t]\n"},
               {"[s]\nk=1\nk=2\n", "s", "[s]\nk=2\n"},
               {"[s]\nk=1\n[s]\nk=2\n", "s", "[s]\n[s]\nk=2\n"},
               {"k=1\n\n[s]\nk=2\n", nullptr, "\n[s]\nk=2\n"},
               {"k=1\n[s]\nk=2\n", "", "[s]\nk=2\n"},
               {"k", nullptr, "k"},
               {"\tK\t: 1\r\nl=2\r\n", nullptr, "l=2\r\n"},
               {"k=1", nullptr, ""}};
  for (const auto& [before, section, after] : cases)
    EXPECT_EQ(after_put(before, section, "k", nullptr), after) << "from " << before;
}

TEST(IniDelete, TouchesNothingForAKeyThatIsNotThere) {
  const std::string text = "a=1\n[s]\nb=2";
  write_file(kSettings, text);
  const auto before = inode_of(kSettings);
  for (const auto& [section, key] : std::vector<std::pair<const char*, const char*>>{
           {"s", "k"}, {"s", "a"}, {nullptr, "b"}, {"t", "b"}, {"", ""}}) {
    EXPECT_EQ(put(section, key, nullptr), 1);
    EXPECT_EQ(inode_of(kSettings), before);
    EXPECT_EQ(read_file(kSettings), text);
  }
}

TEST(IniDelete, TakesASectionAwayUpToTheNextHeader) {
  const struct {
    std::string before;
    const char* section;
    std::string after;
  } cases[] = {{"a=1\n[s]\nb=2\n\n; c\n[t]\nd=3\n", "s", "a=1\n[t]\nd=3\n"},
               {"a=1\n[s]\nb=2\n[t]\nd=3", "t", "a=1\n[s]\nb=2\n"},
               {"[S]\nb=2\n[s]\nd=3\n", "s", "[s]\nd=3\n"},
               {"[s]", "s", ""},
               {"[s]\n[t]\n", "s", "[t]\n"},
               {"a=1", "s", "a=1"},
               {"a=1\n\n", "s", "a=1\n\n"},
               {"", "s", ""},
               {"a=1\nb=2\n[s]\nc=3\n", nullptr, "[s]\nc=3\n"},
               {"a=1\nb=2", "", ""},
               {"[s]\na=1\n", nullptr, "[s]\na=1\n"},
               {"", nullptr, ""}};
  for (const auto& [before, section, after] : cases) {
    EXPECT_EQ(after_put(before, section, nullptr, nullptr), after) << "from " << before;
    EXPECT_EQ(after_put(before, section, nullptr, "value"), after) << "whatever the value";
  }
}

TEST(IniDelete, MakesNoFile) {
  std::filesystem::remove(kSettings);
  EXPECT_EQ(put("s", "k", nullptr), 1);
  EXPECT_EQ(put("s", nullptr, "v"), 1);
  EXPECT_EQ(put("s", nullptr, nullptr), 1);
  EXPECT_EQ(ini_puts("s", nullptr, nullptr, ""), 1);
  EXPECT_FALSE(file_exists(kSettings));
  write_file(kSettings, "");
  EXPECT_EQ(ini_puts("s", nullptr, nullptr, "/tmp/settings.ini/none"), 1);
}

TEST(IniDelete, TakesAPieceOfALongLineAway) {
  const std::string piece = "k=" + std::string(509, 'v');
  EXPECT_EQ(after_put("a=1\n" + piece + "rest\nb=2\n", nullptr, "k", nullptr), "a=1\nrest\nb=2\n");
}

TEST(IniDelete, CopiesLongStretches) {
  for (const std::size_t size : {510U, 511U, 512U, 1023U, 1024U, 5000U}) {
    const std::string front = std::string(size, ';') + "\n";
    const std::string back = "[t]\n" + std::string(size, '#');
    const std::string section = "[s]\n" + std::string(2 * size, 'x') + "\n";
    std::string before = front + section;
    before += back;
    EXPECT_EQ(after_put(before, "s", nullptr, nullptr), front + back) << size;
  }
}

}  // namespace
