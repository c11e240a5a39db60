// SPDX-License-Identifier: MIT
// Registration of handles and of tables of items.
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/queue.h"
#include "kelo_utils/symtab.h"
#include "tests/support/failing_heap.hpp"
#include "tests/support/lasting_allocations.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/recording_backend.hpp"

// The linker hands the library's calls of symOpen() to the second (--wrap).
extern "C" {
extern kelo_dm_item c_table[];
sym_fd open_of_library(int hash_size) asm("__real_symOpen");
sym_fd open_or_fail(int hash_size) asm("__wrap_symOpen");
}

namespace {

using kelo::tests::backend;
using kelo::tests::Cleaning;
using kelo::tests::FailingHeap;
using kelo::tests::LogCapture;
using kelo::tests::RecordingHandle;

bool hook_fills_operations = true;
std::vector<std::int32_t> hook_ids;
bool id_map_fails = false;

constexpr std::uint8_t kSecret[] = {1, 2, 3, 4};

std::vector<kelo_dm_item> three_items() {
  return {KELO_DM_ITEM(5, "TAB", "FIVE", KELO_DM_TYPE_SCALAR3, 55, 4),
          KELO_DM_TEXT_ITEM(6, "TAB", "SIX", "six"), KELO_DM_BYTES_ITEM(7, "TAB", "SEVEN", kSecret),
          KELO_DM_END};
}

// What a string's or buffer's `def_value` points at.
template <typename T>
const T* pointed_at(const kelo_dm_item& item) {
  return reinterpret_cast<const T*>(item.desc.def_value);  // NOLINT(performance-no-int-to-ptr): an address
}

// Whether the default in the row's field, which the storage reads from its first bytes, is `number`.
template <typename T>
bool holds(const kelo_dm_item& item, T number) {
  return item.desc.len == sizeof number && std::memcmp(&item.desc.def_value, &number, sizeof number) == 0;
}

// The descriptor that the data manager finds for an id; null when it knows none.
const kelo_dm_item_desc* registered(std::int32_t id) {
  const RecordingHandle handle;
  backend().calls.clear();
  if (kelo_dm_write(handle.get(), id, "x", 1) != 0) return nullptr;
  return backend().calls.at(0).item;
}

TEST(Registry, RowsOfACTable) {
  EXPECT_EQ(c_table[0].id, 1203);
  EXPECT_STREQ(c_table[0].desc.item_table, "NET_TAB");
  EXPECT_STREQ(c_table[0].desc.item_key, "CHANNEL");
  EXPECT_EQ(c_table[0].desc.def_type, 3);
  EXPECT_TRUE(holds<std::int32_t>(c_table[0], 6));
  EXPECT_EQ(c_table[0].desc.len, 4);
  EXPECT_EQ(c_table[1].desc.def_type, 5);
  EXPECT_STREQ(pointed_at<char>(c_table[1]), "home");
  EXPECT_EQ(c_table[1].desc.len, 4);
  EXPECT_EQ(c_table[2].desc.def_type, 6);
  EXPECT_EQ(std::memcmp(pointed_at<void>(c_table[2]), "\xDE\xAD\xBE", 3), 0);
  EXPECT_EQ(c_table[2].desc.len, 3);
  EXPECT_TRUE(holds<std::int8_t>(c_table[3], -2));
  EXPECT_EQ(c_table[4].id, -1);
}

// The macros make constants, so a table needs no code to run before main().
TEST(Registry, RowsOfACppTable) {
  static kelo_dm_item table[] = {KELO_DM_ITEM(1, "T", "K", KELO_DM_TYPE_SCALAR4, 0xFFFFFFFFU, 4),
                                 {2, {"T", "L", 0, KELO_DM_TEXT("text"), KELO_DM_TYPE_STRING, 4}},
                                 {3, {"T", "M", 0, KELO_DM_BYTES(kSecret), KELO_DM_TYPE_BUFFER, 4}},
                                 KELO_DM_END};
  EXPECT_TRUE(holds<std::uint32_t>(table[0], 0xFFFFFFFFU));
  EXPECT_STREQ(pointed_at<char>(table[1]), "text");
  EXPECT_EQ(pointed_at<std::uint8_t>(table[2]), kSecret);
}

TEST(Registry, ScalarsAreInTheFirstBytesOfTheirField) {
  static const kelo_dm_item table[] = {
      KELO_DM_ITEM(1, "T", "A", KELO_DM_TYPE_SCALAR1, 0x7E, 1),
      KELO_DM_ITEM(2, "T", "B", KELO_DM_TYPE_SCALAR2, -1500, 2),
      KELO_DM_ITEM(3, "T", "C", KELO_DM_TYPE_SCALAR3, 0x01020304, 4),
      KELO_DM_ITEM(4, "T", "D", KELO_DM_TYPE_SCALAR4, 5000, sizeof(std::intptr_t)),
      KELO_DM_ITEM(5, "T", "E", KELO_DM_TYPE_SCALAR1, 0x1234, 1)};
  EXPECT_TRUE(holds<std::int8_t>(table[0], 0x7E));
  EXPECT_TRUE(holds<std::int16_t>(table[1], -1500));
  EXPECT_TRUE(holds<std::int32_t>(table[2], 0x01020304));
  EXPECT_TRUE(holds<std::intptr_t>(table[3], 5000));
  EXPECT_TRUE(holds<std::int8_t>(table[4], 0x34)) << "a value is cut to its length";
}

TEST(Registry, NullTable) {
  const LogCapture capture;
  EXPECT_EQ(kelo_dm_reg_def_items(nullptr), -3);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_reg_def_items", "kelo_dm_reg_def_items param NULL\n"), 1)
      << capture.dump();
  EXPECT_EQ(symOpen(64), 0) << "the id map was opened for a null table";
}

TEST(Registry, TableWithoutItemsOpensTheMapOnly) {
  const LogCapture capture;
  kelo_dm_item end = KELO_DM_END;
  EXPECT_EQ(kelo_dm_reg_def_items(&end), 0);
  EXPECT_EQ(symOpen(64), 1) << "the id map does not hold the first table";
  EXPECT_EQ(kelo_dm_construct_def_database(0), -1);
  EXPECT_EQ(capture.count(LOG_LVL_DBUG, "oem_dm_construct_def_database", "tmp_cnt 0!\n"), 1);
}

TEST(Registry, MapThatCannotBeOpened) {
  const LogCapture capture;
  std::vector<kelo_dm_item> items = three_items();
  id_map_fails = true;
  EXPECT_EQ(kelo_dm_reg_def_items(items.data()), -4);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_reg_def_items", "oem_dm_def_reg_map_symtab open failed\n"), 1);
  EXPECT_EQ(kelo_dm_construct_def_database(0), -1);
  id_map_fails = false;
  EXPECT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  EXPECT_EQ(&items[0].desc, registered(5));
}

TEST(Registry, NothingIsFoundBeforeRegistration) {
  const LogCapture capture;
  EXPECT_EQ(registered(5), nullptr);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_write", "symLookup failed: 5\n"), 1) << capture.dump();
}

TEST(Registry, ItemsAreFoundByTheirIds) {
  std::vector<kelo_dm_item> items = three_items();
  items[0].id = INT_MIN;
  items[1].id = INT_MAX;
  items[2].id = -2;
  EXPECT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  EXPECT_EQ(&items[0].desc, registered(INT_MIN));
  EXPECT_EQ(backend().calls.at(0).id, static_cast<std::uint32_t>(INT_MIN));
  EXPECT_EQ(&items[1].desc, registered(INT_MAX));
  EXPECT_EQ(&items[2].desc, registered(-2));
  EXPECT_EQ(backend().calls.at(0).id, 0xFFFFFFFEU);
  EXPECT_EQ(registered(2), nullptr);
  EXPECT_EQ(registered(0), nullptr);
  EXPECT_EQ(registered(-1), nullptr);
}

TEST(Registry, UnknownIdsAreLoggedInFull) {
  const LogCapture capture;
  kelo_dm_item end = KELO_DM_END;
  ASSERT_EQ(kelo_dm_reg_def_items(&end), 0);
  EXPECT_EQ(registered(INT_MIN), nullptr);
  EXPECT_EQ(registered(INT_MAX), nullptr);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "symLookup failed: -2147483648\n"), 1);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "symLookup failed: 2147483647\n"), 1);
}

