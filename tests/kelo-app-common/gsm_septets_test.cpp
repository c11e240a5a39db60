// SPDX-License-Identifier: MIT
// Packed septets are unpacked at every length and offset.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::ExactBuffer;
using kelo::tests::LogCapture;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kCarriageReturn = 13;

std::uint8_t* bytes_of(const ExactBuffer& buffer) { return reinterpret_cast<std::uint8_t*>(buffer.data()); }

// The bits of every octet, lowest first, in one long row.
std::vector<bool> bits_of(const Bytes& octets) {
  std::vector<bool> bits;
  for (const std::uint8_t octet : octets) {
    for (int bit = 0; bit < 8; ++bit) bits.push_back((octet >> bit & 1) != 0);
  }
  return bits;
}

// The septets of packed octets, cut out of the row of bits one after the other, without the padding.
Bytes slowly_unpacked(const Bytes& octets) {
  const std::vector<bool> bits = bits_of(octets);
  Bytes septets;
  for (std::size_t start = 0; start + 7 <= bits.size(); start += 7) {
    unsigned septet = 0;
    for (std::size_t bit = 0; bit < 7; ++bit) septet |= static_cast<unsigned>(bits[start + bit]) << bit;
    septets.push_back(static_cast<std::uint8_t>(septet));
  }
  const bool full = !bits.empty() && bits.size() % 7 == 0;
  if (full && septets.back() == kCarriageReturn) septets.pop_back();
  return septets;
}

Bytes packed(const Bytes& septets) {
  Bytes octets((septets.size() * 7 + 7) / 8);
  for (std::size_t bit = 0; bit < septets.size() * 7; ++bit) {
    if ((septets[bit / 7] >> bit % 7 & 1) != 0) octets[bit / 8] |= static_cast<std::uint8_t>(1 << bit % 8);
  }
  return octets;
}

// As a sender packs them: a carriage return fills seven spare bits.
Bytes packed_and_padded(Bytes septets) {
  if (septets.size() % 8 == 7) septets.push_back(kCarriageReturn);
  return packed(septets);
}

Bytes random_bytes(std::size_t count) {
  static std::mt19937 random(20260301);
  Bytes bytes(count);
  std::generate(bytes.begin(), bytes.end(), [] { return static_cast<std::uint8_t>(random()); });
  return bytes;
}

std::string as_text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

// What the unpacker leaves in a buffer of `room` bytes, and how many of them it counts.
struct Unpacked {
  int count;
  std::string buffer;
};

Unpacked unpack(const Bytes& octets, int out_max, std::size_t room, int packed_len) {
  const ExactBuffer out(room);
  const int count = kelo_util_ussd_unpack(bytes_of(out), out_max, octets.data(), packed_len);
  return {count, out.bytes()};
}

Unpacked unpack(const Bytes& octets, int out_max, std::size_t room) {
  return unpack(octets, out_max, room, static_cast<int>(octets.size()));
}

// The first `most` septets, and untouched bytes after them up to `room`.
void expect_unpacked(const Bytes& septets, std::size_t most, std::size_t room, const Unpacked& result) {
  const std::size_t count = std::min(septets.size(), most);
  ASSERT_EQ(static_cast<int>(count), result.count);
  std::string expected = as_text(septets).substr(0, count);
  expected.resize(room, ExactBuffer::kUntouched);
  ASSERT_EQ(result.buffer, expected);
}

TEST(UssdUnpack, UnpacksTenSeptetsFromNineOctets) {
  const Bytes octets = {0xE8, 0x32, 0x9B, 0xFD, 0x46, 0x97, 0xD9, 0xEC, 0x37};
  const Unpacked result = unpack(octets, 20, 20);
  EXPECT_EQ(result.count, 10);
  EXPECT_EQ(result.buffer.substr(0, 10), "hellohello");
  EXPECT_EQ(result.buffer.substr(10), std::string(10, ExactBuffer::kUntouched)) << "no terminator";
}

TEST(UssdUnpack, KnowsEverySeptetAtEveryPosition) {
  for (std::size_t position = 0; position < 16; ++position) {
    for (int septet = 0; septet < 128; ++septet) {
      Bytes septets(17, 0x55);
      septets[position] = static_cast<std::uint8_t>(septet);
      const Unpacked result = unpack(packed(septets), 32, 32);
      expect_unpacked(septets, 32, 32, result);
      if (HasFatalFailure()) FAIL() << septet << " at " << position;
    }
  }
}

TEST(UssdUnpack, AgreesWithARowOfBitsForEveryLength) {
  for (int length = 1; length <= 256; ++length) {
    const auto count = static_cast<std::size_t>(length);
    for (const Bytes& octets :
         {random_bytes(count), Bytes(count, 0x00), Bytes(count, 0xFF), Bytes(count, kCarriageReturn << 1),
          Bytes(count, (kCarriageReturn << 1) | 1)}) {
      const Bytes septets = slowly_unpacked(octets);
      expect_unpacked(septets, 255, 255, unpack(octets, 255, 255));
      if (HasFatalFailure()) FAIL() << length << " octets of " << int{octets.back()};
    }
  }
}

