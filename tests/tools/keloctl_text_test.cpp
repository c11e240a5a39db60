// SPDX-License-Identifier: MIT
// keloctl ini, text and ussd, which need no store.
#include <gmock/gmock.h>

#include "tests/support/keloctl.hpp"

namespace {

using namespace kelo::tests;

constexpr char kPath[] = "/tmp/s.ini";

class KeloctlIni : public testing::Test {
 protected:
  void SetUp() override {
    write_file(kPath, "name=home # a comment\n[lan]\naddress = 192.168.8.1\nempty=\nzero=0\n");
  }
  void TearDown() override { std::filesystem::remove(kPath); }
};

TEST_F(KeloctlIni, GetsValues) {
  EXPECT_EQ(keloctl("ini get /tmp/s.ini name"), (Ran{0, "home\n", ""}));
  EXPECT_EQ(keloctl("ini get /tmp/s.ini address --section lan"), (Ran{0, "192.168.8.1\n", ""}));
  EXPECT_EQ(keloctl("ini get /tmp/s.ini zero --section lan"), (Ran{0, "0\n", ""}));
  EXPECT_EQ(keloctl("ini get /tmp/s.ini empty --section=lan --json"),
            (Ran{0, "{\"value\":\"\",\"ok\":true,\"error\":null}\n", ""}));
  EXPECT_EQ(keloctl("ini get /tmp/s.ini address"), (Ran{1, "", complaint("/tmp/s.ini has no key address")}));
  EXPECT_EQ(keloctl("ini get /tmp/none name"),
            (Ran{3, "", complaint("/tmp/none cannot be read: No such file or directory")}));
}

TEST_F(KeloctlIni, ListsAllKeys) {
  EXPECT_EQ(keloctl("ini list /tmp/s.ini"), (Ran{0,
                                                 "                  name                  home\n"
                                                 "lan               address               192.168.8.1\n"
                                                 "lan               empty                 \n"
                                                 "lan               zero                  0\n",
                                                 ""}));
  EXPECT_EQ(keloctl("ini list /tmp/s.ini --tsv").output,
            "key\t\tname\thome\nkey\tlan\taddress\t192.168.8."
            "1\nkey\tlan\tempty\t\nkey\tlan\tzero\t0\nok\ttrue\nerror\t\n");
}

TEST_F(KeloctlIni, SetsAndDeletes) {
  EXPECT_EQ(keloctl("ini set /tmp/s.ini 'a key' 'a \"value\" # no comment' --section wan"), (Ran{0, "", ""}));
  EXPECT_EQ(keloctl("ini get /tmp/s.ini 'a key' --section wan"), (Ran{0, "a \"value\" # no comment\n", ""}));
  EXPECT_EQ(keloctl("ini del /tmp/s.ini address --section lan"), (Ran{0, "", ""}));
  EXPECT_EQ(keloctl("ini del /tmp/s.ini address --section lan"),
            (Ran{1, "", complaint("/tmp/s.ini has no such key")}));
  EXPECT_EQ(keloctl("ini del /tmp/s.ini --section lan"), (Ran{0, "", ""}));
  EXPECT_EQ(keloctl("ini del /tmp/s.ini --section lan"),
            (Ran{1, "", complaint("/tmp/s.ini has no such section with keys")}));
  EXPECT_EQ(keloctl("ini del /tmp/s.ini"), (Ran{2, "", complaint("a key or a section must be named")}));
  EXPECT_EQ(keloctl("ini set /tmp/new.ini key value"), (Ran{0, "", ""}));
  EXPECT_EQ(read_file("/tmp/new.ini"), "key=value\n");
  std::filesystem::remove("/tmp/new.ini");
  EXPECT_EQ(keloctl("ini set /tmp/none/s.ini key value"),
            (Ran{3, "", complaint("/tmp/none/s.ini was not changed")}));
}

TEST_F(KeloctlIni, SetRefusesWhatWouldReadAsSomethingElse) {
  const std::string before = read_file(kPath);
  for (const std::string words : {"'a=b' c", "'a:b' c", "'#a' b", "'[a' b", "'a ' b", "'' b", "a '\nb'",
                                  "a ' b'", "a b --section 'x]'"})
    EXPECT_EQ(keloctl("ini set /tmp/s.ini " + words),
              (Ran{2, "", complaint("a section, a key or a value would not read as it is written")}))
        << words;
  EXPECT_EQ(keloctl("ini set /tmp/s.ini key " + std::string(504, 'v')).status, 2);
  EXPECT_EQ(read_file(kPath), before);
  EXPECT_EQ(keloctl("ini set /tmp/s.ini key " + std::string(503, 'v')).status, 0);
}

TEST(KeloctlText, Converts) {
  EXPECT_EQ(keloctl("text gsm C8329BFD06"), (Ran{0, "Hello\n", ""}));
  EXPECT_EQ(keloctl("text ucs2 00e4 --json"),
            (Ran{0, "{\"text\":\"\xc3\xa4\",\"hex\":\"c3a4\",\"ok\":true,\"error\":null}\n", ""}));
  EXPECT_EQ(keloctl("text ucs2 d83dde00"), (Ran{0, "\xf0\x9f\x98\x80\n", ""}));
  EXPECT_EQ(keloctl("text utf8 \xf0\x9f\x98\x80z"), (Ran{0, "d83dde00007a\n", ""}));
  EXPECT_EQ(keloctl("text hex 'a b' --tsv"), (Ran{0, "hex\t612062\nok\ttrue\nerror\t\n", ""}));
  EXPECT_EQ(keloctl("text unhex 61001b"), (Ran{0, "a\\x00\\x1b\n", ""}));
  EXPECT_EQ(keloctl("ussd decode --dcs 0x0f C8329BFD06"), (Ran{0, "Hello\n", ""}));
  EXPECT_EQ(keloctl("ussd decode --dcs 72 00480069"), (Ran{0, "Hi\n", ""}));
}

TEST(KeloctlText, RefusesWhatIsNotOfItsForm) {
  const struct {
    const char* words;
    const char* error;
  } cases[] = {
      {"text gsm 1", "1 is not packed septets in hexadecimal digits"},
      {"text gsm ''", " is not packed septets in hexadecimal digits"},
      {"text ucs2 00", "00 is not UCS-2 in hexadecimal digits"},
      {"text ucs2 d83d", "d83d is not UCS-2"},
      {"text utf8 \xff", "\xff is not UTF-8"},
      {"text unhex 0g", "0g is not an even number of hexadecimal digits"},
      {"ussd decode 00", "--dcs must give the data coding scheme, a number of one byte"},
      {"ussd decode --dcs 256 00", "--dcs must give the data coding scheme, a number of one byte"},
      {"ussd decode --dcs 0 x", "x is not at most 255 bytes in hexadecimal digits"},
      {"ussd decode --dcs 0x80 00", "00 is not a text of this data coding scheme"},
  };
  for (const auto& wrong : cases)
    EXPECT_EQ(keloctl(wrong.words), (Ran{2, "", complaint(wrong.error)})) << wrong.words;
}

}  // namespace
