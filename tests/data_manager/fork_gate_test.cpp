// SPDX-License-Identifier: MIT
// fork() without exec while threads use what the data manager holds in memory. Whatever is wrong shows as a
// child that hangs, so every wait has its end, or as a value that was never written.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <semaphore>
#include <thread>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "tests/support/bounded_fork.hpp"
#include "tests/support/sanitized.hpp"

namespace {

using kelo::tests::ChildEnd;
using kelo::tests::fork_bounded;
using kelo::tests::kHeapOfSanitizer;
using kelo::tests::kSanitized;

constexpr int kForks = 300;
constexpr std::int32_t kItems = 80;
constexpr unsigned kValues = 8;
constexpr std::int32_t kLongest = 32 * 1024;

// Value number n is some bytes of the n-th letter, and no other value of the item has as many. Number 0 is
// the longest, so that an item that begins with it takes memory once: a child could inherit a sanitizer's
// heap lock.
std::int32_t length_of(std::int32_t id, unsigned number) {
  return (id == 0 ? kLongest : kLongest / 64) - static_cast<std::int32_t>(number) * 16;
}

void write_value(std::int32_t id, unsigned number) {
  thread_local std::array<char, kLongest> bytes;
  const std::int32_t length = length_of(id, number);
  std::memset(bytes.data(), static_cast<int>('a' + number), static_cast<std::size_t>(length));
  kelo_dm_wr_to_mem(id, bytes.data(), &length);
}

// Whether one of the values is there, and whole.
bool reads_whole(std::int32_t id) {
  thread_local std::array<char, kLongest> bytes;
  std::int32_t length = kLongest;
  kelo_dm_rd_from_mem(id, bytes.data(), &length);
  if (length < 1) return false;
  const auto number = static_cast<unsigned>(bytes[0] - 'a');
  if (number >= kValues || length != length_of(id, number)) return false;
  return std::all_of(bytes.begin(), bytes.begin() + length, [&](char byte) { return byte == bytes[0]; });
}

bool uses_all_items() {
  for (std::int32_t id = 0; id < kItems; ++id) {
    if (!reads_whole(id)) return false;
    write_value(id, 3);
    if (!reads_whole(id)) return false;
  }
  return true;
}

void add_all_items() {
  for (std::int32_t id = 0; id < kItems; ++id) write_value(id, 0);
}

// Threads that repeat their work until the end of the scope.
class Busy {
 public:
  explicit Busy(std::vector<std::function<void(unsigned round)>> works) {
    for (auto& work : works)
      threads_.emplace_back([this, work = std::move(work)] {
        for (unsigned round = 0; !ended_; ++round) work(round);
      });
  }
  ~Busy() {
    ended_ = true;
    for (std::thread& thread : threads_) thread.join();
  }
  Busy(const Busy&) = delete;
  Busy& operator=(const Busy&) = delete;

 private:
  std::atomic<bool> ended_{false};
  std::vector<std::thread> threads_;
};

void write_items(unsigned round) { write_value(static_cast<std::int32_t>(round % kItems), round % kValues); }
void write_the_first(unsigned round) { write_value(0, round % kValues); }
void read_the_first(unsigned /*round*/) { (void)reads_whole(0); }

class MemoryFork : public testing::Test {
 protected:
  void SetUp() override {
    alarm(240);
    kelo_set_log_level(LOG_LVL_EMR);
  }
};

TEST_F(MemoryFork, ChildrenUseAllItemsWhileThreadsDo) {
  add_all_items();
  const Busy threads({write_items, write_the_first, read_the_first});
  for (int i = 0; i < kForks; ++i) ASSERT_EQ(fork_bounded(uses_all_items), ChildEnd::good) << "fork " << i;
}

TEST_F(MemoryFork, TwoThreadsForkWhileOthersWrite) {
  add_all_items();
  const Busy threads({write_items, write_the_first});
  std::array<std::thread, 2> forkers;
  std::atomic<int> bad{0};
  for (std::thread& forker : forkers)
    forker = std::thread([&bad] {
      for (int i = 0; i < kForks / 6 && bad == 0; ++i)
        if (fork_bounded(uses_all_items) != ChildEnd::good) ++bad;
    });
  for (std::thread& forker : forkers) forker.join();
  EXPECT_EQ(bad, 0);
}

TEST_F(MemoryFork, ChildrenAddItemsWhileThreadsDo) {
  if (kSanitized) GTEST_SKIP() << kHeapOfSanitizer;
  constexpr std::int32_t kOfChild = -1;
  std::array<std::atomic<std::int32_t>, 2> added{};
  const auto adder = [&](std::size_t number) {
    return [&added, number](unsigned round) {
      if (round > 20000) return;
      const auto id = static_cast<std::int32_t>(number * 1000000 + round);
      const std::int32_t length = sizeof id;
      kelo_dm_wr_to_mem(id, &id, &length);
      added[number] = id;
    };
  };
  const Busy threads({adder(0), adder(1)});
  for (int i = 0; i < kForks; ++i) {
    const std::array<std::int32_t, 2> known = {added[0], added[1]};
    const ChildEnd end = fork_bounded([&] {
      for (const std::int32_t id : known) {
        std::int32_t value = 0;
        std::int32_t length = sizeof value;
        kelo_dm_rd_from_mem(id, &value, &length);
        if (id != 0 && value != id) return false;
      }
      write_value(kOfChild, 1);
      return reads_whole(kOfChild);
    });
    ASSERT_EQ(end, ChildEnd::good) << "fork " << i;
  }
}

TEST_F(MemoryFork, ChildrenOfChildrenUseTheItems) {
  add_all_items();
  const Busy threads({write_the_first, read_the_first});
  for (int i = 0; i < kForks / 10; ++i)
    ASSERT_EQ(fork_bounded([] {
                return uses_all_items() && fork_bounded(uses_all_items) == ChildEnd::good && uses_all_items();
              }),
              ChildEnd::good)
        << "fork " << i;
}

TEST_F(MemoryFork, ParentGoesOnAtOnce) {
  add_all_items();
  EXPECT_EQ(fork_bounded(uses_all_items), ChildEnd::good);
  const auto start = std::chrono::steady_clock::now();
  std::thread([] { EXPECT_TRUE(uses_all_items()); }).join();
  EXPECT_TRUE(uses_all_items());
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900))
      << "somebody still waits for a fork that is over";
}

