// SPDX-License-Identifier: MIT
// How a command is made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/child_process.hpp"
#include "tests/support/failing_heap.hpp"
#include "tests/support/log_capture.hpp"

namespace {

using kelo::tests::expect_lines;
using kelo::tests::FailingHeap;
using kelo::tests::LogCapture;
using kelo::tests::run_in_child;
using testing::MatchesRegex;

constexpr char kMalloc[] = "oem_malloc_cmd_q_data";
constexpr std::size_t kWords = 11;
constexpr std::size_t kWord = sizeof(void*);

// What other programs of the router count on.
static_assert(kWord != 4 || (KELO_CMD_Q_DATA_SIZE == 45 && offsetof(kelo_cmd_q_data, cmd_type) == 8 &&
                             offsetof(kelo_cmd_q_data, payload) == 32));
static_assert(kWord != 4 || (KELO_CMD_PAYLOAD_0_SIZE == 45 && KELO_CMD_PAYLOAD_5_SIZE == 17));
static_assert(KELO_CMD_Q_DATA_SIZE == kWords * kWord + 1 && KELO_CMD_PAYLOAD_0_SIZE == kWords * kWord + 1);
static_assert(KELO_CMD_PAYLOAD_5_SIZE == 4 * kWord + 1);
static_assert(sizeof(kelo_cmd_q_data::cmd_type) == 4);

struct Allocation {
  std::int32_t type;
  std::size_t payload_size;
};

class CommandAllocation : public testing::TestWithParam<Allocation> {};

void expect_size(void* block, std::size_t size) {
  // The heap rounds up, but under a sanitizer.
  EXPECT_GE(malloc_usable_size(block), size);
  EXPECT_LT(malloc_usable_size(block), size + 16);
}

TEST_P(CommandAllocation, GivesAZeroedRecordWithAZeroedPayload) {
  kelo_cmd_q_data* const record = kelo_malloc_cmd_q_data(GetParam().type);
  expect_size(record, KELO_CMD_Q_DATA_SIZE);
  expect_size(record->payload, GetParam().payload_size);
  EXPECT_EQ(std::string(static_cast<char*>(record->payload), GetParam().payload_size),
            std::string(GetParam().payload_size, '\0'));

  std::string expected(KELO_CMD_Q_DATA_SIZE, '\0');
  std::memcpy(expected.data() + 2 * kWord, &GetParam().type, sizeof GetParam().type);
  std::memcpy(expected.data() + 8 * kWord, &record->payload, kWord);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(record), KELO_CMD_Q_DATA_SIZE), expected);
  kelo_free_cmd_q_data(record);
}

TEST_P(CommandAllocation, ClearsMemoryThatWasUsedBefore) {
  for (int i = 0; i < 8; ++i) {
    kelo_cmd_q_data* const record = kelo_malloc_cmd_q_data(GetParam().type);
    const auto* const payload = static_cast<char*>(record->payload);
    EXPECT_EQ(std::string(payload, GetParam().payload_size), std::string(GetParam().payload_size, '\0'));
    EXPECT_EQ(record->words_10_to_11[1], 0U);
    std::memset(record->payload, 0x5A, GetParam().payload_size);
    std::free(record->payload);
    std::memset(static_cast<void*>(record), 0x5A, KELO_CMD_Q_DATA_SIZE);
    std::free(record);
  }
}

TEST_P(CommandAllocation, TellsTheType) {
  LogCapture log;
  kelo_cmd_q_data* const record = kelo_malloc_cmd_q_data(GetParam().type);
  expect_lines(log, kMalloc, {{LOG_LVL_DBUG, "cmd_type = " + std::to_string(GetParam().type) + "\n"}});
  kelo_free_cmd_q_data(record);
}

TEST_P(CommandAllocation, NeedsMemoryForBothAlone) {
  kelo_set_log_level(LOG_LVL_CRT);  // the capture allocates
  kelo_cmd_q_data* record = nullptr;
  {
    const FailingHeap heap(2);
    record = kelo_malloc_cmd_q_data(GetParam().type);
  }
  EXPECT_EQ(record->cmd_type, GetParam().type);
  kelo_free_cmd_q_data(record);
  kelo_set_log_level(LOG_LVL_INFO);
}

INSTANTIATE_TEST_SUITE_P(Types, CommandAllocation,
                         testing::Values(Allocation{0, KELO_CMD_PAYLOAD_0_SIZE},
                                         Allocation{4, KELO_CMD_PAYLOAD_0_SIZE},
                                         Allocation{5, KELO_CMD_PAYLOAD_5_SIZE}),
                         [](const auto& type) { return "Type" + std::to_string(type.param.type); });

constexpr char kFatal[] = "kelo-app-common/src/kelo_common_def.c, line: [0-9]+\n";

// Makes a command while the heap serves `calls` allocations; its log lines go to the standard error.
kelo::tests::ChildResult allocate_in_child(std::int32_t type, int calls) {
  return run_in_child([=] {
    kelo_set_log_tool_enable(0);
    kelo_set_log_level(LOG_LVL_DBUG);
    set_print_interface([](const char* line) { std::fputs(line, stderr); });
    const FailingHeap heap(calls);
    kelo_free_cmd_q_data(kelo_malloc_cmd_q_data(type));
  });
}

TEST(CommandAllocationOfNoKnownSize, AbortsAfterTheMessage) {
  for (const std::int32_t type :
       {INT32_MIN, -1, 1, 2, 3, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, INT32_MAX}) {
    const auto child = allocate_in_child(type, 100);
    EXPECT_EQ(child.signal, SIGABRT) << type;
    EXPECT_THAT(child.standard_output, MatchesRegex(kFatal)) << type;
    EXPECT_THAT(child.standard_error,
                MatchesRegex(".* =ERR= .* oem_malloc_cmd_q_data [0-9]+ \\| Invalid CMD type: " +
                             std::to_string(type) + "\n"));
  }
}

TEST(CommandAllocationWithoutMemory, AbortsWithoutAMessage) {
  for (const std::int32_t type : {0, 4, 5}) {
    for (const int calls : {0, 1}) {
      const auto child = allocate_in_child(type, calls);
      EXPECT_EQ(child.signal, SIGABRT) << type << ' ' << calls;
      EXPECT_THAT(child.standard_output, MatchesRegex(kFatal));
      EXPECT_EQ(child.standard_error, "");
    }
  }
}

}  // namespace
