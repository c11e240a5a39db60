// SPDX-License-Identifier: MIT
// What is freed with a command.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "kelo_utils/queue.h"
#include "tests/support/before_sanitizer.hpp"
#include "tests/support/log_capture.hpp"

namespace {

// What this thread frees while it is asked for, the first ones.
thread_local bool frees_are_kept = false;
thread_local std::size_t frees_count = 0;
thread_local std::array<void*, 64> frees;

KELO_BEFORE_SANITIZER void keep_free(void* block) {
  if (frees_are_kept && block != nullptr && frees_count < frees.size()) frees[frees_count++] = block;
}

}  // namespace

extern "C" {

void next_free(void* block) KELO_NEXT_ALLOCATOR("free");

// The C library's own declaration has a reserved parameter name.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name)
KELO_BEFORE_SANITIZER void free(void* block) noexcept {
  keep_free(block);
  next_free(block);
}

}  // extern "C"

namespace {

using kelo::tests::expect_lines;
using kelo::tests::LogCapture;
using testing::ElementsAre;
using Names = std::vector<std::string>;

constexpr char kFree[] = "oem_free_cmd_q_data";
constexpr std::size_t kWords = 11;
constexpr std::size_t kWord = sizeof(void*);

class CommandRecord : public testing::Test {
 protected:
  void SetUp() override { kelo_set_log_level(LOG_LVL_CRT); }  // a captured line would allocate and free
  void TearDown() override {
    for (const auto& [address, name] : blocks_) std::free(address);
    kelo_set_log_level(LOG_LVL_INFO);
  }

  // A block that this test frees, unless somebody else has.
  void* block(const std::string& name, std::size_t size = 1) {
    void* const fresh = std::calloc(1, size);
    blocks_[fresh] = name;
    return fresh;
  }

  void free_block(void* address) {
    blocks_.erase(address);
    std::free(address);
  }

  // A payload of eleven words each of which is a pointer to a block.
  void** payload_of_pointers() {
    auto** const payload = static_cast<void**>(block("payload", kWords * kWord));
    for (std::size_t i = 0; i < kWords; ++i) payload[i] = block("word " + std::to_string(i + 1));
    return payload;
  }

  // A table of `count` entries with room for no more, and each word of each a pointer to a block.
  kelo_cmd_table* table_of_pointers(std::int32_t count, std::int32_t entries) {
    const std::size_t size =
        offsetof(kelo_cmd_table, entries) + static_cast<std::size_t>(entries) * sizeof(kelo_cmd_table_entry);
    auto* const table = static_cast<kelo_cmd_table*>(block("table", size));
    table->count = count;
    auto** word = reinterpret_cast<void**>(table) + 1;
    for (std::int32_t i = 0; i < entries; ++i) {
      for (const char* const name : {".1", ".2", ".3"}) *word++ = block("entry " + std::to_string(i) + name);
    }
    return table;
  }

  kelo_cmd_q_data* command(std::int32_t type, void* payload) {
    auto* const record = static_cast<kelo_cmd_q_data*>(block("command", KELO_CMD_Q_DATA_SIZE));
    record->cmd_type = type;
    record->payload = payload;
    return record;
  }

  // The names of what is freed with a command, in their order.
  Names freed_with(kelo_cmd_q_data* record) {
    frees_count = 0;
    frees_are_kept = true;
    kelo_free_cmd_q_data(record);
    frees_are_kept = false;
    Names names;
    for (std::size_t i = 0; i < frees_count; ++i) {
      const auto found = blocks_.find(frees[i]);
      names.push_back(found == blocks_.end() ? "what is no block of the test" : found->second);
      if (found != blocks_.end()) blocks_.erase(found);
    }
    return names;
  }

  Names freed_with(std::int32_t type, void* payload) { return freed_with(command(type, payload)); }

