// SPDX-License-Identifier: MIT
// kelo_dm_get(): the stored value, else the default, with its length.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <deque>
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

extern "C" std::int32_t get_from_c99(kelo_dm_handle* handle, std::int32_t id, void* buf, std::int32_t size,
                                     std::int32_t* len);

namespace {

using namespace std::string_literals;
using kelo::tests::backend;
using kelo::tests::Cleaning;
using kelo::tests::FailingHeap;
using kelo::tests::Fault;
using kelo::tests::LogCapture;
using kelo::tests::RecordingHandle;
using testing::ElementsAre;
using testing::SizeIs;

int health = 0;
bool health_is_the_databases = false;

enum ItemId {
  kText = 1,
  kByte,
  kShort,
  kWord,
  kField,
  kBytes,
  kEmptyText,
  kNoText,
  kNoBytes,
  kNoScalar,
  kLongScalar,
  kUnknownType
};

const std::uint8_t factory_bytes[] = {0x00, 0x01, 0xFF, 0x00};

kelo_dm_item items[] = {
    KELO_DM_TEXT_ITEM(kText, "net", "text", "home"),
    KELO_DM_ITEM(kByte, "net", "byte", KELO_DM_TYPE_SCALAR1, -2, 1),
    KELO_DM_ITEM(kShort, "net", "short", KELO_DM_TYPE_SCALAR2, 1500, 2),
    KELO_DM_ITEM(kWord, "net", "word", KELO_DM_TYPE_SCALAR3, -6, 4),
    KELO_DM_ITEM(kField, "net", "field", KELO_DM_TYPE_SCALAR4, 5000, sizeof(std::intptr_t)),
    KELO_DM_BYTES_ITEM(kBytes, "net", "bytes", factory_bytes),
    KELO_DM_TEXT_ITEM(kEmptyText, "net", "empty", ""),
    KELO_DM_ITEM(kNoText, "net", "notext", KELO_DM_TYPE_STRING, 0, 4),
    KELO_DM_ITEM(kNoBytes, "net", "nobytes", KELO_DM_TYPE_BUFFER, 0, 4),
    KELO_DM_ITEM(kNoScalar, "net", "noscalar", KELO_DM_TYPE_SCALAR3, 7, 0),
    // As a table made without the macros may have it.
    {kLongScalar, {"net", "long", 0, 5000, KELO_DM_TYPE_SCALAR4, sizeof(std::intptr_t) + 1}},
    KELO_DM_ITEM(kUnknownType, "net", "unknown", 7, 5000, 4),
    KELO_DM_END,
};

template <typename T>
std::string bytes_of(T number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

constexpr std::int32_t kLengthUntouched = -77;

struct Answer {
  std::int32_t result;
  std::int32_t len;
  std::string buffer;  // of the size asked for, preset with '#'

  bool operator==(const Answer&) const = default;
};

void PrintTo(const Answer& answer, std::ostream* out) {
  *out << answer.result << ", length " << answer.len << ", \"" << answer.buffer.substr(0, 64) << '"';
}

Answer untouched(std::int32_t result, std::int32_t size) {
  return {result, kLengthUntouched, std::string(static_cast<std::size_t>(size), '#')};
}

Answer too_small(std::int32_t len, std::int32_t size) {
  return {-2, len, std::string(static_cast<std::size_t>(size), '#')};
}

Answer found(const std::string& value, std::int32_t size) {
  return {0, static_cast<std::int32_t>(value.size()),
          value + std::string(static_cast<std::size_t>(size) - value.size(), '#')};
}

Answer get(kelo_dm_handle* handle, std::int32_t id, std::int32_t size) {
  Answer answer = untouched(0, size);
  answer.result = kelo_dm_get(handle, id, answer.buffer.data(), size, &answer.len);
  return answer;
}

std::deque<int> next_results;

// Answers a read with the next of the results, or after them with the stored bytes.
int read_next(std::uint32_t id, kelo_dm_item_desc* item, void* buf, int size) {
  const int stored = kelo::tests::record_read("read", id, item, buf, size);
  if (next_results.empty()) return stored;
  const int result = next_results.front();
  next_results.pop_front();
  return result;
}

// Answers as the SQLite back-end does: a value that does not fit fails its checksum.
int read_checked(std::uint32_t id, kelo_dm_item_desc* item, void* buf, int size) {
  const int result = kelo::tests::record_read("read", id, item, buf, size);
  return static_cast<std::size_t>(size) < backend().stored.size() ? -102 : result;
}

std::vector<int> rooms() {
  std::vector<int> sizes;
  for (const kelo::tests::BackendCall& call : backend().calls) sizes.push_back(call.len);
  return sizes;
}

class ItemGet : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(kelo_dm_reg_def_items(items), 0);
    handle_->read = read_next;
  }

