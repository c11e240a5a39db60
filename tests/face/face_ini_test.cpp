// SPDX-License-Identifier: MIT
// INI files of the C++ face: values, names, walks and changes.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "kelo_utils/kelo.hpp"

namespace {

using kelo::Ini;
using Names = std::vector<std::string>;

constexpr char kFile[] = "/data/face.ini";

class FaceIni : public testing::Test {
 protected:
  FaceIni() {
    std::ofstream(kFile)
        << "first = 1\n[net]\nname = home # where\nempty =\nquoted = \" a;b \"\nmtu = 0x5DC\n"
           "share = 0.5\nup = yes\n[lan]\nport = 2\n";
  }

  static std::string content() {
    std::ifstream file(kFile);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const Ini ini_{kFile};
};

TEST_F(FaceIni, ReadsValues) {
  EXPECT_EQ(ini_.file(), kFile);
  EXPECT_EQ(ini_.text("net", "name").value(), "home");
  EXPECT_EQ(ini_.text("net", "quoted").value(), " a;b ");
  EXPECT_EQ(ini_.text(nullptr, "first").value(), "1");
  EXPECT_EQ(ini_.number("net", "mtu", 7), 1500);
  EXPECT_EQ(ini_.real("net", "share", 7), 0.5F);
  EXPECT_TRUE(ini_.flag("net", "up", false));
}

TEST_F(FaceIni, AMissingKeyIsNoEmptyValue) {
  EXPECT_TRUE(ini_.text("net", "empty"));
  EXPECT_EQ(ini_.text("net", "empty").value(), "");
  EXPECT_EQ(ini_.text("net", "other").code(), Ini::failed);
  EXPECT_EQ(ini_.text("net", nullptr).code(), Ini::failed);
  EXPECT_EQ(Ini("/data/none.ini").text("net", "name").code(), Ini::failed);
  EXPECT_EQ(ini_.number("net", "other", 7), 7);
  EXPECT_EQ(ini_.real("net", "other", 7), 7.0F);
  EXPECT_TRUE(ini_.flag("net", "other", true));
  EXPECT_FALSE(ini_.flag("net", "other", false));
}

TEST_F(FaceIni, ListsNames) {
  EXPECT_EQ(ini_.sections(), (Names{"net", "lan"}));
  EXPECT_EQ(ini_.keys("lan"), Names{"port"});
  EXPECT_EQ(ini_.keys(""), Names{"first"});
  EXPECT_EQ(ini_.keys("other"), Names{});
}

TEST_F(FaceIni, WalksUntilTheFunctionEndsIt) {
  Names seen;
  const auto note = [&](const char* section, const char* key, const char* value) {
    seen.push_back(std::string(section) + "/" + key + "=" + value);
    return seen.size() < 2;
  };
  EXPECT_TRUE(ini_.for_each(note));
  EXPECT_EQ(seen, (Names{"/first=1", "net/name=home"}));
  EXPECT_EQ(Ini("/data/none.ini").for_each(note).code(), Ini::failed);
}

TEST_F(FaceIni, ChangesTheFile) {
  EXPECT_TRUE(ini_.set_text("lan", "port", "three"));
  EXPECT_TRUE(ini_.set_number("lan", "mtu", -1));
  EXPECT_TRUE(ini_.set_real("wan", "share", 0.25F));
  EXPECT_TRUE(ini_.remove_section("net"));
  EXPECT_TRUE(ini_.remove("", "first"));
  EXPECT_TRUE(ini_.remove("", "other"));
  EXPECT_EQ(content(), "[lan]\nport=three\nmtu=-1\n[wan]\nshare=0.250000\n");
}

TEST_F(FaceIni, AChangeFails) {
  const Ini nowhere("/no-such-folder/face.ini");
  EXPECT_EQ(nowhere.set_text("a", "b", "c").code(), Ini::failed);
  EXPECT_EQ(nowhere.set_number("a", "b", 1).code(), Ini::failed);
  EXPECT_EQ(nowhere.set_real("a", "b", 1).code(), Ini::failed);
}

// A null key would delete its section.
TEST_F(FaceIni, ANullKeyIsRefused) {
  const std::string before = content();
  EXPECT_EQ(ini_.set_text("net", nullptr, "a").code(), Ini::failed);
  EXPECT_EQ(ini_.set_number("net", nullptr, 1).code(), Ini::failed);
  EXPECT_EQ(ini_.set_real("net", nullptr, 1).code(), Ini::failed);
  EXPECT_EQ(ini_.remove("net", nullptr).code(), Ini::failed);
  EXPECT_EQ(content(), before);
}

}  // namespace
