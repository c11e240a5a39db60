// SPDX-License-Identifier: MIT
// Reads and writes of items: lookup, clean flag, storage, callback, results and lines.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "tests/support/failing_heap.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/recording_backend.hpp"

namespace {

using kelo::tests::backend;
using kelo::tests::BackendCall;
using kelo::tests::Cleaning;
using kelo::tests::end_cleaning;
using kelo::tests::FailingHeap;
using kelo::tests::LogCapture;
using kelo::tests::LogLine;
using kelo::tests::RecordingHandle;

struct Event {
  std::int32_t id;
  std::string data;
  std::int32_t len;
  std::thread::id thread;
  std::size_t calls_before;  // of the storage
};

std::vector<Event> events;

int record_event(std::int32_t id, const void* data, std::int32_t len) {
  events.push_back({id, std::string(static_cast<const char*>(data), static_cast<std::size_t>(len)), len,
                    std::this_thread::get_id(), backend().calls.size()});
  return -1;  // ignored
}

// Item 7 is registered, and the changes are recorded.
class ItemIo : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(kelo_dm_reg_def_items(table_), 0);
    ASSERT_EQ(kelo_dm_reg_event_callback(record_event), 0);
  }

  // The messages of one function at one level, in order.
  [[nodiscard]] std::vector<std::string> texts(std::string_view function) const {
    std::vector<std::string> found;
    for (const LogLine& line : capture_.lines())
      if (line.function == function) found.push_back(kelo::tests::level_name(line.level) + " " + line.text);
    return found;
  }

  [[nodiscard]] std::vector<std::string> slots() const {
    std::vector<std::string> found;
    for (const BackendCall& call : backend().calls) found.push_back(call.slot);
    return found;
  }

  LogCapture capture_;
  const RecordingHandle handle_;
  static inline kelo_dm_item table_[] = {KELO_DM_ITEM(7, "TAB", "KEY", KELO_DM_TYPE_STRING, 0, 0),
                                         KELO_DM_END};
};

using Texts = std::vector<std::string>;

TEST_F(ItemIo, WriteStoresAndAnnounces) {
  EXPECT_EQ(kelo_dm_write(handle_.get(), 7, "abc", 3), 0);
  ASSERT_EQ(backend().calls.size(), 1U);
  const BackendCall& call = backend().calls[0];
  EXPECT_EQ(call.slot, "write");
  EXPECT_EQ(call.id, 7U);
  EXPECT_EQ(&table_[0].desc, call.item);
  EXPECT_EQ(call.bytes, "abc");
  EXPECT_EQ(call.len, 3);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].id, 7);
  EXPECT_EQ(events[0].data, "abc");
  EXPECT_EQ(events[0].len, 3);
  EXPECT_EQ(std::this_thread::get_id(), events[0].thread);
  EXPECT_EQ(events[0].calls_before, 1U) << "the storage comes first";
  EXPECT_EQ(texts("oem_dm_write"),
            (Texts{"DBUG hash:TAB KEY\n", "DBUG kelo_dm_is_run_clean: 0", "DBUG write cb ret:0"}));
  EXPECT_EQ(texts("oem_dm_read"), Texts{"INFO DM_RD_MEM ret 4\n"});
}

TEST_F(ItemIo, WriteOfTheSameValueGoesThrough) {
  backend().stored = "abc";
  EXPECT_EQ(kelo_dm_write(handle_.get(), 7, "abc", 3), 0);
  EXPECT_EQ(kelo_dm_write(handle_.get(), 7, "abc", 3), 0);
  EXPECT_EQ(slots(), (Texts{"write", "write"}));
  EXPECT_EQ(events.size(), 2U);
  EXPECT_EQ(capture_.count(LOG_LVL_INFO, "Try to write the same data\n"), 0);
}

