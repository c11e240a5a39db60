// SPDX-License-Identifier: MIT
// UCS-2 text becomes UTF-8 and comes back, within the buffer that is given.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/unicode_oracle.hpp"

namespace {

using kelo::tests::bytes_of;
using kelo::tests::ExactBuffer;
using kelo::tests::exactly;
using kelo::tests::Iconv;
using kelo::tests::is_surrogate;
using kelo::tests::kHostUtf16;
using kelo::tests::LogCapture;
using kelo::tests::utf8_of;
using namespace std::string_literals;

constexpr std::size_t kNegative = static_cast<std::size_t>(-1);
constexpr std::size_t kBeyondAnyArray = static_cast<std::size_t>(PTRDIFF_MAX) + 1;

std::string truncated_at(std::size_t size) {
  return "String has been truncated. Buffer size of " + std::to_string(size) + " not large enough\n";
}

const std::uint8_t* bytes_at(const ExactBuffer& buffer) {
  return reinterpret_cast<const std::uint8_t*>(buffer.data());
}

// What a text leaves in a buffer of `size` bytes.
std::string terminated(const std::string& text, std::size_t size) {
  return text + '\0' + std::string(size - text.size() - 1, ExactBuffer::kUntouched);
}

// ---- kelo_util_convert_ucs2_to_utf8 ----

constexpr const char* kToUtf8 = "oem_util_convert_ucs2_to_utf8";
constexpr const char* kToUtf8Error = "Error in converting ucs2 string to utf8\n";
constexpr const char* kToUtf8Null = "utf8str or utf8Start is NULL\n";

struct Decoded {
  int length;
  std::string buffer;