TEST(UssdUnpack, StopsAtEveryLimit) {
  for (int length = 1; length <= 256; ++length) {
    for (const bool ends_in_padding : {false, true}) {
      Bytes octets = random_bytes(static_cast<std::size_t>(length));
      if (ends_in_padding) octets.back() = kCarriageReturn << 1;
      const Bytes septets = slowly_unpacked(octets);
      for (int limit = 1; limit <= 255; ++limit) {
        const auto room = static_cast<std::size_t>(limit);
        expect_unpacked(septets, room, room, unpack(octets, limit, room));
        if (HasFatalFailure()) FAIL() << length << " octets, limit " << limit;
      }
    }
  }
}

TEST(UssdUnpack, TakesALimitAbove254OrBelow0For255) {
  for (const std::size_t length : {1u, 7u, 222u, 223u, 224u, 231u, 256u}) {
    const Bytes octets = random_bytes(length);
    const Bytes septets = slowly_unpacked(octets);
    for (const int limit :
         {254, 255, 256, 257, 511, 512, 65535, 65536, INT32_MAX, -1, -255, -256, INT32_MIN}) {
      const std::size_t most = limit == 254 ? 254 : 255;
      expect_unpacked(septets, most, most, unpack(octets, limit, most));
      if (HasFatalFailure()) FAIL() << length << " octets, limit " << limit;
    }
  }
}

TEST(UssdUnpack, WritesNothingAtLimit0) {
  const ExactBuffer out(1);
  const Bytes octets = {0x41};
  EXPECT_EQ(kelo_util_ussd_unpack(bytes_of(out), 0, octets.data(), 1), 0);
  EXPECT_TRUE(out.untouched());
}

TEST(UssdUnpack, ReadsLengthsModulo256) {
  struct Case {
    int given;
    std::size_t read;
  };
  for (const auto& [given, read] : std::initializer_list<Case>{{255, 255},
                                                               {256, 256},
                                                               {257, 1},
                                                               {258, 2},
                                                               {300, 44},
                                                               {511, 255},
                                                               {512, 256},
                                                               {513, 1},
                                                               {65535, 255},
                                                               {65536, 256},
                                                               {65537, 1},
                                                               {INT32_MAX, 255}}) {
    const Bytes octets = random_bytes(read);  // nothing after what is read
    expect_unpacked(slowly_unpacked(octets), 255, 255, unpack(octets, 255, 255, given));
    if (HasFatalFailure()) FAIL() << given;
  }
}

TEST(UssdUnpack, ReadsNothingOfALengthBelow1) {
  const ExactBuffer out(255);
  const ExactBuffer octets(0);
  for (const int length : {0, -1, -255, -256, -257, INT32_MIN}) {
    EXPECT_EQ(kelo_util_ussd_unpack(bytes_of(out), 255, bytes_of(octets), length), 0) << length;
  }
  EXPECT_TRUE(out.untouched());
}

TEST(UssdUnpack, GivesBackWhatASenderPacked) {
  for (std::size_t count = 1; count <= 255; ++count) {
    Bytes septets = random_bytes(count);
    for (std::uint8_t& septet : septets) septet &= 0x7F;
    const Bytes octets = packed_and_padded(septets);
    Bytes expected = septets;
    if (count % 8 == 0 && septets.back() == kCarriageReturn) expected.pop_back();
    expect_unpacked(expected, 255, 255, unpack(octets, 255, 255));
    if (HasFatalFailure()) FAIL() << count;
  }
}

TEST(UssdUnpack, LosesACarriageReturnOnlyAtTheEndOfFullOctets) {
  for (std::size_t count = 1; count <= 32; ++count) {
    for (std::size_t position = 0; position < count; ++position) {
      Bytes septets(count, 'a');
      septets[position] = kCarriageReturn;
      Bytes expected = septets;
      if (count % 8 == 0 && position + 1 == count) expected.pop_back();
      if (count % 8 == 7) expected.push_back(0);  // seven zero bits fill the last octet
      expect_unpacked(expected, 64, 64, unpack(packed(septets), 64, 64));
      if (HasFatalFailure()) FAIL() << position << " of " << count;
    }
  }
}

TEST(UssdUnpack, DropsThePaddingAlsoWhereTheLimitDoes) {
  const Bytes octets = packed(Bytes(8, kCarriageReturn));
  for (const int limit : {7, 8, 9}) EXPECT_EQ(unpack(octets, limit, 9).count, 7) << limit;
}

TEST(UssdUnpack, ReturnsZeroForANullPointerSilently) {
  const LogCapture log;
  const ExactBuffer out(8);
  const Bytes octets = {0x41};
  EXPECT_EQ(kelo_util_ussd_unpack(nullptr, 8, octets.data(), 1), 0);
  EXPECT_EQ(kelo_util_ussd_unpack(bytes_of(out), 8, nullptr, 1), 0);
  EXPECT_EQ(kelo_util_ussd_unpack(nullptr, 8, nullptr, 1), 0);
  EXPECT_TRUE(out.untouched());
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

}  // namespace