TEST_F(ItemIo, WriteErrorIsPassedOnWithoutAnEvent) {
  for (const int error : {5, -1, INT_MIN}) {
    backend().write_result = error;
    EXPECT_EQ(error, kelo_dm_write(handle_.get(), 7, "abc", 3));
    EXPECT_EQ(error, kelo_dm_write_db(handle_.get(), 7, "abc", 3));
    EXPECT_EQ(error, kelo_dm_empty(handle_.get(), 7));
  }
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(capture_.count(LOG_LVL_DBUG, "oem_dm_write", "write cb ret:5"), 1);
}

TEST_F(ItemIo, WriteWithoutAWriteIsFatal) {
  handle_->write = nullptr;
  KELO_EXPECT_FATAL(kelo_dm_write(handle_.get(), 7, "abc", 3));
}

TEST_F(ItemIo, LongestLength) {
  EXPECT_EQ(kelo_dm_write(handle_.get(), 7, "abc", 3), 0);
  backend().write_result = 9;  // so that no change is announced
  std::vector<char> data(64);
  EXPECT_EQ(kelo_dm_write(handle_.get(), 7, data.data(), INT_MAX), 9);
  EXPECT_EQ(backend().calls.back().len, INT_MAX);
  EXPECT_EQ(capture_.count_containing(LOG_LVL_INFO, "DM_RD_MEM"), 1) << "only that of the first write";
  EXPECT_EQ(kelo_dm_write_db(handle_.get(), 7, data.data(), INT_MAX), 9);
  EXPECT_EQ(slots(), (Texts{"write", "write", "write"})) << "nothing to compare without room for one more";
  EXPECT_EQ(kelo_dm_write(handle_.get(), 7, data.data(), INT_MAX - 1), 9);
  EXPECT_EQ(capture_.count(LOG_LVL_INFO, "DM_RD_MEM ret 2147483647\n"), 1);
}

TEST_F(ItemIo, WriteDbStoresAChangedValue) {
  backend().stored = "abd";
  EXPECT_EQ(kelo_dm_write_db(handle_.get(), 7, "abc", 3), 0);
  ASSERT_EQ(slots(), (Texts{"read", "write"}));
  EXPECT_EQ(backend().calls[0].len, 4) << "room for one byte more";
  EXPECT_EQ(&table_[0].desc, backend().calls[1].item);
  EXPECT_EQ(backend().calls[1].bytes, "abc");
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].data, "abc");
  EXPECT_EQ(texts("oem_dm_read_db"), Texts{"ERR hash:TAB KEY\n"});
  EXPECT_EQ(texts("oem_dm_write_db"), Texts{"ERR hash:TAB KEY\n"});
}

TEST_F(ItemIo, WriteDbLeavesTheSameValueAlone) {
  backend().stored = "abc";
  EXPECT_EQ(kelo_dm_write_db(handle_.get(), 7, "abc", 3), 0);
  EXPECT_EQ(slots(), Texts{"read"});
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(texts("oem_dm_write_db"), Texts{"INFO Try to write the same data\n"});
}

TEST_F(ItemIo, WriteDbComparesTheLengthWrittenOnly) {
  backend().stored = "abcdef";
  EXPECT_EQ(kelo_dm_write_db(handle_.get(), 7, "abc", 3), 0);
  EXPECT_EQ(slots(), Texts{"read"}) << "a longer stored value that begins so is the same";
  backend().stored = "ab";
  EXPECT_EQ(kelo_dm_write_db(handle_.get(), 7, "ab\0", 3), 0);
  EXPECT_EQ(slots(), (Texts{"read", "read"})) << "missing bytes count as zero";
  EXPECT_EQ(kelo_dm_write_db(handle_.get(), 7, "abc", 3), 0);
  EXPECT_EQ(slots(), (Texts{"read", "read", "read", "write"}));
}