 private:
  std::map<void*, std::string> blocks_;
};

// What of a payload whose words are all pointers is freed with a command of each type. Types 0 and 4 have a
// test of their own.
Names freed_of_pointers(std::int32_t type) {
  switch (type) {
    case 5:
      return {"word 3", "payload", "command"};
    case 7:
    case 8:
    case 10:
    case 11:
    case 12:
    case 14:
      return {"payload", "command"};
    case 13:
      return {"word 5", "payload", "command"};
    case 15:
      return {"word 1", "payload", "command"};
    default:
      return {"command"};
  }
}

TEST_F(CommandRecord, TakesWhatItsTypeOwns) {
  for (const std::int32_t type :
       {INT32_MIN, -1, 1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 256, INT32_MAX})
    EXPECT_EQ(freed_with(type, payload_of_pointers()), freed_of_pointers(type)) << type;
}

TEST_F(CommandRecord, LeavesAPayloadThatItDoesNotOwnAsItWas) {
  for (const std::int32_t type : {-1, 1, 2, 3, 6, 9, 16}) {
    void** const payload = payload_of_pointers();
    const std::vector<void*> before(payload, payload + kWords);
    freed_with(type, payload);
    EXPECT_EQ(before, std::vector<void*>(payload, payload + kWords)) << type;
  }
}

TEST_F(CommandRecord, TakesTheMemoryOfTableEntriesAndNotTheTable) {
  for (const std::int32_t type : {0, 4}) {
    void** const payload = payload_of_pointers();
    free_block(payload[10]);
    kelo_cmd_table* const table = table_of_pointers(2, 2);
    payload[10] = table;
    const void* const kept = reinterpret_cast<void*>(table->entries[1].words_1_to_2[1]);
    EXPECT_THAT(freed_with(type, payload),
                ElementsAre("word 5", "word 7", "entry 0.3", "entry 1.3", "payload", "command"));
    EXPECT_EQ(table->count, 2);
    EXPECT_EQ(table->entries[0].owned_3, nullptr);
    EXPECT_EQ(table->entries[1].owned_3, nullptr);
    EXPECT_NE(table->entries[0].words_1_to_2[0], 0U);
    EXPECT_EQ(reinterpret_cast<void*>(table->entries[1].words_1_to_2[1]), kept);
  }
}

TEST_F(CommandRecord, GoesByTheCountOfTheTable) {
  for (const std::int32_t type : {0, 4}) {
    for (const auto& [count, freed] : std::map<std::int32_t, Names>{
             {INT32_MIN, {}}, {-1, {}}, {0, {}}, {1, {"entry 0.3"}}, {2, {"entry 0.3", "entry 1.3"}}}) {
      auto* const payload = static_cast<kelo_cmd_payload_0*>(block("payload", KELO_CMD_PAYLOAD_0_SIZE));
      payload->table_11 = table_of_pointers(count, 3);
      Names expected = freed;
      expected.insert(expected.end(), {"payload", "command"});
      EXPECT_EQ(freed_with(type, payload), expected) << count;
    }
  }
}

TEST_F(CommandRecord, TakesNothingOfATableThatIsACountAlone) {
  for (const std::int32_t type : {0, 4}) {
    for (const std::int32_t count : {-1, 0}) {
      auto* const payload = static_cast<kelo_cmd_payload_0*>(block("payload", KELO_CMD_PAYLOAD_0_SIZE));
      auto* const number = static_cast<std::int32_t*>(block("table", sizeof count));
      *number = count;
      payload->table_11 = reinterpret_cast<kelo_cmd_table*>(number);
      EXPECT_THAT(freed_with(type, payload), ElementsAre("payload", "command"));
      EXPECT_EQ(*number, count);
    }
  }
}

TEST_F(CommandRecord, MayLeadToALargeTable) {
  auto* const payload = static_cast<kelo_cmd_payload_0*>(block("payload", KELO_CMD_PAYLOAD_0_SIZE));
  payload->table_11 = table_of_pointers(40, 40);
  EXPECT_EQ(freed_with(0, payload).size(), 42U);
}

TEST_F(CommandRecord, MayHoldEntriesWithoutMemory) {
  auto* const payload = static_cast<kelo_cmd_payload_0*>(block("payload", KELO_CMD_PAYLOAD_0_SIZE));
  payload->table_11 = table_of_pointers(3, 3);
  free_block(payload->table_11->entries[1].owned_3);
  payload->table_11->entries[1].owned_3 = nullptr;
  EXPECT_THAT(freed_with(4, payload), ElementsAre("entry 0.3", "entry 2.3", "payload", "command"));
}

TEST_F(CommandRecord, MayOwnAnyOfItsPointers) {
  auto* payload = static_cast<kelo_cmd_payload_0*>(block("payload", KELO_CMD_PAYLOAD_0_SIZE));
  payload->owned_5 = block("fifth");
  EXPECT_THAT(freed_with(0, payload), ElementsAre("fifth", "payload", "command"));
  payload = static_cast<kelo_cmd_payload_0*>(block("payload", KELO_CMD_PAYLOAD_0_SIZE));
  payload->owned_7 = block("seventh");
  EXPECT_THAT(freed_with(0, payload), ElementsAre("seventh", "payload", "command"));
}

// No larger than what the library looks at.
TEST_F(CommandRecord, NeedsNoMoreOfAPayloadThanItsPointers) {
  auto* const payload_13 = static_cast<kelo_cmd_payload_13*>(block("payload", sizeof(kelo_cmd_payload_13)));
  payload_13->owned_5 = block("fifth");
  EXPECT_THAT(freed_with(13, payload_13), ElementsAre("fifth", "payload", "command"));
  auto* const payload_15 = static_cast<kelo_cmd_payload_15*>(block("payload", sizeof(kelo_cmd_payload_15)));
  payload_15->owned_1 = block("first");
  EXPECT_THAT(freed_with(15, payload_15), ElementsAre("first", "payload", "command"));
  for (const std::int32_t type : {7, 8, 10, 11, 12, 14})
    EXPECT_THAT(freed_with(type, block("payload", 1)), ElementsAre("payload", "command")) << type;
}

TEST_F(CommandRecord, MayOwnNothing) {
  for (const std::int32_t type : {0, 4, 5, 13, 15}) {
    void* const payload = block("payload", KELO_CMD_PAYLOAD_0_SIZE);
    EXPECT_THAT(freed_with(type, payload), ElementsAre("payload", "command")) << type;
  }
}

TEST_F(CommandRecord, MayHaveNoPayload) {
  for (std::int32_t type = -1; type <= 16; ++type)
    EXPECT_THAT(freed_with(type, nullptr), ElementsAre("command")) << type;
}

TEST_F(CommandRecord, MustBeThere) {
  LogCapture log;
  kelo_free_cmd_q_data(nullptr);
  expect_lines(log, kFree, {{LOG_LVL_ERR, "oem_free_cmd_q_data invalid queue data\n"}});
}

TEST_F(CommandRecord, IsToldOfWithItsPayload) {
  LogCapture log;
  for (std::int32_t type = -1; type <= 16; ++type) {
    for (void* const payload : {block("payload", KELO_CMD_PAYLOAD_0_SIZE), static_cast<void*>(nullptr)}) {
      std::array<char, 80> expected;
      std::snprintf(expected.data(), expected.size(), "oem_free_cmd_q_data:cmd_type=%d, %p\n", type, payload);
      std::vector<std::pair<int, std::string>> lines = {{LOG_LVL_DBUG, expected.data()}};
      if (type < 0 || (type >= 1 && type <= 3) || type > 15)
        lines.emplace_back(LOG_LVL_ERR, "Invalid CMD type: " + std::to_string(type) + "\n");
      kelo_cmd_q_data* const record = command(type, payload);
      log.clear();
      freed_with(record);
      expect_lines(log, kFree, lines);
    }
  }
}

// The first two words are a link: commands go through a queue to the thread that ends them.
TEST(CommandRecordInAQueue, PassesToAnotherThread) {
  static_assert(sizeof(q_link_type) == sizeof(kelo_cmd_q_data::words_1_to_2));
  constexpr int kCommands = 300;
  q_type queue;
  q_init(&queue);
  std::thread worker([&queue] {
    for (int received = 0; received < kCommands;) {
      q_link_type* const link = q_get(&queue);
      if (link == nullptr) {
        std::this_thread::yield();
        continue;
      }
      auto* const record = reinterpret_cast<kelo_cmd_q_data*>(link);
      EXPECT_EQ(record->cmd_type, received % 2 == 0 ? 5 : 0);
      kelo_free_cmd_q_data(record);
      ++received;
    }
  });
  for (int sent = 0; sent < kCommands; ++sent) {
    kelo_cmd_q_data* const record = kelo_malloc_cmd_q_data(sent % 2 == 0 ? 5 : 0);
    if (sent % 2 == 0) static_cast<kelo_cmd_payload_5*>(record->payload)->owned_3 = std::malloc(8);
    auto* const link = reinterpret_cast<q_link_type*>(record);
    q_link(record, link);
    q_put(&queue, link);
  }
  worker.join();
  q_destroy(&queue);
}

}  // namespace