  bool operator==(const Decoded&) const = default;
};

void PrintTo(const Decoded& decoded, std::ostream* out) {
  *out << decoded.length << ' ' << testing::PrintToString(decoded.buffer);
}

Decoded decode(std::string_view ucs2, std::size_t size) {
  const ExactBuffer source = exactly(ucs2);
  const ExactBuffer out(size);
  const int length = kelo_util_convert_ucs2_to_utf8(bytes_at(source), source.size(), out.data(), size);
  return {length, out.bytes()};
}

TEST(Ucs2ToUtf8, ConvertsEveryUnit) {
  const LogCapture log;
  const Iconv iconv("UTF-8", kHostUtf16);
  for (std::uint32_t unit = 0; unit <= 0xFFFF; ++unit) {
    if (unit >= 0xD800 && unit <= 0xDBFF) continue;
    const std::string source = bytes_of({static_cast<std::uint16_t>(unit)});
    const std::string utf8 = is_surrogate(unit) ? utf8_of(unit) : iconv.convert(source);
    const Decoded whole = {static_cast<int>(utf8.size()), utf8 + '\0'};
    ASSERT_EQ(whole, decode(source, utf8.size() + 1)) << unit;
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Ucs2ToUtf8, ConvertsAnUnpairedSurrogateToThreeBytes) {
  const LogCapture log;
  EXPECT_EQ(decode(bytes_of({0xD800, 'x'}), 5), (Decoded{4, "\xED\xA0\x80x\0"s}));
  EXPECT_EQ(decode(bytes_of({0xDFFF}), 4), (Decoded{3, "\xED\xBF\xBF\0"s}));
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Ucs2ToUtf8, MakesOneCharacterOfASurrogatePair) {
  EXPECT_EQ(decode(bytes_of({0xD83D, 0xDE00}), 5), (Decoded{4, "\xF0\x9F\x98\x80\0"s}));
}

TEST(Ucs2ToUtf8, ConvertsZeroUnitsWithinTheText) {
  EXPECT_EQ(decode(bytes_of({'a', 0, 'b'}), 4), (Decoded{3, "a\0b\0"s}));
}

TEST(Ucs2ToUtf8, CutsTheTextWithADebugMessageAndKeepsWholeCharacters) {
  const std::string source = bytes_of({'a', 0xE9, 0x20AC, 0xD83D, 0xDE00});
  const std::vector<std::string> prefixes = {"", "a", "a\xC3\xA9", "a\xC3\xA9\xE2\x82\xAC",
                                             "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"};
  for (std::size_t size = 1; size <= 14; ++size) {
    const LogCapture log;
    std::string fitting;
    for (const std::string& prefix : prefixes) {
      if (prefix.size() < size) fitting = prefix;
    }
    EXPECT_EQ(decode(source, size), (Decoded{static_cast<int>(fitting.size()), terminated(fitting, size)}))
        << size;
    const bool cut = size < 11;
    EXPECT_EQ(cut ? 1 : 0, log.count(LOG_LVL_DBUG, kToUtf8, truncated_at(size))) << size << log.dump();
    EXPECT_EQ(cut ? 1u : 0u, log.lines().size()) << size << log.dump();
  }
}

TEST(Ucs2ToUtf8, KeepsWhatIsBeforeATextCutOff) {
  for (const std::string& source : {bytes_of({'a', 'b'}) + '\0', bytes_of({'a', 'b', 0xD800}),
                                    bytes_of({'a', 'b', 0xDBFF}) + '\xDC', bytes_of({'a', 'b'}) + 'c'}) {
    const LogCapture log;
    EXPECT_EQ(decode(source, 9), (Decoded{2, terminated("ab", 9)}));
    EXPECT_EQ(log.count(LOG_LVL_ERR, kToUtf8, kToUtf8Error), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1u) << log.dump();
  }
}

TEST(Ucs2ToUtf8, ReadsNothingOfALoneByte) {
  const LogCapture log;
  EXPECT_EQ(decode("a", 4), (Decoded{0, terminated("", 4)}));
  EXPECT_EQ(log.count(LOG_LVL_ERR, kToUtf8, kToUtf8Error), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1u) << log.dump();
}

TEST(Ucs2ToUtf8, ConvertsTextOfMoreThan65535Bytes) {
  for (const std::size_t count : {255U, 256U, 257U, 32767U, 32768U, 65535U, 65536U, 70000U}) {
    const std::string source = bytes_of(std::vector<std::uint16_t>(count, 0xE9));
    const Decoded decoded = decode(source, 2 * count + 1);
    EXPECT_EQ(static_cast<int>(2 * count), decoded.length);
    EXPECT_TRUE(Iconv("UTF-8", kHostUtf16).convert(source) + '\0' == decoded.buffer);
  }
}

TEST(Ucs2ToUtf8, ReportsNoTextAndTerminates) {
  const ExactBuffer source = exactly(bytes_of({'a'}));
  struct Case {
    const std::uint8_t* ucs2;
    std::size_t byte_len;
  };
  for (const auto& [ucs2, byte_len] :
       {Case{nullptr, 2}, Case{bytes_at(source), 0}, Case{nullptr, 0}, Case{bytes_at(source), kNegative},
        Case{bytes_at(source), kBeyondAnyArray}}) {
    const LogCapture log;
    const ExactBuffer out(3);
    EXPECT_EQ(kelo_util_convert_ucs2_to_utf8(ucs2, byte_len, out.data(), 3), 0);
    EXPECT_EQ(terminated("", 3), out.bytes());
    EXPECT_EQ(log.count(LOG_LVL_ERR, kToUtf8, kToUtf8Error), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1u) << log.dump();
  }
}

TEST(Ucs2ToUtf8, WritesNothingIntoABufferOfNoBytes) {
  const ExactBuffer source = exactly(bytes_of({'a'}));
  for (const std::size_t size : {std::size_t{0}, kNegative, kBeyondAnyArray}) {
    const LogCapture log;
    const ExactBuffer out(1);
    EXPECT_EQ(kelo_util_convert_ucs2_to_utf8(bytes_at(source), 2, out.data(), size), 0);
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kToUtf8, truncated_at(size)), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1u) << log.dump();
  }
}

TEST(Ucs2ToUtf8, WritesNothingIntoABufferOfNoBytesForNoText) {
  const LogCapture log;
  const ExactBuffer out(0);
  EXPECT_EQ(kelo_util_convert_ucs2_to_utf8(nullptr, 2, out.data(), 0), 0);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kToUtf8, kToUtf8Error), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1u) << log.dump();
}

TEST(Ucs2ToUtf8, TerminatesABufferOfOneByte) {
  const LogCapture log;
  EXPECT_EQ(decode(bytes_of({'a'}), 1), (Decoded{0, "\0"s}));
  EXPECT_EQ(log.count(LOG_LVL_DBUG, kToUtf8, truncated_at(1)), 1) << log.dump();
}

TEST(Ucs2ToUtf8, ReportsANullBuffer) {
  const ExactBuffer source = exactly(bytes_of({'a'}));
  for (const std::size_t size : {0U, 5U}) {
    const LogCapture log;
    EXPECT_EQ(kelo_util_convert_ucs2_to_utf8(bytes_at(source), 2, nullptr, size), 0);
    EXPECT_EQ(log.count(LOG_LVL_DBUG, kToUtf8, truncated_at(size)), 1) << log.dump();
    EXPECT_EQ(log.count(LOG_LVL_ERR, kToUtf8, kToUtf8Null), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 2u) << log.dump();
  }
}

