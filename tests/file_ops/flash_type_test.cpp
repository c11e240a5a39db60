// SPDX-License-Identifier: MIT
// What kind of memory the system runs from, told by a partition table of the test's own.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "kelo_utils/file_ops.h"
#include "tests/support/database.hpp"
#include "tests/support/leaves_nothing.hpp"
#include "tests/support/own_tools.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using kelo::tests::CallTrace;
using kelo::tests::Fault;
using kelo::tests::make_script;

class FlashType : public kelo::tests::LeavesNothing {
 protected:
  void TearDown() override {
    EXPECT_TRUE(log.lines().empty()) << log.dump();
    LeavesNothing::TearDown();
  }

  // Puts this in the place of what the kernel tells.
  static void tell(const std::string& table) {
    kelo::tests::write_file("/tmp/partitions", table);
    make_script("cat", R"([ "$*" = /proc/partitions ] && exec /bin/cat /tmp/partitions)");
    ASSERT_EQ(setenv("PATH", "/tmp/t/bin:/usr/bin:/bin", 1), 0);
  }
};

constexpr char kHead[] = "major minor  #blocks  name\n\n";

TEST_F(FlashType, KnowsAnMtdDevice) {
  tell(std::string(kHead) + "  31        0       1024 mtdblock0\n");
  EXPECT_EQ(get_flash_type(), 1);
}

TEST_F(FlashType, KnowsManyMtdDevices) {
  std::string table = kHead;
  for (int i = 0; i < 20000; ++i) table += "  31        0       1024 mtdblock" + std::to_string(i) + "\n";
  tell(table);
  EXPECT_EQ(get_flash_type(), 1);
}

TEST_F(FlashType, KnowsOtherMemory) {
  tell(std::string(kHead) + " 179        0    7634944 mmcblk0\n   8        0  488386584 sda\n");
  EXPECT_EQ(get_flash_type(), 0);
}

TEST_F(FlashType, TakesTheShortestLine) {
  tell("mtd");
  EXPECT_EQ(get_flash_type(), 1);
  tell("mt");
  EXPECT_EQ(get_flash_type(), 0);
}

TEST_F(FlashType, TakesSilenceForOtherMemory) {
  tell("");
  EXPECT_EQ(get_flash_type(), 0);
  ASSERT_EQ(setenv("PATH", "/nowhere", 1), 0);
  testing::internal::CaptureStderr();
  EXPECT_EQ(get_flash_type(), 0);
  testing::internal::GetCapturedStderr();
}

TEST_F(FlashType, AsksTheKernel) {
  const CallTrace trace;
  const bool listed = kelo::tests::read_file("/proc/partitions").find("mtd") != std::string::npos;
  EXPECT_EQ(get_flash_type(), listed ? 1 : 0);
  EXPECT_EQ(trace.count("popen"), 1);
  EXPECT_EQ(trace.calls().front().text, "cat /proc/partitions 2>/dev/null | grep mtd") << trace.dump();
}

TEST_F(FlashType, ReportsAPipeThatCannotBeMade) {
  tell("mtd");
  const Fault fault({.call = "popen", .code = EMFILE});
  EXPECT_EQ(get_flash_type(), 4);
  EXPECT_EQ(fault.failed(), 1);
}

}  // namespace
