// SPDX-License-Identifier: MIT
// kelo_dm_use_sqlite(): the library's own hooks use the SQLite back-end, and those of a program win over them.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/settings.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/emulation.hpp"

namespace {

constexpr std::int32_t kApn = 5;

kelo_dm_item items[] = {
    KELO_DM_TEXT_ITEM(kApn, "net", "apn", "internet"),
    KELO_DM_END,
};

std::string stored_apn(kelo_dm_handle* handle) {
  char value[32];
  std::int32_t len = 0;
  return kelo_dm_get(handle, kApn, value, sizeof value, &len) == 0 ? std::string(value, value + len) : "none";
}

int exit_status(const std::string& program) {
  const int status = std::system(kelo::tests::shell_command(KELO_BINARY_DIR "/tests/" + program).c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(UseSqlite, GivesTheOperationsToEveryNewHandle) {
  kelo_dm_handle* const before = kelo_dm_reg(0);
  kelo_dm_use_sqlite();
  const kelo_dm_operations empty = {};
  EXPECT_EQ(std::memcmp(&before->operations, &empty, sizeof empty), 0) << "an older handle has changed";
  for (int repetition = 0; repetition < 2; ++repetition) {
    kelo_dm_handle* const handle = kelo_dm_reg(repetition);
    kelo_dm_operations expected = {};
    sqlite_reg(&expected);
    EXPECT_EQ(std::memcmp(&handle->operations, &expected, sizeof expected), 0);
    EXPECT_EQ(kelo_dm_unreg(handle), 0);
    kelo_dm_use_sqlite();
  }
  EXPECT_EQ(kelo_dm_unreg(before), 0);
}

TEST(UseSqlite, ValuesAreStoredInTheDatabase) {
  kelo_dm_use_sqlite();
  EXPECT_FALSE(std::filesystem::exists(DB_CONFIG));
  kelo_dm_handle* const handle = kelo_dm_reg(0);
  ASSERT_EQ(kelo_dm_reg_def_items(items), 0);
  EXPECT_EQ(stored_apn(handle), "internet");
  EXPECT_EQ(kelo_dm_write_verified(handle, kApn, "wireless", 8), 0);
  EXPECT_EQ(stored_apn(handle), "wireless");
  EXPECT_TRUE(std::filesystem::exists(DB_CONFIG));
  EXPECT_EQ(kelo_dm_unreg(handle), 0);
}

TEST(UseSqlite, StoreAreaIsMoved) {
  const std::string before = DB_CONFIG;
  EXPECT_EQ(kelo_dm_reg_store_area("/tmp/", "/tmp/"), 0);
  EXPECT_EQ(DB_CONFIG, before) << "without a back-end there is nothing to move";
  kelo_dm_use_sqlite();
  EXPECT_EQ(kelo_dm_reg_store_area("/tmp/", nullptr), 0);
  EXPECT_STREQ(DB_CONFIG, "/tmp/config.db");
  EXPECT_STREQ(DB_CONFIGBAK, "/data/configbak.db");
}

TEST(UseSqlite, VersionsAreCompared) {
  const std::uint32_t version = SQL_VER;
  constexpr std::uint32_t kType = KELO_DM_TYPE_SCALAR3;
  ASSERT_EQ(dm_pal_write(SQL_VER_TAB, SQL_VER_ID, SQL_VER_KEY, kType, &version, sizeof version), 0);
  ASSERT_EQ(dm_write_def_db(SQL_VER_TAB, SQL_VER_KEY, kType, &version, sizeof version), 0);
  int matched = 5;
  EXPECT_EQ(kelo_dm_check_db_version_match(&matched), 0);
  EXPECT_EQ(matched, 5) << "without a back-end nothing is compared";
  kelo_dm_use_sqlite();
  EXPECT_EQ(kelo_dm_check_db_version_match(&matched), 0);
  EXPECT_EQ(matched, 1);
}

TEST(UseSqlite, HealthIsThatOfTheDatabase) {
  EXPECT_EQ(dm_pal_check_db_health(), 0);
  kelo_dm_use_sqlite();
  EXPECT_EQ(dm_pal_check_db_health(), check_database_health(DB_CONFIG));
  EXPECT_NE(dm_pal_check_db_health(), 0) << "there is no file yet";
}

// The exit status is the line of the claim that failed.
TEST(UseSqlite, HookOfTheProgramWinsWithTheSharedLibrary) {
  EXPECT_EQ(exit_status("use_sqlite_program_kelo_utils"), 0);
}

TEST(UseSqlite, HookOfTheProgramWinsWithTheArchive) {
  EXPECT_EQ(exit_status("use_sqlite_program_kelo_utils_static"), 0);
}

}  // namespace
