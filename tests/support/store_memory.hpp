// SPDX-License-Identifier: MIT
// The heap that calls of the configuration database take. Include it in exactly one source file of a program.
#ifndef KELO_TESTS_SUPPORT_STORE_MEMORY_HPP
#define KELO_TESTS_SUPPORT_STORE_MEMORY_HPP

#include <cstdio>
#include <string>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/heap_peak.hpp"

namespace kelo::tests {

struct StoreCall {
  const char* name;
  int bytes;  // of the value
  int result;
  HeapUse heap;
};

// Opens, writes or reads, and closes, in a database of some rows. What SQLite keeps from its first use on is
// there before.
inline std::vector<StoreCall> measure_store() {
  kelo_dm_item_desc item{};
  std::snprintf(item.item_table, sizeof item.item_table, "settings");
  item.type = KELO_DM_TYPE_BUFFER;
  constexpr int kRows = 50;
  for (int row = 0; row < kRows; ++row) {
    std::snprintf(item.item_key, sizeof item.item_key, "key%d", row);
    dm_sqlite_write(static_cast<std::uint32_t>(row), &item, "value", 5);
  }
  std::vector<StoreCall> calls;
  for (const int bytes : {40, 65536}) {
    std::string value(static_cast<std::size_t>(bytes), 'v');
    StoreCall write{"write", bytes, -1, {}};
    write.heap = heap_use([&] { write.result = dm_sqlite_write(kRows, &item, value.data(), bytes); });
    StoreCall read{"read", bytes, -1, {}};
    read.heap = heap_use([&] { read.result = dm_sqlite_read(kRows, &item, value.data(), bytes); });
    calls.insert(calls.end(), {write, read});
  }
  for (const StoreCall& call : calls)
    if (kHeapIsCounted)
      std::printf("%s of %d bytes: %ld bytes of heap at most\n", call.name, call.bytes, call.heap.peak);
  return calls;
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_STORE_MEMORY_HPP
