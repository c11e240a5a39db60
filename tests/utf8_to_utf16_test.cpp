#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <random>
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
using kelo::tests::bytes_of_unit;
using kelo::tests::ExactBuffer;
using kelo::tests::exactly;
using kelo::tests::Iconv;
using kelo::tests::is_surrogate;
using kelo::tests::kHostUtf16;
using kelo::tests::LogCapture;
using kelo::tests::utf16_of;
using kelo::tests::utf8_of;
using namespace std::string_literals;

constexpr std::array<int, 2> kModes = {KELO_UNICODE_STRICT, KELO_UNICODE_LENIENT};

const std::uint8_t* bytes_at(const char* bytes) { return reinterpret_cast<const std::uint8_t*>(bytes); }
std::uint16_t* units_at(char* bytes) { return reinterpret_cast<std::uint16_t*>(bytes); }

struct Outcome {
  int result;
  std::size_t source_bytes;  // converted
  std::string written;       // bytes of units

  bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << "result " << outcome.result << " after " << outcome.source_bytes
       << " bytes: " << testing::PrintToString(outcome.written);
}

// Converts between exactly these blocks and checks that nothing else of the target is written.
Outcome convert(const ExactBuffer& source, const ExactBuffer& target, int mode) {
  const std::uint8_t* from = bytes_at(source.data());
  std::uint16_t* to = units_at(target.data());
  const int result = kelo_util_ConvertUTF8toUTF16(&from, from + source.size(), &to,
                                                  units_at(target.data() + target.size()), mode);
  const auto written = static_cast<std::size_t>(reinterpret_cast<char*>(to) - target.data());
  EXPECT_TRUE(std::all_of(target.data() + written, target.data() + target.size(),
                          [](char byte) { return byte == ExactBuffer::kUntouched; }));
  return {result, static_cast<std::size_t>(from - bytes_at(source.data())), {target.data(), written}};
}

Outcome convert(std::string_view source, std::size_t room, int mode) {
  return convert(exactly(source), ExactBuffer(room), mode);
}

// ---- The contract, character by character ----

constexpr std::uint32_t kNoCharacter = 0xFFFFFFFF;

// The codes of all sequences of one to three bytes, found by encoding every code.
class ShortSequences {
 public:
  ShortSequences() : codes_{Codes(1U << 8, kNone), Codes(1U << 16, kNone), Codes(1U << 24, kNone)} {
    for (std::uint32_t code = 0; code <= 0xFFFF; ++code) {
      const std::string sequence = utf8_of(code);
      codes_[sequence.size() - 1][number(sequence)] = code;
    }
  }
  [[nodiscard]] std::uint32_t code_of(std::string_view sequence) const {
    return codes_[sequence.size() - 1][number(sequence)];
  }

 private:
  using Codes = std::vector<std::uint32_t>;
  static constexpr std::uint32_t kNone = kNoCharacter;

  static std::size_t number(std::string_view sequence) {
    std::size_t value = 0;
    for (const char byte : sequence) value = value * 256 + static_cast<unsigned char>(byte);
    return value;
  }

  std::array<Codes, 3> codes_;
};

std::uint32_t code_of_four(std::string_view sequence) {
  std::uint32_t code = static_cast<unsigned char>(sequence[0]) % 8U;
  for (const char byte : sequence.substr(1)) code = code * 64 + static_cast<unsigned char>(byte) % 64U;
  return utf8_of(code) == sequence ? code : kNoCharacter;
}

std::uint32_t code_of(std::string_view sequence) {
  static const ShortSequences short_sequences;
  if (sequence.size() > 4) return kNoCharacter;
  return sequence.size() == 4 ? code_of_four(sequence) : short_sequences.code_of(sequence);
}

