// SPDX-License-Identifier: MIT
// A settings file, and looks at it through the library's reads.
#ifndef KELO_TESTS_SUPPORT_SETTINGS_FILE_HPP
#define KELO_TESTS_SUPPORT_SETTINGS_FILE_HPP

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <string_view>

#include "kelo_utils/ini.h"
#include "tests/support/database.hpp"
#include "tests/support/exact_buffer.hpp"

namespace kelo::tests {

inline constexpr char kSettings[] = "/tmp/settings.ini";
inline constexpr char kCopy[] = "/tmp/settings.in~";
inline constexpr char kAbsent[] = "(absent)";

// The value of a key, or kAbsent.
inline std::string value_of(const char* section, const char* key, const std::string& path = kSettings) {
  const ExactBuffer buffer(1024);
  const int length =
      ini_gets(section, key, kAbsent, buffer.data(), static_cast<int>(buffer.size()), path.c_str());
  EXPECT_EQ(static_cast<std::size_t>(length), std::string(buffer.data()).size());
  return buffer.data();
}

// The value that the text after the separator means.
inline std::string value_of_text(std::string_view text) {
  write_file(kSettings, "k=" + std::string(text) + "\n");
  return value_of(nullptr, "k");
}

// What a change leaves of a file that held `before`. The change is expected to answer with 1.
template <typename Change>
std::string after(std::string_view before, Change change) {
  write_file(kSettings, before);
  EXPECT_EQ(change(), 1);
  EXPECT_FALSE(file_exists(kCopy)) << "the copy is left";
  return read_file(kSettings);
}

inline int put(const char* section, const char* key, const char* value) {
  return ini_puts(section, key, value, kSettings);
}

inline std::string after_put(std::string_view before, const char* section, const char* key,
                             const char* value) {
  return after(before, [=] { return put(section, key, value); });
}

// Tells one file from another that has its name later.
inline ino_t inode_of(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_ino;
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_SETTINGS_FILE_HPP