TEST(Ucs2ToUtf8, ReportsANullTextAndANullBuffer) {
  const LogCapture log;
  EXPECT_EQ(kelo_util_convert_ucs2_to_utf8(nullptr, 2, nullptr, 5), 0);
  EXPECT_EQ(log.count(LOG_LVL_ERR, kToUtf8, kToUtf8Error), 1) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_ERR, kToUtf8, kToUtf8Null), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 2u) << log.dump();
}

TEST(Ucs2ToUtf8, KeepsErrno) {
  const LogCapture log;
  errno = E2BIG;
  decode("a", 1);
  EXPECT_EQ(errno, E2BIG);
}

// ---- kelo_util_convert_utf8_to_ucs2 ----

constexpr const char* kToUcs2 = "oem_util_convert_utf8_to_ucs2";
constexpr const char* kToUcs2Error = "Error in converting utf8 string to ucs2\n";

struct Encoded {
  int length;
  std::string buffer;

  bool operator==(const Encoded&) const = default;
};

void PrintTo(const Encoded& encoded, std::ostream* out) {
  *out << encoded.length << ' ' << testing::PrintToString(encoded.buffer);
}

std::uint8_t* room_of(const ExactBuffer& buffer) { return reinterpret_cast<std::uint8_t*>(buffer.data()); }

Encoded encode(std::string_view utf8, std::size_t size) {
  const ExactBuffer source = exactly(utf8);
  const ExactBuffer out(size);
  const int length = kelo_util_convert_utf8_to_ucs2(source.data(), source.size(), room_of(out), size);
  return {length, out.bytes()};
}

// What units leave in a buffer of `size` bytes.
Encoded ended(const std::vector<std::uint16_t>& units, std::size_t size) {
  const std::string bytes = bytes_of(units);
  return {static_cast<int>(bytes.size()),
          bytes + "\0\0"s + std::string(size - bytes.size() - 2, ExactBuffer::kUntouched)};
}

std::string as_text(const void* pointer) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%p", pointer);
  return text.data();
}

TEST(Utf8ToUcs2, ConvertsEveryUnit) {
  const LogCapture log;
  for (std::uint32_t unit = 0; unit <= 0xFFFF; ++unit) {
    if (is_surrogate(unit)) continue;
    ASSERT_EQ(ended({static_cast<std::uint16_t>(unit)}, 4), encode(utf8_of(unit), 4)) << unit;
  }
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Utf8ToUcs2, ConvertsAnAccentedLetterIntoFourBytes) {
  EXPECT_EQ(encode("\xC3\xA9", 4), (Encoded{2, "\xE9\0\0\0"s}));
}

TEST(Utf8ToUcs2, MakesAPairOfACharacterAboveTheUnits) {
  EXPECT_EQ(ended({0xD83D, 0xDE00}, 6), encode("\xF0\x9F\x98\x80", 6));
}

TEST(Utf8ToUcs2, ConvertsZeroBytesWithinTheText) { EXPECT_EQ(ended({'a', 0, 'b'}, 8), encode("a\0b"s, 8)); }

TEST(Utf8ToUcs2, ConvertsAnEmptyText) {
  const LogCapture log;
  EXPECT_EQ(ended({}, 3), encode("", 3));
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Utf8ToUcs2, CutsTheTextWithAnErrorAndKeepsWholeCharacters) {
  const std::vector<std::vector<std::uint16_t>> prefixes = {
      {}, {'a'}, {'a', 0xE9}, {'a', 0xE9, 0x20AC}, {'a', 0xE9, 0x20AC, 0xD83D, 0xDE00}};
  for (std::size_t size = 2; size <= 15; ++size) {
    const LogCapture log;
    std::vector<std::uint16_t> fitting;
    for (const std::vector<std::uint16_t>& prefix : prefixes) {
      if (2 * prefix.size() + 2 <= size) fitting = prefix;
    }
    EXPECT_EQ(ended(fitting, size), encode("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", size)) << size;
    const bool cut = size < 12;
    EXPECT_EQ(cut ? 1 : 0, log.count(LOG_LVL_ERR, kToUcs2, truncated_at(size))) << size << log.dump();
    EXPECT_EQ(cut ? 1u : 0u, log.lines().size()) << size << log.dump();
  }
}

