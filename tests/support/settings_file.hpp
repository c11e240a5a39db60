// A settings file, and looks at it through the library's reads.
#ifndef KELO_TESTS_SUPPORT_SETTINGS_FILE_HPP
#define KELO_TESTS_SUPPORT_SETTINGS_FILE_HPP

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "kelo_utils/ini.h"
#include "tests/support/database.hpp"
#include "tests/support/exact_buffer.hpp"

namespace kelo::tests {

inline constexpr char kSettings[] = "/tmp/settings.ini";
inline constexpr char kAbsent[] = "(absent)";

// The value of a key, or kAbsent.
inline std::string value_of(const char* section, const char* key, const std::string& path = kSettings) {
  const ExactBuffer buffer(1024);
  const int length =
      ini_gets(section, key, kAbsent, buffer.data(), static_cast<int>(buffer.size()), path.c_str());
  EXPECT_EQ(static_cast<std::size_t>(length), std::string(buffer.data()).size());
  return buffer.data();
}

// The value that the text behind the separator stands for.
inline std::string value_of_text(std::string_view text) {
  write_file(kSettings, "k=" + std::string(text) + "\n");
  return value_of(nullptr, "k");
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_SETTINGS_FILE_HPP
