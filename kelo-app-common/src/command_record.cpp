// SPDX-License-Identifier: MIT
// Allocates and frees the commands that daemons queue for each other.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "base/fatal.hpp"
#include "kelo_utils/app_common.h"
#include "log/library_log.hpp"

namespace {

using kelo::base::fatal;
using kelo::base::kCommonCode;
using kelo::base::zeroed_or_fatal;

using Bytes = std::uint16_t;  // all payloads are small
constexpr Bytes kNone = UINT16_MAX;

// How the payload of a command type is allocated and freed.
struct PayloadKind {
  std::uint8_t type;
  bool freed = true;
  Bytes size = kNone;  // only some types can be allocated here
  std::array<Bytes, 2> pointer_offsets = {kNone, kNone};
  Bytes table_offset = kNone;
};

constexpr std::array<Bytes, 2> kPointersOf0 = {offsetof(kelo_cmd_payload_0, owned_5),
                                               offsetof(kelo_cmd_payload_0, owned_7)};
constexpr Bytes kTableOf0 = offsetof(kelo_cmd_payload_0, table_11);

constexpr std::array<PayloadKind, 13> kPayloadKinds = {{
    {.type = 0, .size = KELO_CMD_PAYLOAD_0_SIZE, .pointer_offsets = kPointersOf0, .table_offset = kTableOf0},
    {.type = 4, .size = KELO_CMD_PAYLOAD_0_SIZE, .pointer_offsets = kPointersOf0, .table_offset = kTableOf0},
    {.type = 5,
     .size = KELO_CMD_PAYLOAD_5_SIZE,
     .pointer_offsets = {offsetof(kelo_cmd_payload_5, owned_3), kNone}},
    {.type = 6, .freed = false},
    {.type = 7},
    {.type = 8},
    {.type = 9, .freed = false},
    {.type = 10},
    {.type = 11},
    {.type = 12},
    {.type = 13, .pointer_offsets = {offsetof(kelo_cmd_payload_13, owned_5), kNone}},
    {.type = 14},
    {.type = 15, .pointer_offsets = {offsetof(kelo_cmd_payload_15, owned_1), kNone}},
}};

// Returns null for an unknown type.
const PayloadKind* find_kind(std::int32_t type) {
  for (const PayloadKind& kind : kPayloadKinds) {
    if (kind.type == type) return &kind;
  }
  return nullptr;
}

template <typename T>
T*& pointer_at(void* payload, std::size_t offset) {
  return *reinterpret_cast<T**>(static_cast<char*>(payload) + offset);
}

void free_and_clear(void*& block) { std::free(std::exchange(block, nullptr)); }

void free_payload(const PayloadKind& kind, void* payload) {
  if (!kind.freed) return;
  for (const Bytes offset : kind.pointer_offsets) {
    if (offset != kNone) free_and_clear(pointer_at<void>(payload, offset));
  }
  if (kind.table_offset != kNone) {
    auto* const table = pointer_at<kelo_cmd_table>(payload, kind.table_offset);
    // The pointers are set to null because the table itself is not freed.
    for (std::int32_t i = 0; table != nullptr && i < table->count; ++i)
      free_and_clear(table->entries[i].owned_3);
  }
  std::free(payload);
}

}  // namespace

kelo_cmd_q_data* kelo_malloc_cmd_q_data(int cmd_type) {
  const PayloadKind* const kind = find_kind(cmd_type);
  if (kind == nullptr || kind->size == kNone) {
    KELO_LOG(LOG_LVL_ERR, "Invalid CMD type: %d\n", cmd_type);
    fatal(kCommonCode);
  }
  auto payload = zeroed_or_fatal(kind->size, kCommonCode);
  auto* const record =
      reinterpret_cast<kelo_cmd_q_data*>(zeroed_or_fatal(KELO_CMD_Q_DATA_SIZE, kCommonCode).release());
  record->cmd_type = cmd_type;
  record->payload = payload.release();
  KELO_LOG(LOG_LVL_DBUG, "cmd_type = %d\n", cmd_type);
  return record;
}

void kelo_free_cmd_q_data(kelo_cmd_q_data* record) {
  if (record == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "oem_free_cmd_q_data invalid queue data\n");
    return;
  }
  KELO_LOG(LOG_LVL_DBUG, "oem_free_cmd_q_data:cmd_type=%d, %p\n", record->cmd_type, record->payload);
  const PayloadKind* const kind = find_kind(record->cmd_type);
  if (kind == nullptr) {
    KELO_LOG(LOG_LVL_ERR, "Invalid CMD type: %d\n", record->cmd_type);
  } else if (record->payload != nullptr) {
    free_payload(*kind, record->payload);
  }
  std::free(record);
}
