// SPDX-License-Identifier: MIT
// The walk through all keys of a file.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "kelo_utils/ini.h"
#include "tests/support/descriptors.hpp"
#include "tests/support/settings_file.hpp"

namespace {

using kelo::tests::kSettings;
using kelo::tests::open_descriptors;
using kelo::tests::write_file;

using Entry = std::array<std::string, 3>;

struct Walk {
  std::vector<Entry> entries;
  std::size_t most = SIZE_MAX;
};

int keep(const char* section, const char* key, const char* value, void* walk) {
  auto& [entries, most] = *static_cast<Walk*>(walk);
  entries.push_back({section, key, value});
  return entries.size() < most ? -1 : 0;
}

std::vector<Entry> entries_of(const std::string& text) {
  write_file(kSettings, text);
  Walk walk;
  EXPECT_EQ(ini_browse(keep, &walk, kSettings), 1);
  return walk.entries;
}

TEST(IniBrowse, GivesEveryKeyInOrder) {
  EXPECT_EQ(entries_of("a=1\n\n; x=1\n#y\nz\n b : \"2;\" ; c\n[s]\n[t ]\nc=\n=d\n[s]\nc = 3 ;4\r\n[]\ne=5"),
            (std::vector<Entry>{{"", "a", "1"},
                                {"", "b", "2;"},
                                {"t ", "c", ""},
                                {"t ", "", "d"},
                                {"s", "c", "3"},
                                {"", "e", "5"}}));
}

TEST(IniBrowse, GivesNothingOfFilesWithoutKeys) {
  EXPECT_EQ(entries_of(""), std::vector<Entry>{});
  EXPECT_EQ(entries_of("[s]\n\n;\n"), std::vector<Entry>{});
}

TEST(IniBrowse, EndsWhereTheCallbackSays) {
  write_file(kSettings, "a=1\nb=2\nc=3\n");
  for (std::size_t most = 1; most <= 4; ++most) {
    Walk walk{{}, most};
    EXPECT_EQ(ini_browse(keep, &walk, kSettings), 1);
    EXPECT_EQ(walk.entries.size(), std::min<std::size_t>(most, 3));
  }
}

TEST(IniBrowse, RefusesToWalkWithoutACallbackOrAFile) {
  write_file(kSettings, "a=1\n");
  Walk walk;
  EXPECT_EQ(ini_browse(nullptr, &walk, kSettings), 0);
  EXPECT_EQ(ini_browse(nullptr, &walk, nullptr), 0);
  for (const char* const path : {"/tmp/none.ini", "", static_cast<const char*>(nullptr)})
    EXPECT_EQ(ini_browse(keep, &walk, path), 0);
  EXPECT_TRUE(walk.entries.empty());
  EXPECT_EQ(ini_browse(keep, &walk, "/tmp"), 1) << "a directory can be opened";
  EXPECT_TRUE(walk.entries.empty());
}

TEST(IniBrowse, PassesTheUserDataAsItIs) {
  write_file(kSettings, "a=1\n");
  const auto expect_null = [](const char*, const char*, const char*, void* user_data) {
    EXPECT_EQ(user_data, nullptr);
    return 1;
  };
  EXPECT_EQ(ini_browse(expect_null, nullptr, kSettings), 1);
}

TEST(IniBrowse, LetsTheCallbackReadTheFile) {
  write_file(kSettings, "[s]\na=1\nb=2\n");
  const auto look = [](const char* section, const char* key, const char* value, void* count) {
    EXPECT_EQ(kelo::tests::value_of(section, key), value);
    return ++*static_cast<int*>(count);
  };
  int count = 0;
  EXPECT_EQ(ini_browse(look, &count, kSettings), 1);
  EXPECT_EQ(count, 2);
}

TEST(IniBrowse, ClosesTheFile) {
  write_file(kSettings, "a=1\n");
  const auto before = open_descriptors();
  Walk walk;
  EXPECT_EQ(ini_browse(keep, &walk, kSettings), 1);
  walk.most = 1;
  EXPECT_EQ(ini_browse(keep, &walk, kSettings), 1);
  EXPECT_EQ(open_descriptors(), before);
}

// Section name, key and value have 512 bytes together, with their terminators.
TEST(IniBrowse, CutsWhatIsLongerThanALineBuffer) {
  const std::string v(600, 'v');
  for (const std::size_t section : {0U, 1U, 100U, 505U, 506U, 507U, 508U, 509U}) {
    for (const std::size_t key : {0U, 1U, 2U, 3U, 100U, 400U, 508U}) {
      const std::string name(section, 's');
      std::string text = "[" + name + "]\n" + std::string(key, 'k');
      text += "=" + v.substr(0, 509 - key) + "\n";
      const std::size_t key_room = 512 - (section + 1) - 1 - 1;
      const std::size_t kept_key = std::min(key, key_room);
      const std::size_t value_room = 512 - (section + 1) - (kept_key + 1) - 1;
      const auto entries = entries_of(text);
      EXPECT_EQ(entries, (std::vector<Entry>{{name, std::string(kept_key, 'k'),
                                              v.substr(0, std::min(509 - key, value_room))}}))
          << section << " " << key;
    }
  }
}

}  // namespace
