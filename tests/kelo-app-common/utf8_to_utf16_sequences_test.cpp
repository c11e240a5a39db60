// SPDX-License-Identifier: MIT
// Every text of up to three bytes becomes UTF-16 as the rules of UTF-8 say.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "kelo_utils/app_common.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/unicode_oracle.hpp"
#include "tests/support/utf8_conversion.hpp"

namespace {

using kelo::tests::bytes_of;
using kelo::tests::bytes_of_unit;
using kelo::tests::convert_utf8;
using kelo::tests::ExactBuffer;
using kelo::tests::Iconv;
using kelo::tests::is_surrogate;
using kelo::tests::kHostUtf16;
using kelo::tests::kModes;
using kelo::tests::utf16_of;
using kelo::tests::utf8_of;
using kelo::tests::Utf8Outcome;
using namespace std::string_literals;

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

// In either mode.
Utf8Outcome expected(std::string_view source, std::size_t room) {
  Utf8Outcome outcome{KELO_UNICODE_COMPLETE, 0, ""};
  const auto failed = [&outcome](int result) {
    outcome.result = result;
    return outcome;
  };
  while (!source.empty()) {
    const std::size_t size = sequence_size(source.front());
    if (size > source.size()) return failed(KELO_UNICODE_SOURCE_EXHAUSTED);
    const std::uint32_t code = code_of(source.substr(0, size));
    if (is_surrogate(code) || code > 0x10FFFF) return failed(KELO_UNICODE_SOURCE_ILLEGAL);
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

TEST(Utf8Sequences, ConvertsEveryScalarValueAloneAsIconvDoes) {
  const Iconv iconv(kHostUtf16, "UTF-8");
  for (std::uint32_t code = 0; code <= 0x10FFFF; ++code) {
    if (is_surrogate(code)) continue;
    const std::string source = utf8_of(code);
    const std::string units = iconv.convert(source);
    ASSERT_EQ(bytes_of(utf16_of(code)), units);
    for (const int mode : kModes) {
      ASSERT_EQ(convert_utf8(source, units.size(), mode),
                (Utf8Outcome{KELO_UNICODE_COMPLETE, source.size(), units}));
      ASSERT_EQ(convert_utf8(source, units.size() - 1, mode),
                (Utf8Outcome{KELO_UNICODE_TARGET_EXHAUSTED, 0, ""}));
    }
  }
}

TEST(Utf8Sequences, ConvertsAllScalarValuesInOneTextAsIconvDoes) {
  std::string source;
  for (std::uint32_t code = 0; code <= 0x10FFFF; ++code) {
    if (!is_surrogate(code)) source += utf8_of(code);
  }
  const std::string units = Iconv(kHostUtf16, "UTF-8").convert(source);
  for (const int mode : kModes) {
    EXPECT_TRUE((Utf8Outcome{KELO_UNICODE_COMPLETE, source.size(), units}) ==
                convert_utf8(source, units.size(), mode));
    EXPECT_TRUE((Utf8Outcome{KELO_UNICODE_COMPLETE, source.size(), units}) ==
                convert_utf8(source, units.size() + 9, mode));
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
      const bool same = expected(text, target.size()) == convert_utf8(source, target, mode);
      ASSERT_TRUE(same) << testing::PrintToString(text) << " in mode " << mode;
    }
    std::size_t place = size;
    while (place != 0 && ++source.data()[place - 1] == 0) --place;
    if (place == 0) return;
  }
}

TEST(Utf8Sequences, ConvertsEveryTextOfOneByte) { convert_every_text(1); }
TEST(Utf8Sequences, ConvertsEveryTextOfTwoBytes) { convert_every_text(2); }
TEST(Utf8Sequences, ConvertsEveryTextOfThreeBytes) { convert_every_text(3); }

TEST(Utf8Sequences, AcceptsTheSequencesThatIconvAccepts) {
  const Iconv iconv(kHostUtf16, "UTF-8");
  const auto same = [&iconv](const std::string& text) {
    const std::string units = iconv.convert(text);
    return (errno == 0) == (convert_utf8(text, 8, KELO_UNICODE_STRICT).result == KELO_UNICODE_COMPLETE);
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

TEST(Utf8Sequences, ConvertsSequencesOfFourBytesAsItsContractSays) {
  constexpr std::array<char, 8> kBytes = {'\0', '\x7F', '\x80', '\x8F', '\x90', '\xBF', '\xC0', '\xFF'};
  for (unsigned lead = 0xF0; lead <= 0xFF; ++lead) {
    for (unsigned second = 0; second <= 0xFF; ++second) {
      for (const char third : kBytes) {
        for (const char fourth : kBytes) {
          const std::string text = {static_cast<char>(lead), static_cast<char>(second), third, fourth};
          for (const int mode : kModes) {
            ASSERT_EQ(convert_utf8(text, 8, mode), expected(text, 8)) << testing::PrintToString(text);
          }
        }
      }
    }
  }
}

TEST(Utf8Sequences, ConvertsRandomTextsAsItsContractSays) {
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
      ASSERT_EQ(convert_utf8(text, room, mode), expected(text, room)) << testing::PrintToString(text);
    }
  }
}

// ---- Every result at every place ----

TEST(Utf8Sequences, StopsWhereAndAsItsContractSaysAtEveryCutOfSourceAndTarget) {
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
              ASSERT_EQ(convert_utf8(text, room, mode), expected(text, room)) << testing::PrintToString(text);
            }
          }
        }
      }
    }
  }
}

// What is done a word at a time must stop where it would one by one.
TEST(Utf8Sequences, StopsAtTheSamePlaceInARun) {
  for (const std::string& filler : {"A"s, "\x7F"s, "\xC2\x80"s, "\xDF\xBF"s, "\xE2\x82\xAC"s}) {
    for (const std::string& odd :
         {"\0"s, "\x7F"s, "\x80"s, "\xC2\x80"s, "\xDF\xBF"s, "\xC0\x80"s, "\xC1\xBF"s, "\xC3\x28"s,
          "\xC3\xC3"s, "\xE0\xA0\x80"s, "\xED\xBF\xBF"s, "\xF0\x9F\x98\x80"s, "\xFF"s}) {
      for (std::size_t place = 0; place < 11; ++place) {
        std::string text;
        for (std::size_t i = 0; i < 11; ++i) text += i == place ? odd : filler;
        for (std::size_t room = 0; room <= 26; ++room) {
          for (const int mode : kModes) {
            ASSERT_EQ(convert_utf8(text, room, mode), expected(text, room)) << testing::PrintToString(text);
          }
        }
      }
    }
  }
}

}  // namespace
