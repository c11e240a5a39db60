// SPDX-License-Identifier: MIT
// Reading a value held in memory: among 10,000 ids against among 10.
#include <cstdint>
#include <vector>

#include "bench/ratio.hpp"
#include "kelo_utils/data_manager.h"

namespace {

constexpr std::int32_t kFew = 10;
constexpr std::int32_t kMany = 10000;
constexpr std::int32_t kManyStart = 100000;
constexpr int kReads = 10000;

void store(std::int32_t id) {
  const std::int32_t value = id;
  const std::int32_t length = sizeof value;
  kelo_dm_wr_to_mem(id, &value, &length);
}

// Reads spread over `count` ids from `start` on, in an order that no prefetcher predicts.
void read_spread(std::int32_t start, std::int32_t count) {
  std::uint32_t step = 1;
  for (int read = 0; read < kReads; ++read) {
    step = step * 1664525u + 1013904223u;
    std::int32_t value = 0;
    std::int32_t length = sizeof value;
    kelo_dm_rd_from_mem(start + static_cast<std::int32_t>(step % static_cast<std::uint32_t>(count)), &value,
                        &length);
    benchmark::DoNotOptimize(value);
  }
}

// Microseconds are those of 10,000 reads.
void ReadAmongManyIds(benchmark::State& state) {
  for (std::int32_t id = 0; id < kFew; ++id) store(id);
  for (std::int32_t id = kManyStart; id < kManyStart + kMany; ++id) store(id);
  kelo::bench::compare(
      state, [] { read_spread(kManyStart, kMany); }, [] { read_spread(0, kFew); });
}
BENCHMARK(ReadAmongManyIds)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
