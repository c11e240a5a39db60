// SPDX-License-Identifier: MIT
// Programming errors, which end the process.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstring>
#include <functional>
#include <span>
#include <string>

#include "base/file.hpp"
#include "ini/bounded_copy.hpp"
#include "ini/change.hpp"
#include "kelo_utils/ini.h"
#include "tests/support/child_process.hpp"
#include "tests/support/exact_buffer.hpp"
#include "tests/support/settings_file.hpp"

namespace {

using kelo::ini::ini_strncpy;
using kelo::tests::ExactBuffer;
using kelo::tests::kSettings;
using kelo::tests::run_in_child;
using kelo::tests::write_file;

void expect_assertion(const std::string& operation, const std::function<void()>& body) {
  const auto ended = run_in_child(body);
  EXPECT_EQ(ended.signal, SIGABRT) << operation;
  EXPECT_NE(ended.standard_error.find(operation), std::string::npos) << ended.standard_error;
  EXPECT_NE(ended.standard_error.find("Assertion"), std::string::npos) << ended.standard_error;
}

TEST(IniAssertion, EndsTheProcessWhereTheDefaultIsInTheBuffer) {
  write_file(kSettings, "k=value\n");
  const ExactBuffer buffer("default", 16);
  for (const char* const inside : {buffer.data(), buffer.data() + 3}) {
    expect_assertion("ini_strncpy", [&] { ini_gets(nullptr, "none", inside, buffer.data(), 16, kSettings); });
    expect_assertion("ini_strncpy", [&] { ini_gets(nullptr, "k", inside, buffer.data(), 16, "/tmp/none"); });
    EXPECT_EQ(ini_gets(nullptr, "k", inside, ExactBuffer(16).data(), 16, kSettings), 5);
  }
  EXPECT_EQ(ini_gets(nullptr, "k", buffer.data(), buffer.data(), 16, kSettings), 5) << "not needed";
}

TEST(IniAssertion, EndsTheProcessWhereTextsOverlapABuffer) {
  std::array<char, 32> bytes{};
  std::memset(bytes.data(), 'x', bytes.size());
  const std::span<char> room(bytes.data() + 8, 8);
  for (const std::size_t at : {1U, 5U, 8U, 12U, 15U})
    expect_assertion("ini_strncpy", [&] { ini_strncpy(room, {bytes.data() + at, 8}); });
}

TEST(IniAssertion, CopiesTextsThatTouchABuffer) {
  std::array<char, 32> bytes{};
  std::memset(bytes.data(), 'x', bytes.size());
  const std::span<char> room(bytes.data() + 8, 8);
  for (const std::size_t at : {0U, 16U}) {
    bytes[at] = 'y';
    EXPECT_EQ(ini_strncpy(room, {bytes.data() + at, 8}), 7U);
    EXPECT_STREQ(room.data(), "yxxxxxx");
  }
}

TEST(IniAssertion, EndsTheProcessForACopyIntoNoRoom) {
  std::array<char, 2> bytes{'a', 'b'};
  expect_assertion("ini_strncpy", [&] { ini_strncpy({bytes.data(), std::size_t{0}}, "x"); });
  EXPECT_EQ(ini_strncpy({bytes.data(), 1}, "x"), 0U);
  EXPECT_EQ(bytes, (std::array<char, 2>{'\0', 'b'}));
}

TEST(IniAssertion, EndsTheProcessForAChangeToNoFile) {
  for (const char* const key : {"k", static_cast<const char*>(nullptr)})
    expect_assertion("ini_puts", [=] { ini_puts("s", key, "v", nullptr); });
  expect_assertion("ini_puts", [] { ini_putl("s", "k", 1, nullptr); });
  expect_assertion("ini_puts", [] { ini_putf("s", "k", 1, nullptr); });
}

TEST(IniAssertion, EndsTheProcessForAChunkThatIsLongerThanTheCache) {
  write_file(kSettings, std::string(1000, 'x'));
  const auto from = kelo::base::open_file(kSettings, O_RDONLY);
  const auto to = kelo::base::open_file("/tmp/copy", O_WRONLY | O_CREAT, 0600);
  EXPECT_EQ(kelo::ini::cache_flush(from.get(), 0, 512, to.get()), 512U);
  EXPECT_EQ(kelo::ini::cache_flush(from.get(), 512, 512, to.get()), 488U);
  EXPECT_EQ(kelo::ini::cache_flush(from.get(), 1000, 512, to.get()), 0U);
  expect_assertion("cache_flush", [&] { kelo::ini::cache_flush(from.get(), 0, 513, to.get()); });
  EXPECT_EQ(kelo::tests::read_file("/tmp/copy"), std::string(1000, 'x'));
}

}  // namespace
