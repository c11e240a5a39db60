// SPDX-License-Identifier: MIT
// A program may define the hooks of the storage itself, with the shared library and with the archive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "tests/support/child_process.hpp"
#include "tests/support/emulation.hpp"

namespace {

int exit_status(const std::string& program) {
  const int status = std::system(kelo::tests::shell_command(KELO_BINARY_DIR "/tests/" + program).c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// This program defines none of the hooks.
TEST(Hooks, LibrarysOwnDoNothing) {
  kelo_dm_operations operations;
  std::memset(&operations, 0x5A, sizeof operations);
  const kelo_dm_operations before = operations;
  dm_pal_reg(1, &operations);
  EXPECT_EQ(std::memcmp(&before, &operations, sizeof operations), 0);
  dm_pal_reg(1, nullptr);

  int matched = 5;
  EXPECT_EQ(dm_pal_check_db_version_match(&matched), 0);
  EXPECT_EQ(kelo_dm_check_db_version_match(&matched), 0);
  EXPECT_EQ(matched, 5);
  EXPECT_EQ(kelo_dm_check_db_version_match(nullptr), 0);
  EXPECT_EQ(dm_pal_reg_store_area("/a/", "/b/"), 0);
  EXPECT_EQ(kelo_dm_reg_store_area("/a/", "/b/"), 0);
  EXPECT_EQ(kelo_dm_reg_store_area(nullptr, nullptr), 0);
  EXPECT_EQ(dm_pal_check_db_health(), 0);

  kelo_dm_handle* const handle = kelo_dm_reg(1);
  const kelo_dm_operations empty = {};
  EXPECT_EQ(std::memcmp(&empty, &handle->operations, sizeof empty), 0);
  EXPECT_EQ(kelo_dm_unreg(handle), 0);
}

TEST(Hooks, MissingBackEndIsNamedBeforeTheProcessEnds) {
  const auto child = kelo::tests::run_in_child([] {
    kelo_set_log_tool_enable(0);
    set_print_interface([](const char* line) { std::fputs(line, stderr); });
    static std::array<kelo_dm_item, 2> items = {
        {KELO_DM_ITEM(7, "TAB", "KEY", KELO_DM_TYPE_SCALAR3, 0, 4), KELO_DM_END}};
    kelo_dm_handle* const handle = kelo_dm_reg(1);
    kelo_dm_reg_def_items(items.data());
    kelo_dm_write(handle, 7, "x", 1);
  });
  EXPECT_EQ(child.signal, SIGABRT);
  EXPECT_THAT(child.standard_output, testing::MatchesRegex("data_manager/kelo_app_dm.c, line: [0-9]+\n"));
  EXPECT_THAT(child.standard_error,
              testing::EndsWith("no storage back-end is registered: link kelo_utils_sqlite\n"));
  EXPECT_THAT(child.standard_error, testing::HasSubstr("=ERR="));
}

// The exit status is the line of the claim that failed.
TEST(Hooks, ProgramsOwnWinWithTheSharedLibrary) { EXPECT_EQ(exit_status("hooks_program_kelo_utils"), 0); }

TEST(Hooks, ProgramsOwnWinWithTheArchive) { EXPECT_EQ(exit_status("hooks_program_kelo_utils_static"), 0); }

}  // namespace
