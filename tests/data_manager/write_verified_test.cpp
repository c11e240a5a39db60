// SPDX-License-Identifier: MIT
// kelo_dm_write_verified(): a write whose success means that the value is stored.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/recording_backend.hpp"
#include "tests/support/sqlite_faults.hpp"

extern "C" std::int32_t write_from_c99(kelo_dm_handle* handle, std::int32_t id, const void* data,
                                       std::int32_t len);

namespace {

using kelo::tests::backend;
using kelo::tests::Cleaning;
using kelo::tests::FailingHeap;
using kelo::tests::LogCapture;
using kelo::tests::LogLine;
using kelo::tests::RecordingHandle;
using testing::ElementsAre;

std::vector<std::string> events;

int record_event(std::int32_t id, const void* data, std::int32_t len) {
  events.push_back(std::to_string(id) + " " +
                   std::string(static_cast<const char*>(data), static_cast<std::size_t>(len)));
  return -1;  // ignored
}

kelo_dm_item items[] = {KELO_DM_TEXT_ITEM(7, "net", "ssid", "home"), KELO_DM_END};

class WriteVerified : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(kelo_dm_reg_def_items(items), 0);
    ASSERT_EQ(kelo_dm_reg_event_callback(record_event), 0);
  }

  std::int32_t write(std::string_view value) {
    return kelo_dm_write_verified(handle_.get(), 7, value.data(), static_cast<std::int32_t>(value.size()));
  }

  [[nodiscard]] std::vector<std::string> slots() const {
    std::vector<std::string> found;
    for (const kelo::tests::BackendCall& call : backend().calls) found.push_back(call.slot);
    return found;
  }

  // The messages of one call, in order, with the function that each is shown under.
  static std::vector<std::string> lines_of(std::int32_t (*write)(kelo_dm_handle*, std::int32_t, const void*,
                                                                 std::int32_t),
                                           kelo_dm_handle* handle, std::int32_t id) {
    const LogCapture capture;
    write(handle, id, "abc", 3);
    std::vector<std::string> found;
    for (const LogLine& line : capture.lines()) {
      std::string text = kelo::tests::level_name(line.level) + " " + line.function + " " + line.text;
      for (std::size_t at; (at = text.find("_verified")) != std::string::npos;) text.erase(at, 9);
      found.push_back(text);
    }
    return found;
  }

  const RecordingHandle handle_;
};

TEST_F(WriteVerified, ValueThatIsReadBackIsAnnounced) {
  backend().stored = "abc";
  EXPECT_EQ(write("abc"), 0);
  EXPECT_THAT(slots(), ElementsAre("write", "read"));
  EXPECT_EQ(backend().calls[0].id, 7U);
  EXPECT_EQ(&items[0].desc, backend().calls[0].item);
  EXPECT_EQ(backend().calls[0].bytes, "abc");
  EXPECT_EQ(backend().calls[0].len, 3);
  EXPECT_EQ(backend().calls[1].id, 7U);
  EXPECT_EQ(&items[0].desc, backend().calls[1].item);
  EXPECT_EQ(backend().calls[1].len, 4) << "room for one byte more";
  EXPECT_THAT(events, ElementsAre("7 abc"));
}

TEST_F(WriteVerified, AnotherValueReadBackIsAFailure) {
  for (const char* const other : {"abd", "ab", "abcd", ""}) {
    backend().stored = other;
    EXPECT_EQ(write("abc"), -1) << other;
  }
  EXPECT_EQ(backend().count("write"), 4);
  EXPECT_TRUE(events.empty());
}

TEST_F(WriteVerified, FailedReadIsAFailure) {
  for (const int failure : {-1, -100, -101, -102, INT_MIN}) {
    backend().read_failure = failure;
    EXPECT_EQ(write("abc"), -1) << failure;
  }
  EXPECT_TRUE(events.empty());
}

TEST_F(WriteVerified, RefusedWriteIsAFailureWhateverIsRead) {
  backend().stored = "abc";
  for (const int refusal : {5, -101, -3, INT_MIN}) {
    backend().write_result = refusal;
    EXPECT_EQ(write("abc"), -1) << refusal;
  }
  EXPECT_EQ(backend().count("read"), 0);
  EXPECT_TRUE(events.empty());
}

TEST_F(WriteVerified, BadArgumentsAreRefused) {
  const LogCapture capture;
  EXPECT_EQ(kelo_dm_write_verified(nullptr, 7, "abc", 3), -3);
  EXPECT_EQ(kelo_dm_write_verified(handle_.get(), 7, nullptr, 3), -3);
  EXPECT_EQ(kelo_dm_write_verified(handle_.get(), 7, "abc", 0), -3);
  EXPECT_EQ(kelo_dm_write_verified(handle_.get(), 7, "abc", -1), -3);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_write_verified", "kelo_dm_write_verified param NULL\n"), 4)
      << capture.dump();
  EXPECT_EQ(kelo_dm_write_verified(handle_.get(), 8, "abc", 3), -3);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_write_verified", "symLookup failed: 8\n"), 1);
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_TRUE(events.empty());
}

