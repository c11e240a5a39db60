// SPDX-License-Identifier: MIT
// UTF-16 becomes UTF-8: every character, surrogates, modes and limits.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
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
using kelo::tests::utf16_of;
using kelo::tests::utf8_of;

using Units = std::vector<std::uint16_t>;

constexpr std::array<int, 2> kModes = {KELO_UNICODE_STRICT, KELO_UNICODE_LENIENT};

const std::uint16_t* units_at(const char* bytes) { return reinterpret_cast<const std::uint16_t*>(bytes); }
std::uint8_t* bytes_at(char* bytes) { return reinterpret_cast<std::uint8_t*>(bytes); }

struct Outcome {
  int result;
  std::size_t source_bytes;  // converted
  std::string written;

  bool operator==(const Outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
  return out << "result " << outcome.result << " after " << outcome.source_bytes
             << " bytes: " << testing::PrintToString(outcome.written);
}

// Converts a source of exactly these bytes into exactly this much room.
Outcome convert(std::string_view source_bytes, std::size_t room, int mode) {
  const ExactBuffer source = exactly(source_bytes);
  const ExactBuffer target(room);
  const std::uint16_t* from = units_at(source.data());
  std::uint8_t* to = bytes_at(target.data());
  const int result = kelo_util_ConvertUTF16toUTF8(&from, units_at(source.data() + source.size()), &to,
                                                  bytes_at(target.data() + room), mode);
  const auto written = static_cast<std::size_t>(reinterpret_cast<char*>(to) - target.data());
  EXPECT_EQ(target.bytes().substr(written), std::string(room - written, ExactBuffer::kUntouched));
  return {result, static_cast<std::size_t>(reinterpret_cast<const char*>(from) - source.data()),
          target.bytes().substr(0, written)};
}

bool is_high(std::uint16_t unit) { return unit / 1024 == 54; }
bool is_low(std::uint16_t unit) { return unit / 1024 == 55; }

// The conversion as its contract says it, character by character. `half` is a byte after the last unit.
Outcome expected(const Units& units, bool half, std::size_t room, int mode) {
  Outcome outcome{KELO_UNICODE_COMPLETE, 0, ""};
  std::size_t i = 0;
  while (i < units.size()) {
    std::uint32_t code = units[i];
    std::size_t taken = 1;
    if (is_high(units[i]) && i + 1 == units.size()) {
      outcome.result = KELO_UNICODE_SOURCE_EXHAUSTED;
      return outcome;
    }
    if (is_high(units[i]) && is_low(units[i + 1])) {
      code = 65536 + (units[i] % 1024U) * 1024U + units[i + 1] % 1024U;
      taken = 2;
    } else if (is_surrogate(code) && mode == KELO_UNICODE_STRICT) {
      outcome.result = KELO_UNICODE_SOURCE_ILLEGAL;
      return outcome;
    }
    const std::string bytes = utf8_of(code);
    if (outcome.written.size() + bytes.size() > room) {
      outcome.result = KELO_UNICODE_TARGET_EXHAUSTED;
      return outcome;
    }
    outcome.written += bytes;
    outcome.source_bytes += 2 * taken;
    i += taken;
  }
  if (half) outcome.result = KELO_UNICODE_SOURCE_EXHAUSTED;
  return outcome;
}

std::size_t size_in_utf8(const Units& units) { return 3 * units.size(); }

// ---- Every character ----

TEST(Utf16ToUtf8, ConvertsEveryScalarValueAloneAsIconvDoes) {
  const Iconv iconv("UTF-8", kHostUtf16);
  for (std::uint32_t code = 0; code <= 0x10FFFF; ++code) {
    if (is_surrogate(code)) continue;
    const std::string source = bytes_of(utf16_of(code));
    const std::string utf8 = iconv.convert(source);
    ASSERT_EQ(utf8_of(code), utf8);
    for (const int mode : kModes) {
      ASSERT_EQ(convert(source, utf8.size(), mode), (Outcome{KELO_UNICODE_COMPLETE, source.size(), utf8}))
          << code;
      ASSERT_EQ(convert(source, utf8.size() - 1, mode), (Outcome{KELO_UNICODE_TARGET_EXHAUSTED, 0, ""}))
          << code;
    }
  }
}

TEST(Utf16ToUtf8, ConvertsAllScalarValuesInOneTextAsIconvDoes) {
  std::string source;
  for (std::uint32_t code = 0; code <= 0x10FFFF; ++code) {
    if (!is_surrogate(code)) source += bytes_of(utf16_of(code));
  }
  const std::string utf8 = Iconv("UTF-8", kHostUtf16).convert(source);
  for (const int mode : kModes) {
    EXPECT_TRUE((Outcome{KELO_UNICODE_COMPLETE, source.size(), utf8}) == convert(source, utf8.size(), mode));
    EXPECT_TRUE((Outcome{KELO_UNICODE_COMPLETE, source.size(), utf8}) ==
                convert(source, utf8.size() + 9, mode));
  }
}

TEST(Utf16ToUtf8, TakesEveryUnpairedSurrogateAsItsModeSays) {
  for (std::uint32_t unit = 0xD800; unit <= 0xDFFF; ++unit) {
    const std::string source = bytes_of({static_cast<std::uint16_t>(unit), 'x'});
    ASSERT_EQ(convert(source, 4, KELO_UNICODE_LENIENT),
              (Outcome{KELO_UNICODE_COMPLETE, 4, utf8_of(unit) + "x"}));
    ASSERT_EQ(convert(source, 4, KELO_UNICODE_STRICT), (Outcome{KELO_UNICODE_SOURCE_ILLEGAL, 0, ""}));
  }
  EXPECT_EQ(utf8_of(0xD800), "\xED\xA0\x80");
  EXPECT_EQ(utf8_of(0xDFFF), "\xED\xBF\xBF");
}

TEST(Utf16ToUtf8, ReportsAHighSurrogateAtTheEndAsExhaustedInBothModes) {
  for (std::uint32_t unit = 0xD800; unit <= 0xDFFF; ++unit) {
    const Units units = {'x', static_cast<std::uint16_t>(unit)};
    for (const int mode : kModes) {
      ASSERT_EQ(convert(bytes_of(units), 9, mode), expected(units, false, 9, mode)) << unit;
    }
    if (unit < 0xDC00) {
      ASSERT_EQ(convert(bytes_of(units), 9, KELO_UNICODE_LENIENT),
                (Outcome{KELO_UNICODE_SOURCE_EXHAUSTED, 2, "x"}));
    }
  }
}

// ---- Every result at every place ----

// All texts of up to three characters at the bounds of each class, in every room, in both modes, with and
// without half a unit at the end.
TEST(Utf16ToUtf8, StopsWhereAndAsItsContractSays) {
  constexpr std::array<std::uint16_t, 14> kBounds = {0,      0x7F,   0x80,   0x7FF,  0x800,  0xD7FF, 0xD800,
                                                     0xDBFF, 0xDC00, 0xDFFF, 0xE000, 0xFEFF, 0xFFFD, 0xFFFF};
  std::vector<Units> texts = {{}};
  for (std::size_t i = 0; i < texts.size() && texts[i].size() < 3; ++i) {
    for (const std::uint16_t unit : kBounds) {
      Units longer = texts[i];
      longer.push_back(unit);
      texts.push_back(longer);
    }
  }
  for (const Units& units : texts) {
    for (const int mode : kModes) {
      for (std::size_t room = 0; room <= size_in_utf8(units) + 1; ++room) {
        const std::string source = bytes_of(units);
        ASSERT_EQ(convert(source, room, mode), expected(units, false, room, mode))
            << testing::PrintToString(units);
        ASSERT_EQ(convert(source + '\x5A', room, mode), expected(units, true, room, mode))
            << testing::PrintToString(units);
      }
    }
  }
}

// A character of each class at each place of long runs, in every room: what is done a word at a time must
// stop where it would one by one.
TEST(Utf16ToUtf8, StopsAtTheSamePlaceInARun) {
  for (const std::uint16_t filler : Units{0x41, 0x7F, 0x80, 0x7FF, 0x20AC}) {
    for (const std::uint16_t odd : Units{0x00, 0x7F, 0x80, 0x7FF, 0x800, 0x8000, 0xFFFF, 0xD800, 0xDFFF}) {
      for (std::size_t place = 0; place < 11; ++place) {
        Units units(11, filler);
        units[place] = odd;
        for (std::size_t room = 0; room <= size_in_utf8(units); ++room) {
          for (const int mode : kModes) {
            ASSERT_EQ(convert(bytes_of(units), room, mode), expected(units, false, room, mode))
                << filler << ' ' << odd << ' ' << place << ' ' << room;
          }
        }
      }
    }
  }
}

TEST(Utf16ToUtf8, ConvertsRunsOfEveryLength) {
  for (const std::uint16_t filler : Units{0x41, 0xE9, 0x20AC}) {
    for (std::size_t length = 0; length <= 67; ++length) {
      const Units units(length, filler);
      ASSERT_EQ(convert(bytes_of(units), utf8_of(filler).size() * length, KELO_UNICODE_STRICT),
                expected(units, false, 999, KELO_UNICODE_STRICT));
    }
  }
}

TEST(Utf16ToUtf8, TakesEveryOtherFlagForLenient) {
  const std::string source = bytes_of({0xDC00});
  for (const int flags : {1, 2, -1, 256, 1 << 30}) {
    EXPECT_EQ(convert(source, 3, flags), (Outcome{KELO_UNICODE_COMPLETE, 2, "\xED\xB0\x80"})) << flags;
  }
}

TEST(Utf16ToUtf8, NamesItsResults) {
  EXPECT_EQ(0, KELO_UNICODE_COMPLETE);
  EXPECT_EQ(1, KELO_UNICODE_SOURCE_EXHAUSTED);
  EXPECT_EQ(2, KELO_UNICODE_TARGET_EXHAUSTED);
  EXPECT_EQ(3, KELO_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(0, KELO_UNICODE_STRICT);
  EXPECT_EQ(1, KELO_UNICODE_LENIENT);
}

// ---- Pointers ----

TEST(Utf16ToUtf8, ReadsAndWritesAtAnyAddress) {
  const std::string text =
      bytes_of({'a', 'b', 'c', 'd', 'e', 0xE9, 0xEA, 0xEB, 0xEC, 0xED, 0x20AC, 0xD83D, 0xDE00});
  const std::string utf8 = Iconv("UTF-8", kHostUtf16).convert(text);
  for (std::size_t source_offset = 0; source_offset < 9; ++source_offset) {
    for (std::size_t target_offset = 0; target_offset < 9; ++target_offset) {
      const ExactBuffer source = exactly(std::string(source_offset, 'x') + text);
      const ExactBuffer target(target_offset + utf8.size());
      const std::uint16_t* from = units_at(source.data() + source_offset);
      std::uint8_t* to = bytes_at(target.data() + target_offset);
      EXPECT_EQ(kelo_util_ConvertUTF16toUTF8(&from, units_at(source.data() + source.size()), &to,
                                             bytes_at(target.data() + target.size()), KELO_UNICODE_STRICT),
                KELO_UNICODE_COMPLETE);
      EXPECT_EQ(std::string(target_offset, ExactBuffer::kUntouched) + utf8, target.bytes());
    }
  }
}

TEST(Utf16ToUtf8, TakesAnEndBeforeItsStartForEmpty) {
  const ExactBuffer source = exactly(bytes_of({'a', 'b'}));
  const ExactBuffer target(8);
  const std::uint16_t* from = units_at(source.data() + 2);
  std::uint8_t* to = bytes_at(target.data() + 4);
  EXPECT_EQ(kelo_util_ConvertUTF16toUTF8(&from, units_at(source.data()), &to, bytes_at(target.data() + 8), 0),
            KELO_UNICODE_COMPLETE);
  EXPECT_EQ(kelo_util_ConvertUTF16toUTF8(&from, units_at(source.data() + 4), &to, bytes_at(target.data()), 0),
            KELO_UNICODE_TARGET_EXHAUSTED);
  EXPECT_EQ(units_at(source.data() + 2), from);
  EXPECT_EQ(bytes_at(target.data() + 4), to);
  EXPECT_TRUE(target.untouched());
}

TEST(Utf16ToUtf8, TakesNullForAnEmptyTextAndBuffer) {
  const LogCapture log;
  const std::string source = bytes_of({'a'});
  const std::uint16_t* from = nullptr;
  std::uint8_t* to = nullptr;
  EXPECT_EQ(kelo_util_ConvertUTF16toUTF8(&from, nullptr, &to, nullptr, 0), KELO_UNICODE_COMPLETE);
  from = units_at(source.data());
  EXPECT_EQ(kelo_util_ConvertUTF16toUTF8(&from, units_at(source.data() + 2), &to, nullptr, 0),
            KELO_UNICODE_TARGET_EXHAUSTED);
  EXPECT_EQ(units_at(source.data()), from);
  EXPECT_EQ(to, nullptr);
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Utf16ToUtf8, RefusesNullPointersAndChangesNothing) {
  const ExactBuffer source = exactly(bytes_of({'a'}));
  const ExactBuffer target(4);
  const std::uint16_t* const source_end = units_at(source.data() + 2);
  std::uint8_t* const target_end = bytes_at(target.data() + 4);
  const std::uint16_t* from = units_at(source.data());
  const std::uint16_t* no_source = nullptr;
  std::uint8_t* to = bytes_at(target.data());
  std::uint8_t* no_target = nullptr;

  const LogCapture log;
  EXPECT_EQ(kelo_util_ConvertUTF16toUTF8(nullptr, source_end, &to, target_end, 1),
            KELO_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(kelo_util_ConvertUTF16toUTF8(&no_source, source_end, &to, target_end, 1),
            KELO_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(kelo_util_ConvertUTF16toUTF8(&from, source_end, nullptr, target_end, 1),
            KELO_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(kelo_util_ConvertUTF16toUTF8(&from, source_end, &no_target, target_end, 1),
            KELO_UNICODE_SOURCE_ILLEGAL);
  EXPECT_EQ(
      log.count(LOG_LVL_ERR, "oem_util_ConvertUTF16toUTF8", "kelo_util_ConvertUTF16toUTF8 param NULL\n"), 4)
      << log.dump();
  EXPECT_EQ(log.lines().size(), 4u) << log.dump();
  EXPECT_EQ(units_at(source.data()), from);
  EXPECT_EQ(bytes_at(target.data()), to);
  EXPECT_TRUE(target.untouched());
}

TEST(Utf16ToUtf8, KeepsErrno) {
  errno = E2BIG;
  convert(bytes_of({0xD800}), 0, KELO_UNICODE_STRICT);
  EXPECT_EQ(errno, E2BIG);
}

}  // namespace