TEST_F(ItemIo, WriteDbAfterAFailedRead) {
  backend().read_failure = -102;
  EXPECT_EQ(kelo_dm_write_db(handle_.get(), 7, "\0\0\0", 3), 0);
  EXPECT_EQ(slots(), (Texts{"read", "write"})) << "a failed read is no zero value";
  EXPECT_EQ(events.size(), 1U);
  EXPECT_EQ(texts("oem_dm_read_db"),
            (Texts{"ERR hash:TAB KEY\n", "ERR oem_dm_read_db def value:7 not register!\n"}));
}

TEST_F(ItemIo, WriteDbWithoutMemoryForTheComparison) {
  backend().stored = "abc";
  handle_->write = [](std::uint32_t, kelo_dm_item_desc*, const void*, int) { return 4; };  // records nothing
  kelo_set_log_level(LOG_LVL_CRT);                                                         // nor do messages
  int result = 0;
  {
    const FailingHeap none(0);
    result = kelo_dm_write_db(handle_.get(), 7, "abc", 3);
  }
  EXPECT_EQ(result, 4) << "the value was compared";
  EXPECT_TRUE(backend().calls.empty());
}

TEST_F(ItemIo, WriteDbWithoutAReadIsFatal) {
  handle_->read = nullptr;
  KELO_EXPECT_FATAL(kelo_dm_write_db(handle_.get(), 7, "abc", 3));
}

TEST_F(ItemIo, WriteDbWithoutAWriteIsFatal) {
  handle_->write = nullptr;
  KELO_EXPECT_FATAL(kelo_dm_write_db(handle_.get(), 7, "abc", 3));
}

TEST_F(ItemIo, EmptyStoresNothingAndAnnouncesLengthZero) {
  EXPECT_EQ(kelo_dm_empty(handle_.get(), 7), 0);
  ASSERT_EQ(backend().calls.size(), 1U);
  EXPECT_EQ(backend().calls[0].slot, "write");
  EXPECT_EQ(backend().calls[0].id, 7U);
  EXPECT_EQ(&table_[0].desc, backend().calls[0].item);
  EXPECT_NE(backend().calls[0].address, nullptr);
  EXPECT_EQ(backend().calls[0].len, 0);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].id, 7);
  EXPECT_EQ(events[0].len, 0);
  EXPECT_EQ(texts("oem_dm_empty"), Texts{"ERR hash:TAB KEY\n"});
}

TEST_F(ItemIo, EmptyHandsOutAZeroWord) {
  handle_->write = [](std::uint32_t, kelo_dm_item_desc*, const void* data, int) {
    std::uint32_t word = 1;
    std::memcpy(&word, data, sizeof word);
    return word == 0 ? 0 : 1;
  };
  kelo_dm_reg_event_callback([](std::int32_t id, const void* data, std::int32_t len) {
    std::uint32_t word = 1;
    std::memcpy(&word, data, sizeof word);
    if (word == 0) events.push_back({id, {}, len, {}, 0});
    return 0;
  });
  EXPECT_EQ(kelo_dm_empty(handle_.get(), 7), 0);
  EXPECT_EQ(events.size(), 1U);
}

TEST_F(ItemIo, EmptyWithoutAWriteIsFatal) {
  handle_->write = nullptr;
  KELO_EXPECT_FATAL(kelo_dm_empty(handle_.get(), 7));
}

TEST_F(ItemIo, ReadReportsTheSizeAndLeavesTheBuffer) {
  backend().stored = "abc";
  std::array<char, 16> buffer;
  buffer.fill('#');
  EXPECT_EQ(kelo_dm_read(handle_.get(), 7, buffer.data(), 16), 16);
  EXPECT_EQ(std::string(16, '#'), std::string_view(buffer.data(), 16));
  EXPECT_EQ(texts("oem_dm_read"), Texts{"INFO DM_RD_MEM ret 16\n"});
  EXPECT_EQ(kelo_dm_read(handle_.get(), 8, buffer.data(), 1), 1) << "an unknown id is not looked up";
  EXPECT_EQ(kelo_dm_read(handle_.get(), 7, buffer.data(), INT_MAX), INT_MAX);
  EXPECT_TRUE(backend().calls.empty());
}

