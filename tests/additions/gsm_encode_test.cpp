// SPDX-License-Identifier: MIT
// Text encoded for the network: the alphabet, its extension table, packing, USSD and UCS-2.
#include "kelo_utils/gsm_encode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "kelo_utils/ussd.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kUntouched = 0xA5;

// Bytes that do not fit would change what is after the buffer.
class Buffer {
 public:
  explicit Buffer(std::size_t size) : bytes_(size + 8, kUntouched), size_(size) {}
  ~Buffer() {
    for (std::size_t i = size_; i < bytes_.size(); ++i) EXPECT_EQ(bytes_[i], kUntouched);
  }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  std::uint8_t* data() { return bytes_.data(); }
  [[nodiscard]] std::int32_t size() const { return static_cast<std::int32_t>(size_); }
  [[nodiscard]] Bytes first(std::int32_t count) const { return {bytes_.begin(), bytes_.begin() + count}; }

 private:
  Bytes bytes_;
  std::size_t size_;
};

Bytes septets_of(const std::string& text) {
  Buffer buffer(2 * text.size());
  const std::int32_t count = kelo_gsm_encode(text.c_str(), buffer.data(), buffer.size());
  EXPECT_GE(count, 0) << text;
  return buffer.first(count);
}

Bytes packed(const Bytes& septets, int ussd) {
  Buffer buffer(septets.size() + 1);
  const std::int32_t count = kelo_gsm_pack(septets.data(), static_cast<std::int32_t>(septets.size()), ussd,
                                           buffer.data(), buffer.size());
  EXPECT_GE(count, 0);
  return buffer.first(count);
}

