// SPDX-License-Identifier: MIT
// Files of 3 GiB, whose sizes and offsets a 32-bit off_t does not hold. They are holes but for their beginning, and
// take no space.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/file_ops.h"
#include "kelo_utils/ini.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::LogCapture;

constexpr std::int64_t kSize = std::int64_t{3} << 30;
constexpr char kPath[] = "/tmp/large";

void make_large(const char* path, std::string_view beginning) {
  kelo::tests::write_file(path, std::string(beginning));
  ASSERT_EQ(truncate64(path, kSize), 0);
}

std::int64_t size_of(const char* path) {
  struct stat64 status {};
  EXPECT_EQ(stat64(path, &status), 0) << path;
  return status.st_size;
}

std::string beginning_of(const char* path, std::size_t length) {
  std::string text(length, '\0');
  const int file = open64(path, O_RDONLY);
  EXPECT_EQ(read(file, text.data(), length), static_cast<ssize_t>(length));
  close(file);
  return text;
}

TEST(LargeFiles, AreReadFromTheBeginning) {
  make_large(kPath, "abcdef");
  LogCapture log;
  std::array<char, 4> buffer{};
  EXPECT_EQ(kelo_read_file(kPath, buffer.data(), buffer.size()), 0);
  EXPECT_EQ(std::string_view(buffer.data(), 4), "abcd");
  buffer = {};
  EXPECT_EQ(kelo_read_file_with_reading_length_returned(kPath, buffer.data(), 4), 4);
  EXPECT_EQ(std::string_view(buffer.data(), 4), "abcd");
  EXPECT_TRUE(log.lines().empty()) << log.dump();
}

TEST(LargeFiles, AreOverwrittenAtTheBeginning) {
  for (const auto write : {kelo_write_file, kelo_write_file_sync, kelo_write_file_sync_create}) {
    make_large(kPath, "abcdef");
    EXPECT_EQ(write(kPath, "ABC", 3), 0);
    EXPECT_EQ(beginning_of(kPath, 3), "ABC");
  }
}

TEST(LargeFiles, AreFullForTheWatchLog) {
  constexpr char kFileA[] = "/data/oem/logs/fwawatchA.log";
  constexpr char kFileB[] = "/data/oem/logs/fwawatchB.log";
  ASSERT_EQ(mkdir("/data/oem", 0777), 0);
  ASSERT_EQ(mkdir("/data/oem/logs", 0777), 0);
  make_large(kFileA, "");
  EXPECT_EQ(oem_watch("f", 1, "first"), 0);
  EXPECT_EQ(size_of(kFileA), kSize) << "a file that is full is left for the other";
  EXPECT_GT(size_of(kFileB), 0);
  make_large(kFileB, "");
  EXPECT_EQ(oem_watch("f", 2, "second"), 0);
  EXPECT_LT(size_of(kFileA), 100) << "with both full the first is emptied";
  EXPECT_EQ(size_of(kFileB), kSize);
}

TEST(LargeFiles, HoldSettingsAtTheBeginning) {
  make_large(kPath, "[net]\nmode=bridge\n");
  std::array<char, 16> value{};
  EXPECT_EQ(ini_gets("net", "mode", "", value.data(), value.size(), kPath), 6);
  EXPECT_STREQ(value.data(), "bridge");
  EXPECT_EQ(ini_puts("net", "mode", "router", kPath), 1);
  EXPECT_EQ(beginning_of(kPath, 18), "[net]\nmode=router\n");
  EXPECT_EQ(size_of(kPath), kSize);
}

TEST(LargeFiles, AreReplacedByTheBackup) {
  kelo_dm_item_desc item{};
  make_large(DB_CONFIGBAK, "");
  std::snprintf(item.item_table, sizeof item.item_table, "settings");
  std::snprintf(item.item_key, sizeof item.item_key, "mode");
  item.type = KELO_DM_TYPE_STRING;
  EXPECT_EQ(dm_sqlite_write(1, &item, "router", 6), 0);
  EXPECT_EQ(size_of(DB_CONFIGBAK), size_of(DB_CONFIG));
  std::array<char, 16> value{};
  EXPECT_GE(dm_sqlite_read(1, &item, value.data(), value.size()), 0);
  EXPECT_STREQ(value.data(), "router");
}

}  // namespace