TEST_F(ItemIo, ReadDbFillsTheBuffer) {
  backend().stored = "abc";
  std::array<char, 8> buffer;
  buffer.fill('#');
  EXPECT_EQ(kelo_dm_read_db(handle_.get(), 7, buffer.data(), 8), 0);
  EXPECT_EQ("abc#####", std::string_view(buffer.data(), 8));
  ASSERT_EQ(backend().calls.size(), 1U);
  EXPECT_EQ(backend().calls[0].slot, "read");
  EXPECT_EQ(backend().calls[0].id, 7U);
  EXPECT_EQ(&table_[0].desc, backend().calls[0].item);
  EXPECT_EQ(buffer.data(), backend().calls[0].address);
  EXPECT_EQ(backend().calls[0].len, 8);
  EXPECT_EQ(texts("oem_dm_read_db"), Texts{"ERR hash:TAB KEY\n"});
  backend().stored.clear();
  EXPECT_EQ(kelo_dm_read_db(handle_.get(), 7, buffer.data(), 8), 0) << "0 bytes are a success";
}

TEST_F(ItemIo, ReadDbFailure) {
  static kelo_dm_item table[] = {KELO_DM_ITEM(-2, "TAB", "MINUS", KELO_DM_TYPE_SCALAR3, 0, 4), KELO_DM_END};
  ASSERT_EQ(kelo_dm_reg_def_items(table), 0);
  char byte = '#';
  for (const int failure : {-1, -100, -101, -102, INT_MIN}) {
    backend().read_failure = failure;
    EXPECT_EQ(kelo_dm_read_db(handle_.get(), -2, &byte, 1), -3);
    EXPECT_EQ(kelo_dm_read_from_dbconfigfile(handle_.get(), -2, &byte, 1), 3);
  }
  EXPECT_EQ(byte, '#');
  EXPECT_EQ(
      capture_.count(LOG_LVL_ERR, "oem_dm_read_db", "oem_dm_read_db def value:fffffffe not register!\n"), 5);
  EXPECT_EQ(capture_.count_containing(LOG_LVL_ERR, "not register"), 5);
}

TEST_F(ItemIo, ReadFromDbConfigFile) {
  backend().stored = "abc";
  std::array<char, 2> buffer;
  buffer.fill('#');
  EXPECT_EQ(kelo_dm_read_from_dbconfigfile(handle_.get(), 7, buffer.data(), 2), 0);
  EXPECT_EQ("ab", std::string_view(buffer.data(), 2));
  ASSERT_EQ(backend().calls.size(), 1U);
  EXPECT_EQ(backend().calls[0].slot, "read");
  EXPECT_EQ(backend().calls[0].len, 2);
  EXPECT_EQ(texts("oem_dm_read_from_dbconfigfile"), Texts{"INFO hash:TAB KEY\n"});
}

TEST_F(ItemIo, ReadsWithoutAReadAreFatal) {
  handle_->read = nullptr;
  char byte = '#';
  KELO_EXPECT_FATAL(kelo_dm_read_db(handle_.get(), 7, &byte, 1));
  KELO_EXPECT_FATAL(kelo_dm_read_from_dbconfigfile(handle_.get(), 7, &byte, 1));
}

// Every call that refuses arguments: how it is called, what it says, what it answers.
struct Refusal {
  const char* function;
  const char* complaint;
  int result;
  std::vector<std::function<int(kelo_dm_handle*, void*)>> bad_calls;
};

