// SPDX-License-Identifier: MIT
// Conversions of text in the C++ face.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kelo_utils/kelo.hpp"

namespace {

using Bytes = std::vector<unsigned char>;
using Tokens = std::vector<std::string>;

TEST(FaceText, Hexadecimal) {
  EXPECT_EQ(kelo::to_hex({0x00, 0xAF, 0x10}), "00AF10");
  EXPECT_EQ(kelo::to_hex({}), "");
  EXPECT_EQ(kelo::from_hex("00aF10").value(), Bytes({0x00, 0xAF, 0x10}));
  EXPECT_TRUE(kelo::from_hex(""));
  EXPECT_EQ(kelo::from_hex("").value(), Bytes());
  EXPECT_EQ(kelo::from_hex("0").code(), -1);
  EXPECT_EQ(kelo::from_hex("0g").code(), -1);
  EXPECT_EQ(kelo::from_hex(std::string("00\0", 3)).code(), -1);
}

TEST(FaceText, TrimmedAndUpper) {
  EXPECT_EQ(kelo::trimmed("  a b\n"), "a b");
  EXPECT_EQ(kelo::trimmed(" "), "");
  EXPECT_EQ(kelo::trimmed(""), "");
  EXPECT_EQ(kelo::to_upper("at+csq?"), "AT+CSQ?");
}

TEST(FaceText, Split) {
  EXPECT_EQ(kelo::split("a,,b", ","), (Tokens{"a", "", "b"}));
  EXPECT_EQ(kelo::split("a,,b,", ",", true), (Tokens{"a", "b"}));
  EXPECT_EQ(kelo::split("", ","), Tokens{""});
}

TEST(FaceText, Utf16) {
  EXPECT_EQ(kelo::utf8_from_utf16(u"a\u00E9\u20AC\U0001F600").value(), "a\u00E9\u20AC\U0001F600");
  EXPECT_EQ(kelo::utf16_from_utf8("a\u00E9\u20AC\U0001F600").value(), u"a\u00E9\u20AC\U0001F600");
  EXPECT_TRUE(kelo::utf8_from_utf16({}));
  EXPECT_TRUE(kelo::utf16_from_utf8({}));
  const char16_t unpaired[] = {u'a', 0xD800, u'b'};
  const auto strict = kelo::utf8_from_utf16({unpaired, 3});
  EXPECT_EQ(strict.code(), KELO_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(strict.value(), "a");
  EXPECT_EQ(kelo::utf8_from_utf16({unpaired, 3}, KELO_UNICODE_LENIENT).value(),
            "a\xED\xA0\x80"
            "b");
  EXPECT_EQ(kelo::utf8_from_utf16({unpaired, 2}).code(), KELO_UNICODE_SOURCE_EXHAUSTED);
  const auto cut = kelo::utf16_from_utf8("ab\xE2\x82");
  EXPECT_EQ(cut.code(), KELO_UNICODE_SOURCE_EXHAUSTED);
  EXPECT_EQ(cut.value(), u"ab");
}

TEST(FaceText, Latin1) {
  EXPECT_EQ(kelo::utf8_from_latin1("caf\xE9"), "caf\u00E9");
  EXPECT_EQ(kelo::utf8_from_latin1("\xE9\xE9"), "\u00E9\u00E9");
  EXPECT_EQ(kelo::utf8_from_latin1(""), "");
}

TEST(FaceText, Ussd) {
  const auto septets = kelo::ussd_from_utf8("*100#", KELO_USSD_SEPTETS);
  ASSERT_TRUE(septets);
  EXPECT_EQ(septets.value().dcs, 0x0F);
  EXPECT_EQ(kelo::utf8_from_ussd(septets.value().dcs, septets.value().data), "*100#");
  const auto wide = kelo::ussd_from_utf8("\u0416");
  EXPECT_EQ(wide.value().dcs, 0x48);
  EXPECT_EQ(kelo::utf8_from_ussd(wide.value().dcs, wide.value().data), "\u0416");
  EXPECT_EQ(kelo::ussd_from_utf8("\u0416", KELO_USSD_SEPTETS).code(), KELO_GSM_NOT_ENCODABLE);
  EXPECT_EQ(kelo::ussd_from_utf8(std::string(183, 'x')).code(), KELO_GSM_TOO_LONG);
  EXPECT_EQ(kelo::ussd_from_utf8("\xFF").code(), KELO_GSM_ILL_FORMED);
  EXPECT_EQ(kelo::utf8_from_ussd(0x0F, {}), "");
  EXPECT_EQ(kelo::utf8_from_ussd(0x0F, Bytes(256)), "");
  EXPECT_EQ(kelo::utf8_from_ussd(0x44, Bytes(255, 'a')), std::string(255, 'a'));
}

TEST(FaceText, Septets) {
  EXPECT_EQ(kelo::septets_from_utf8("{@").value(), Bytes({27, 40, 0}));
  EXPECT_TRUE(kelo::septets_from_utf8(""));
  EXPECT_EQ(kelo::septets_from_utf8("\u0416").code(), KELO_GSM_NOT_ENCODABLE);
  EXPECT_EQ(kelo::packed_septets(Bytes(8, 0x7F), false).value(), Bytes(7, 0xFF));
  EXPECT_EQ(kelo::packed_septets(Bytes(7, 0), true).value().back(), 0x1A);
  EXPECT_EQ(kelo::packed_septets({}, true).value(), Bytes());
  EXPECT_EQ(kelo::packed_septets({128}, false).code(), KELO_GSM_NOT_ENCODABLE);
}

}  // namespace
