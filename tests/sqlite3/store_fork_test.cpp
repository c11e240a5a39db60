// SPDX-License-Identifier: MIT
// A child made by fork without exec while other threads use the library: it inherits no lock that stays
// held.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/bounded_fork.hpp"
#include "tests/support/parameter_files.hpp"
#include "tests/support/sanitized.hpp"

namespace {

using namespace kelo::tests;

kelo_dm_item_desc descriptor_of(const char* key) {
  kelo_dm_item_desc item{};
  std::snprintf(item.item_table, sizeof item.item_table, "net");
  std::snprintf(item.item_key, sizeof item.item_key, "%s", key);
  item.type = KELO_DM_TYPE_STRING;
  return item;
}

// One round of each kind of work, by one of several workers that do not touch each other's values.
bool store_round(int worker, int round) {
  kelo_dm_item_desc item = descriptor_of(("worker" + std::to_string(worker)).c_str());
  const std::string value = std::to_string(round);
  std::string found(value.size(), '\0');
  const auto size = static_cast<int>(value.size());
  return dm_sqlite_write(7, &item, value.data(), size) == 0 &&
         dm_sqlite_read(7, &item, found.data(), size) == size && found == value;
}

bool parameter_round(int worker, int round) {
  const std::string name = "worker" + std::to_string(worker);
  int found = -1;
  return kelo_db_update_value("wifi", name.c_str(), &round, KELO_DB_TYPE_32BIT_4) == 0 &&
         kelo_db_get_value("wifi", name.c_str(), &found, KELO_DB_TYPE_32BIT_4, sizeof found) == 0 &&
         found == round;
}

// All share one item, whose long value is copied under its lock: it is always of one round. Nothing is allocated: the
// child could inherit the lock of a sanitizer's heap.
bool memory_round(int worker, int round) {
  constexpr int kItem = 1;
  static std::array<std::array<char, 200'000>, 3> values;
  auto& value = values.at(static_cast<std::size_t>(worker));
  value.fill(static_cast<char>('a' + round % 26));
  auto size = static_cast<std::int32_t>(value.size());
  kelo_dm_wr_to_mem(kItem, value.data(), &size);
  kelo_dm_rd_from_mem(kItem, value.data(), &size);
  return std::all_of(value.begin(), value.end(), [&value](char byte) { return byte == value.front(); });
}

struct Work {
  const char* name;
  bool (*round)(int worker, int round);
  bool allocates;
};
void PrintTo(const Work& work, std::ostream* out) { *out << work.name; }

const Work kWorks[] = {{"store", store_round, true},
                       {"parameters", parameter_round, true},
                       {"items_in_memory", memory_round, false}};

class StoreFork : public testing::TestWithParam<Work> {
 protected:
  void SetUp() override {
    if (kSanitized && GetParam().allocates) GTEST_SKIP() << kHeapOfSanitizer;
    alarm(100);
    provision("create table wifi (worker0, worker1, worker2); insert into wifi values (0, 0, 0);");
    kelo_set_log_tool_enable(0);
    kelo_set_log_level(LOG_LVL_DBUG);
    set_print_interface([](const char*) {});
    kelo_dm_operations operations{};
    sqlite_reg(&operations);
    for (int worker = 0; worker <= kChild; ++worker) EXPECT_TRUE(GetParam().round(worker, 0));
  }
  void TearDown() override { alarm(0); }

  static constexpr int kThreads = 2;
  static constexpr int kChild = kThreads;  // a worker, too
};

TEST_P(StoreFork, LeavesNoHeldLockInTheChild) {
  std::atomic<bool> stop = false;
  std::atomic<int> failed = 0;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int worker = 0; worker < kThreads; ++worker)
    threads.emplace_back([&, worker] {
      for (int round = 0; !stop; ++round) failed += GetParam().round(worker, round) ? 0 : 1;
    });
  constexpr int kChildren = 100;
  for (int child = 0; child < kChildren; ++child) {
    const ChildEnd end = fork_bounded([&] {
      alarm(10);
      return GetParam().round(kChild, child);
    });
    EXPECT_EQ(end, ChildEnd::good) << "child " << child;
    if (HasFailure()) break;
    // At another moment of the parent's work each time.
    std::this_thread::sleep_for(std::chrono::microseconds(child * 100));
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failed, 0);
}

INSTANTIATE_TEST_SUITE_P(While, StoreFork, testing::ValuesIn(kWorks),
                         [](const auto& work) { return std::string(work.param.name); });

}  // namespace