TEST_F(ItemIo, BadArguments) {
  const std::vector<Refusal> refusals = {
      {"oem_dm_write",
       "kelo_dm_write",
       -3,
       {[](auto*, void* data) { return kelo_dm_write(nullptr, 7, data, 1); },
        [](auto* handle, void*) { return kelo_dm_write(handle, 7, nullptr, 1); },
        [](auto* handle, void* data) { return kelo_dm_write(handle, 7, data, 0); },
        [](auto* handle, void* data) { return kelo_dm_write(handle, 7, data, -1); },
        [](auto* handle, void* data) { return kelo_dm_write(handle, 7, data, INT_MIN); }}},
      {"oem_dm_write_db",
       "kelo_dm_write_db",
       -3,
       {[](auto*, void* data) { return kelo_dm_write_db(nullptr, 7, data, 1); },
        [](auto* handle, void*) { return kelo_dm_write_db(handle, 7, nullptr, 1); },
        [](auto* handle, void* data) { return kelo_dm_write_db(handle, 7, data, 0); },
        [](auto* handle, void* data) { return kelo_dm_write_db(handle, 7, data, INT_MIN); }}},
      {"oem_dm_empty", "kelo_dm_empty", -3, {[](auto*, void*) { return kelo_dm_empty(nullptr, 7); }}},
      {"oem_dm_read",
       "oem_dm_read",
       -3,
       {[](auto*, void* buf) { return kelo_dm_read(nullptr, 7, buf, 1); },
        [](auto* handle, void*) { return kelo_dm_read(handle, 7, nullptr, 1); },
        [](auto* handle, void* buf) { return kelo_dm_read(handle, 7, buf, 0); },
        [](auto* handle, void* buf) { return kelo_dm_read(handle, 7, buf, -1); }}},
      {"oem_dm_read_db",
       "oem_dm_read_db",
       -3,
       {[](auto*, void* buf) { return kelo_dm_read_db(nullptr, 7, buf, 1); },
        [](auto* handle, void*) { return kelo_dm_read_db(handle, 7, nullptr, 1); },
        [](auto* handle, void* buf) { return kelo_dm_read_db(handle, 7, buf, 0); },
        [](auto* handle, void* buf) { return kelo_dm_read_db(handle, 7, buf, -1); }}},
      {"oem_dm_read_from_dbconfigfile",
       "oem_dm_read",
       3,
       {[](auto*, void* buf) { return kelo_dm_read_from_dbconfigfile(nullptr, 7, buf, 1); },
        [](auto* handle, void*) { return kelo_dm_read_from_dbconfigfile(handle, 7, nullptr, 1); },
        [](auto* handle, void* buf) { return kelo_dm_read_from_dbconfigfile(handle, 7, buf, 0); },
        [](auto* handle, void* buf) { return kelo_dm_read_from_dbconfigfile(handle, 7, buf, -1); }}},
      {"oem_dm_cache_write",
       "kelo_dm_cache_write",
       -3,
       {[](auto* handle, void*) { return kelo_dm_cache_write(handle, nullptr, 1); },
        [](auto* handle, void* data) { return kelo_dm_cache_write(handle, data, 0); },
        [](auto* handle, void* data) { return kelo_dm_cache_write(handle, data, -1); }}},
      {"oem_dm_cache_read",
       "kelo_dm_cache_read",
       -3,
       {[](auto* handle, void*) { return kelo_dm_cache_read(handle, nullptr, 1); },
        [](auto* handle, void* buf) { return kelo_dm_cache_read(handle, buf, 0); },
        [](auto* handle, void* buf) { return kelo_dm_cache_read(handle, buf, -1); }}},
      {"oem_dm_reg_event_callback", "kelo_dm_reg_event_callback", -3, {[](auto*, void*) {
         return kelo_dm_reg_event_callback(nullptr);
       }}},
  };
  for (const Refusal& refusal : refusals) {
    for (std::size_t i = 0; i < refusal.bad_calls.size(); ++i) {
      SCOPED_TRACE(std::string(refusal.function) + ", bad call " + std::to_string(i));
      capture_.clear();
      char byte = '#';
      EXPECT_EQ(refusal.result, refusal.bad_calls[i](handle_.get(), &byte));
      EXPECT_EQ(byte, '#');
      EXPECT_EQ(capture_.lines().size(), 1U);
      EXPECT_EQ(
          capture_.count(LOG_LVL_ERR, refusal.function, std::string(refusal.complaint) + " param NULL\n"), 1)
          << capture_.dump();
    }
  }
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_TRUE(events.empty());
}

