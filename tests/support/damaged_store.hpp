// SPDX-License-Identifier: MIT
// A store with damaged files, and what a daemon makes of them.
#ifndef KELO_TESTS_SUPPORT_DAMAGED_STORE_HPP
#define KELO_TESTS_SUPPORT_DAMAGED_STORE_HPP

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <functional>
#include <string>

#include "tests/support/store_settings.hpp"
#include "tools/crash/quick_commands.hpp"

namespace kelo::tests {

struct StoredItem {
  const char* table;
  const char* key;
  std::string value;
  std::string older;  // what the recovery copy holds
};
constexpr std::size_t kStoredItems = 4;
using StoredItems = std::array<StoredItem, kStoredItems>;
// What each daemon writes to the last item.
inline constexpr char kNewValue[] = "written";

// Healthy files. Primary and backup are the same bytes.
struct HealthyStore {
  StoredItems items;
  std::string database;
  std::string recovery;
  std::string journal;
};

inline void empty_store_folders() {
  for (const char* const folder : {"/data", "/kelonvbak/data"})
    for (const auto& entry : std::filesystem::directory_iterator(folder)) std::filesystem::remove_all(entry);
}

// What the library makes of the items, in pages of this size; 0 leaves SQLite's own size.
inline std::string made_database(const StoredItems& items, std::string StoredItem::*value,
                                 std::size_t page_size) {
  empty_store_folders();
  start_and([&] {
    for (const StoredItem& item : items) EXPECT_EQ(put(item.key, item.*value, item.table), 0);
  });
  if (page_size != 0) execute_sql(DB_CONFIG, "pragma page_size = " + std::to_string(page_size) + "; vacuum");
  return read_file(DB_CONFIG);
}

inline HealthyStore make_store(const StoredItems& items, std::size_t page_size) {
  HealthyStore store;
  store.items = items;
  store.recovery = made_database(items, &StoredItem::older, page_size);
  store.database = made_database(items, &StoredItem::value, page_size);
  store.journal = read_file(DB_STATE);
  return store;
}

enum class Found { right, refused, recovered, unwritten, garbage };
using Findings = std::array<Found, kStoredItems>;

// How a daemon fared.
struct DamageOutcome {
  int signal = 0;  // that ended it
  bool write_failed = false;
  Findings at_start{};
  Findings at_end{};
};

inline Found find_item(const StoredItem& item, const std::string& expected) {
  std::array<char, 4096> value;
  const int result = dm_pal_read(item.table, item.key, value.data(), static_cast<int>(value.size()));
  if (result < 0) return Found::refused;
  const std::string found(value.data(), static_cast<std::size_t>(result));
  if (found == expected) return Found::right;
  if (found == item.older) return Found::recovered;
  return found == item.value ? Found::unwritten : Found::garbage;
}

// Reads all items, writes the last one, and reads all again.
inline void run_damaged_daemon(const StoredItems& items, DamageOutcome& outcome) {
  kelo_set_log_level(LOG_LVL_CRT);
  set_print_interface([](const char*) {});
  kelo::crash::use_quick_commands(true);
  kelo_dm_operations operations{};
  sqlite_reg(&operations);
  for (std::size_t i = 0; i < kStoredItems; ++i) outcome.at_start[i] = find_item(items[i], items[i].value);
  const StoredItem& last = items.back();
  outcome.write_failed = put(last.key, kNewValue, last.table) != 0;
  // A write that meets damage may show only after the next one.
  if (find_item(last, kNewValue) != Found::right)
    outcome.write_failed = put(last.key, kNewValue, last.table) != 0;
  for (std::size_t i = 0; i < kStoredItems; ++i)
    outcome.at_end[i] = find_item(items[i], i + 1 < kStoredItems ? items[i].value : kNewValue);
}

inline void place_file(const char* path, const std::string& bytes) {
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  EXPECT_EQ(write(file, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size())) << path;
  close(file);
}

// Starts daemons on a store, each on files of its own.
class DamagedStore {
 public:
  explicit DamagedStore(bool has_recovery, const HealthyStore& healthy)
      : healthy_(healthy),
        outcome_(static_cast<DamageOutcome*>(mmap(nullptr, sizeof(DamageOutcome), PROT_READ | PROT_WRITE,
                                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
    empty_store_folders();
    if (!has_recovery) return;
    // The quick copy does not cross file systems.
    place_file("/data/provisioned.db", healthy.recovery);
    std::filesystem::create_symlink("/data/provisioned.db", kRecovery);
  }
  DamagedStore(const DamagedStore&) = delete;
  DamagedStore& operator=(const DamagedStore&) = delete;
  ~DamagedStore() { munmap(outcome_, sizeof(DamageOutcome)); }

  const DamageOutcome& start(const std::string& primary, const std::string& backup) {
    for (const std::string path : {DB_CONFIG, DB_CONFIGBAK})
      for (const char* const ending : {"-journal", "-previous", "-new"}) unlink((path + ending).c_str());
    place_file(DB_CONFIG, primary);
    place_file(DB_CONFIGBAK, backup);
    place_file(DB_STATE, healthy_.journal);
    *outcome_ = {};
    const pid_t child = fork();
    if (child == 0) {
      alarm(60);
      run_damaged_daemon(healthy_.items, *outcome_);
      _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    outcome_->signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return *outcome_;
  }

 private:
  const HealthyStore& healthy_;
  DamageOutcome* const outcome_;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_DAMAGED_STORE_HPP
