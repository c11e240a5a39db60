// SPDX-License-Identifier: MIT
// Starts the library on the files, as a daemon does, and reads and writes items through it.
#include "tools/crash/store_subject.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <utility>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tools/crash/marks.hpp"

namespace kelo::crash {
namespace {

constexpr int kFirstId = 1000;

kelo_dm_item record_of(const Item& item, int id, std::size_t default_version) {
  const std::string& value = item.values.at(std::min(default_version, item.values.size() - 1));
  kelo_dm_item record =
      KELO_DM_ITEM(id, "", "", KELO_DM_TYPE_STRING, KELO_DM_TEXT(value.c_str()), value.size());
  std::snprintf(record.desc.item_table, sizeof record.desc.item_table, "%s", item.table.c_str());
  std::snprintf(record.desc.item_key, sizeof record.desc.item_key, "%s", item.key.c_str());
  return record;
}

}  // namespace

void quiet_log() {
  kelo_set_log_level(LOG_LVL_CRT);
  set_print_interface([](const char*) {});
}

void in_other_process(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    body();
    _exit(0);
  }
  int status = -1;
  if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
    std::fprintf(stderr, "the files of a history could not be prepared, status %d\n", status);
    std::_Exit(2);
  }
}

StoreSubject::~StoreSubject() {
  if (handle_ != nullptr) kelo_dm_unreg(handle_);
  // The library knows the registered items for the life of the process.
  static std::deque<std::vector<kelo_dm_item>> registered;
  registered.push_back(std::move(records_));
}

void StoreSubject::start() {
  quiet_log();
  for (std::size_t item = 0; item < items_.size(); ++item) {
    records_.push_back(record_of(items_[item], kFirstId + static_cast<int>(item), default_version_));
  }
  kelo_dm_item end = KELO_DM_END;
  records_.push_back(end);
  handle_ = kelo_dm_reg(0);
  kelo_dm_reg_def_items(records_.data());
}

int StoreSubject::read(std::size_t item, std::string& value) {
  if (handle_ == nullptr) return -3;  // no memory for it
  value.resize(65536);
  kelo_dm_item& record = records_[item];
  const int result = handle_->operations.read(static_cast<std::uint32_t>(record.id), &record.desc,
                                              value.data(), static_cast<int>(value.size()));
  value.resize(result > 0 ? static_cast<std::size_t>(result) : 0);
  return result;
}

int StoreSubject::write(std::size_t item, const std::string& value) {
  return kelo_dm_write(handle_, records_[item].id, value.data(), static_cast<int>(value.size()));
}

std::string StoreSubject::fault() {
  std::string fault = database_fault(DB_CONFIG);
  if (fault.empty()) fault = difference(DB_CONFIG, DB_CONFIGBAK);
  if (fault.empty()) fault = database_fault(DB_CONFIGBAK);
  return fault;
}

int VerifiedSubject::write(std::size_t item, const std::string& value) {
  return kelo_dm_write_verified(handle_, records_[item].id, value.data(), static_cast<int>(value.size()));
}

int PairSubject::read(std::size_t item, std::string& value) {
  const int result = StoreSubject::read(item, value);
  if (result <= 0) return result;
  std::string_view text = value.c_str();  // the list is stored with its terminator
  constexpr std::string_view kStart = "pair,";
  if (!text.starts_with(kStart) || !text.ends_with(";")) return result;
  text.remove_prefix(kStart.size());
  text.remove_suffix(1);
  value = std::string(text);
  return result;
}

int PairSubject::write(std::size_t item, const std::string& value) {
  std::int32_t length = 0;
  return kelo_dm_write_key_value_pairs(handle_, records_[item].id, "pair", value.c_str(), &length);
}

int DefaultsSubject::read(std::size_t item, std::string& value) {
  if (item + 1 == items_.size()) return StoreSubject::read(item, value);
  kelo_dm_item& record = records_[item];
  const int result = kelo_dm_def_items_read(handle_, record.id, &record.desc, buffer_, sizeof buffer_);
  value.assign(buffer_, result > 0 ? static_cast<std::size_t>(result) : 0);
  record.desc.type = record.desc.def_type;
  return result;
}

void DefaultsSubject::settle() { kelo_dm_construct_def_database(0); }

std::string DefaultsSubject::fault() {
  const std::string fault = StoreSubject::fault();
  return fault.empty() ? database_fault(DB_DEF_ITEMS) : fault;
}

}  // namespace kelo::crash