  Answer get(std::int32_t id, std::int32_t size) { return ::get(handle_.get(), id, size); }

  const RecordingHandle handle_;
};

TEST_F(ItemGet, StoredValueComesWithItsLength) {
  backend().stored = "cabin";
  EXPECT_EQ(found("cabin", 16), get(kText, 16));
  EXPECT_EQ(found("cabin", 5), get(kText, 5)) << "a buffer that is just large enough";
  ASSERT_EQ(backend().count("read"), 2);
  EXPECT_EQ(backend().calls[0].id, 1U);
  EXPECT_EQ(&items[0].desc, backend().calls[0].item);
}

TEST_F(ItemGet, StoredValueOfNoBytesIsAValue) { EXPECT_EQ(found("", 4), get(kText, 4)); }

TEST_F(ItemGet, StoredValueThatDoesNotFitTellsItsLength) {
  backend().stored = "cabin";
  EXPECT_EQ(too_small(5, 4), get(kText, 4));
  EXPECT_EQ(too_small(5, 1), get(kText, 1));
}

TEST_F(ItemGet, DefaultsOfAllTypes) {
  backend().read_failure = -1;
  EXPECT_EQ(found("home", 8), get(kText, 8));
  EXPECT_EQ(found(bytes_of<std::int8_t>(-2), 8), get(kByte, 8));
  EXPECT_EQ(found(bytes_of<std::int16_t>(1500), 8), get(kShort, 8));
  EXPECT_EQ(found(bytes_of<std::int32_t>(-6), 8), get(kWord, 8));
  EXPECT_EQ(found(bytes_of<std::intptr_t>(5000), 8), get(kField, 8));
  EXPECT_EQ(found("\x00\x01\xFF\x00"s, 8), get(kBytes, 8));
  EXPECT_EQ(found("", 8), get(kEmptyText, 8));
}

TEST_F(ItemGet, DefaultsThatDoNotFitTellTheirLength) {
  backend().read_failure = -1;
  EXPECT_EQ(too_small(4, 3), get(kText, 3));
  EXPECT_EQ(too_small(4, 3), get(kWord, 3));
  EXPECT_EQ(too_small(4, 3), get(kBytes, 3));
  EXPECT_EQ(found("home", 4), get(kText, 4));
}

TEST_F(ItemGet, DefaultIsThatOfTheDeclaredType) {
  backend().read_failure = -1;
  items[0].desc.type = 0;  // as a read of the defaults database may leave it
  EXPECT_EQ(found("home", 8), get(kText, 8));
}

TEST_F(ItemGet, RowsWithoutADefault) {
  backend().read_failure = -1;
  for (const std::int32_t id : {kNoText, kNoBytes, kNoScalar, kLongScalar, kUnknownType})
    EXPECT_EQ(untouched(-1, 16), get(id, 16)) << id;
  items[5].desc.len = -1;
  EXPECT_EQ(untouched(-1, 16), get(kBytes, 16)) << "a negative length";
}

TEST_F(ItemGet, BadArgumentsAreRefused) {
  const LogCapture capture;
  char buffer[4] = "###";
  std::int32_t len = kLengthUntouched;
  EXPECT_EQ(kelo_dm_get(nullptr, kText, buffer, 4, &len), -3);
  EXPECT_EQ(kelo_dm_get(handle_.get(), kText, nullptr, 4, &len), -3);
  EXPECT_EQ(kelo_dm_get(handle_.get(), kText, buffer, 4, nullptr), -3);
  EXPECT_EQ(kelo_dm_get(handle_.get(), kText, buffer, 0, &len), -3);
  EXPECT_EQ(kelo_dm_get(handle_.get(), kText, buffer, -1, &len), -3);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_get", "kelo_dm_get param NULL\n"), 5) << capture.dump();
  EXPECT_EQ(kelo_dm_get(handle_.get(), 99, buffer, 4, &len), -3);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_get", "symLookup failed: 99\n"), 1);
  EXPECT_EQ(len, kLengthUntouched);
  EXPECT_STREQ(buffer, "###");
  EXPECT_TRUE(backend().calls.empty());
}

