// SPDX-License-Identifier: MIT
// The exported functions that write and read values in memory by id.
#include <algorithm>
#include <cstring>

#include "base/fatal.hpp"
#include "data_manager/memory_items.hpp"
#include "kelo_utils/data_manager.h"
#include "log/library_log.hpp"

namespace {

using kelo::base::HeapPtr;
using kelo::dm::AddResult;
using kelo::dm::MemoryItem;
using kelo::dm::ReadLock;
using kelo::dm::WriteLock;

constexpr const char* kUpdate = "kelo_dm_update_item_value_to_mem";
constexpr const char* kAdd = "kelo_dm_add_item_to_mem";
constexpr const char* kConstruct = "kelo_dm_construct_queue_from_kvl";
constexpr const char* kRead = "kelo_dm_read_item_from_mem";

// The process ends when there is no memory, since callers have no result for it.
char* make_value_block(std::int32_t length) {
  auto* const block = static_cast<char*>(std::calloc(1, static_cast<std::size_t>(std::max(length, 1))));
  if (block == nullptr) kelo::base::fatal("data_manager/kelo_dm_sync_mem.c", __LINE__);
  return block;
}

// Stores the bytes in the item's block, or in a larger one when they do not fit. No other thread may use the item.
void set_value(MemoryItem& item, const void* data, std::int32_t length) {
  if (item.value == nullptr || item.capacity < length) {
    char* const larger = make_value_block(length);
    std::free(item.value);
    item.value = larger;
    item.capacity = length;
  }
  if (length > 0) std::memcpy(item.value, data, static_cast<std::size_t>(length));
  item.length = length;
}

bool check_value_arguments(const char* step, const void* data, const std::int32_t* length) {
  if (data != nullptr && length != nullptr && *length >= 0) return true;
  KELO_LOG_AS(step, LOG_LVL_ERR, "%s NULL\n", step);
  return false;
}

void update(MemoryItem& item, const void* data, std::int32_t length) {
  {
    const WriteLock lock(item);
    set_value(item, data, length);
  }
  KELO_LOG_AS(kUpdate, LOG_LVL_DBUG, " update_len: %d to_mem \n", length);
}

void add(std::int32_t id, const void* data, std::int32_t length) {
  HeapPtr<MemoryItem> item = kelo::base::zeroed<MemoryItem>();
  if (!item) {
    KELO_LOG_AS(kConstruct, LOG_LVL_ERR, "oem_MALLOC fail!\r\n");
    return;
  }
  item->id = id;
  set_value(*item, data, length);
  pthread_rwlock_init(&item->lock, nullptr);
  HeapPtr<char> block(item->value);  // is freed unless the item is added
  switch (kelo::dm::add_memory_item(item)) {
    case AddResult::stored:
      static_cast<void>(block.release());
      KELO_LOG_AS(kAdd, LOG_LVL_DBUG, " add_item: %x to_mem \n", static_cast<unsigned>(id));
      break;
    case AddResult::already_there:
      update(*kelo::dm::find_memory_item(id), data, length);
      break;
    case AddResult::no_memory:
      KELO_LOG_AS(kConstruct, LOG_LVL_ERR, "oem_MALLOC fail!\r\n");
      break;
  }
}

}  // namespace

void kelo_dm_wr_to_mem(int32_t id, const void* data, const int32_t* len_pointer) {
  if (MemoryItem* const item = kelo::dm::find_memory_item(id)) {
    if (check_value_arguments(kUpdate, data, len_pointer)) update(*item, data, *len_pointer);
    return;
  }
  KELO_LOG_AS(kUpdate, LOG_LVL_ERR, "dm_update_item_value_to_mem:no item found \n");
  if (check_value_arguments(kAdd, data, len_pointer)) add(id, data, *len_pointer);
}

void kelo_dm_rd_from_mem(int32_t id, void* buf, int32_t* len_pointer) {
  if (buf == nullptr || len_pointer == nullptr) return;
  MemoryItem* const item = kelo::dm::find_memory_item(id);
  if (item == nullptr) {
    KELO_LOG_AS(kRead, LOG_LVL_ERR, "read_item:%x from_mem fail!\n", static_cast<unsigned>(id));
    *len_pointer = -1;
    return;
  }
  {
    const ReadLock lock(*item);
    *len_pointer = std::min(*len_pointer, item->length);
    if (*len_pointer > 0) std::memcpy(buf, item->value, static_cast<std::size_t>(*len_pointer));
  }
  KELO_LOG_AS(kRead, LOG_LVL_DBUG, "read_item:%x from_mem len %d !!\n", static_cast<unsigned>(id),
              *len_pointer);
}