TEST(Registry, RowsAfterTheEndAreNotSeen) {
  std::vector<kelo_dm_item> items = three_items();
  items[1].id = -1;
  EXPECT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  EXPECT_EQ(&items[0].desc, registered(5));
  EXPECT_EQ(registered(7), nullptr);
}

TEST(Registry, ItemsStayWhenTheFirstUserOfTheTablesForgetsThemAll) {
  const kelo::tests::LastingAllocations forgotten_handles;
  std::vector<kelo_dm_item> items = three_items();
  ASSERT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  EXPECT_EQ(symSubOpen(), 0);
  EXPECT_EQ(&items[0].desc, registered(5));

  const sym_fd own_table = symOpen(4);
  EXPECT_EQ(own_table, 0) << "all handles were forgotten";
  EXPECT_EQ(symLookup(own_table, "5"), nullptr);
  std::vector<kelo_dm_item> more = three_items();
  more[1].id = 8;
  ASSERT_EQ(kelo_dm_reg_def_items(more.data()), 0);
  EXPECT_EQ(&more[0].desc, registered(5));
  EXPECT_EQ(&items[1].desc, registered(6));
  EXPECT_EQ(&more[1].desc, registered(8));
  EXPECT_EQ(symLookup(own_table, "8"), nullptr) << "an item went into a table of the program";
  symClose(own_table);
  EXPECT_EQ(&more[0].desc, registered(5));
}

