// SPDX-License-Identifier: MIT
// The values held in memory: kelo_dm_wr_to_mem() and kelo_dm_rd_from_mem().
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "tests/support/child_process.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::LogCapture;

void store(std::int32_t id, const std::string& value) {
  const auto length = static_cast<std::int32_t>(value.size());
  kelo_dm_wr_to_mem(id, value.data(), &length);
}

struct Read {
  std::int32_t length;
  std::string buffer;  // of the size asked for, preset with '#'
};

Read load(std::int32_t id, std::int32_t room) {
  Read read = {room, std::string(static_cast<std::size_t>(std::max(room, 0)), '#')};
  kelo_dm_rd_from_mem(id, read.buffer.data(), &read.length);
  return read;
}

std::string value_of(std::int32_t id) {
  const Read read = load(id, 4096);
  return read.length < 0 ? "none" : read.buffer.substr(0, static_cast<std::size_t>(read.length));
}

TEST(SyncMem, UnknownIdReadsAsMinusOneAndLeavesTheBuffer) {
  const LogCapture capture;
  const Read read = load(0x1203, 8);
  EXPECT_EQ(read.length, -1);
  EXPECT_EQ(read.buffer, "########");
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_read_item_from_mem", "read_item:1203 from_mem fail!\n"), 1)
      << capture.dump();
}

TEST(SyncMem, FirstWriteAddsAndSaysSo) {
  const LogCapture capture;
  store(0xAB, "value");
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_update_item_value_to_mem",
                          "dm_update_item_value_to_mem:no item found \n"),
            1);
  EXPECT_EQ(capture.count(LOG_LVL_DBUG, "oem_dm_add_item_to_mem", " add_item: ab to_mem \n"), 1);
  EXPECT_EQ(capture.lines().size(), 2u) << capture.dump();
  EXPECT_EQ(value_of(0xAB), "value");
}

TEST(SyncMem, SecondWriteUpdatesAndSaysSo) {
  store(7, "first");
  const LogCapture capture;
  store(7, "longer second");
  EXPECT_EQ(capture.count(LOG_LVL_DBUG, "oem_dm_update_item_value_to_mem", " update_len: 13 to_mem \n"), 1);
  EXPECT_EQ(capture.lines().size(), 1u) << capture.dump();
  EXPECT_EQ(value_of(7), "longer second");
}

TEST(SyncMem, ReadSaysIdAndLength) {
  store(0x10, "four");
  const LogCapture capture;
  load(0x10, 3);
  EXPECT_EQ(capture.count(LOG_LVL_DBUG, "oem_dm_read_item_from_mem", "read_item:10 from_mem len 3 !!\n"), 1)
      << capture.dump();
}

TEST(SyncMem, ShorterValueReplacesTheWholeOfALongerOne) {
  store(1, "0123456789");
  store(1, "abcd");
  const Read read = load(1, 16);
  EXPECT_EQ(read.length, 4);
  EXPECT_EQ(read.buffer, "abcd############");
  store(1, "ABCDEFGHIJ");
  EXPECT_EQ(value_of(1), "ABCDEFGHIJ");
}

class Room : public testing::TestWithParam<std::int32_t> {};

TEST_P(Room, BoundsTheCopy) {
  store(1, "0123456789");
  const std::int32_t room = GetParam();
  const Read read = load(1, room);
  EXPECT_EQ(std::min(room, 10), read.length);
  const auto copied = static_cast<std::size_t>(std::max(read.length, 0));
  EXPECT_EQ(read.buffer.substr(0, copied), std::string("0123456789").substr(0, copied));
  EXPECT_EQ(read.buffer.substr(copied), std::string(read.buffer.size() - copied, '#'));
}
INSTANTIATE_TEST_SUITE_P(AtBelowAndAbove, Room, testing::Values(-1, 0, 1, 6, 9, 10, 11, 64));

TEST(SyncMem, EmptyValueIsAValue) {
  store(5, "");
  EXPECT_EQ(load(5, 4).length, 0);
  store(5, "x");
  store(5, "");
  EXPECT_EQ(load(5, 4).length, 0);
}

TEST(SyncMem, NullArgumentsOfAnAdditionAreLoggedAndAddNothing) {
  const LogCapture capture;
  const std::int32_t length = 4;
  kelo_dm_wr_to_mem(9, "text", nullptr);
  kelo_dm_wr_to_mem(9, nullptr, &length);
  const std::int32_t negative = -1;
  kelo_dm_wr_to_mem(9, "text", &negative);
  EXPECT_EQ(capture.count(LOG_LVL_ERR, "oem_dm_add_item_to_mem", "kelo_dm_add_item_to_mem NULL\n"), 3)
      << capture.dump();
  EXPECT_EQ(load(9, 4).length, -1);
}

TEST(SyncMem, NullArgumentsOfAnUpdateChangeNothing) {
  store(9, "kept");
  const LogCapture capture;
  const std::int32_t length = 4;
  const std::int32_t negative = INT_MIN;
  kelo_dm_wr_to_mem(9, "text", nullptr);
  kelo_dm_wr_to_mem(9, nullptr, &length);
  kelo_dm_wr_to_mem(9, "text", &negative);
  EXPECT_EQ(capture.count_containing(LOG_LVL_ERR, "kelo_dm_update_item_value_to_mem NULL\n"), 3)
      << capture.dump();
  EXPECT_EQ(value_of(9), "kept");
}

