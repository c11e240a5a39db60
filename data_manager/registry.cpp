// SPDX-License-Identifier: MIT
// The registry of items, which are found by their ids, and the exported functions for their defaults.
#include "data_manager/registry.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "base/heap.hpp"
#include "base/text_builder.hpp"
#include "data_manager/many_defaults.hpp"
#include "data_manager/memory_fork_gate.hpp"
#include "kelo_utils/queue.h"
#include "kelo_utils/symtab.h"
#include "log/library_log.hpp"
#include "queue/queue_lock.hpp"
#include "symtab/kept_table.hpp"

static_assert(offsetof(kelo_dm_item_node, link) == 0);
#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(kelo_dm_item_desc) == 80 && offsetof(kelo_dm_item_desc, item_key) == 32 &&
              offsetof(kelo_dm_item_desc, type) == 64 && offsetof(kelo_dm_item_desc, def_value) == 68 &&
              offsetof(kelo_dm_item_desc, def_type) == 72 && offsetof(kelo_dm_item_desc, len) == 76);
static_assert(sizeof(kelo_dm_item) == 84 && offsetof(kelo_dm_item, desc) == 4);
static_assert(sizeof(kelo_dm_operations) == 28 && offsetof(kelo_dm_operations, clean) == 8 &&
              offsetof(kelo_dm_operations, read_def_items_db_version) == 24);
static_assert(sizeof(kelo_dm_handle) == 32 && offsetof(kelo_dm_handle, operations) == 4);
static_assert(sizeof(kelo_dm_item_node) == 12 && offsetof(kelo_dm_item_node, item) == 8);
#endif

namespace {

using kelo::dm::kBadArgument;

constexpr int kNothingRegistered = -1;
constexpr int kNoIdMap = -4;
constexpr std::int32_t kEndOfTable = -1;
constexpr int kIdMapBuckets = 64;

// One thread sets these at start-up, and afterwards they are only read. The map is used without its handle, since the
// first symSubOpen() of a program makes all handles of tables invalid.
kelo::symtab::Table* id_map = nullptr;
q_type def_items;
bool def_items_ready = false;

// The name of an id in the id map.
struct IdKey : kelo::base::FixedText<128> {
  explicit IdKey(std::int32_t id) : FixedText("%d", id) {}
};

bool open_id_map() {
  if (id_map == nullptr) id_map = kelo::symtab::keep(symOpen(kIdMapBuckets));
  return id_map != nullptr;
}

std::size_t count_items(const kelo_dm_item* records) {
  std::size_t count = 0;
  while (records[count].id != kEndOfTable) ++count;
  return count;
}

void enter_item(kelo_dm_item& item, kelo_dm_item_node& node) {
  const kelo::dm::MemoryChange change;
  item.desc.type = item.desc.def_type;
  kelo::symtab::enter(*id_map, IdKey(item.id).c_str(), valueSymbol(&item.desc), 0);
  node.item = &item;
  q_put(&def_items, q_link(&node, &node.link));
}

// The cast is valid because the link is the first member of the node.
kelo_dm_item* item_of(q_link_type* link) { return reinterpret_cast<kelo_dm_item_node*>(link)->item; }

// Stores the defaults of the first `count` items together when the storage of `handle` can do that. The result tells
// which defaults are done. It is null when each default must be stored by itself.
kelo::base::HeapPtr<kelo::dm::PendingDefault[]> store_together(const kelo_dm_handle& handle,
                                                               std::size_t count) {
  const auto* const many = kelo::dm::many_defaults.load(std::memory_order_relaxed);
  if (many == nullptr || handle.operations.def_db_const != many->single || kelo::dm::clean_flag() != 0)
    return nullptr;
  auto defaults = kelo::base::zeroed_array<kelo::dm::PendingDefault>(count);
  if (!defaults) return nullptr;
  const std::span pending(defaults.get(), count);
  q_link_type* link = q_check(&def_items);
  for (kelo::dm::PendingDefault& entry : pending) {
    entry.item = &item_of(link)->desc;
    entry.item->type = entry.item->def_type;
    link = q_next(&def_items, link);
  }
  many->store(pending);
  return defaults;
}

}  // namespace

void kelo::dm::fatal_without_storage(int line) {
  KELO_LOG_AS("dm_pal_reg", LOG_LVL_ERR, "no storage back-end is registered: link kelo_utils_sqlite\n");
  fatal(line);
}