TEST_F(WriteVerified, WhileCleaningNothingIsWritten) {
  backend().stored = "abc";
  const Cleaning cleaning(handle_);
  EXPECT_EQ(write("abc"), -1);
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_TRUE(events.empty());
}

TEST_F(WriteVerified, WithoutMemoryNothingIsWritten) {
  backend().stored = "abc";
  kelo_set_log_level(LOG_LVL_CRT);  // what captures messages allocates
  std::int32_t result = 0;
  {
    const FailingHeap none(0);
    result = write("abc");
  }
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_TRUE(events.empty());
}

TEST_F(WriteVerified, WithoutAReadNothingIsWritten) {
  handle_->read = nullptr;
  handle_->write = [](std::uint32_t, kelo_dm_item_desc*, const void*, int) -> int {
    std::printf("written\n");
    std::exit(0);
  };
  KELO_EXPECT_FATAL(write("abc"));
}

TEST_F(WriteVerified, WithoutAWriteIsFatal) {
  handle_->write = nullptr;
  KELO_EXPECT_FATAL(write("abc"));
}

TEST_F(WriteVerified, LogsWhatThePlainWriteLogs) {
  backend().stored = "abc";
  EXPECT_THAT(lines_of(kelo_dm_write_verified, handle_.get(), 7),
              ElementsAre("INFO oem_dm_read DM_RD_MEM ret 4\n", "DBUG oem_dm_write hash:net ssid\n",
                          "DBUG oem_dm_write kelo_dm_is_run_clean: 0", "DBUG oem_dm_write write cb ret:0"));
  for (const std::int32_t id : {7, 8})
    EXPECT_EQ(lines_of(kelo_dm_write, handle_.get(), id),
              lines_of(kelo_dm_write_verified, handle_.get(), id));
  EXPECT_EQ(lines_of(kelo_dm_write, nullptr, 7), lines_of(kelo_dm_write_verified, nullptr, 7));
  const Cleaning cleaning(handle_);
  EXPECT_EQ(lines_of(kelo_dm_write, handle_.get(), 7), lines_of(kelo_dm_write_verified, handle_.get(), 7));
}

TEST_F(WriteVerified, CanBeCalledFromC99) {
  backend().stored = "abc";
  EXPECT_EQ(write_from_c99(handle_.get(), 7, "abc", 3), 0);
  EXPECT_EQ(write_from_c99(handle_.get(), 7, "abd", 3), -1);
}

// --- With the SQLite back-end --------------------------------------------------------------------------

class WriteVerifiedToSqlite : public WriteVerified {
 protected:
  void SetUp() override {
    WriteVerified::SetUp();
    sqlite_reg(&handle_.get()->operations);
  }

  std::string read() {
    char buffer[64] = "";
    return kelo_dm_read_db(handle_.get(), 7, buffer, sizeof buffer - 1) == 0 ? buffer : "(none)";
  }
};

TEST_F(WriteVerifiedToSqlite, StoredValueIsThere) {
  EXPECT_EQ(write("cabin"), 0);
  EXPECT_EQ(read(), "cabin");
  EXPECT_EQ(write("a longer name"), 0);
  EXPECT_EQ(read(), "a longer name");
  EXPECT_EQ(write("cab"), 0);
  EXPECT_EQ(read(), "cab");
  EXPECT_EQ(write("cab"), 0) << "the same again";
  EXPECT_THAT(events, ElementsAre("7 cabin", "7 a longer name", "7 cab", "7 cab"));
}

TEST_F(WriteVerifiedToSqlite, ValueWithZeroBytesAndLongOne) {
  EXPECT_EQ(write(std::string_view("\0\0\0", 3)), 0);
  EXPECT_EQ(write(std::string(70000, 'x')), 0);
  EXPECT_EQ(events.size(), 2U);
}

TEST_F(WriteVerifiedToSqlite, RowThatSqliteRefusesIsNoSuccess) {
  ASSERT_EQ(write("cabin"), 0);
  events.clear();
  const kelo::tests::Fault fault(
      {.call = "sqlite3_step", .code = SQLITE_FULL, .text = "update net", .times = kelo::tests::kEveryTime});
  EXPECT_EQ(kelo_dm_write(handle_.get(), 7, "hut", 3), 0) << "accepted, which is all that its 0 says";
  events.clear();
  EXPECT_EQ(write("hut"), -1);
  EXPECT_EQ(read(), "cabin");
  EXPECT_TRUE(events.empty());
}

}  // namespace
