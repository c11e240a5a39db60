// SPDX-License-Identifier: MIT
// Text put together in a fixed buffer: what is kept, what is cut and what the builder tells about it.
#include "base/text_builder.hpp"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "tests/support/exact_buffer.hpp"

namespace {

using kelo::base::FixedText;
using kelo::base::TextBuilder;
using kelo::tests::ExactBuffer;

// A character that no text of the "C" locale can hold: printf() fails after it has written the text before that character.
constexpr const wchar_t* kUnprintable = L"\x3B1";

std::string string_of(const ExactBuffer& buffer) { return buffer.data(); }

TEST(TextBuilder, BeginsWithAnEmptyText) {
  const ExactBuffer buffer(4);
  const TextBuilder text({buffer.data(), buffer.size()});
  EXPECT_EQ(string_of(buffer), "");
  EXPECT_EQ(text.c_str(), buffer.data());
  EXPECT_EQ(text.size(), 0U);
  EXPECT_EQ(text.full_size(), 0U);
  EXPECT_FALSE(text.cut());
}

TEST(TextBuilder, PutsPieceAfterPiece) {
  const ExactBuffer buffer(32);
  TextBuilder text({buffer.data(), buffer.size()});
  text.append("one").print(" %s %d", "two", 3).append("").print("%s", "").append(" four");
  EXPECT_EQ(string_of(buffer), "one two 3 four");
  EXPECT_EQ(text.view(), "one two 3 four");
  EXPECT_EQ(text.full_size(), 14U);
  EXPECT_FALSE(text.cut());
}

TEST(TextBuilder, KeepsBytesOfAnyValue) {
  constexpr std::string_view kBytes("a\0b\xFF", 4);
  const ExactBuffer buffer(8);
  TextBuilder text({buffer.data(), buffer.size()});
  text.append(kBytes).append(kBytes.substr(0, 2));
  EXPECT_EQ(text.view(), std::string_view("a\0b\xFF\x61\0", 6));
  EXPECT_FALSE(text.cut());
}

TEST(TextBuilder, PutsSingleCharacters) {
  const ExactBuffer buffer(4);
  TextBuilder text({buffer.data(), buffer.size()});
  text.put('a').put('\0').put('b');
  EXPECT_EQ(text.view(), std::string_view("a\0b", 3));
  EXPECT_FALSE(text.cut());
  text.put('c');
  EXPECT_EQ(buffer.bytes(), std::string("a\0b\0", 4));
  EXPECT_EQ(text.full_size(), 4U);
  EXPECT_TRUE(text.cut());
}

TEST(TextBuilder, TakesAnEmptyPieceThatIsNowhere) {
  const ExactBuffer buffer(1);
  TextBuilder text({buffer.data(), buffer.size()});
  text.append({});
  EXPECT_EQ(buffer.bytes(), std::string(1, '\0'));
  EXPECT_FALSE(text.cut());
}

// One character less than fits, as many as fit, and one more: in one piece and in two.
TEST(TextBuilder, CutsWhatDoesNotFit) {
  const std::string whole = "0123456789";
  for (std::size_t length = 8; length <= 10; ++length) {
    for (std::size_t first = 0; first <= length; ++first) {
      for (const bool printed : {false, true}) {
        SCOPED_TRACE(testing::Message() << length << " characters, " << first << " of them first");
        const ExactBuffer buffer(10);
        TextBuilder text({buffer.data(), buffer.size()});
        const std::string begin = whole.substr(0, first);
        const std::string rest = whole.substr(first, length - first);
        if (printed) {
          text.print("%s", begin.c_str()).print("%s", rest.c_str());
        } else {
          text.append(begin).append(rest);
        }
        const std::string kept = whole.substr(0, std::min<std::size_t>(length, 9));
        EXPECT_EQ(string_of(buffer), kept);
        EXPECT_EQ(text.view(), kept);
        EXPECT_EQ(text.full_size(), length);
        EXPECT_EQ(text.cut(), length == 10);
      }
    }
  }
}

TEST(TextBuilder, AddsNothingAfterACut) {
  const ExactBuffer buffer(4);
  TextBuilder text({buffer.data(), buffer.size()});
  text.append("12345").print("%s", "678").append("9");
  EXPECT_EQ(string_of(buffer), "123");
  EXPECT_EQ(text.size(), 3U);
  EXPECT_EQ(text.full_size(), 9U);
  EXPECT_TRUE(text.cut());
}

TEST(TextBuilder, HasRoomForNothingInOneByte) {
  const ExactBuffer buffer(1);
  TextBuilder text({buffer.data(), buffer.size()});
  text.append("a").print("%d", 12);
  EXPECT_EQ(buffer.bytes(), std::string(1, '\0'));
  EXPECT_EQ(text.size(), 0U);
  EXPECT_EQ(text.full_size(), 3U);
  EXPECT_TRUE(text.cut());
}

TEST(TextBuilder, LeavesOutAPieceThatCannotBeFormatted) {
  const ExactBuffer buffer(32);
  TextBuilder text({buffer.data(), buffer.size()});
  text.append("before").print("in front %ls", kUnprintable);
  EXPECT_EQ(string_of(buffer), "before");
  EXPECT_TRUE(text.cut());
  text.append(" after");
  EXPECT_EQ(string_of(buffer), "before after");
  EXPECT_TRUE(text.cut());
}

TEST(FixedText, IsEmptyWithoutAFormat) {
  const FixedText<4> text;
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_EQ(text.size(), 0U);
  EXPECT_FALSE(text.cut());
}

TEST(FixedText, HoldsAsManyCharactersAsItsSizeLessOne) {
  const FixedText<8> fits("%s-%d", "abc", 123);
  EXPECT_STREQ(fits.c_str(), "abc-123");
  EXPECT_FALSE(fits.cut());
  const FixedText<8> cut("%s-%d", "abc", 1234);
  EXPECT_STREQ(cut.c_str(), "abc-123");
  EXPECT_EQ(cut.full_size(), 8U);
  EXPECT_TRUE(cut.cut());
}

TEST(FixedText, IsCutWhenItCannotBeFormatted) {
  const FixedText<8> text("a%ls", kUnprintable);
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_TRUE(text.cut());
}

TEST(FixedText, GoesOnAfterItsFirstPiece) {
  FixedText<16> text("%d", 1);
  text.append(",").print("%d", 2);
  EXPECT_EQ(text.view(), "1,2");
}

TEST(FixedText, IsCopiedWithABufferOfItsOwn) {
  FixedText<8> text("%s", "abcdefgh");
  std::optional<FixedText<8>> copy = text;
  EXPECT_NE(copy->c_str(), text.c_str());
  EXPECT_STREQ(copy->c_str(), "abcdefg");
  EXPECT_EQ(copy->full_size(), 8U);
  EXPECT_TRUE(copy->cut());

  FixedText<8> begun("%s", "ab");
  FixedText<8> continued = begun;
  continued.append("cd");
  EXPECT_STREQ(begun.c_str(), "ab");
  EXPECT_STREQ(continued.c_str(), "abcd");
}

}  // namespace
