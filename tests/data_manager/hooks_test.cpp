// SPDX-License-Identifier: MIT
// A program may define the hooks of the storage itself, with the shared library and with the archive.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "kelo_utils/data_manager.h"
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

// The exit status is the line of the claim that failed.
TEST(Hooks, ProgramsOwnWinWithTheSharedLibrary) { EXPECT_EQ(exit_status("hooks_program_kelo_utils"), 0); }

TEST(Hooks, ProgramsOwnWinWithTheArchive) { EXPECT_EQ(exit_status("hooks_program_kelo_utils_static"), 0); }

}  // namespace
