#include "kelo_utils/log.h"

#include <gtest/gtest.h>

#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::LogCapture;

TEST(Log, SuppressedMessageLeavesTheBufferAlone) {
  char buffer[KELO_LOG_BUFFER_SIZE] = {};
  EXPECT_EQ(0, kelo_log_printf(LOG_LVL_DBUG, buffer, "f", 1, "text"));
  for (const char c : buffer) ASSERT_EQ('\0', c);
}

TEST(Log, MacroCarriesFunctionLevelAndText) {
  const LogCapture capture;
  KELO_LOG(LOG_LVL_WRN, "number %d\n", 7);
  EXPECT_EQ(1, capture.count(2, "TestBody", "number 7\n")) << capture.dump();
}

}  // namespace