TEST(SyncMem, NullArgumentsOfAReadDoNothing) {
  store(9, "kept");
  const LogCapture capture;
  std::int32_t length = 4;
  kelo_dm_rd_from_mem(9, nullptr, &length);
  EXPECT_EQ(length, 4);
  char buffer[4] = {'#', '#', '#', '#'};
  kelo_dm_rd_from_mem(9, buffer, nullptr);
  EXPECT_EQ(buffer[0], '#');
  EXPECT_TRUE(capture.lines().empty()) << capture.dump();
}

TEST(SyncMem, IdsOfEveryKindAreApart) {
  for (const std::int32_t id : {0, 1, -1, 64, 128, INT_MAX, INT_MIN})
    store(id, "value " + std::to_string(id));
  for (const std::int32_t id : {0, 1, -1, 64, 128, INT_MAX, INT_MIN}) {
    EXPECT_EQ("value " + std::to_string(id), value_of(id));
  }
}

TEST(SyncMem, AgreesWithAMapOverManyRandomCalls) {
  std::mt19937 random(1);
  std::map<std::int32_t, std::string> model;
  for (int round = 0; round < 50000; ++round) {
    const auto id = static_cast<std::int32_t>(random() % 3000) * 65536;
    if (random() % 2 == 0) {
      model[id] = std::string(random() % 40, static_cast<char>('a' + random() % 26));
      store(id, model[id]);
    } else {
      ASSERT_EQ(model.contains(id) ? model[id] : "none", value_of(id));
    }
  }
}

TEST(SyncMem, ThreadsThatFirstWriteTheSameIdEndWithOneItem) {
  constexpr int kIds = 2000;
  constexpr int kThreads = 4;
  LogCapture capture;
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&] {
      ++ready;
      while (ready < kThreads) std::this_thread::yield();
      for (int id = 0; id < kIds; ++id) store(id, "value");
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(capture.count_containing(LOG_LVL_DBUG, " add_item: "), kIds);
  EXPECT_EQ(kIds * (kThreads - 1), capture.count_containing(LOG_LVL_DBUG, " update_len: "));
  for (int id = 0; id < kIds; ++id) ASSERT_EQ(value_of(id), "value");
}

TEST(SyncMem, AReaderNeverSeesHalfAValue) {
  store(1, std::string(100, 'a'));
  std::atomic<bool> stop{false};
  std::thread writer([&] {
    for (int round = 0; !stop; ++round)
      store(1, std::string(static_cast<std::size_t>(50 + round % 200), "ab"[round % 2]));
  });
  std::thread adder([&] {
    for (int id = 100; !stop && id < 20000; ++id) store(id, "x");
  });
  for (int round = 0; round < 5000; ++round) {
    const std::string value = value_of(1);
    ASSERT_EQ(std::string::npos, value.find_first_not_of(value[0])) << value;
  }
  stop = true;
  writer.join();
  adder.join();
}

TEST(SyncMem, WithoutMemoryForAnItemTheValueIsDropped) {
  const std::int32_t length = 5;
  kelo_set_log_tool_enable(0);
  static std::string last_line(512, '\0');
  set_print_interface([](const char* line) { std::strncpy(last_line.data(), line, last_line.size() - 1); });
  {
    const kelo::tests::FailingHeap heap(0);
    kelo_dm_wr_to_mem(1, "value", &length);
  }
  EXPECT_NE(std::string::npos, last_line.find("=ERR="));
  EXPECT_NE(std::string::npos, last_line.find("oem_dm_construct_queue_from_kvl "));
  EXPECT_NE(std::string::npos, last_line.find("| oem_MALLOC fail!\r\n"));
  EXPECT_EQ(value_of(1), "none");
  store(1, "value");
  EXPECT_EQ(value_of(1), "value");
}

TEST(SyncMem, WithoutMemoryForTheTableTheValueIsDropped) {
  const std::int32_t length = 5;
  EXPECT_EQ(value_of(1), "none");  // some C libraries allocate for the fork handler of the first call
  {
    const kelo::tests::FailingHeap heap(2);  // the item and its value
    kelo_dm_wr_to_mem(1, "value", &length);
  }
  EXPECT_EQ(value_of(1), "none");
}

// Runs `body` where the heap fails after `calls` allocations, and returns how it ended.
kelo::tests::ChildResult without_memory(int calls, const std::function<void()>& body) {
  return kelo::tests::run_in_child([&] {
    kelo_set_log_level(LOG_LVL_CRT);  // the stand-in channel allocates, too
    const kelo::tests::FailingHeap heap(calls);
    body();
  });
}

TEST(SyncMem, WithoutMemoryForAValueTheProcessEnds) {
  const std::int32_t length = 5;
  const auto added = without_memory(1, [&] { kelo_dm_wr_to_mem(1, "value", &length); });
  EXPECT_EQ(added.signal, SIGABRT);
  EXPECT_EQ(added.standard_output.find("data_manager/kelo_dm_sync_mem.c, line: "), 0u)
      << added.standard_output;
  store(1, "abc");
  const auto grown = without_memory(0, [&] { kelo_dm_wr_to_mem(1, "value", &length); });
  EXPECT_EQ(grown.signal, SIGABRT);
  EXPECT_EQ(grown.standard_output.find("data_manager/kelo_dm_sync_mem.c, line: "), 0u)
      << grown.standard_output;
}

TEST(SyncMem, AnUpdateThatFitsTheBlockAllocatesNothing) {
  store(1, "0123456789");
  store(1, "abc");
  const std::int32_t length = 10;
  const kelo::tests::FailingHeap heap(0);
  kelo_dm_wr_to_mem(1, "ABCDEFGHIJ", &length);
  char buffer[10];
  std::int32_t room = sizeof buffer;
  kelo_dm_rd_from_mem(1, buffer, &room);
  EXPECT_EQ(std::memcmp(buffer, "ABCDEFGHIJ", 10), 0);
}

}  // namespace
