// SPDX-License-Identifier: MIT
// One conversion of UTF-8 to UTF-16, and what became of it.
#ifndef KELO_TESTS_UTF8_CONVERSION_HPP
#define KELO_TESTS_UTF8_CONVERSION_HPP

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "kelo_utils/app_common.h"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/unicode_oracle.hpp"

namespace kelo::tests {

inline constexpr std::array<int, 2> kModes = {KELO_UNICODE_STRICT, KELO_UNICODE_LENIENT};

inline const std::uint8_t* bytes_at(const char* bytes) {
  return reinterpret_cast<const std::uint8_t*>(bytes);
}
inline std::uint16_t* units_at(char* bytes) { return reinterpret_cast<std::uint16_t*>(bytes); }

struct Utf8Outcome {
  int result;
  std::size_t source_bytes;  // converted
  std::string written;       // bytes of units

  bool operator==(const Utf8Outcome&) const = default;
};

inline void PrintTo(const Utf8Outcome& outcome, std::ostream* out) {
  *out << "result " << outcome.result << " after " << outcome.source_bytes
       << " bytes: " << testing::PrintToString(outcome.written);
}

// Converts between exactly these blocks and checks that nothing else of the target is written.
inline Utf8Outcome convert_utf8(const ExactBuffer& source, const ExactBuffer& target, int mode) {
  const std::uint8_t* from = bytes_at(source.data());
  std::uint16_t* to = units_at(target.data());
  const int result = kelo_util_ConvertUTF8toUTF16(&from, from + source.size(), &to,
                                                  units_at(target.data() + target.size()), mode);
  const auto written = static_cast<std::size_t>(reinterpret_cast<char*>(to) - target.data());
  EXPECT_TRUE(std::all_of(target.data() + written, target.data() + target.size(),
                          [](char byte) { return byte == ExactBuffer::kUntouched; }));
  return {result, static_cast<std::size_t>(from - bytes_at(source.data())), {target.data(), written}};
}

inline Utf8Outcome convert_utf8(std::string_view source, std::size_t room, int mode) {
  return convert_utf8(exactly(source), ExactBuffer(room), mode);
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_UTF8_CONVERSION_HPP