TEST(Utf8ToUcs2, KeepsTwoOfThreeCharactersInSixBytes) {
  const LogCapture log;
  EXPECT_EQ(ended({'a', 'b'}, 6), encode("abc", 6));
  EXPECT_EQ(log.count(LOG_LVL_ERR, kToUcs2, truncated_at(6)), 1) << log.dump();
}

TEST(Utf8ToUcs2, KeepsWhatIsBeforeAnIllFormedOrCutOffSequence) {
  for (const std::string& sequence : {"\xFF"s, "\xFFzzzzz"s, "\x80"s, "\xC3"s, "\xE2\x82"s, "\xC0\x80"s,
                                      "\xED\xA0\x80"s, "\xF4\x90\x80\x80"s}) {
    const LogCapture log;
    EXPECT_EQ(ended({'a', 'b'}, 40), encode("ab" + sequence, 40)) << testing::PrintToString(sequence);
    EXPECT_EQ(log.count(LOG_LVL_ERR, kToUcs2, kToUcs2Error), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1u) << log.dump();
  }
}

TEST(Utf8ToUcs2, ConvertsTextOfMoreThan65535Bytes) {
  for (const std::size_t count : {255U, 256U, 257U, 32767U, 32768U, 65535U, 65536U, 70000U}) {
    const Encoded encoded = encode(std::string(count, 'a'), 2 * count + 2);
    EXPECT_TRUE(ended(std::vector<std::uint16_t>(count, 'a'), 2 * count + 2) == encoded) << count;
  }
}

TEST(Utf8ToUcs2, WritesAsMuchOfTheTerminatorAsFits) {
  for (const std::size_t size : {0U, 1U}) {
    const LogCapture log;
    EXPECT_EQ(encode("", size), (Encoded{0, std::string(size, '\0')}));
    EXPECT_TRUE(log.lines().empty()) << log.dump();
    EXPECT_EQ(encode("a", size), (Encoded{0, std::string(size, '\0')}));
    EXPECT_EQ(log.count(LOG_LVL_ERR, kToUcs2, truncated_at(size)), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1u) << log.dump();
  }
}

TEST(Utf8ToUcs2, TakesASizeThatNoArrayHasForNone) {
  for (const std::size_t size : {kNegative, kBeyondAnyArray}) {
    const LogCapture log;
    const ExactBuffer source = exactly("a");
    const ExactBuffer out(2);
    EXPECT_EQ(kelo_util_convert_utf8_to_ucs2(source.data(), 1, room_of(out), size), 0);
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(log.count(LOG_LVL_ERR, kToUcs2, truncated_at(size)), 1) << log.dump();
    EXPECT_EQ(log.lines().size(), 1u) << log.dump();

    EXPECT_EQ(kelo_util_convert_utf8_to_ucs2(source.data(), size, room_of(out), 2), 0);
    EXPECT_EQ(out.bytes(), "\0\0"s);
    EXPECT_EQ(log.lines().size(), 1u) << log.dump();
  }
}

TEST(Utf8ToUcs2, WritesAtAnyAddress) {
  const ExactBuffer out(9);
  const ExactBuffer source = exactly("abc");
  EXPECT_EQ(kelo_util_convert_utf8_to_ucs2(source.data(), 3, room_of(out) + 1, 8), 6);
  EXPECT_EQ(out.bytes(), std::string(1, ExactBuffer::kUntouched) + bytes_of({'a', 'b', 'c', 0}));
}

TEST(Utf8ToUcs2, ReportsNullPointersAndWritesNothing) {
  const ExactBuffer source = exactly("a");
  const ExactBuffer out(4);
  const auto refused = [](const char* utf8, std::uint8_t* ucs2) {
    const LogCapture log;
    EXPECT_EQ(kelo_util_convert_utf8_to_ucs2(utf8, 1, ucs2, 4), 0);
    EXPECT_EQ(
        log.count(LOG_LVL_ERR, kToUcs2,
                  "Invalid parameters. utf8str: " + as_text(utf8) + ", ucs2str: " + as_text(ucs2) + "\n"),
        1)
        << log.dump();
    EXPECT_EQ(log.lines().size(), 1u) << log.dump();
  };
  refused(nullptr, room_of(out));
  refused(source.data(), nullptr);
  refused(nullptr, nullptr);
  EXPECT_TRUE(out.untouched());
}

TEST(Utf8ToUcs2, KeepsErrno) {
  const LogCapture log;
  errno = E2BIG;
  encode("\xFF", 1);
  EXPECT_EQ(errno, E2BIG);
}

}  // namespace
