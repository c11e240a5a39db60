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
    ASSERT_EQ(0, kelo_dm_reg_def_items(table_));
    ASSERT_EQ(0, kelo_dm_reg_event_callback(record_event));
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
  EXPECT_EQ(0, kelo_dm_write(handle_.get(), 7, "abc", 3));
  ASSERT_EQ(1U, backend().calls.size());
  const BackendCall& call = backend().calls[0];
  EXPECT_EQ("write", call.slot);
  EXPECT_EQ(7U, call.id);
  EXPECT_EQ(&table_[0].desc, call.item);
  EXPECT_EQ("abc", call.bytes);
  EXPECT_EQ(3, call.len);
  ASSERT_EQ(1U, events.size());
  EXPECT_EQ(7, events[0].id);
  EXPECT_EQ("abc", events[0].data);
  EXPECT_EQ(3, events[0].len);
  EXPECT_EQ(std::this_thread::get_id(), events[0].thread);
  EXPECT_EQ(1U, events[0].calls_before) << "the storage comes first";
  EXPECT_EQ((Texts{"DBUG hash:TAB KEY\n", "DBUG kelo_dm_is_run_clean: 0", "DBUG write cb ret:0"}),
            texts("oem_dm_write"));
  EXPECT_EQ(Texts{"INFO DM_RD_MEM ret 4\n"}, texts("oem_dm_read"));
}

TEST_F(ItemIo, WriteOfTheSameValueGoesThrough) {
  backend().stored = "abc";
  EXPECT_EQ(0, kelo_dm_write(handle_.get(), 7, "abc", 3));
  EXPECT_EQ(0, kelo_dm_write(handle_.get(), 7, "abc", 3));
  EXPECT_EQ((Texts{"write", "write"}), slots());
  EXPECT_EQ(2U, events.size());
  EXPECT_EQ(0, capture_.count(LOG_LVL_INFO, "Try to write the same data\n"));
}

TEST_F(ItemIo, WriteErrorIsPassedOnWithoutAnEvent) {
  for (const int error : {5, -1, INT_MIN}) {
    backend().write_result = error;
    EXPECT_EQ(error, kelo_dm_write(handle_.get(), 7, "abc", 3));
    EXPECT_EQ(error, kelo_dm_write_db(handle_.get(), 7, "abc", 3));
    EXPECT_EQ(error, kelo_dm_empty(handle_.get(), 7));
  }
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(1, capture_.count(LOG_LVL_DBUG, "oem_dm_write", "write cb ret:5"));
}

TEST_F(ItemIo, WriteWithoutAWriteIsFatal) {
  handle_->write = nullptr;
  KELO_EXPECT_FATAL(kelo_dm_write(handle_.get(), 7, "abc", 3));
}

TEST_F(ItemIo, LongestLength) {
  EXPECT_EQ(0, kelo_dm_write(handle_.get(), 7, "abc", 3));
  backend().write_result = 9;  // so that no change is announced
  std::vector<char> data(64);
  EXPECT_EQ(9, kelo_dm_write(handle_.get(), 7, data.data(), INT_MAX));
  EXPECT_EQ(INT_MAX, backend().calls.back().len);
  EXPECT_EQ(1, capture_.count_containing(LOG_LVL_INFO, "DM_RD_MEM")) << "only that of the first write";
  EXPECT_EQ(9, kelo_dm_write_db(handle_.get(), 7, data.data(), INT_MAX));
  EXPECT_EQ((Texts{"write", "write", "write"}), slots()) << "nothing to compare without room for one more";
  EXPECT_EQ(9, kelo_dm_write(handle_.get(), 7, data.data(), INT_MAX - 1));
  EXPECT_EQ(1, capture_.count(LOG_LVL_INFO, "DM_RD_MEM ret 2147483647\n"));
}