TEST(Registry, ItemsStayWhenAProgramClosesATableThatIsNotItsOwn) {
  std::vector<kelo_dm_item> items = three_items();
  ASSERT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  for (sym_fd sd = 0; sd < 3; ++sd) symClose(sd);
  EXPECT_EQ(&items[0].desc, registered(5));
  std::vector<kelo_dm_item> more = three_items();
  ASSERT_EQ(kelo_dm_reg_def_items(more.data()), 0);
  EXPECT_EQ(&more[2].desc, registered(7));
}

TEST(Registry, MapIsAnOpenTable) {
  std::vector<kelo_dm_item> items = three_items();
  ASSERT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  const sym_t* const entry = symLookup(0, "5");
  ASSERT_NE(entry, nullptr);
  EXPECT_EQ(&items[0].desc, entry->content.payload.symbol);
  EXPECT_EQ(entry->arg, 0);
}

TEST(Registry, TypeIsTakenFromTheDeclaredType) {
  std::vector<kelo_dm_item> items = three_items();
  for (kelo_dm_item& item : items) item.desc.type = 99;
  EXPECT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  EXPECT_EQ(items[0].desc.type, 3);
  EXPECT_EQ(items[1].desc.type, 5);
  EXPECT_EQ(items[2].desc.type, 6);
  EXPECT_EQ(items[3].desc.type, 99) << "the end of the table was changed";
}

TEST(Registry, LaterItemWithTheSameIdIsFound) {
  std::vector<kelo_dm_item> items = three_items();
  items[1].id = 5;
  EXPECT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  EXPECT_EQ(&items[1].desc, registered(5));

  std::vector<kelo_dm_item> more = three_items();
  EXPECT_EQ(kelo_dm_reg_def_items(more.data()), 0);
  EXPECT_EQ(&more[0].desc, registered(5));
  EXPECT_EQ(&more[1].desc, registered(6));
}

