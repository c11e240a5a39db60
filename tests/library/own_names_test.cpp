// SPDX-License-Identifier: MIT
// Programs that have a function of their own whose name happens to be that of an export.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/reference_crc.hpp"

namespace {

using kelo::tests::item_rows;
using kelo::tests::ItemRow;
using kelo::tests::reference_crc;
using testing::ElementsAre;

int exit_status(const std::string& program) {
  const int status = std::system(kelo::tests::shell_command(KELO_BINARY_DIR "/tests/" + program).c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The exit status is the line of the claim that failed.
TEST(OwnNames, ChangeNothingInTheLibrary) {
  ASSERT_EQ(exit_status("own_names_program"), 0);
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK}) {
    EXPECT_EQ(check_database_health(path), 0) << path;
    const ItemRow row = {7, "SSID", KELO_DM_TYPE_STRING, 5, reference_crc("cabin"), "cabin"};
    EXPECT_THAT(item_rows(path, "NET_TAB"), ElementsAre(row)) << path;
  }
}

}  // namespace