TEST_F(ItemIo, UnknownId) {
  char byte = '#';
  EXPECT_EQ(kelo_dm_write(handle_.get(), 8, &byte, 1), -3);
  EXPECT_EQ(kelo_dm_write_db(handle_.get(), 8, &byte, 1), -3);
  EXPECT_EQ(kelo_dm_empty(handle_.get(), 8), -3);
  EXPECT_EQ(kelo_dm_read_db(handle_.get(), 8, &byte, 1), -3);
  EXPECT_EQ(kelo_dm_read_from_dbconfigfile(handle_.get(), 8, &byte, 1), 3);
  EXPECT_EQ(byte, '#');
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_TRUE(events.empty());
  for (const char* function :
       {"oem_dm_write", "oem_dm_write_db", "oem_dm_empty", "oem_dm_read_db", "oem_dm_read_from_dbconfigfile"})
    EXPECT_EQ(texts(function), Texts{"ERR symLookup failed: 8\n"}) << function;
  EXPECT_EQ(capture_.lines().size(), 5U);
}

TEST_F(ItemIo, CacheCallsReportTheLengthOnly) {
  std::array<char, 4> buffer = {'k', 'e', 'p', 't'};
  EXPECT_EQ(kelo_dm_cache_write(handle_.get(), buffer.data(), 4), 4);
  EXPECT_EQ(kelo_dm_cache_write(nullptr, buffer.data(), 1), 1);
  EXPECT_EQ(kelo_dm_cache_read(handle_.get(), buffer.data(), 4), 4);
  EXPECT_EQ(kelo_dm_cache_read(nullptr, buffer.data(), INT_MAX), INT_MAX);
  EXPECT_EQ("kept", std::string_view(buffer.data(), 4));
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_TRUE(events.empty());
  EXPECT_TRUE(capture_.lines().empty()) << capture_.dump();
}

TEST_F(ItemIo, NewCallbackReplacesTheOld) {
  static int second_calls = 0;
  EXPECT_EQ(
      kelo_dm_reg_event_callback([](std::int32_t, const void*, std::int32_t) { return ++second_calls; }), 0);
  EXPECT_EQ(kelo_dm_write(handle_.get(), 7, "abc", 3), 0);
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(second_calls, 1);
  EXPECT_EQ(kelo_dm_reg_event_callback(nullptr), -3);
  EXPECT_EQ(kelo_dm_write(handle_.get(), 7, "abc", 3), 0);
  EXPECT_EQ(second_calls, 2) << "a refused callback leaves the old one";
}

TEST_F(ItemIo, CallbackMayWrite) {
  static kelo_dm_handle* handle = nullptr;
  static int depth = 0;
  handle = handle_.get();
  kelo_dm_reg_event_callback([](std::int32_t, const void*, std::int32_t) {
    if (++depth < 3) kelo_dm_write(handle, 7, "nested", 6);
    return 0;
  });
  EXPECT_EQ(kelo_dm_write(handle_.get(), 7, "abc", 3), 0);
  EXPECT_EQ(backend().count("write"), 3);
}

