// A daemon on the configuration databases, and what histories on them are made of.
#ifndef KELO_TOOLS_CRASH_STORE_SUBJECT_HPP
#define KELO_TOOLS_CRASH_STORE_SUBJECT_HPP

#include <functional>
#include <memory>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "tools/crash/history.hpp"

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

  // Writes with the marks that say so.
  void write_marked(std::size_t item, std::size_t version);

 protected:
  const std::vector<Item>& items_;
  std::vector<kelo_dm_item> records_;
  kelo_dm_handle* handle_ = nullptr;
  char buffer_[16384];  // never cleared: a page that is not touched costs a process nothing
};

// Reads all items but the last from the defaults; all of them have one version.
class DefaultsSubject : public StoreSubject {
 public:
  using StoreSubject::StoreSubject;
  int read(std::size_t item, std::string& value) override;
  void settle() override;
  std::string fault() override;
};

// Runs `body` in a process of its own, which is none of those that are watched.
void in_other_process(const std::function<void()>& body);

// Empty, or what SQLite's check says of a database.
std::string database_fault(const char* path);
// Empty when both hold the same rows.
std::string difference(const char* path, const char* other);

void quiet_log();

std::vector<History> store_histories();

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_STORE_SUBJECT_HPP
