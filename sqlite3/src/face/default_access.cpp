// SPDX-License-Identifier: MIT
// The exported functions for the defaults database, and the write of many defaults for the data manager.
#include "sqlite3/src/face/default_access.hpp"

#include <atomic>
#include <cstddef>

#include "base/atomic_ref.hpp"
#include "base/heap.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/defaults.hpp"
#include "sqlite3/src/defaults_together.hpp"
#include "sqlite3/src/face/arguments.hpp"
#include "sqlite3/src/version.hpp"

using namespace kelo::store;

namespace {

// It is true when this process has written the version record into the defaults database.
// A word, since compilers have no instruction that exchanges a byte on every processor.
std::atomic<std::uint32_t> defaults_version_written{0};

int read_row_of_default(const ItemRead& item, std::uint32_t* type) {
  constexpr const char* kCaller = "dm_read_def_db";
  if (item.table == nullptr || item.key == nullptr || item.buf == nullptr || item.size < 0)
    return refuse_arguments(kCaller);
  const Operation operation(kCaller, Access::shared);
  return operation ? read_default(item, type) : DM_SQLITE_NOT_OPENED;
}

}  // namespace

void kelo::store::write_many_defaults(std::span<dm::PendingDefault> defaults) {
  const Operation operation("dm_sqlite_def_db_const", Access::exclusive);
  if (!operation) {
    defaults.front().done = true;  // the operation has logged its failure already
    return;
  }
  const auto rows = base::zeroed_array<DefaultRow>(defaults.size() + 1);
  if (!rows) return;
  // The version record follows the first default of the process.
  const std::size_t version = defaults_version_written != 0 ? 0 : 1;
  rows[version].row = kVersionRow;
  for (std::size_t i = 0; i < defaults.size(); ++i) {
    const kelo_dm_item_desc& item = *defaults[i].item;
    rows[i == 0 ? 0 : i + version].row = default_row(item, &item.def_value, item.len);
  }
  if (!write_defaults_together({rows.get(), defaults.size() + version})) return;
  for (std::size_t i = 0; i < defaults.size(); ++i)
    defaults[i].done = rows[i == 0 ? 0 : i + version].state == DefaultRow::State::stored;
  if (rows[version].state == DefaultRow::State::stored) defaults_version_written = 1;
  // The single write of the first default writes the version again and logs its failure.
  if (defaults_version_written == 0) defaults.front().done = false;
}

int dm_sqlite_def_db_const(uint32_t /*id*/, kelo_dm_item_desc* item, const void* value, int len) {
  if (item == nullptr) return kelo::log::param_null(__func__);
  const Operation operation(__func__, Access::exclusive);
  if (!operation) return DM_SQLITE_NOT_OPENED;
  const int result = write_default(default_row(*item, value, len));
  return defaults_version_written.exchange(1) != 0 ? result : write_default(kVersionRow);
}

int dm_write_def_db(const char* table, const char* key, uint32_t type, const void* value, int len) {
  const Operation operation(__func__, Access::exclusive);
  if (!operation) return DM_SQLITE_NOT_OPENED;
  return write_default({table, 0, key, static_cast<std::int32_t>(type), value, len});
}

int dm_sqlite_def_db_read(uint32_t /*id*/, kelo_dm_item_desc* item, void* buf, int len) {
  if (item == nullptr) return kelo::log::param_null(__func__);
  std::uint32_t type = 0;
  const int result = read_row_of_default({item->item_table, item->item_key, buf, len}, &type);
  kelo::base::AtomicRef(item->type).store(static_cast<std::int32_t>(type), std::memory_order_relaxed);
  return result;
}

int dm_read_def_db(const char* table, const char* key, uint32_t* type_out, void* buf, int len) {
  return read_row_of_default({table, key, buf, len}, type_out);
}
