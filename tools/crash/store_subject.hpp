// SPDX-License-Identifier: MIT
// A daemon on the configuration databases, and what histories on them are made of.
#ifndef KELO_TOOLS_CRASH_STORE_SUBJECT_HPP
#define KELO_TOOLS_CRASH_STORE_SUBJECT_HPP

#include <functional>
#include <memory>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "tools/crash/history.hpp"
#include "tools/crash/items.hpp"

namespace kelo::crash {

class StoreSubject : public Subject {
 public:
  explicit StoreSubject(const std::vector<Item>& items) : items_(items) {}
  ~StoreSubject() override;
  StoreSubject(const StoreSubject&) = delete;
  StoreSubject& operator=(const StoreSubject&) = delete;

  void start() override;
  int read(std::size_t item, std::string& value) override;
  int write(std::size_t item, const std::string& value) override;
  std::string fault() override;

  kelo_dm_handle* handle() { return handle_; }
  const std::vector<Item>& items() const override { return items_; }

 protected:
  const std::vector<Item>& items_;
  std::vector<kelo_dm_item> records_;
  kelo_dm_handle* handle_ = nullptr;
  std::size_t default_version_ = 0;
  char buffer_[16384];  // never cleared: a page that is not touched costs a process nothing
};

// Writes so that the result tells whether the value can be read.
class VerifiedSubject : public StoreSubject {
 public:
  using StoreSubject::StoreSubject;
  int write(std::size_t item, const std::string& value) override;
};

// Stores each value as the only pair of a list.
class PairSubject : public StoreSubject {
 public:
  using StoreSubject::StoreSubject;
  int read(std::size_t item, std::string& value) override;
  int write(std::size_t item, const std::string& value) override;
};

// Reads all items but the last from the defaults.
class DefaultsSubject : public StoreSubject {
 public:
  using StoreSubject::StoreSubject;
  int read(std::size_t item, std::string& value) override;
  void settle() override;
  std::string fault() override;
};

// The same program after an update, which brings other defaults.
class NewDefaultsSubject : public DefaultsSubject {
 public:
  explicit NewDefaultsSubject(const std::vector<Item>& items) : DefaultsSubject(items) {
    default_version_ = 1;
  }
};

// Runs `body` in a process of its own, which is not recorded.
void in_other_process(const std::function<void()>& body);

// Empty, or what SQLite's check says of a database.
std::string database_fault(const char* path);
// Empty when both hold the same rows.
std::string difference(const char* path, const char* other);

void quiet_log();

using MakeSubject = std::unique_ptr<Subject> (*)(const std::vector<Item>& items);
template <class Kind>
std::unique_ptr<Subject> make_subject(const std::vector<Item>& items) {
  return std::make_unique<Kind>(items);
}

// Stores version 0 of the items that have one before the history.
void write_first_versions(const std::vector<Item>& items, MakeSubject make = make_subject<StoreSubject>);
// A history that writes its first item once.
History store_history(const char* name, const Items& items, MakeSubject make = make_subject<StoreSubject>);

// Damages a part of a file.
void overwrite(const char* path, std::size_t from, std::size_t count);

std::vector<History> store_histories();
std::vector<History> more_store_histories();
// Operations in an order that the seed decides.
History random_history(unsigned seed);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_STORE_SUBJECT_HPP