TEST(Registry, ThousandItems) {
  std::vector<kelo_dm_item> items;
  items.reserve(1001);
  for (int id = 0; id < 1000; ++id)
    items.push_back(KELO_DM_ITEM(id * 7 - 3500, "TAB", "KEY", KELO_DM_TYPE_SCALAR3, id, 4));
  items.push_back(KELO_DM_END);
  ASSERT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  for (std::size_t i = 0; i + 1 < items.size(); ++i)
    ASSERT_EQ(&items[i].desc, registered(items[i].id)) << items[i].id;
}

TEST(Registry, NoMemoryForTheListIsFatal) {
  std::vector<kelo_dm_item> items = three_items();
  kelo_dm_item end = KELO_DM_END;
  ASSERT_EQ(kelo_dm_reg_def_items(&end), 0);
  {
    const FailingHeap none(0);
    EXPECT_EQ(kelo_dm_reg_def_items(&end), 0) << "a table without items needs no memory";
  }
  KELO_EXPECT_FATAL({
    const FailingHeap none(0);
    kelo_dm_reg_def_items(items.data());
  });
}

TEST(Registry, HandleStartsEmptyAndGoesThroughTheHook) {
  hook_fills_operations = false;
  kelo_dm_handle* const handle = kelo_dm_reg(-77);
  EXPECT_EQ(handle->id, -77);
  EXPECT_EQ(hook_ids, std::vector<std::int32_t>{-77});
  const kelo_dm_operations empty = {};
  EXPECT_EQ(std::memcmp(&empty, &handle->operations, sizeof empty), 0);
  EXPECT_EQ(kelo_dm_unreg(handle), 0);

  hook_fills_operations = true;
  kelo_dm_handle* const filled = kelo_dm_reg(3);
  EXPECT_NE(filled->operations.read_def_items_db_version, nullptr);
  EXPECT_EQ(hook_ids, (std::vector<std::int32_t>{-77, 3}));
  EXPECT_EQ(kelo_dm_unreg(filled), 0);
}

TEST(Registry, NoMemoryForAHandleIsFatal) {
  KELO_EXPECT_FATAL({
    const FailingHeap none(0);
    kelo_dm_reg(1);
  });
}

TEST(Registry, UnregisterNull) {
  const LogCapture capture;
  EXPECT_EQ(kelo_dm_unreg(nullptr), -1);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_unreg", "kelo_dm_unreg param NULL\n"), 1);
}

TEST(Registry, ConstructWithoutItems) {
  const LogCapture capture;
  EXPECT_EQ(kelo_dm_construct_def_database(9), -1);
  EXPECT_EQ(hook_ids, std::vector<std::int32_t>{9}) << "the storage is registered first";
  EXPECT_EQ(capture.count(LOG_LVL_DBUG, "oem_dm_construct_def_database", "tmp_cnt 0!\n"), 1);
  EXPECT_EQ(capture.count_containing(LOG_LVL_DBUG, "tmp_cnt--"), 0);
}

TEST(Registry, ConstructStoresEveryDefaultInOrder) {
  const LogCapture capture;
  std::vector<kelo_dm_item> items = three_items();
  items[1].id = 5;
  std::vector<kelo_dm_item> more = three_items();
  ASSERT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  ASSERT_EQ(kelo_dm_reg_def_items(more.data()), 0);
  ASSERT_EQ(kelo_dm_reg_def_items(more.data()), 0);
  items[2].desc.type = 99;
  backend().write_result = -1;  // ignored
  EXPECT_EQ(kelo_dm_construct_def_database(4), 0);

  EXPECT_EQ(hook_ids, std::vector<std::int32_t>{4});
  ASSERT_EQ(backend().calls.size(), 9U);
  for (std::size_t i = 0; i < 9; ++i) {
    const kelo_dm_item& item = i < 3 ? items[i] : more[i % 3];
    const kelo::tests::BackendCall& call = backend().calls[i];
    EXPECT_EQ(call.slot, "def_db_const");
    EXPECT_EQ(static_cast<std::uint32_t>(item.id), call.id);
    EXPECT_EQ(&item.desc, call.item);
    EXPECT_EQ(&item.desc.def_value, call.address);
    EXPECT_EQ(item.desc.len, call.len);
  }
  EXPECT_EQ(items[2].desc.type, 6) << "the declared type counts again";
  EXPECT_EQ(capture.count(LOG_LVL_DBUG, "oem_dm_construct_def_database", "tmp_cnt 9!\n"), 1);
  EXPECT_EQ(capture.count(LOG_LVL_DBUG, "oem_dm_construct_def_database", "tmp_cnt-- 0!\n"), 1);
}