TEST_F(ItemIo, WriteDbStoresAChangedValue) {
  backend().stored = "abd";
  EXPECT_EQ(0, kelo_dm_write_db(handle_.get(), 7, "abc", 3));
  ASSERT_EQ((Texts{"read", "write"}), slots());
  EXPECT_EQ(4, backend().calls[0].len) << "room for one byte more";
  EXPECT_EQ(&table_[0].desc, backend().calls[1].item);
  EXPECT_EQ("abc", backend().calls[1].bytes);
  ASSERT_EQ(1U, events.size());
  EXPECT_EQ("abc", events[0].data);
  EXPECT_EQ(Texts{"ERR hash:TAB KEY\n"}, texts("oem_dm_read_db"));
  EXPECT_EQ(Texts{"ERR hash:TAB KEY\n"}, texts("oem_dm_write_db"));
}

TEST_F(ItemIo, WriteDbLeavesTheSameValueAlone) {
  backend().stored = "abc";
  EXPECT_EQ(0, kelo_dm_write_db(handle_.get(), 7, "abc", 3));
  EXPECT_EQ(Texts{"read"}, slots());
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(Texts{"INFO Try to write the same data\n"}, texts("oem_dm_write_db"));
}

TEST_F(ItemIo, WriteDbComparesTheLengthWrittenOnly) {
  backend().stored = "abcdef";
  EXPECT_EQ(0, kelo_dm_write_db(handle_.get(), 7, "abc", 3));
  EXPECT_EQ(Texts{"read"}, slots()) << "a longer stored value that begins so is the same";
  backend().stored = "ab";
  EXPECT_EQ(0, kelo_dm_write_db(handle_.get(), 7, "ab\0", 3));
  EXPECT_EQ((Texts{"read", "read"}), slots()) << "missing bytes count as zero";
  EXPECT_EQ(0, kelo_dm_write_db(handle_.get(), 7, "abc", 3));
  EXPECT_EQ((Texts{"read", "read", "read", "write"}), slots());
}

TEST_F(ItemIo, WriteDbAfterAFailedRead) {
  backend().read_failure = -102;
  EXPECT_EQ(0, kelo_dm_write_db(handle_.get(), 7, "\0\0\0", 3));
  EXPECT_EQ((Texts{"read", "write"}), slots()) << "a failed read is no zero value";
  EXPECT_EQ(1U, events.size());
  EXPECT_EQ((Texts{"ERR hash:TAB KEY\n", "ERR oem_dm_read_db def value:7 not register!\n"}),
            texts("oem_dm_read_db"));
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
  EXPECT_EQ(4, result) << "the value was compared";
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
  EXPECT_EQ(0, kelo_dm_empty(handle_.get(), 7));
  ASSERT_EQ(1U, backend().calls.size());
  EXPECT_EQ("write", backend().calls[0].slot);
  EXPECT_EQ(7U, backend().calls[0].id);
  EXPECT_EQ(&table_[0].desc, backend().calls[0].item);
  EXPECT_NE(nullptr, backend().calls[0].address);
  EXPECT_EQ(0, backend().calls[0].len);
  ASSERT_EQ(1U, events.size());
  EXPECT_EQ(7, events[0].id);
  EXPECT_EQ(0, events[0].len);
  EXPECT_EQ(Texts{"ERR hash:TAB KEY\n"}, texts("oem_dm_empty"));
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
  EXPECT_EQ(0, kelo_dm_empty(handle_.get(), 7));
  EXPECT_EQ(1U, events.size());
}

TEST_F(ItemIo, EmptyWithoutAWriteIsFatal) {
  handle_->write = nullptr;
  KELO_EXPECT_FATAL(kelo_dm_empty(handle_.get(), 7));
}

TEST_F(ItemIo, ReadReportsTheSizeAndLeavesTheBuffer) {
  backend().stored = "abc";
  std::array<char, 16> buffer;
  buffer.fill('#');
  EXPECT_EQ(16, kelo_dm_read(handle_.get(), 7, buffer.data(), 16));
  EXPECT_EQ(std::string(16, '#'), std::string_view(buffer.data(), 16));
  EXPECT_EQ(Texts{"INFO DM_RD_MEM ret 16\n"}, texts("oem_dm_read"));
  EXPECT_EQ(1, kelo_dm_read(handle_.get(), 8, buffer.data(), 1)) << "an unknown id is not looked up";
  EXPECT_EQ(INT_MAX, kelo_dm_read(handle_.get(), 7, buffer.data(), INT_MAX));
  EXPECT_TRUE(backend().calls.empty());
}