std::size_t sequence_size(char lead) {
  constexpr std::array<unsigned, 5> kFirstOfSize = {0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
  const auto* const above =
      std::upper_bound(kFirstOfSize.begin(), kFirstOfSize.end(), static_cast<unsigned char>(lead));
  return static_cast<std::size_t>(above - kFirstOfSize.begin()) + 1;
}

Outcome expected(std::string_view source, std::size_t room, int mode) {
  Outcome outcome{KELO_UNICODE_COMPLETE, 0, ""};
  const auto failed = [&outcome](int result) {
    outcome.result = result;
    return outcome;
  };
  while (!source.empty()) {
    const std::size_t size = sequence_size(source.front());
    if (size > source.size()) return failed(KELO_UNICODE_SOURCE_EXHAUSTED);
    std::uint32_t code = code_of(source.substr(0, size));
    if (code == kNoCharacter) return failed(KELO_UNICODE_SOURCE_ILLEGAL);
    if (is_surrogate(code) || code > 0x10FFFF) {
      if (mode == KELO_UNICODE_STRICT) return failed(KELO_UNICODE_SOURCE_ILLEGAL);
      if (code > 0x10FFFF) code = 0xFFFD;
    }
    // Short texts are many: most characters go without a vector.
    const std::string units =
        code < 0x10000 ? bytes_of_unit(static_cast<std::uint16_t>(code)) : bytes_of(utf16_of(code));
    if (outcome.written.size() + units.size() > room) return failed(KELO_UNICODE_TARGET_EXHAUSTED);
    outcome.written += units;
    outcome.source_bytes += size;
    source.remove_prefix(size);
  }
  return outcome;
}

// ---- Every character and every sequence ----

TEST(Utf8ToUtf16, ConvertsEveryScalarValueAloneAsIconvDoes) {
  const Iconv iconv(kHostUtf16, "UTF-8");
  for (std::uint32_t code = 0; code <= 0x10FFFF; ++code) {
    if (is_surrogate(code)) continue;
    const std::string source = utf8_of(code);
    const std::string units = iconv.convert(source);
    ASSERT_EQ(bytes_of(utf16_of(code)), units);
    for (const int mode : kModes) {
      ASSERT_EQ((Outcome{KELO_UNICODE_COMPLETE, source.size(), units}), convert(source, units.size(), mode));
      ASSERT_EQ((Outcome{KELO_UNICODE_TARGET_EXHAUSTED, 0, ""}), convert(source, units.size() - 1, mode));
    }
  }
}

TEST(Utf8ToUtf16, ConvertsAllScalarValuesInOneTextAsIconvDoes) {
  std::string source;
  for (std::uint32_t code = 0; code <= 0x10FFFF; ++code) {
    if (!is_surrogate(code)) source += utf8_of(code);
  }
  const std::string units = Iconv(kHostUtf16, "UTF-8").convert(source);
  for (const int mode : kModes) {
    EXPECT_TRUE((Outcome{KELO_UNICODE_COMPLETE, source.size(), units}) ==
                convert(source, units.size(), mode));
    EXPECT_TRUE((Outcome{KELO_UNICODE_COMPLETE, source.size(), units}) ==
                convert(source, units.size() + 9, mode));
  }
}

// Every text of `size` bytes, in both modes.
void convert_every_text(std::size_t size) {
  const ExactBuffer source(size);
  std::fill_n(source.data(), size, '\0');
  const ExactBuffer target(2 * size);
  for (;;) {
    const std::string_view text(source.data(), size);
    for (const int mode : kModes) {
      std::fill_n(target.data(), target.size(), ExactBuffer::kUntouched);
      const bool same = expected(text, target.size(), mode) == convert(source, target, mode);
      ASSERT_TRUE(same) << testing::PrintToString(text) << " in mode " << mode;
    }
    std::size_t place = size;
    while (place != 0 && ++source.data()[place - 1] == 0) --place;
    if (place == 0) return;
  }
}

TEST(Utf8ToUtf16, ConvertsEveryTextOfOneByte) { convert_every_text(1); }
TEST(Utf8ToUtf16, ConvertsEveryTextOfTwoBytes) { convert_every_text(2); }
TEST(Utf8ToUtf16, ConvertsEveryTextOfThreeBytes) { convert_every_text(3); }

TEST(Utf8ToUtf16, AcceptsTheSequencesThatIconvAccepts) {
  const Iconv iconv(kHostUtf16, "UTF-8");
  const auto same = [&iconv](const std::string& text) {
    const std::string units = iconv.convert(text);
    return (errno == 0) == (convert(text, 8, KELO_UNICODE_STRICT).result == KELO_UNICODE_COMPLETE);
  };
  for (unsigned lead = 0xE0; lead <= 0xEF; ++lead) {
    for (unsigned second = 0; second <= 0xFF; ++second) {
      for (unsigned third = 0; third <= 0xFF; ++third) {
        const std::string text = {static_cast<char>(lead), static_cast<char>(second),
                                  static_cast<char>(third)};
        ASSERT_TRUE(same(text)) << testing::PrintToString(text);
      }
    }
  }
  for (unsigned lead = 0xF0; lead <= 0xFF; ++lead) {
    for (unsigned second = 0; second <= 0xFF; ++second) {
      const std::string text = {static_cast<char>(lead), static_cast<char>(second), '\x80', '\xBF'};
      ASSERT_TRUE(same(text)) << testing::PrintToString(text);
    }
  }
}

TEST(Utf8ToUtf16, ConvertsSequencesOfFourBytesAsItsContractSays) {
  constexpr std::array<char, 8> kBytes = {'\0', '\x7F', '\x80', '\x8F', '\x90', '\xBF', '\xC0', '\xFF'};
  for (unsigned lead = 0xF0; lead <= 0xFF; ++lead) {
    for (unsigned second = 0; second <= 0xFF; ++second) {
      for (const char third : kBytes) {
        for (const char fourth : kBytes) {
          const std::string text = {static_cast<char>(lead), static_cast<char>(second), third, fourth};
          for (const int mode : kModes) {
            ASSERT_EQ(expected(text, 8, mode), convert(text, 8, mode)) << testing::PrintToString(text);
          }
        }
      }
    }
  }
}

TEST(Utf8ToUtf16, ConvertsRandomTextsAsItsContractSays) {
  std::mt19937 random(20260301);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts in every run
  for (int i = 0; i < 100000; ++i) {
    std::string text;
    while (text.size() < 24) {
      const auto bits = static_cast<std::uint32_t>(random());
      switch (bits % 8) {
        case 0:
          text += static_cast<char>(bits >> 8);
          break;
        case 1:
          text += utf8_of((bits >> 8) % 0x200000);
          break;
        case 2:
          text += utf8_of((bits >> 8) % 0x10000);
          break;
        default:
          text += utf8_of((bits >> 8) % 0x800);
          break;
      }
    }
    const std::size_t room = random() % 50;
    for (const int mode : kModes) {
      ASSERT_EQ(expected(text, room, mode), convert(text, room, mode)) << testing::PrintToString(text);
    }
  }
}

// ---- What each mode refuses ----

TEST(Utf8ToUtf16, ConvertsSurrogatesAsTheyAreInLenientModeOnly) {
  for (std::uint32_t unit = 0xD800; unit <= 0xDFFF; ++unit) {
    const std::string source = "a" + utf8_of(unit);
    ASSERT_EQ((Outcome{KELO_UNICODE_COMPLETE, 4, bytes_of({'a', static_cast<std::uint16_t>(unit)})}),
              convert(source, 4, KELO_UNICODE_LENIENT));
    ASSERT_EQ((Outcome{KELO_UNICODE_SOURCE_ILLEGAL, 1, bytes_of({'a'})}),
              convert(source, 4, KELO_UNICODE_STRICT));
  }
}

TEST(Utf8ToUtf16, ReplacesValuesAboveTheLastCharacterInLenientModeOnly) {
  for (const std::string& value : {"\xF4\x90\x80\x80"s, "\xF5\x80\x80\x80"s, "\xF7\xBF\xBF\xBF"s}) {
    EXPECT_EQ((Outcome{KELO_UNICODE_COMPLETE, 5, bytes_of({0xFFFD, 'a'})}),
              convert(value + "a", 4, KELO_UNICODE_LENIENT));
    EXPECT_EQ((Outcome{KELO_UNICODE_SOURCE_ILLEGAL, 0, ""}), convert(value + "a", 4, KELO_UNICODE_STRICT));
  }
  for (const int mode : kModes) {
    EXPECT_EQ((Outcome{KELO_UNICODE_COMPLETE, 4, bytes_of({0xDBFF, 0xDFFF})}),
              convert("\xF4\x8F\xBF\xBF", 4, mode));
  }
}

TEST(Utf8ToUtf16, RefusesIllFormedSequencesInBothModes) {
  for (const std::string& sequence : {"\x80"s,
                                      "\xBF"s,
                                      "\xC0\x80"s,
                                      "\xC1\xBF"s,
                                      "\xC2\x7F"s,
                                      "\xC2\xC0"s,
                                      "\xDF\x41"s,
                                      "\xE0\x80\x80"s,
                                      "\xE0\x9F\xBF"s,
                                      "\xE2\x28\xA1"s,
                                      "\xE2\x82\x28"s,
                                      "\xF0\x80\x80\x80"s,
                                      "\xF0\x8F\xBF\xBF"s,
                                      "\xF0\x28\x8C\xBC"s,
                                      "\xF0\x90\x28\xBC"s,
                                      "\xF0\x90\x8C\x28"s,
                                      "\xF8\x88\x80\x80\x80"s,
                                      "\xFC\x84\x80\x80\x80\x80"s,
                                      "\xFE\x80\x80\x80\x80\x80"s,
                                      "\xFF\x80\x80\x80\x80\x80"s}) {
    for (const int mode : kModes) {
      EXPECT_EQ((Outcome{KELO_UNICODE_SOURCE_ILLEGAL, 2, bytes_of({'a', 'b'})}),
                convert("ab" + sequence + "cdefg", 40, mode))
          << testing::PrintToString(sequence);
    }
  }
}

TEST(Utf8ToUtf16, ReportsASequenceCutOffByTheEndAsExhausted) {
  for (const std::string& sequence :
       {"\xC3\xA9"s, "\xE2\x82\xAC"s, "\xF0\x9F\x98\x80"s, "\xF8\x88\x80\x80\x80"s,
        "\xFC\x84\x80\x80\x80\x80"s, "\xFF\xFF\xFF\xFF\xFF\xFF"s, "\xE2\x28\xA1"s}) {
    for (std::size_t left = 1; left < sequence.size(); ++left) {
      for (const int mode : kModes) {
        EXPECT_EQ((Outcome{KELO_UNICODE_SOURCE_EXHAUSTED, 1, bytes_of({'a'})}),
                  convert("a" + sequence.substr(0, left), 40, mode));
      }
    }
  }
}

TEST(Utf8ToUtf16, CountsTheSourceFirstWhenBothFail) {
  for (const int mode : kModes) {
    EXPECT_EQ((Outcome{KELO_UNICODE_SOURCE_ILLEGAL, 0, ""}), convert("\x80", 0, mode));
    EXPECT_EQ((Outcome{KELO_UNICODE_SOURCE_EXHAUSTED, 0, ""}), convert("\xC3", 0, mode));
  }
  EXPECT_EQ(KELO_UNICODE_SOURCE_ILLEGAL, convert("\xED\xA0\x80", 0, KELO_UNICODE_STRICT).result);
  EXPECT_EQ(KELO_UNICODE_TARGET_EXHAUSTED, convert("\xED\xA0\x80", 0, KELO_UNICODE_LENIENT).result);
}

// ---- Every result at every place ----

TEST(Utf8ToUtf16, StopsWhereAndAsItsContractSaysAtEveryCutOfSourceAndTarget) {
  const std::vector<std::string> kCharacters = {"\0"s,
                                                "a",
                                                "\x7F",
                                                "\xC2\x80",
                                                "\xDF\xBF",
                                                "\xE0\xA0\x80",
                                                "\xED\x9F\xBF",
                                                "\xED\xA0\x80",
                                                "\xEE\x80\x80",
                                                "\xEF\xBF\xBF",
                                                "\xF0\x90\x80\x80",
                                                "\xF4\x8F\xBF\xBF",
                                                "\xF4\x90\x80\x80",
                                                "\x80",
                                                "\xC1\x81"};
  for (const std::string& first : kCharacters) {
    for (const std::string& second : kCharacters) {
      for (const std::string& third : kCharacters) {
        std::string whole = first;
        whole.append(second).append(third);
        for (std::size_t length = first.size(); length <= whole.size(); ++length) {
          const std::string text = whole.substr(0, length);
          for (std::size_t room = 0; room <= 13; ++room) {
            for (const int mode : kModes) {
              ASSERT_EQ(expected(text, room, mode), convert(text, room, mode))
                  << testing::PrintToString(text);
            }
          }
        }
      }
    }
  }
}

// What is done a word at a time must stop where it would one by one.
TEST(Utf8ToUtf16, StopsAtTheSamePlaceInARun) {
  for (const std::string& filler : {"A"s, "\x7F"s, "\xC2\x80"s, "\xDF\xBF"s, "\xE2\x82\xAC"s}) {
    for (const std::string& odd :
         {"\0"s, "\x7F"s, "\x80"s, "\xC2\x80"s, "\xDF\xBF"s, "\xC0\x80"s, "\xC1\xBF"s, "\xC3\x28"s,
          "\xC3\xC3"s, "\xE0\xA0\x80"s, "\xED\xBF\xBF"s, "\xF0\x9F\x98\x80"s, "\xFF"s}) {
      for (std::size_t place = 0; place < 11; ++place) {
        std::string text;
        for (std::size_t i = 0; i < 11; ++i) text += i == place ? odd : filler;
        for (std::size_t room = 0; room <= 26; ++room) {
          for (const int mode : kModes) {
            ASSERT_EQ(expected(text, room, mode), convert(text, room, mode)) << testing::PrintToString(text);
          }
        }
      }
    }
  }
}

TEST(Utf8ToUtf16, ConvertsRunsOfEveryLength) {
  for (const std::uint16_t filler : std::vector<std::uint16_t>{0x41, 0xE9, 0x20AC}) {
    std::string text;
    for (std::size_t length = 0; length <= 67; ++length) {
      ASSERT_EQ(
          (Outcome{KELO_UNICODE_COMPLETE, text.size(), bytes_of(std::vector<std::uint16_t>(length, filler))}),
          convert(text, 2 * length, KELO_UNICODE_STRICT));
      text += utf8_of(filler);
    }
  }
}

TEST(Utf8ToUtf16, TakesEveryOtherFlagForLenient) {
  for (const int flags : {1, 2, -1, 256, 1 << 30}) {
    EXPECT_EQ((Outcome{KELO_UNICODE_COMPLETE, 3, bytes_of({0xDC00})}), convert("\xED\xB0\x80", 2, flags))
        << flags;
  }
}

// ---- Pointers ----

TEST(Utf8ToUtf16, ReadsAndWritesAtAnyAddress) {
  const std::string text = "abcde\xC3\xA9\xC3\xAA\xC3\xAB\xC3\xAC\xC3\xAD\xE2\x82\xAC\xF0\x9F\x98\x80";
  const std::string units = Iconv(kHostUtf16, "UTF-8").convert(text);
  for (std::size_t source_offset = 0; source_offset < 9; ++source_offset) {
    for (std::size_t target_offset = 0; target_offset < 9; ++target_offset) {
      const ExactBuffer source = exactly(std::string(source_offset, 'x') + text);
      const ExactBuffer target(target_offset + units.size());
      const std::uint8_t* from = bytes_at(source.data() + source_offset);
      std::uint16_t* to = units_at(target.data() + target_offset);
      EXPECT_EQ(KELO_UNICODE_COMPLETE,
                kelo_util_ConvertUTF8toUTF16(&from, bytes_at(source.data() + source.size()), &to,
                                             units_at(target.data() + target.size()), KELO_UNICODE_STRICT));
      EXPECT_EQ(std::string(target_offset, ExactBuffer::kUntouched) + units, target.bytes());
    }
  }
}

TEST(Utf8ToUtf16, TakesAnEndBeforeItsStartForEmpty) {
  const ExactBuffer source = exactly("ab");
  const ExactBuffer target(8);
  const std::uint8_t* from = bytes_at(source.data() + 1);
  std::uint16_t* to = units_at(target.data() + 4);
  EXPECT_EQ(KELO_UNICODE_COMPLETE, kelo_util_ConvertUTF8toUTF16(&from, bytes_at(source.data()), &to,
                                                                units_at(target.data() + 8), 0));
  EXPECT_EQ(KELO_UNICODE_TARGET_EXHAUSTED, kelo_util_ConvertUTF8toUTF16(&from, bytes_at(source.data() + 2),
                                                                        &to, units_at(target.data()), 0));
  EXPECT_EQ(bytes_at(source.data() + 1), from);
  EXPECT_EQ(units_at(target.data() + 4), to);
  EXPECT_TRUE(target.untouched());
}

TEST(Utf8ToUtf16, TakesNullForAnEmptyTextAndBuffer) {
  const LogCapture log;
  const std::uint8_t* from = nullptr;
  std::uint16_t* to = nullptr;
  EXPECT_EQ(KELO_UNICODE_COMPLETE, kelo_util_ConvertUTF8toUTF16(&from, nullptr, &to, nullptr, 0));
  const ExactBuffer source = exactly("a");
  from = bytes_at(source.data());
  EXPECT_EQ(KELO_UNICODE_TARGET_EXHAUSTED, kelo_util_ConvertUTF8toUTF16(&from, from + 1, &to, nullptr, 0));
  EXPECT_EQ(bytes_at(source.data()), from);
  EXPECT_EQ(nullptr, to);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Utf8ToUtf16, RefusesNullPointersAndChangesNothing) {
  const ExactBuffer source = exactly("a");
  const ExactBuffer target(4);
  const std::uint8_t* const source_end = bytes_at(source.data() + 1);
  std::uint16_t* const target_end = units_at(target.data() + 4);
  const std::uint8_t* from = bytes_at(source.data());
  const std::uint8_t* no_source = nullptr;
  std::uint16_t* to = units_at(target.data());
  std::uint16_t* no_target = nullptr;

  const LogCapture log;
  EXPECT_EQ(KELO_UNICODE_SOURCE_ILLEGAL,
            kelo_util_ConvertUTF8toUTF16(nullptr, source_end, &to, target_end, 0));
  EXPECT_EQ(KELO_UNICODE_SOURCE_ILLEGAL,
            kelo_util_ConvertUTF8toUTF16(&no_source, source_end, &to, target_end, 0));
  EXPECT_EQ(KELO_UNICODE_SOURCE_ILLEGAL,
            kelo_util_ConvertUTF8toUTF16(&from, source_end, nullptr, target_end, 0));
  EXPECT_EQ(KELO_UNICODE_SOURCE_ILLEGAL,
            kelo_util_ConvertUTF8toUTF16(&from, source_end, &no_target, target_end, 0));
  EXPECT_EQ(
      4, log.count(LOG_LVL_ERR, "oem_util_ConvertUTF8toUTF16", "kelo_util_ConvertUTF8toUTF16 param NULL\n"))
      << log.dump();
  EXPECT_EQ(4u, log.lines().size()) << log.dump();
  EXPECT_EQ(bytes_at(source.data()), from);
  EXPECT_EQ(units_at(target.data()), to);
  EXPECT_TRUE(target.untouched());
}

TEST(Utf8ToUtf16, KeepsErrno) {
  errno = E2BIG;
  convert("\xFF", 0, KELO_UNICODE_STRICT);
  EXPECT_EQ(E2BIG, errno);
}

}  // namespace