TEST(Registry, ConstructWhileCleaning) {
  const LogCapture capture;
  std::vector<kelo_dm_item> items = three_items();
  ASSERT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  const RecordingHandle handle;
  const Cleaning cleaning(handle);
  EXPECT_EQ(kelo_dm_construct_def_database(4), 0);
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_EQ(capture.count(LOG_LVL_DBUG, "tmp_cnt-- 0!\n"), 1);
}

TEST(Registry, ConstructWithoutBackEndIsFatal) {
  std::vector<kelo_dm_item> items = three_items();
  ASSERT_EQ(kelo_dm_reg_def_items(items.data()), 0);
  hook_fills_operations = false;
  KELO_EXPECT_FATAL(kelo_dm_construct_def_database(4));
}

TEST(Registry, DefaultIsHandedToTheStorage) {
  const RecordingHandle handle;
  kelo_dm_item_desc item = {};
  backend().write_result = 17;
  EXPECT_EQ(kelo_dm_def_items_write(handle.get(), -5, &item, "value", 5), 17);
  ASSERT_EQ(backend().calls.size(), 1U);
  EXPECT_EQ(backend().calls[0].slot, "def_db_const");
  EXPECT_EQ(backend().calls[0].id, 0xFFFFFFFBU);
  EXPECT_EQ(&item, backend().calls[0].item);
  EXPECT_EQ(backend().calls[0].bytes, "value");
  EXPECT_EQ(kelo_dm_def_items_write(handle.get(), 5, &item, "value", -1), 17) << "lengths are the storage's";
  EXPECT_EQ(backend().calls.at(1).len, -1);
}

TEST(Registry, DefaultIsReadFromTheStorage) {
  const RecordingHandle handle;
  kelo_dm_item_desc item = {};
  std::array<char, 8> buffer{};
  backend().stored = "value";
  EXPECT_EQ(kelo_dm_def_items_read(handle.get(), 5, &item, buffer.data(), 8), 5);
  EXPECT_STREQ(buffer.data(), "value");
  ASSERT_EQ(backend().calls.size(), 1U);
  EXPECT_EQ(backend().calls[0].slot, "def_db_read");
  EXPECT_EQ(backend().calls[0].id, 5U);
  EXPECT_EQ(&item, backend().calls[0].item);
  EXPECT_EQ(backend().calls[0].len, 8);
  backend().read_failure = -101;
  EXPECT_EQ(kelo_dm_def_items_read(handle.get(), 5, &item, buffer.data(), 8), -101);
}

TEST(Registry, BadArgumentsOfTheDefaultCalls) {
  const LogCapture capture;
  const RecordingHandle handle;
  kelo_dm_item_desc item = {};
  std::array<char, 4> buffer = {'k', 'e', 'p', 't'};
  EXPECT_EQ(kelo_dm_def_items_write(nullptr, 5, &item, "v", 1), -3);
  EXPECT_EQ(kelo_dm_def_items_write(handle.get(), 5, nullptr, "v", 1), -3);
  EXPECT_EQ(kelo_dm_def_items_write(handle.get(), 5, &item, nullptr, 1), -3);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_def_items_write", "kelo_dm_def_items_write param NULL\n"), 3);
  EXPECT_EQ(kelo_dm_def_items_read(nullptr, 5, &item, buffer.data(), 4), -3);
  EXPECT_EQ(kelo_dm_def_items_read(handle.get(), 5, nullptr, buffer.data(), 4), -3);
  EXPECT_EQ(kelo_dm_def_items_read(handle.get(), 5, &item, nullptr, 4), -3);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_def_items_read", "kelo_dm_def_items_read param NULL\n"), 3);
  EXPECT_EQ("kept", std::string_view(buffer.data(), 4));
  EXPECT_TRUE(backend().calls.empty());
}