TEST_F(ItemIo, ReadDbFillsTheBuffer) {
  backend().stored = "abc";
  std::array<char, 8> buffer;
  buffer.fill('#');
  EXPECT_EQ(0, kelo_dm_read_db(handle_.get(), 7, buffer.data(), 8));
  EXPECT_EQ("abc#####", std::string_view(buffer.data(), 8));
  ASSERT_EQ(1U, backend().calls.size());
  EXPECT_EQ("read", backend().calls[0].slot);
  EXPECT_EQ(7U, backend().calls[0].id);
  EXPECT_EQ(&table_[0].desc, backend().calls[0].item);
  EXPECT_EQ(buffer.data(), backend().calls[0].address);
  EXPECT_EQ(8, backend().calls[0].len);
  EXPECT_EQ(Texts{"ERR hash:TAB KEY\n"}, texts("oem_dm_read_db"));
  backend().stored.clear();
  EXPECT_EQ(0, kelo_dm_read_db(handle_.get(), 7, buffer.data(), 8)) << "0 bytes are a success";
}

TEST_F(ItemIo, ReadDbFailure) {
  static kelo_dm_item table[] = {KELO_DM_ITEM(-2, "TAB", "MINUS", KELO_DM_TYPE_SCALAR3, 0, 4), KELO_DM_END};
  ASSERT_EQ(0, kelo_dm_reg_def_items(table));
  char byte = '#';
  for (const int failure : {-1, -100, -101, -102, INT_MIN}) {
    backend().read_failure = failure;
    EXPECT_EQ(-3, kelo_dm_read_db(handle_.get(), -2, &byte, 1));
    EXPECT_EQ(3, kelo_dm_read_from_dbconfigfile(handle_.get(), -2, &byte, 1));
  }
  EXPECT_EQ('#', byte);
  EXPECT_EQ(
      5, capture_.count(LOG_LVL_ERR, "oem_dm_read_db", "oem_dm_read_db def value:fffffffe not register!\n"));
  EXPECT_EQ(5, capture_.count_containing(LOG_LVL_ERR, "not register"));
}

TEST_F(ItemIo, ReadFromDbConfigFile) {
  backend().stored = "abc";
  std::array<char, 2> buffer;
  buffer.fill('#');
  EXPECT_EQ(0, kelo_dm_read_from_dbconfigfile(handle_.get(), 7, buffer.data(), 2));
  EXPECT_EQ("ab", std::string_view(buffer.data(), 2));
  ASSERT_EQ(1U, backend().calls.size());
  EXPECT_EQ("read", backend().calls[0].slot);
  EXPECT_EQ(2, backend().calls[0].len);
  EXPECT_EQ(Texts{"INFO hash:TAB KEY\n"}, texts("oem_dm_read_from_dbconfigfile"));
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
      EXPECT_EQ('#', byte);
      EXPECT_EQ(1U, capture_.lines().size());
      EXPECT_EQ(
          1, capture_.count(LOG_LVL_ERR, refusal.function, std::string(refusal.complaint) + " param NULL\n"))
          << capture_.dump();
    }
  }
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_TRUE(events.empty());
}

TEST_F(ItemIo, UnknownId) {
  char byte = '#';
  EXPECT_EQ(-3, kelo_dm_write(handle_.get(), 8, &byte, 1));
  EXPECT_EQ(-3, kelo_dm_write_db(handle_.get(), 8, &byte, 1));
  EXPECT_EQ(-3, kelo_dm_empty(handle_.get(), 8));
  EXPECT_EQ(-3, kelo_dm_read_db(handle_.get(), 8, &byte, 1));
  EXPECT_EQ(3, kelo_dm_read_from_dbconfigfile(handle_.get(), 8, &byte, 1));
  EXPECT_EQ('#', byte);
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_TRUE(events.empty());
  for (const char* function :
       {"oem_dm_write", "oem_dm_write_db", "oem_dm_empty", "oem_dm_read_db", "oem_dm_read_from_dbconfigfile"})
    EXPECT_EQ(Texts{"ERR symLookup failed: 8\n"}, texts(function)) << function;
  EXPECT_EQ(5U, capture_.lines().size());
}

