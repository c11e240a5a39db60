// SPDX-License-Identifier: MIT
// The line that names a file which the store cannot use, on real obstacles. /data of this sandbox holds a megabyte.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/store_settings.hpp"

namespace {

using kelo::tests::LogCapture;
using kelo::tests::put;
using kelo::tests::run_in_child;
using testing::ElementsAre;

constexpr char kAdvice[] = ". Check its folder, its mode and the space, or move it away\n";

std::vector<std::string> problems(const LogCapture& log) {
  std::vector<std::string> texts;
  for (const auto& line : log.lines()) {
    if (line.function != "sqlite") continue;
    EXPECT_EQ(line.level, LOG_LVL_ERR);
    texts.push_back(line.text);
  }
  return texts;
}

// Runs a daemon in a process of its own, which has logged nothing yet.
void daemon(const std::function<void()>& body) {
  const auto child = run_in_child([&] {
    alarm(120);
    body();
  });
  EXPECT_EQ(child.signal, 0);
  EXPECT_EQ(child.exit_status, 0) << child.standard_output << child.standard_error;
}

void register_twice_and_write() {
  for (int i = 0; i < 2; ++i) {
    kelo_dm_operations operations{};
    sqlite_reg(&operations);
    EXPECT_EQ(put("apn", "internet"), -1);
  }
}

void fill_data() {
  std::FILE* const filler = std::fopen("/data/filler", "w");
  ASSERT_NE(filler, nullptr);
  const std::array<char, 4096> block{};
  while (std::fwrite(block.data(), 1, block.size(), filler) == block.size()) {
  }
  std::fclose(filler);
  ASSERT_EQ(std::filesystem::space("/data").available, 0U);
}

TEST(FileProblem, MissingFolderIsNamedOnce) {
  daemon([] {
    LogCapture log;
    sqlite_reg_store_area("/nowhere/", "/nowhere/");
    register_twice_and_write();
    EXPECT_THAT(problems(log),
                ElementsAre(std::string("/nowhere/config.db: No such file or directory") + kAdvice));
    EXPECT_LT(1, log.count(LOG_LVL_ERR, "sqlite3_open failed: unable to open database file\n"));
  });
}

TEST(FileProblem, ReadOnlyFileSystem) {
  daemon([] {
    LogCapture log;
    sqlite_reg_store_area("/usr/", "/usr/");
    register_twice_and_write();
    EXPECT_THAT(problems(log), ElementsAre(std::string("/usr/config.db: Read-only file system") + kAdvice));
  });
}

TEST(FileProblem, FolderThatMayNotBeWritten) {
  if (geteuid() == 0) GTEST_SKIP() << "root may write each folder";
  daemon([] {
    LogCapture log;
    ASSERT_EQ(mkdir("/data/locked", 0555), 0);
    sqlite_reg_store_area("/data/locked/", "/data/locked/");
    register_twice_and_write();
    EXPECT_THAT(problems(log),
                ElementsAre(std::string("/data/locked/config.db: Permission denied") + kAdvice));
  });
}

TEST(FileProblem, FolderInThePlaceOfTheFile) {
  daemon([] {
    LogCapture log;
    ASSERT_EQ(mkdir("/data/state.db", 0755), 0);
    EXPECT_EQ(dm_write_state_db("net", 7, "ssid", 5, 4, WS_READY), -1);
    EXPECT_THAT(problems(log), ElementsAre(std::string("/data/state.db: Is a directory") + kAdvice));
  });
}

TEST(FileProblem, FullFileSystemAtTheFirstStart) {
  fill_data();
  daemon([] {
    LogCapture log;
    register_twice_and_write();
    EXPECT_THAT(problems(log),
                ElementsAre(std::string("/data/config.db: No space left on device") + kAdvice));
  });
}

TEST(FileProblem, FileSystemThatBecomesFull) {
  daemon([] {
    kelo_dm_operations operations{};
    sqlite_reg(&operations);
    EXPECT_EQ(put("apn", "internet"), 0);
    fill_data();
    LogCapture log;
    static_cast<void>(put("large", std::string(200'000, 'y')));
    static_cast<void>(put("large", std::string(200'000, 'y')));
    EXPECT_THAT(problems(log),
                ElementsAre(std::string("/data/config.db: No space left on device") + kAdvice));
  });
}

TEST(FileProblem, ForeignFile) {
  kelo::tests::write_file("/data/config.db", std::string(4096, 'x'));
  daemon([] {
    LogCapture log;
    register_twice_and_write();
    EXPECT_THAT(problems(log), ElementsAre(std::string("/data/config.db: file is not a database") + kAdvice));
  });
}

TEST(FileProblem, GoodFilesAreNotNamed) {
  daemon([] {
    LogCapture log;
    kelo_dm_operations operations{};
    sqlite_reg(&operations);
    EXPECT_EQ(put("apn", "internet"), 0);
    EXPECT_THAT(problems(log), ElementsAre());
  });
}

TEST(FileProblem, WhatReceivesTheLineMayUseTheStore) {
  daemon([] {
    static int lines = 0;
    kelo_set_log_tool_enable(0);
    set_print_interface([](const char* line) {
      if (std::strstr(line, kAdvice) == nullptr) return;
      ++lines;
      char value = 0;
      EXPECT_LT(dm_pal_read_by_key("net", "apn", &value, 1), 0);
      EXPECT_EQ(dm_pal_check_db_exist(), -1);
    });
    sqlite_reg_store_area("/nowhere/", "/nowhere/");
    register_twice_and_write();
    EXPECT_EQ(lines, 1);
  });
}

}  // namespace