TEST_F(ItemGet, WhileCleaningNothingIsSaid) {
  backend().stored = "cabin";
  const Cleaning cleaning(handle_);
  EXPECT_EQ(untouched(-5, 8), get(kText, 8));
  EXPECT_TRUE(backend().calls.empty());
}

TEST_F(ItemGet, DamagedValueIsNotTheDefault) {
  const LogCapture capture;
  backend().read_failure = -102;
  EXPECT_EQ(untouched(-4, 8), get(kText, 8));
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_get", "read cb ret:-102\n"), 1) << capture.dump();
}

TEST_F(ItemGet, StorageThatCannotBeReadIsNotTheDefault) {
  const LogCapture capture;
  for (const int failure : {-2, -3, -99, -101, -103, INT_MIN}) {
    backend().read_failure = failure;
    EXPECT_EQ(untouched(-5, 8), get(kText, 8)) << failure;
  }
  EXPECT_EQ(capture.count_containing(LOG_LVL_ERR, "read cb ret:"), 6);
}

TEST_F(ItemGet, MissingTableIsTheDefaultWhenTheStorageIsSound) {
  backend().read_failure = -100;
  for (const int sound : {0, -1}) {
    health = sound;
    EXPECT_EQ(found("home", 8), get(kText, 8)) << sound;
  }
  for (const int unsound : {1, -2, 7}) {
    health = unsound;
    EXPECT_EQ(untouched(-5, 8), get(kText, 8)) << unsound;
  }
}

TEST_F(ItemGet, ReadThatFoundNothingIsRepeatedOnce) {
  backend().stored = "cabin";
  for (const int nothing : {-1, -100}) {
    next_results = {nothing};
    EXPECT_EQ(found("cabin", 8), get(kText, 8)) << nothing;
    next_results = {nothing, nothing};
    EXPECT_EQ(found("home", 8), get(kText, 8)) << nothing;
  }
  EXPECT_EQ(backend().count("read"), 8);
}

TEST_F(ItemGet, LongValuesAreReadWhole) {
  for (const auto read : {read_next, read_checked}) {
    handle_->read = read;
    for (const std::size_t length : {4095U, 4096U, 4097U, 65535U, 65536U, 1U << 20, (1U << 24) - 1}) {
      backend().stored.assign(length, 'x');
      const auto size = static_cast<std::int32_t>(length);
      EXPECT_EQ(too_small(size, 8), get(kText, 8)) << length;
      EXPECT_EQ(found(backend().stored, size), get(kText, size)) << length;
    }
  }
}

TEST_F(ItemGet, MemoryGrowsUntilTheValueFits) {
  backend().stored.assign(70000, 'x');
  EXPECT_EQ(too_small(70000, 8), get(kText, 8));
  EXPECT_THAT(rooms(), ElementsAre(4096, 65536, 1048576));
  backend().calls.clear();
  EXPECT_EQ(found(backend().stored, 70000), get(kText, 70000));
  EXPECT_THAT(rooms(), ElementsAre(70001));
}

TEST_F(ItemGet, ValueBeyondTheLargestMemoryIsRefused) {
  backend().stored.assign(1U << 24, 'x');
  EXPECT_EQ(untouched(-4, 8), get(kText, 8));
  EXPECT_THAT(rooms(), ElementsAre(4096, 65536, 1048576, 1 << 24));
  const auto size = static_cast<std::int32_t>(backend().stored.size());
  EXPECT_EQ(found(backend().stored, size), get(kText, size)) << "unless the caller has as much";
}

TEST_F(ItemGet, StorageThatClaimsMoreThanItWasAskedForIsNotBelieved) {
  next_results = {INT_MAX, INT_MAX, INT_MAX, INT_MAX};
  EXPECT_EQ(untouched(-4, 8), get(kText, 8));
}

TEST_F(ItemGet, WithoutMemoryNothingIsSaid) {
  backend().stored = "cabin";
  handle_->read = [](std::uint32_t, kelo_dm_item_desc*, void*, int) -> int { return -102; };
  kelo_set_log_level(LOG_LVL_CRT);  // what captures messages allocates
  char buffer[8] = "";
  std::int32_t len = 0;
  for (int allocations = 0; allocations <= 3; ++allocations) {
    const FailingHeap heap(allocations);
    EXPECT_EQ(kelo_dm_get(handle_.get(), kText, buffer, 8, &len), -5) << allocations;
  }
}

