// SPDX-License-Identifier: MIT
// A flash with hardly any space left: /data of this sandbox holds a megabyte.
#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include <filesystem>
#include <ostream>
#include <string>

#include "kelo_utils/sqlite.h"
#include "tests/support/store_settings.hpp"

namespace {

using namespace kelo::tests;

// How much is free beside two database files of about 380 KB each: less than a third one in all cases.
class StoreFullFlash : public StoreTest, public testing::WithParamInterface<std::uintmax_t> {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    ASSERT_LT(std::filesystem::space("/data").capacity, 1'100'000U)
        << "the sandbox made /data as it always is";
    ASSERT_EQ(put("image", std::string(360'000, 'x'), "bulk"), 0);
    const std::uintmax_t free = std::filesystem::space("/data").available;
    ASSERT_GT(free, GetParam());
    write_file("/data/filler", std::string(static_cast<std::size_t>(free - GetParam()), 'f'));
    ASSERT_LE(std::filesystem::space("/data").available, GetParam());
  }
};

TEST_P(StoreFullFlash, AWriteIsReadableAfterwards) {
  for (const std::string value : {"second", "third"}) {
    EXPECT_EQ(put("apn", value), 0);
    EXPECT_EQ(get("apn"), value);
    EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE);
  }
  start_and([] {
    EXPECT_EQ(get("apn"), "third");
    expect_others_kept();
  });
  EXPECT_EQ(scalar(DB_CONFIG, "pragma integrity_check"), "ok");
  EXPECT_EQ(scalar(DB_CONFIGBAK, "pragma integrity_check"), "ok");
}

TEST_P(StoreFullFlash, AWriteThatDoesNotFitLeavesTheOldValues) {
  static_cast<void>(put("large", std::string(static_cast<std::size_t>(GetParam()) + 100'000, 'y')));
  EXPECT_EQ(get("apn"), "internet");
  expect_others_kept();
  std::filesystem::remove("/data/filler");
  EXPECT_EQ(put("apn", "second"), 0);
  EXPECT_EQ(get("apn"), "second");
  expect_others_kept();
}

INSTANTIATE_TEST_SUITE_P(Free, StoreFullFlash, testing::Values(147'000, 60'000),
                         [](const auto& free) { return std::to_string(free.param) + "_bytes"; });

}  // namespace