TEST_F(ItemIo, CacheCallsReportTheLengthOnly) {
  std::array<char, 4> buffer = {'k', 'e', 'p', 't'};
  EXPECT_EQ(4, kelo_dm_cache_write(handle_.get(), buffer.data(), 4));
  EXPECT_EQ(1, kelo_dm_cache_write(nullptr, buffer.data(), 1));
  EXPECT_EQ(4, kelo_dm_cache_read(handle_.get(), buffer.data(), 4));
  EXPECT_EQ(INT_MAX, kelo_dm_cache_read(nullptr, buffer.data(), INT_MAX));
  EXPECT_EQ("kept", std::string_view(buffer.data(), 4));
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_TRUE(events.empty());
  EXPECT_TRUE(capture_.lines().empty()) << capture_.dump();
}

TEST_F(ItemIo, NewCallbackReplacesTheOld) {
  static int second_calls = 0;
  EXPECT_EQ(
      0, kelo_dm_reg_event_callback([](std::int32_t, const void*, std::int32_t) { return ++second_calls; }));
  EXPECT_EQ(0, kelo_dm_write(handle_.get(), 7, "abc", 3));
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(1, second_calls);
  EXPECT_EQ(-3, kelo_dm_reg_event_callback(nullptr));
  EXPECT_EQ(0, kelo_dm_write(handle_.get(), 7, "abc", 3));
  EXPECT_EQ(2, second_calls) << "a refused callback leaves the old one";
}

TEST_F(ItemIo, CallbackMayWrite) {
  static kelo_dm_handle* handle = nullptr;
  static int depth = 0;
  handle = handle_.get();
  kelo_dm_reg_event_callback([](std::int32_t, const void*, std::int32_t) {
    if (++depth < 3) kelo_dm_write(handle, 7, "nested", 6);
    return 0;
  });
  EXPECT_EQ(0, kelo_dm_write(handle_.get(), 7, "abc", 3));
  EXPECT_EQ(3, backend().count("write"));
}

TEST(ItemIoStart, NoCallbackAtFirst) {
  static kelo_dm_item table[] = {KELO_DM_ITEM(7, "TAB", "KEY", KELO_DM_TYPE_STRING, 0, 0), KELO_DM_END};
  ASSERT_EQ(0, kelo_dm_reg_def_items(table));
  const RecordingHandle handle;
  EXPECT_EQ(0, kelo_dm_write(handle.get(), 7, "abc", 3));
  EXPECT_EQ(0, kelo_dm_write_db(handle.get(), 7, "abc", 3));
  EXPECT_EQ(0, kelo_dm_empty(handle.get(), 7));
  EXPECT_EQ(3, backend().count("write"));
}

TEST_F(ItemIo, CleanRunsTheBackEnd) {
  backend().clean_result = -1;
  EXPECT_EQ(-1, kelo_dm_clean(handle_.get(), "keep a copy"));
  EXPECT_EQ("keep a copy", backend().clean_backup);
  EXPECT_EQ(1, backend().clean_second_argument);
  EXPECT_EQ(1, backend().clean_flag_seen);
  backend().clean_result = 6;
  EXPECT_EQ(6, kelo_dm_clean(handle_.get(), nullptr));
  EXPECT_EQ("(null)", backend().clean_backup);
  EXPECT_TRUE(capture_.lines().empty()) << capture_.dump();
}

TEST_F(ItemIo, CleanWithoutABackEnd) {
  EXPECT_EQ(0, kelo_dm_clean(nullptr, nullptr));
  handle_->clean = nullptr;
  EXPECT_EQ(0, kelo_dm_clean(handle_.get(), nullptr));
  EXPECT_EQ(0, kelo_dm_write(handle_.get(), 7, "abc", 3));
  EXPECT_EQ(1, backend().count("write")) << "the flag was raised for nothing";
}