TEST_F(ItemGet, WithoutAReadIsFatal) {
  handle_->read = nullptr;
  KELO_EXPECT_FATAL(get(kText, 8));
}

TEST_F(ItemGet, LogsTheItemAtTheLowestLevel) {
  const LogCapture capture;
  backend().stored = "cabin";
  get(kText, 8);
  EXPECT_EQ(capture.count(LOG_LVL_DBUG, "oem_dm_get", "hash:net text\n"), 1) << capture.dump();
  EXPECT_THAT(capture.lines(), SizeIs(1));
}

TEST_F(ItemGet, CanBeCalledFromC99) {
  backend().stored = "cabin";
  char buffer[8] = "";
  std::int32_t len = 0;
  EXPECT_EQ(get_from_c99(handle_.get(), kText, buffer, 8, &len), 0);
  EXPECT_EQ(len, 5);
  EXPECT_STREQ(buffer, "cabin");
}

// --- With the SQLite back-end --------------------------------------------------------------------------

class ItemGetFromSqlite : public ItemGet {
 protected:
  void SetUp() override {
    ItemGet::SetUp();
    health_is_the_databases = true;
    sqlite_reg(&handle_.get()->operations);
  }

  void write(std::int32_t id, std::string_view value) {
    ASSERT_EQ(kelo_dm_write(handle_.get(), id, value.data(), static_cast<std::int32_t>(value.size())), 0);
  }
};

TEST_F(ItemGetFromSqlite, DefaultUntilAValueIsStored) {
  EXPECT_EQ(found("home", 8), get(kText, 8)) << "no table yet";
  write(kByte, "\x05");
  EXPECT_EQ(found("home", 8), get(kText, 8)) << "no row yet";
  write(kText, "cabin");
  EXPECT_EQ(found("cabin", 8), get(kText, 8));
  EXPECT_EQ(found("\x05", 8), get(kByte, 8));
  EXPECT_EQ(found(bytes_of<std::int32_t>(-6), 8), get(kWord, 8));
}

TEST_F(ItemGetFromSqlite, DefaultAfterAnEmptiedValueAndAfterAClean) {
  write(kText, "cabin");
  ASSERT_EQ(kelo_dm_empty(handle_.get(), kText), 0);
  EXPECT_EQ(found("home", 8), get(kText, 8));
  write(kText, "cabin");
  kelo_dm_clean(handle_.get(), nullptr);
  EXPECT_EQ(found("home", 8), get(kText, 8));
}

TEST_F(ItemGetFromSqlite, ValueThatDoesNotFitTellsItsLength) {
  write(kText, "a cabin in the woods");
  EXPECT_EQ(too_small(20, 8), get(kText, 8));
  write(kText, "\0\0\0\0\0\0\0\0\0\0\0\0"s);
  EXPECT_EQ(too_small(12, 8), get(kText, 8)) << "a checksum that cannot see the cut";
}

TEST_F(ItemGetFromSqlite, LongValueIsReadWhole) {
  const std::string value(70000, 'x');
  write(kText, value);
  EXPECT_EQ(found(value, 70000), get(kText, 70000));
  EXPECT_EQ(too_small(70000, 8), get(kText, 8));
}

TEST_F(ItemGetFromSqlite, DamagedValueIsNotTheDefault) {
  write(kText, "cabin");
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK})
    kelo::tests::execute_sql(path, "update net set crc=crc+1 where key='text'");
  EXPECT_EQ(untouched(-4, 8), get(kText, 8));
}

TEST_F(ItemGetFromSqlite, StorageThatCannotBeOpenedIsNotTheDefault) {
  write(kText, "cabin");
  {
    const Fault open({.call = "sqlite3_open", .code = SQLITE_CANTOPEN, .times = kelo::tests::kEveryTime});
    const Fault open_v2(
        {.call = "sqlite3_open_v2", .code = SQLITE_CANTOPEN, .times = kelo::tests::kEveryTime});
    EXPECT_EQ(untouched(-5, 8), get(kText, 8));
  }
  EXPECT_EQ(found("cabin", 8), get(kText, 8));
}

TEST_F(ItemGetFromSqlite, DamagedDatabasesAreNotTheDefault) {
  write(kText, "cabin");
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK}) kelo::tests::corrupt_schema(path);
  EXPECT_EQ(untouched(-5, 8), get(kText, 8));
}

}  // namespace

// The program's own hook, in place of the library's.
int dm_pal_check_db_health() { return health_is_the_databases ? check_database_health(DB_CONFIG) : health; }
