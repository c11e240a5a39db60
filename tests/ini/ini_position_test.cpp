// SPDX-License-Identifier: MIT
// Names of sections and keys by their position.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "kelo_utils/ini.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/settings_file.hpp"

namespace {

using kelo::tests::ExactBuffer;
using kelo::tests::kSettings;
using kelo::tests::write_file;

constexpr char kText[] =
    "first=1\n; none=2\nsecond : 3\nother\n"
    "[ Net ]\n\nip=4\n#no=5\n=6\nip=7\n"
    "[]\n[empty]\n"
    "[Net]\nlast key =8";

std::string section_at(int index, const char* path = kSettings) {
  const ExactBuffer buffer(INI_BUFFERSIZE);
  const int length = ini_getsection(index, buffer.data(), INI_BUFFERSIZE, path);
  EXPECT_EQ(static_cast<std::size_t>(length), std::string(buffer.data()).size());
  return buffer.data();
}

std::string key_at(const char* section, int index, const char* path = kSettings) {
  const ExactBuffer buffer(INI_BUFFERSIZE);
  const int length = ini_getkey(section, index, buffer.data(), INI_BUFFERSIZE, path);
  EXPECT_EQ(static_cast<std::size_t>(length), std::string(buffer.data()).size());
  return buffer.data();
}

class IniPosition : public testing::Test {
 protected:
  void SetUp() override { write_file(kSettings, kText); }
};

TEST_F(IniPosition, CountsTheHeadersOfTheFile) {
  const std::vector<std::string> names = {" Net ", "", "empty", "Net", ""};
  for (std::size_t i = 0; i < names.size(); ++i) EXPECT_EQ(section_at(static_cast<int>(i)), names[i]) << i;
}

TEST_F(IniPosition, CountsTheKeysOfASection) {
  EXPECT_EQ(key_at(nullptr, 0), "first");
  EXPECT_EQ(key_at("", 1), "second");
  EXPECT_EQ(key_at(nullptr, 2), "");
  EXPECT_EQ(key_at(" nET ", 0), "ip");
  EXPECT_EQ(key_at(" Net ", 1), "") << "a key without a name has its position";
  EXPECT_EQ(key_at(" Net ", 2), "ip");
  EXPECT_EQ(key_at(" Net ", 3), "");
  EXPECT_EQ(key_at("empty", 0), "");
  EXPECT_EQ(key_at("net", 0), "last key");
  EXPECT_EQ(key_at("none", 0), "");
}

TEST_F(IniPosition, FindsNothingAtPositionsThatAreNone) {
  for (const int index : {-1, INT_MIN, INT_MAX}) {
    EXPECT_EQ(section_at(index), "");
    EXPECT_EQ(key_at(nullptr, index), "");
  }
}

TEST_F(IniPosition, FindsNothingWithoutAFile) {
  for (const char* const path : {"/tmp/none.ini", "", "/tmp", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(section_at(0, path), "");
    EXPECT_EQ(key_at(nullptr, 0, path), "");
  }
}

TEST_F(IniPosition, CutsANameToItsBuffer) {
  for (int size = 1; size <= 8; ++size) {
    const ExactBuffer buffer(static_cast<std::size_t>(size));
    const std::string section = std::string("empty").substr(0, buffer.size() - 1);
    EXPECT_EQ(ini_getsection(2, buffer.data(), size, kSettings), static_cast<int>(section.size()));
    EXPECT_EQ(buffer.data(), section);
    const std::string key = std::string("second").substr(0, buffer.size() - 1);
    EXPECT_EQ(ini_getkey(nullptr, 1, buffer.data(), size, kSettings), static_cast<int>(key.size()));
    EXPECT_EQ(buffer.data(), key);
  }
}

TEST_F(IniPosition, EmptiesABufferOfOneByte) {
  const ExactBuffer buffer(1);
  EXPECT_EQ(ini_getsection(9, buffer.data(), 1, kSettings), 0);
  EXPECT_EQ(buffer.bytes(), std::string(1, '\0'));
}

TEST_F(IniPosition, DoesNothingWithoutABuffer) {
  const ExactBuffer buffer(8);
  for (const int size : {0, -1, INT_MIN}) {
    EXPECT_EQ(ini_getsection(0, buffer.data(), size, kSettings), 0);
    EXPECT_EQ(ini_getkey(nullptr, 0, buffer.data(), size, kSettings), 0);
  }
  EXPECT_TRUE(buffer.untouched());
  EXPECT_EQ(ini_getsection(0, nullptr, 8, kSettings), 0);
  EXPECT_EQ(ini_getkey(nullptr, 0, nullptr, 8, kSettings), 0);
}

}  // namespace
