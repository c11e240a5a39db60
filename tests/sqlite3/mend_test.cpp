// SPDX-License-Identifier: MIT
// Damage to the primary that SQLite's quick check does not see: the next write brings back from the backup what the
// primary does not hold any more, before the primary is copied over it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "kelo_utils/sqlite.h"
#include "tests/support/store_settings.hpp"

namespace {

using namespace kelo::tests;

class StoreMend : public StoreTest {
 protected:
  static void spoil(const char* path, const std::string& key) {
    execute_sql(path, "update net set crc = crc + 1 where key = '" + key + "'");
  }
  static ino_t primary_inode() {
    struct stat status {};
    EXPECT_EQ(stat(DB_CONFIG, &status), 0);
    return status.st_ino;
  }
  static void expect_kept_by_a_write_of_another_item() {
    EXPECT_EQ(put("name", "cabin", "lan"), 0);
    EXPECT_EQ(get("apn"), "internet");
    EXPECT_EQ(get("mtu"), "1500");
    EXPECT_EQ(get("name", "lan"), "cabin");
    expect_backup_equals_primary();
  }
};

TEST_F(StoreMend, ARowThatDoesNotMatchItsChecksum) {
  spoil(DB_CONFIG, "apn");
  expect_kept_by_a_write_of_another_item();
}

TEST_F(StoreMend, ARowThatLostItsKey) {
  execute_sql(DB_CONFIG, "update net set key = 'aqn' where key = 'apn'");
  expect_kept_by_a_write_of_another_item();
}

TEST_F(StoreMend, ARowOfEachFile) {
  spoil(DB_CONFIG, "apn");
  spoil(DB_CONFIGBAK, "mtu");
  expect_kept_by_a_write_of_another_item();
}

TEST_F(StoreMend, ATableThatTakesNoRows) {
  execute_sql(DB_CONFIG,
              "pragma writable_schema = on;"
              "update sqlite_master set sql = replace(sql, 'len integer', 'lex integer')");
  expect_kept_by_a_write_of_another_item();
}

TEST_F(StoreMend, AFileThatSaysThatItIsNotToBeWritten) {
  constexpr std::size_t kWriteVersion = 18;
  overwrite_file(DB_CONFIG, kWriteVersion, "\x11");
  expect_kept_by_a_write_of_another_item();
}

TEST_F(StoreMend, AFileThatMayNotBeWrittenIsLeft) {
  spoil(DB_CONFIG, "apn");
  const std::string before = read_file(DB_CONFIG);
  const ino_t inode = primary_inode();
  ASSERT_EQ(chmod(DB_CONFIG, 0444), 0);
  static_cast<void>(put("name", "cabin", "lan"));
  EXPECT_EQ(primary_inode(), inode);
  EXPECT_TRUE(read_file(DB_CONFIG) == before);
}

// --- What is no damage --------------------------------------------------------------------------------------

TEST_F(StoreMend, ANewerValueOfThePrimaryIsKept) {
  ASSERT_EQ(dm_write_db(DB_CONFIG, "net", 7, "apn", KELO_DM_TYPE_STRING, "second", 6), 0);
  EXPECT_EQ(put("mtu", "1492"), 0);
  EXPECT_EQ(get("apn"), "second");
}

TEST_F(StoreMend, AnEmptyValueOfThePrimaryIsKept) {
  ASSERT_EQ(dm_write_db(DB_CONFIG, "net", 7, "apn", KELO_DM_TYPE_STRING, "", 0), 0);
  EXPECT_EQ(put("mtu", "1492"), 0);
  EXPECT_EQ(get("apn"), "<-1>") << "as an empty value is read";
}

TEST_F(StoreMend, ADeletedRowStaysAway) {
  execute_sql(DB_CONFIG, "delete from net where key = 'mtu'");
  EXPECT_EQ(put("name", "cabin", "lan"), 0);
  EXPECT_EQ(get("mtu"), "<-1>");
  EXPECT_EQ(get("apn"), "internet");
}

// --- What cannot be mended ----------------------------------------------------------------------------------

TEST_F(StoreMend, ARowThatIsDamagedInBothFilesStaysSo) {
  spoil(DB_CONFIG, "apn");
  spoil(DB_CONFIGBAK, "apn");
  EXPECT_EQ(put("mtu", "1492"), 0);
  EXPECT_EQ(get("apn"), "<-102>");
  EXPECT_EQ(get("mtu"), "1492");
}

}  // namespace