// --- Fork handlers of the program --------------------------------------------------------------------------

void use_an_item() {
  if (!reads_whole(0)) std::abort();
  write_value(0, 5);
  if (!reads_whole(0)) std::abort();
}

void fork_with_handlers() {
  const Busy threads({write_the_first, read_the_first, read_the_first});
  for (int i = 0; i < kForks / 3; ++i) {
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(fork_bounded(uses_all_items), ChildEnd::good) << "fork " << i;
    ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  }
}

TEST_F(MemoryFork, HandlersOfTheProgramMayUseItems) {
  add_all_items();
  ASSERT_EQ(pthread_atfork(use_an_item, use_an_item, use_an_item), 0);
  fork_with_handlers();
}

TEST_F(MemoryFork, HandlersThatWereThereFirstMayUseItems) {
  ASSERT_EQ(pthread_atfork(use_an_item, use_an_item, use_an_item), 0);
  add_all_items();
  fork_with_handlers();
}

std::mutex of_program;
std::binary_semaphore fork_began{0};

TEST_F(MemoryFork, HandlerMayWaitForAThreadThatWrites) {
  ASSERT_EQ(pthread_atfork(
                [] {
                  fork_began.release();
                  of_program.lock();
                },
                [] { of_program.unlock(); }, [] { of_program.unlock(); }),
            0);
  add_all_items();  // from here on the handler above runs after the library's
  std::binary_semaphore lock_is_held{0};
  std::binary_semaphore child_ended{0};
  std::thread writer([&] {
    {
      const std::lock_guard lock(of_program);
      lock_is_held.release();
      fork_began.acquire();
      write_the_first(1);
    }
    child_ended.acquire();  // a sanitizer of the child would miss the end of a thread that has ended
  });
  lock_is_held.acquire();
  EXPECT_EQ(fork_bounded(uses_all_items), ChildEnd::good);
  child_ended.release();
  writer.join();
  EXPECT_TRUE(uses_all_items());
}

// --- The list of registered items --------------------------------------------------------------------------

std::atomic<int> defaults_stored{0};

int count_default(std::uint32_t /*id*/, kelo_dm_item_desc* /*item*/, const void* /*value*/, int /*len*/) {
  ++defaults_stored;
  return 0;
}

// How many defaults are stored from the list.
int walk_defaults() {
  defaults_stored = 0;
  kelo_dm_construct_def_database(0);
  return defaults_stored;
}

void register_three(unsigned /*round*/) {
  auto* const table = new kelo_dm_item[4]{KELO_DM_TEXT_ITEM(-7, "TAB", "A", "text"),
                                          KELO_DM_TEXT_ITEM(-8, "TAB", "B", "text"),
                                          KELO_DM_TEXT_ITEM(-9, "TAB", "C", "text"), KELO_DM_END};
  kelo_dm_reg_def_items(table);  // keeps it
}

class ListFork : public MemoryFork {
 protected:
  void SetUp() override {
    MemoryFork::SetUp();
    if (kSanitized) GTEST_SKIP() << kHeapOfSanitizer;
  }
};

TEST_F(ListFork, ChildrenWalkAndGrowTheListWhileAThreadWalksIt) {
  for (int i = 0; i < 100; ++i) register_three(0);
  const Busy threads({[](unsigned) { walk_defaults(); }});
  for (int i = 0; i < kForks; ++i)
    ASSERT_EQ(fork_bounded([] {
                if (walk_defaults() != 300) return false;
                register_three(0);
                return walk_defaults() == 303;
              }),
              ChildEnd::good)
        << "fork " << i;
}

TEST_F(ListFork, ChildrenWalkAndGrowTheListWhileAThreadGrowsIt) {
  static std::atomic<int> registered{0};
  const Busy threads({[](unsigned round) {
    if (round >= 2000) return;
    register_three(0);
    registered += 3;
  }});
  for (int i = 0; i < kForks; ++i) {
    const int known = registered;
    const ChildEnd end = fork_bounded([known] {
      const int stored = walk_defaults();
      register_three(0);
      return stored >= known && walk_defaults() == stored + 3;
    });
    ASSERT_EQ(end, ChildEnd::good) << "fork " << i;
  }
}

}  // namespace

// The program's own hook, in place of the library's.
void dm_pal_reg(std::int32_t /*id*/, kelo_dm_operations* operations) {
  operations->def_db_const = count_default;
}