TEST(ItemIoStart, NoCallbackAtFirst) {
  static kelo_dm_item table[] = {KELO_DM_ITEM(7, "TAB", "KEY", KELO_DM_TYPE_STRING, 0, 0), KELO_DM_END};
  ASSERT_EQ(kelo_dm_reg_def_items(table), 0);
  const RecordingHandle handle;
  EXPECT_EQ(kelo_dm_write(handle.get(), 7, "abc", 3), 0);
  EXPECT_EQ(kelo_dm_write_db(handle.get(), 7, "abc", 3), 0);
  EXPECT_EQ(kelo_dm_empty(handle.get(), 7), 0);
  EXPECT_EQ(backend().count("write"), 3);
}

TEST_F(ItemIo, CleanRunsTheBackEnd) {
  backend().clean_result = -1;
  EXPECT_EQ(kelo_dm_clean(handle_.get(), "keep a copy"), -1);
  EXPECT_EQ(backend().clean_backup, "keep a copy");
  EXPECT_EQ(backend().clean_second_argument, 1);
  EXPECT_EQ(backend().clean_flag_seen, 1);
  backend().clean_result = 6;
  EXPECT_EQ(kelo_dm_clean(handle_.get(), nullptr), 6);
  EXPECT_EQ(backend().clean_backup, "(null)");
  EXPECT_TRUE(capture_.lines().empty()) << capture_.dump();
}

TEST_F(ItemIo, CleanWithoutABackEnd) {
  EXPECT_EQ(kelo_dm_clean(nullptr, nullptr), 0);
  handle_->clean = nullptr;
  EXPECT_EQ(kelo_dm_clean(handle_.get(), nullptr), 0);
  EXPECT_EQ(kelo_dm_write(handle_.get(), 7, "abc", 3), 0);
  EXPECT_EQ(backend().count("write"), 1) << "the flag was raised for nothing";
}

TEST_F(ItemIo, SecondCleanDoesNothing) {
  backend().cleaning_ends = false;
  backend().clean_result = 6;
  EXPECT_EQ(kelo_dm_clean(handle_.get(), nullptr), 6);
  EXPECT_EQ(kelo_dm_clean(handle_.get(), nullptr), 0);
  EXPECT_EQ(backend().count("clean"), 1);
  end_cleaning();
  EXPECT_EQ(kelo_dm_clean(handle_.get(), nullptr), 6);
  EXPECT_EQ(backend().count("clean"), 2);
  end_cleaning();
}

TEST_F(ItemIo, WhileCleaningWritesAreLostAndReadsLeaveTheBuffer) {
  backend().stored = "abc";
  std::array<char, 4> buffer = {'k', 'e', 'p', 't'};
  {
    const Cleaning cleaning(handle_);
    capture_.clear();
    handle_->write = nullptr;  // an empty slot matters only when it is needed
    handle_->read = nullptr;
    EXPECT_EQ(kelo_dm_write(handle_.get(), 7, "abc", 3), 0);
    EXPECT_EQ(kelo_dm_write_db(handle_.get(), 7, "abc", 3), 0);
    EXPECT_EQ(kelo_dm_empty(handle_.get(), 7), 0);
    EXPECT_EQ(kelo_dm_read_db(handle_.get(), 7, buffer.data(), 4), 0);
    EXPECT_EQ(kelo_dm_read_from_dbconfigfile(handle_.get(), 7, buffer.data(), 4), 3);
    EXPECT_EQ(kelo_dm_read(handle_.get(), 7, buffer.data(), 4), 4);
    EXPECT_EQ(kelo_dm_write(handle_.get(), 8, "abc", 3), -3) << "arguments and ids are checked first";
    EXPECT_EQ("kept", std::string_view(buffer.data(), 4));
    EXPECT_TRUE(backend().calls.empty());
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(texts("oem_dm_write"),
              (Texts{"DBUG hash:TAB KEY\n", "DBUG kelo_dm_is_run_clean: 1", "ERR symLookup failed: 8\n"}));
    EXPECT_EQ(texts("oem_dm_read_db"), (Texts{"ERR hash:TAB KEY\n", "ERR hash:TAB KEY\n"}));
    EXPECT_EQ(texts("oem_dm_write_db"), Texts{"ERR hash:TAB KEY\n"});
    EXPECT_EQ(texts("oem_dm_empty"), Texts{"ERR hash:TAB KEY\n"});
    EXPECT_EQ(texts("oem_dm_read_from_dbconfigfile"), Texts{"INFO hash:TAB KEY\n"});

    EXPECT_EQ(kelo_dm_write_db(handle_.get(), 7, "\0\0", 2), 0);
    EXPECT_EQ(capture_.count(LOG_LVL_INFO, "oem_dm_write_db", "Try to write the same data\n"), 1)
        << "the unread value counts as zero bytes";
  }
  const RecordingHandle whole;
  EXPECT_EQ(kelo_dm_read_db(whole.get(), 7, buffer.data(), 4), 0);
  EXPECT_EQ("abct", std::string_view(buffer.data(), 4));
}

