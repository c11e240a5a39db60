// SPDX-License-Identifier: MIT
// UTF-8 becomes UTF-16: every character, faults, modes and limits.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/unicode_oracle.hpp"
#include "tests/support/utf8_conversion.hpp"

namespace {

using kelo::tests::bytes_at;
using kelo::tests::bytes_of;
using kelo::tests::convert_utf8;
using kelo::tests::ExactBuffer;
using kelo::tests::exactly;
using kelo::tests::Iconv;
using kelo::tests::kHostUtf16;
using kelo::tests::kModes;
using kelo::tests::LogCapture;
using kelo::tests::units_at;
using kelo::tests::utf8_of;
using kelo::tests::Utf8Outcome;
using namespace std::string_literals;

// ---- What each mode refuses ----

TEST(Utf8ToUtf16, RefusesSurrogatesInBothModes) {
  for (std::uint32_t unit = 0xD800; unit <= 0xDFFF; ++unit) {
    for (const int mode : kModes) {
      ASSERT_EQ(convert_utf8("a" + utf8_of(unit), 4, mode),
                (Utf8Outcome{KELO_UNICODE_SOURCE_ILLEGAL, 1, bytes_of({'a'})}));
    }
  }
}

TEST(Utf8ToUtf16, RefusesValuesAboveTheLastCharacterInBothModes) {
  for (const int mode : kModes) {
    for (const std::string& value : {"\xF4\x90\x80\x80"s, "\xF5\x80\x80\x80"s, "\xF7\xBF\xBF\xBF"s}) {
      EXPECT_EQ(convert_utf8(value + "a", 4, mode), (Utf8Outcome{KELO_UNICODE_SOURCE_ILLEGAL, 0, ""}));
    }
    EXPECT_EQ(convert_utf8("\xF4\x8F\xBF\xBF", 4, mode),
              (Utf8Outcome{KELO_UNICODE_COMPLETE, 4, bytes_of({0xDBFF, 0xDFFF})}));
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
      EXPECT_EQ(convert_utf8("ab" + sequence + "cdefg", 40, mode),
                (Utf8Outcome{KELO_UNICODE_SOURCE_ILLEGAL, 2, bytes_of({'a', 'b'})}))
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
        EXPECT_EQ(convert_utf8("a" + sequence.substr(0, left), 40, mode),
                  (Utf8Outcome{KELO_UNICODE_SOURCE_EXHAUSTED, 1, bytes_of({'a'})}));
      }
    }
  }
}

TEST(Utf8ToUtf16, CountsTheSourceFirstWhenBothFail) {
  for (const int mode : kModes) {
    EXPECT_EQ(convert_utf8("\x80", 0, mode), (Utf8Outcome{KELO_UNICODE_SOURCE_ILLEGAL, 0, ""}));
    EXPECT_EQ(convert_utf8("\xC3", 0, mode), (Utf8Outcome{KELO_UNICODE_SOURCE_EXHAUSTED, 0, ""}));
    EXPECT_EQ(convert_utf8("\xED\xA0\x80", 0, mode), (Utf8Outcome{KELO_UNICODE_SOURCE_ILLEGAL, 0, ""}));
  }
}

TEST(Utf8ToUtf16, ConvertsRunsOfEveryLength) {
  for (const std::uint16_t filler : std::vector<std::uint16_t>{0x41, 0xE9, 0x20AC}) {
    std::string text;
    for (std::size_t length = 0; length <= 67; ++length) {
      ASSERT_EQ(convert_utf8(text, 2 * length, KELO_UNICODE_STRICT),
                (Utf8Outcome{KELO_UNICODE_COMPLETE, text.size(),
                             bytes_of(std::vector<std::uint16_t>(length, filler))}));
      text += utf8_of(filler);
    }
  }
}

TEST(Utf8ToUtf16, TakesEveryOtherFlagToo) {
  for (const int flags : {1, 2, -1, 256, 1 << 30}) {
    EXPECT_EQ(convert_utf8("\xE2\x82\xAC", 2, flags),
              (Utf8Outcome{KELO_UNICODE_COMPLETE, 3, bytes_of({0x20AC})}))
        << flags;
    EXPECT_EQ(convert_utf8("\xED\xB0\x80", 2, flags), (Utf8Outcome{KELO_UNICODE_SOURCE_ILLEGAL, 0, ""}))
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
      EXPECT_EQ(kelo_util_ConvertUTF8toUTF16(&from, bytes_at(source.data() + source.size()), &to,
                                             units_at(target.data() + target.size()), KELO_UNICODE_STRICT),
                KELO_UNICODE_COMPLETE);
      EXPECT_EQ(std::string(target_offset, ExactBuffer::kUntouched) + units, target.bytes());
    }
  }
}

TEST(Utf8ToUtf16, TakesAnEndBeforeItsStartForEmpty) {
  const ExactBuffer source = exactly("ab");
  const ExactBuffer target(8);
  const std::uint8_t* from = bytes_at(source.data() + 1);
  std::uint16_t* to = units_at(target.data() + 4);
  EXPECT_EQ(kelo_util_ConvertUTF8toUTF16(&from, bytes_at(source.data()), &to, units_at(target.data() + 8), 0),
            KELO_UNICODE_COMPLETE);
  EXPECT_EQ(kelo_util_ConvertUTF8toUTF16(&from, bytes_at(source.data() + 2), &to, units_at(target.data()), 0),
            KELO_UNICODE_TARGET_EXHAUSTED);
  EXPECT_EQ(bytes_at(source.data() + 1), from);
  EXPECT_EQ(units_at(target.data() + 4), to);
  EXPECT_TRUE(target.untouched());
}

TEST(Utf8ToUtf16, TakesNullForAnEmptyTextAndBuffer) {
  const LogCapture log;
  const std::uint8_t* from = nullptr;
  std::uint16_t* to = nullptr;
  EXPECT_EQ(kelo_util_ConvertUTF8toUTF16(&from, nullptr, &to, nullptr, 0), KELO_UNICODE_COMPLETE);
  const ExactBuffer source = exactly("a");
  from = bytes_at(source.data());
  EXPECT_EQ(kelo_util_ConvertUTF8toUTF16(&from, from + 1, &to, nullptr, 0), KELO_UNICODE_TARGET_EXHAUSTED);
  EXPECT_EQ(bytes_at(source.data()), from);
  EXPECT_EQ(to, nullptr);
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
  EXPECT_EQ(kelo_util_ConvertUTF8toUTF16(nullptr, source_end, &to, target_end, 0),
            KELO_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(kelo_util_ConvertUTF8toUTF16(&no_source, source_end, &to, target_end, 0),
            KELO_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(kelo_util_ConvertUTF8toUTF16(&from, source_end, nullptr, target_end, 0),
            KELO_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(kelo_util_ConvertUTF8toUTF16(&from, source_end, &no_target, target_end, 0),
            KELO_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(
      log.count(LOG_LVL_ERR, "oem_util_ConvertUTF8toUTF16", "kelo_util_ConvertUTF8toUTF16 param NULL\n"), 4)
      << log.dump();
  EXPECT_EQ(log.lines().size(), 4u) << log.dump();
  EXPECT_EQ(bytes_at(source.data()), from);
  EXPECT_EQ(units_at(target.data()), to);
  EXPECT_TRUE(target.untouched());
}

TEST(Utf8ToUtf16, KeepsErrno) {
  errno = E2BIG;
  convert_utf8("\xFF", 0, KELO_UNICODE_STRICT);
  EXPECT_EQ(errno, E2BIG);
}

}  // namespace
