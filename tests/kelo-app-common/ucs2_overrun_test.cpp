// SPDX-License-Identifier: MIT
// The UCS-2 conversions on top of a conversion that does not keep to its buffer: the program's own takes the
// place of the archive's.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::ExactBuffer;
using kelo::tests::LogCapture;

const std::string kOverrun =
    "Bug in kelo_util_ConvertUTF16toUTF8. Buffer overrun detected. Size 7 greater than ";

constexpr std::ptrdiff_t kClaimed = 7;  // bytes that the conversion says it wrote
int seen_flags = -1;
std::size_t seen_room = 0;

std::size_t bytes_between(const void* start, const void* end) {
  return static_cast<std::size_t>(static_cast<const char*>(end) - static_cast<const char*>(start));
}

}  // namespace

int kelo_util_ConvertUTF16toUTF8(const std::uint16_t** source_start, const std::uint16_t* source_end,
                                 std::uint8_t** target_start, std::uint8_t* target_end, int flags) {
  seen_flags = flags;
  seen_room = bytes_between(*target_start, target_end);
  *source_start = source_end;
  *target_start += kClaimed;
  return KELO_UNICODE_COMPLETE;
}

int kelo_util_ConvertUTF8toUTF16(const std::uint8_t** source_start, const std::uint8_t* source_end,
                                 std::uint16_t** target_start, std::uint16_t* target_end, int flags) {
  seen_flags = flags;
  seen_room = bytes_between(*target_start, target_end);
  *source_start = source_end;
  *target_start = reinterpret_cast<std::uint16_t*>(reinterpret_cast<char*>(*target_start) + kClaimed);
  return KELO_UNICODE_COMPLETE;
}

namespace {

TEST(Ucs2Overrun, IsReportedAndTheTextEndsWithItsBuffer) {
  const LogCapture log;
  const ExactBuffer out(4);
  const std::uint8_t ucs2[2] = {'a', 0};
  EXPECT_EQ(kelo_util_convert_ucs2_to_utf8(ucs2, 2, out.data(), 4), 3);
  EXPECT_EQ(out.bytes(), std::string("ZZZ\0", 4));
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_util_convert_ucs2_to_utf8", kOverrun + "3\n"), 1) << log.dump();
  EXPECT_EQ(log.lines().size(), 1u) << log.dump();
  EXPECT_EQ(seen_flags, KELO_UNICODE_LENIENT);
}

TEST(Ucs2Overrun, IsNoneAtTheBoundOfTheBuffer) {
  const LogCapture log;
  const ExactBuffer out(8);
  const std::uint8_t ucs2[2] = {'a', 0};
  EXPECT_EQ(kelo_util_convert_ucs2_to_utf8(ucs2, 2, out.data(), 8), 7);
  EXPECT_EQ(out.bytes(), std::string("ZZZZZZZ\0", 8));
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(Ucs2Overrun, IsReportedByTheOtherDirectionToo) {
  for (const std::size_t size : {0U, 1U, 2U, 3U, 8U}) {
    const LogCapture log;
    const ExactBuffer out(size);
    const std::size_t room = size < 2 ? 0 : size - 2;
    EXPECT_EQ(static_cast<int>(room),
              kelo_util_convert_utf8_to_ucs2("a", 1, reinterpret_cast<std::uint8_t*>(out.data()), size));
    EXPECT_EQ(out.bytes(), std::string(room, 'Z') + std::string(size - room, '\0'));
    EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_util_convert_utf8_to_ucs2", kOverrun + std::to_string(room) + "\n"),
              1)
        << log.dump();
    EXPECT_EQ(log.lines().size(), 1u) << log.dump();
    EXPECT_EQ(seen_flags, KELO_UNICODE_STRICT);
  }
}

TEST(Ucs2Overrun, IsNoneAtTheBoundOfTheBufferInTheOtherDirection) {
  const LogCapture log;
  const ExactBuffer out(9);
  EXPECT_EQ(kelo_util_convert_utf8_to_ucs2("a", 1, reinterpret_cast<std::uint8_t*>(out.data()), 9), 7);
  EXPECT_EQ(out.bytes(), "ZZZZZZZ" + std::string(2, '\0'));
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

#if SIZE_MAX > UINT32_MAX
// A length is an int: what is beyond one of a larger buffer is never handed to a conversion.
TEST(Ucs2Overrun, IsKeptFromLengthsThatNoIntHolds) {
  const ExactBuffer out(16);
  auto* const bytes = reinterpret_cast<std::uint8_t*>(out.data());
  constexpr std::size_t kMost = INT_MAX;
  for (const std::size_t size : {kMost - 1, kMost, kMost + 1, 2 * kMost + 2, 4 * kMost}) {
    EXPECT_EQ(kelo_util_convert_ucs2_to_utf8(bytes, 2, out.data(), size), kClaimed);
    EXPECT_EQ(std::min(size, kMost) - 1, seen_room) << size;
    EXPECT_EQ(kelo_util_convert_utf8_to_ucs2("a", 1, bytes, size), kClaimed);
    EXPECT_EQ(std::min(size, kMost) - 2, seen_room) << size;
  }
}
#endif

}  // namespace