TEST(GsmEncode, EachCharacterHasItsSeptet) {
  for (int septet = 0; septet < 128; ++septet) {
    if (septet == 27 || septet == '\r') continue;  // decoded to a space, and to nothing
    const std::uint8_t one = static_cast<std::uint8_t>(septet);
    char text[4];
    ASSERT_GT(kelo_util_convert_gsm8bit_alpha_string_to_utf8(&one, 1, text, sizeof text), 0);
    EXPECT_EQ(septets_of(text), Bytes{one}) << text;
  }
  EXPECT_EQ(septets_of("\r"), Bytes{13});
  EXPECT_EQ(septets_of(" "), Bytes{32});
  EXPECT_EQ(septets_of("@£$¥èéùìòÇ"), (Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ(septets_of(""), Bytes{});
}

TEST(GsmEncode, ExtensionsTakeTwoSeptets) {
  EXPECT_EQ(septets_of("\f^{}\\[~]|€"), (Bytes{27, 0x0A, 27, 0x14, 27, 0x28, 27, 0x29, 27, 0x2F,
                                               27, 0x3C, 27, 0x3D, 27, 0x3E, 27, 0x40, 27, 0x65}));
}

TEST(GsmEncode, OtherCharactersAreNotEncodable) {
  Buffer buffer(32);
  for (const char* const text : {"`", "ç", "á", "\t", "\x01", "\x1b", "ߏ", "ࠀ", "✓", "😀", "a😀", "abc`"})
    EXPECT_EQ(kelo_gsm_encode(text, buffer.data(), buffer.size()), KELO_GSM_NOT_ENCODABLE) << text;
}

TEST(GsmEncode, IllFormedTextIsRefused) {
  Buffer buffer(32);
  for (const char* const text : {"\x80", "a\xC3", "\xE2\x82", "\xC0\x80", "\xED\xA0\x80", "ab\xFF"})
    EXPECT_EQ(kelo_gsm_encode(text, buffer.data(), buffer.size()), KELO_GSM_ILL_FORMED) << text;
}

TEST(GsmEncode, SeptetsFit) {
  for (const std::size_t size : {0U, 1U, 3U, 4U, 5U}) {
    Buffer buffer(size);
    EXPECT_EQ(kelo_gsm_encode("ab€", buffer.data(), buffer.size()), size < 4 ? KELO_GSM_TOO_LONG : 4) << size;
    EXPECT_EQ(kelo_gsm_encode("abcdefgh`", buffer.data(), buffer.size()), KELO_GSM_NOT_ENCODABLE) << size;
  }
}

TEST(GsmEncode, BadArgumentsAreRefused) {
  std::uint8_t byte = 0;
  EXPECT_EQ(kelo_gsm_encode(nullptr, &byte, 1), KELO_GSM_BAD_ARGUMENT);
  EXPECT_EQ(kelo_gsm_encode("a", nullptr, 1), KELO_GSM_BAD_ARGUMENT);
  EXPECT_EQ(kelo_gsm_encode("a", &byte, -1), KELO_GSM_BAD_ARGUMENT);
  EXPECT_EQ(kelo_gsm_pack(nullptr, 1, 0, &byte, 1), KELO_GSM_BAD_ARGUMENT);
  EXPECT_EQ(kelo_gsm_pack(&byte, -1, 0, &byte, 1), KELO_GSM_BAD_ARGUMENT);
  EXPECT_EQ(kelo_gsm_pack(&byte, 1, 0, nullptr, 1), KELO_GSM_BAD_ARGUMENT);
  EXPECT_EQ(kelo_gsm_pack(&byte, 1, 0, &byte, -1), KELO_GSM_BAD_ARGUMENT);
  std::uint8_t dcs = kUntouched;
  for (const std::int32_t coding : {-1, 3})
    EXPECT_EQ(kelo_ussd_encode("a", coding, &dcs, &byte, 1), KELO_GSM_BAD_ARGUMENT);
  EXPECT_EQ(kelo_ussd_encode(nullptr, KELO_USSD_CHOOSE, &dcs, &byte, 1), KELO_GSM_BAD_ARGUMENT);
  EXPECT_EQ(kelo_ussd_encode("a", KELO_USSD_CHOOSE, nullptr, &byte, 1), KELO_GSM_BAD_ARGUMENT);
  EXPECT_EQ(kelo_ussd_encode("a", KELO_USSD_CHOOSE, &dcs, nullptr, 1), KELO_GSM_BAD_ARGUMENT);
  EXPECT_EQ(kelo_ussd_encode("a", KELO_USSD_CHOOSE, &dcs, &byte, -1), KELO_GSM_BAD_ARGUMENT);
  EXPECT_EQ(dcs, kUntouched);
}

TEST(GsmPack, KnownMessage) {
  EXPECT_EQ(packed(septets_of("hellohello"), 0),
            (Bytes{0xE8, 0x32, 0x9B, 0xFD, 0x46, 0x97, 0xD9, 0xEC, 0x37}));
}

TEST(GsmPack, EveryLengthIsUnpackedAgain) {
  std::uint8_t none = kUntouched;
  EXPECT_EQ(kelo_gsm_pack(&none, 0, 1, &none, 0), 0);
  Bytes septets = {127};
  for (int count = 1; count < 30; ++count) {
    for (const int ussd : {0, 1}) {
      const Bytes octets = packed(septets, ussd);
      EXPECT_EQ(octets.size(), (septets.size() * 7 + 7) / 8);
      Buffer buffer(255);
      const std::int32_t unpacked =
          kelo_util_ussd_unpack(buffer.data(), buffer.size(), octets.data(), static_cast<int>(octets.size()));
      Bytes expected = septets;
      if (count % 8 == 7 && ussd == 0) expected.push_back(0);  // seven unused bits are read as a septet
      EXPECT_EQ(buffer.first(unpacked), expected) << count;
    }
    septets.push_back(static_cast<std::uint8_t>(127 - count));
  }
}

TEST(GsmPack, CarriageReturnFillsSevenUnusedBits) {
  const Bytes seven(7, 0x7F);
  EXPECT_EQ(packed(seven, 0).back(), 0x01);
  EXPECT_EQ(packed(seven, 1).back(), 0x01 | 13 << 1);
}

TEST(GsmPack, FinalCarriageReturnThatFillsTheLastOctetIsDoubled) {
  Bytes eight(7, 'a');
  eight.push_back(13);
  EXPECT_EQ(packed(eight, 0).size(), 7U);
  const Bytes octets = packed(eight, 1);
  ASSERT_EQ(octets.size(), 8U);
  EXPECT_EQ(octets[7], 13);
  eight.back() = 'a';
  EXPECT_EQ(packed(eight, 1).size(), 7U);
  EXPECT_EQ(packed({'a', 13}, 1), packed({'a', 13}, 0)) << "it does not fill the last octet";
}

TEST(GsmPack, SeptetsAbove127AreRefused) {
  Buffer buffer(8);
  const std::uint8_t septets[] = {127, 128};
  EXPECT_EQ(kelo_gsm_pack(septets, 1, 1, buffer.data(), buffer.size()), 1);
  EXPECT_EQ(kelo_gsm_pack(septets, 2, 1, buffer.data(), buffer.size()), KELO_GSM_NOT_ENCODABLE);
}

TEST(GsmPack, OctetsFit) {
  const Bytes eight = {'a', 'a', 'a', 'a', 'a', 'a', 'a', 13};
  for (const int ussd : {0, 1}) {
    const std::int32_t needed = ussd == 0 ? 7 : 8;
    for (const std::size_t size : {0U, 1U, 6U, 7U, 8U, 9U}) {
      Buffer buffer(size);
      EXPECT_EQ(kelo_gsm_pack(eight.data(), 8, ussd, buffer.data(), buffer.size()),
                buffer.size() < needed ? KELO_GSM_TOO_LONG : needed)
          << size;
    }
  }
}

struct Ussd {
  std::int32_t result;
  std::uint8_t dcs;
  Bytes data;

  bool operator==(const Ussd&) const = default;
};

void PrintTo(const Ussd& ussd, std::ostream* out) {
  *out << ussd.result << ", scheme " << int{ussd.dcs} << ", " << testing::PrintToString(ussd.data);
}

Ussd ussd_of(const char* text, std::int32_t coding, std::size_t size = 160) {
  Buffer buffer(size);
  std::uint8_t dcs = kUntouched;
  const std::int32_t result = kelo_ussd_encode(text, coding, &dcs, buffer.data(), buffer.size());
  return {result, dcs, buffer.first(result < 0 ? 0 : result)};
}

TEST(UssdEncode, SeptetsWhereTheySuffice) {
  EXPECT_EQ(ussd_of("*100", KELO_USSD_SEPTETS).dcs, 0x0F);
  EXPECT_EQ(ussd_of("*100", KELO_USSD_CHOOSE), ussd_of("*100", KELO_USSD_SEPTETS));
  EXPECT_EQ(ussd_of("*100", KELO_USSD_CHOOSE).data, packed(septets_of("*100"), 1));
  EXPECT_EQ(ussd_of("1234567", KELO_USSD_CHOOSE).data, packed(septets_of("1234567"), 1));
}

TEST(UssdEncode, Ucs2WhereSeptetsDoNotSuffice) {
  EXPECT_EQ(ussd_of("aб", KELO_USSD_SEPTETS), (Ussd{KELO_GSM_NOT_ENCODABLE, kUntouched, {}}));
  EXPECT_EQ(ussd_of("aб", KELO_USSD_CHOOSE), (Ussd{4, 0x48, {0, 'a', 0x04, 0x31}}));
  EXPECT_EQ(ussd_of("😀", KELO_USSD_CHOOSE), (Ussd{4, 0x48, {0xD8, 0x3D, 0xDE, 0x00}}));
  EXPECT_EQ(ussd_of("a", KELO_USSD_UCS2), (Ussd{2, 0x48, {0, 'a'}}));
}

TEST(UssdEncode, BufferMayBeginAnywhere) {
  for (const std::size_t start : {0U, 1U, 2U, 3U}) {
    alignas(4) std::array<std::uint8_t, 16> buffer{};
    std::uint8_t dcs = kUntouched;
    EXPECT_EQ(kelo_ussd_encode("бa😀", KELO_USSD_UCS2, &dcs, buffer.data() + start, 8), 8);
    EXPECT_THAT(std::span(buffer).subspan(start, 8),
                testing::ElementsAre(0x04, 0x31, 0, 'a', 0xD8, 0x3D, 0xDE, 0x00));
  }
}

TEST(UssdEncode, EmptyTextHasNoOctets) {
  for (const auto& [coding, dcs] :
       {std::pair{KELO_USSD_SEPTETS, 0x0F}, {KELO_USSD_CHOOSE, 0x0F}, {KELO_USSD_UCS2, 0x48}})
    EXPECT_EQ(ussd_of("", coding, 0), (Ussd{0, static_cast<std::uint8_t>(dcs), {}}));
}

TEST(UssdEncode, MessageFits) {
  for (const std::size_t size : {0U, 1U, 2U, 3U, 4U, 5U}) {
    const bool fits = size >= 4;
    EXPECT_EQ(ussd_of("aб", KELO_USSD_CHOOSE, size).result, fits ? 4 : KELO_GSM_TOO_LONG) << size;
    EXPECT_EQ(ussd_of("1234", KELO_USSD_CHOOSE, size).result, fits ? 4 : KELO_GSM_TOO_LONG) << size;
  }
  EXPECT_EQ(ussd_of(std::string(182, 'a').c_str(), KELO_USSD_CHOOSE).result, 160);
  EXPECT_EQ(ussd_of(std::string(183, 'a').c_str(), KELO_USSD_CHOOSE).result, KELO_GSM_TOO_LONG);
}

TEST(UssdEncode, IllFormedTextIsRefused) {
  for (const std::int32_t coding : {KELO_USSD_SEPTETS, KELO_USSD_CHOOSE, KELO_USSD_UCS2})
    EXPECT_EQ(ussd_of("a\xFF", coding), (Ussd{KELO_GSM_ILL_FORMED, kUntouched, {}}));
  EXPECT_EQ(ussd_of("б\xC3", KELO_USSD_CHOOSE), (Ussd{KELO_GSM_ILL_FORMED, kUntouched, {}}));
}

TEST(UssdEncode, IsDecodedAgain) {
  for (const char* const text :
       {"*100#", "Ünïque", "Привет", "1234567", "12345678", "naïve ✓", "£ $ ¥ è Ω"}) {
    const Ussd message = ussd_of(text, KELO_USSD_CHOOSE);
    char decoded[64] = "";
    EXPECT_GT(kelo_util_convert_ussd_string_to_utf8(message.dcs, message.data.data(), message.result, decoded,
                                                    sizeof decoded),
              0);
    EXPECT_STREQ(decoded, text);
  }
}

}  // namespace