TEST(Registry, DefaultCallsRestWhileCleaning) {
  const RecordingHandle handle;
  const Cleaning cleaning(handle);
  kelo_dm_item_desc item = {};
  std::array<char, 4> buffer = {'k', 'e', 'p', 't'};
  backend().write_result = -1;
  backend().stored = "lost";
  EXPECT_EQ(kelo_dm_def_items_write(handle.get(), 5, &item, "v", 1), 0);
  EXPECT_EQ(kelo_dm_def_items_read(handle.get(), 5, &item, buffer.data(), 4), 0);
  EXPECT_EQ("kept", std::string_view(buffer.data(), 4));
  EXPECT_TRUE(backend().calls.empty());
  EXPECT_EQ(kelo_dm_def_items_write(handle.get(), 5, &item, nullptr, 1), -3) << "arguments are checked first";

  // An empty slot matters only when it is needed.
  handle->def_db_const = nullptr;
  handle->def_db_read = nullptr;
  EXPECT_EQ(kelo_dm_def_items_write(handle.get(), 5, &item, "v", 1), 0);
  EXPECT_EQ(kelo_dm_def_items_read(handle.get(), 5, &item, buffer.data(), 4), 0);
}

TEST(Registry, EmptyDefaultSlotsAreFatal) {
  const RecordingHandle handle;
  kelo_dm_item_desc item = {};
  std::array<char, 4> buffer{};
  handle->def_db_const = nullptr;
  handle->def_db_read = nullptr;
  KELO_EXPECT_FATAL(kelo_dm_def_items_write(handle.get(), 5, &item, "v", 1));
  KELO_EXPECT_FATAL(kelo_dm_def_items_read(handle.get(), 5, &item, buffer.data(), 4));
}

TEST(Registry, CompareId) {
  const LogCapture capture;
  kelo_dm_item item = KELO_DM_ITEM(5, "T", "K", KELO_DM_TYPE_SCALAR3, 0, 4);
  kelo_dm_item_node node = {{}, &item};
  kelo_dm_item_node hollow = {};
  std::int32_t id = 5;
  EXPECT_EQ(kelo_dm_compare_id(&node.link, &id), 1);
  EXPECT_EQ(kelo_dm_compare_id(&hollow.link, &id), 0);
  id = 6;
  EXPECT_EQ(kelo_dm_compare_id(&node.link, &id), 0);
  EXPECT_TRUE(capture.lines().empty());
  EXPECT_EQ(kelo_dm_compare_id(nullptr, &id), 0);
  EXPECT_EQ(kelo_dm_compare_id(&node.link, nullptr), 0);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_compare_id", "kelo_dm_compare_id param NULL\n"), 2);
}

TEST(Registry, CompareIdSearchesAQueueOfItems) {
  std::vector<kelo_dm_item> items = three_items();
  std::array<kelo_dm_item_node, 3> nodes{};
  q_type queue;
  q_init(&queue);
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    nodes[i].item = &items[i];
    q_put(&queue, q_link(&nodes[i], &nodes[i].link));
  }
  const std::int32_t wanted = 6;
  EXPECT_EQ(&nodes[1].link, q_linear_search(&queue, kelo_dm_compare_id, &wanted));
  const std::int32_t unknown = 8;
  EXPECT_EQ(q_linear_search(&queue, kelo_dm_compare_id, &unknown), nullptr);
  q_destroy(&queue);
}

}  // namespace

// The program's own hook, in place of the library's.
void dm_pal_reg(std::int32_t id, kelo_dm_operations* operations) {
  hook_ids.push_back(id);
  if (hook_fills_operations) *operations = kelo::tests::recording_operations();
}

sym_fd open_or_fail(int hash_size) { return id_map_fails ? -1 : open_of_library(hash_size); }