TEST_F(ItemIo, SecondCleanDoesNothing) {
  backend().cleaning_ends = false;
  backend().clean_result = 6;
  EXPECT_EQ(6, kelo_dm_clean(handle_.get(), nullptr));
  EXPECT_EQ(0, kelo_dm_clean(handle_.get(), nullptr));
  EXPECT_EQ(1, backend().count("clean"));
  end_cleaning();
  EXPECT_EQ(6, kelo_dm_clean(handle_.get(), nullptr));
  EXPECT_EQ(2, backend().count("clean"));
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
    EXPECT_EQ(0, kelo_dm_write(handle_.get(), 7, "abc", 3));
    EXPECT_EQ(0, kelo_dm_write_db(handle_.get(), 7, "abc", 3));
    EXPECT_EQ(0, kelo_dm_empty(handle_.get(), 7));
    EXPECT_EQ(0, kelo_dm_read_db(handle_.get(), 7, buffer.data(), 4));
    EXPECT_EQ(3, kelo_dm_read_from_dbconfigfile(handle_.get(), 7, buffer.data(), 4));
    EXPECT_EQ(4, kelo_dm_read(handle_.get(), 7, buffer.data(), 4));
    EXPECT_EQ(-3, kelo_dm_write(handle_.get(), 8, "abc", 3)) << "arguments and ids are checked first";
    EXPECT_EQ("kept", std::string_view(buffer.data(), 4));
    EXPECT_TRUE(backend().calls.empty());
    EXPECT_TRUE(events.empty());
    EXPECT_EQ((Texts{"DBUG hash:TAB KEY\n", "DBUG kelo_dm_is_run_clean: 1", "ERR symLookup failed: 8\n"}),
              texts("oem_dm_write"));
    EXPECT_EQ((Texts{"ERR hash:TAB KEY\n", "ERR hash:TAB KEY\n"}), texts("oem_dm_read_db"));
    EXPECT_EQ(Texts{"ERR hash:TAB KEY\n"}, texts("oem_dm_write_db"));
    EXPECT_EQ(Texts{"ERR hash:TAB KEY\n"}, texts("oem_dm_empty"));
    EXPECT_EQ(Texts{"INFO hash:TAB KEY\n"}, texts("oem_dm_read_from_dbconfigfile"));

    EXPECT_EQ(0, kelo_dm_write_db(handle_.get(), 7, "\0\0", 2));
    EXPECT_EQ(1, capture_.count(LOG_LVL_INFO, "oem_dm_write_db", "Try to write the same data\n"))
        << "the unread value counts as zero bytes";
  }
  const RecordingHandle whole;
  EXPECT_EQ(0, kelo_dm_read_db(whole.get(), 7, buffer.data(), 4));
  EXPECT_EQ("abct", std::string_view(buffer.data(), 4));
}

// A name that fills its field has no terminator; the log must not run into the next field.
TEST_F(ItemIo, NamesWithoutATerminator) {
  static kelo_dm_item table[] = {KELO_DM_ITEM(9, "", "", KELO_DM_TYPE_SCALAR3, 0, 4), KELO_DM_END};
  std::memset(table[0].desc.item_table, 't', sizeof table[0].desc.item_table);
  std::memset(table[0].desc.item_key, 'k', sizeof table[0].desc.item_key);
  ASSERT_EQ(0, kelo_dm_reg_def_items(table));
  EXPECT_EQ(0, kelo_dm_empty(handle_.get(), 9));
  EXPECT_EQ(Texts{"ERR hash:" + std::string(32, 't') + " " + std::string(32, 'k') + "\n"},
            texts("oem_dm_empty"));
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
  EXPECT_EQ(1, cleans.load());
  EXPECT_EQ(1, sixes.load());
  EXPECT_TRUE(backend().calls.empty());
  std::thread([] { std::atomic_ref(*flag.load()).store(0); }).join();
  EXPECT_EQ(6, kelo_dm_clean(handle_.get(), nullptr));
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
  EXPECT_EQ(400, writes.load());
  EXPECT_EQ(400, first.load() + second.load());
}

}  // namespace