kelo_dm_item_desc* kelo::dm::find_item(std::int32_t id, const char* function) {
  const IdKey key(id);
  const sym_t* const symbol = id_map == nullptr ? nullptr : kelo::symtab::look_up(*id_map, key.c_str());
  if (symbol == nullptr) {
    KELO_LOG_AS(function, LOG_LVL_ERR, "symLookup failed: %s\n", key.c_str());
    return nullptr;
  }
  return static_cast<kelo_dm_item_desc*>(symbol->content.payload.symbol);
}

#ifdef KELO_ADDITIONS
const kelo_dm_item* kelo::dm::next_registered(q_link_type*& position) {
  if (!def_items_ready) return nullptr;
  position = position == nullptr ? q_check(&def_items) : q_next(&def_items, position);
  return position == nullptr ? nullptr : item_of(position);
}
#endif

void kelo::dm::initialise_item_list_lock() {
  if (def_items_ready) queue::make_lock(def_items);
}

int kelo_dm_reg_def_items(kelo_dm_item* records) {
  if (records == nullptr) {
    kelo::log::param_null(__func__);
    return kBadArgument;
  }
  if (!def_items_ready) {
    q_init(&def_items);
    def_items_ready = true;
  }
  if (!open_id_map()) {
    KELO_LOG(LOG_LVL_ERR, "oem_dm_def_reg_map_symtab open failed\n");
    return kNoIdMap;
  }
  const std::size_t count = count_items(records);
  if (count == 0) return 0;
  auto* const nodes = kelo::base::zeroed_array<kelo_dm_item_node>(count).release();
  if (nodes == nullptr) kelo::dm::fatal();
  for (std::size_t i = 0; i < count; ++i) enter_item(records[i], nodes[i]);
  return 0;
}

int kelo_dm_construct_def_database(std::int32_t id) {
  struct Unregister {
    void operator()(kelo_dm_handle* handle) const { kelo_dm_unreg(handle); }
  };
  const std::unique_ptr<kelo_dm_handle, Unregister> handle(kelo_dm_reg(id));
  int remaining = def_items_ready ? q_cnt(&def_items) : 0;
  KELO_LOG(LOG_LVL_DBUG, "tmp_cnt %d!\n", remaining);
  if (remaining < 1) return kNothingRegistered;
  const auto count = static_cast<std::size_t>(remaining);
  const auto stored_together = store_together(*handle, count);
  std::size_t seen = 0;
  for (q_link_type* link = q_check(&def_items); link != nullptr; link = q_next(&def_items, link)) {
    --remaining;
    if (stored_together && seen < count && stored_together[seen++].done) continue;
    kelo_dm_item& item = *item_of(link);
    item.desc.type = item.desc.def_type;
    kelo_dm_def_items_write(handle.get(), item.id, &item.desc, &item.desc.def_value, item.desc.len);
  }
  KELO_LOG(LOG_LVL_DBUG, "tmp_cnt-- %d!\n", remaining);
  return 0;
}

int kelo_dm_def_items_write(kelo_dm_handle* handle, std::int32_t id, kelo_dm_item_desc* descriptor,
                            const void* value, std::int32_t len) {
  if (handle == nullptr || descriptor == nullptr || value == nullptr) {
    kelo::log::param_null(__func__);
    return kBadArgument;
  }
  if (kelo::dm::clean_flag() != 0) return 0;
  return kelo::dm::required(handle->operations.def_db_const)(static_cast<std::uint32_t>(id), descriptor,
                                                             value, len);
}

int kelo_dm_def_items_read(kelo_dm_handle* handle, std::int32_t id, kelo_dm_item_desc* descriptor, void* buf,
                           std::int32_t size) {
  if (handle == nullptr || descriptor == nullptr || buf == nullptr) {
    kelo::log::param_null(__func__);
    return kBadArgument;
  }
  if (kelo::dm::clean_flag() != 0) return 0;
  return kelo::dm::required(handle->operations.def_db_read)(static_cast<std::uint32_t>(id), descriptor, buf,
                                                            size);
}

int kelo_dm_compare_id(q_link_type* node, const void* id_pointer) {
  if (node == nullptr || id_pointer == nullptr) {
    kelo::log::param_null(__func__);
    return 0;
  }
  const kelo_dm_item* const item = item_of(node);
  return item != nullptr && item->id == *static_cast<const std::int32_t*>(id_pointer) ? 1 : 0;
}