// A name that fills its field has no terminator; the log must not run into the next field.
TEST_F(ItemIo, NamesWithoutATerminator) {
  static kelo_dm_item table[] = {KELO_DM_ITEM(9, "", "", KELO_DM_TYPE_SCALAR3, 0, 4), KELO_DM_END};
  std::memset(table[0].desc.item_table, 't', sizeof table[0].desc.item_table);
  std::memset(table[0].desc.item_key, 'k', sizeof table[0].desc.item_key);
  ASSERT_EQ(kelo_dm_reg_def_items(table), 0);
  EXPECT_EQ(kelo_dm_empty(handle_.get(), 9), 0);
  EXPECT_EQ(texts("oem_dm_empty"),
            Texts{"ERR hash:" + std::string(32, 't') + " " + std::string(32, 'k') + "\n"});
}

// The shape of an asynchronous back-end: one thread is let into the clean, another one ends it.
TEST_F(ItemIo, OneOfManyThreadsCleans) {
  static std::atomic<int> cleans{0};
  static std::atomic<std::int32_t*> flag{nullptr};
  handle_->clean = [](const char*, int, std::int32_t* clean_flag) {
    cleans.fetch_add(1);
    flag.store(clean_flag);
    return 6;
  };
  std::atomic<int> sixes{0};
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      if (kelo_dm_clean(handle_.get(), nullptr) == 6) sixes.fetch_add(1);
      char byte = '#';
      kelo_dm_read_db(handle_.get(), 7, &byte, 1);
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(cleans.load(), 1);
  EXPECT_EQ(sixes.load(), 1);
  EXPECT_TRUE(backend().calls.empty());
  std::thread([] { std::atomic_ref(*flag.load()).store(0); }).join();
  EXPECT_EQ(kelo_dm_clean(handle_.get(), nullptr), 6);
}

// Many threads write and read one item while the callback is exchanged.
TEST_F(ItemIo, CallsFromManyThreads) {
  static std::atomic<int> writes{0};
  static std::atomic<int> first{0};
  static std::atomic<int> second{0};
  handle_->write = [](std::uint32_t, kelo_dm_item_desc*, const void*, int) {
    writes.fetch_add(1);
    return 0;
  };
  handle_->read = [](std::uint32_t, kelo_dm_item_desc*, void*, int) { return -1; };
  const auto count_first = [](std::int32_t, const void*, std::int32_t) { return ++first; };
  const auto count_second = [](std::int32_t, const void*, std::int32_t) { return ++second; };
  kelo_dm_reg_event_callback(count_first);
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int n = 0; n < 50; ++n) {
        kelo_dm_write(handle_.get(), 7, "abc", 3);
        kelo_dm_write_db(handle_.get(), 7, "abc", 3);
      }
    });
  for (int n = 0; n < 50; ++n) {
    kelo_dm_reg_event_callback(count_second);
    kelo_dm_reg_event_callback(count_first);
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(writes.load(), 400);
  EXPECT_EQ(first.load() + second.load(), 400);
}

}  // namespace
