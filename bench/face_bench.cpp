// SPDX-License-Identifier: MIT
// What the C++ face takes over the C functions under it: reads and writes of items, and timers. The
// back-end keeps values in memory, so that an access costs as little as it can.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>

#include "bench/ratio.hpp"
#include "kelo_utils/kelo.hpp"

namespace {

using kelo::bench::compare;

// A single call is too short for the clock. Many calls at once take in the other work of the machine.
constexpr int kCalls = 20;

kelo_dm_item items[] = {
    KELO_DM_ITEM(1, "net", "number", KELO_DM_TYPE_SCALAR3, 5, 4),
    KELO_DM_TEXT_ITEM(2, "net", "text", "a name of some length"),
    KELO_DM_END,
};

std::int32_t stored_number = 5;

int write(std::uint32_t /*id*/, kelo_dm_item_desc* /*item*/, const void* data, int len) {
  if (len == 4) std::memcpy(&stored_number, data, 4);
  return 0;
}

int read(std::uint32_t id, kelo_dm_item_desc* /*item*/, void* buf, int size) {
  static constexpr char kText[] = "a name of some length";
  const bool number = id == 1;
  const int len = number ? 4 : static_cast<int>(sizeof kText - 1);
  if (size < len) return -102;
  std::memcpy(buf, number ? static_cast<const void*>(&stored_number) : kText, static_cast<std::size_t>(len));
  return len;
}

const kelo::Store& store() {
  static const kelo::Store opened = [] {
    kelo::StoreOptions options;
    options.items = items;
    auto made = std::move(kelo::Store::open(options)).value();
    made.handle()->operations.write = write;
    made.handle()->operations.read = read;
    return made;
  }();
  return opened;
}

template <typename Call>
auto repeated(Call call) {
  return [call] {
    for (int i = 0; i < kCalls; ++i) call();
  };
}

void get_number(benchmark::State& state) {
  const auto item = store().item<std::int32_t>(1);
  kelo_dm_handle* const handle = store().handle();
  compare(state, repeated([&] { benchmark::DoNotOptimize(item.get().value()); }), repeated([&] {
            std::int32_t value = 0;
            kelo_dm_get_int32(handle, 1, &value);
            benchmark::DoNotOptimize(value);
          }));
}

void set_number(benchmark::State& state) {
  const auto item = store().item<std::int32_t>(1);
  kelo_dm_handle* const handle = store().handle();
  compare(state, repeated([&] { benchmark::DoNotOptimize(item.set(7).ok()); }),
          repeated([&] { benchmark::DoNotOptimize(kelo_dm_set_int32(handle, 1, 7)); }));
}

void get_text(benchmark::State& state) {
  const auto item = store().item<std::string>(2);
  kelo_dm_handle* const handle = store().handle();
  compare(state, repeated([&] { benchmark::DoNotOptimize(item.get().value().size()); }), repeated([&] {
            char text[256];
            kelo_dm_get_text(handle, 2, text, sizeof text);
            benchmark::DoNotOptimize(std::string(text).size());
          }));
}

void start_and_stop_timer(benchmark::State& state) {
  static const bool started = [] {
    kelo_timer_init();
    return true;
  }();
  benchmark::DoNotOptimize(started);
  static kelo::Timer timer;
  (void)timer.once(std::chrono::hours(1), [] {});
  static kelo_timer_info record{};
  record.value = {3600, 0};
  record.cb = {[](void*) {}, nullptr};
  if (record.state == TIMER_STATE_IDLE) kelo_timer_create(&record);
  compare(state, repeated([] {
            (void)timer.start();
            (void)timer.stop();
          }),
          repeated([] {
            kelo_timer_start(&record);
            kelo_timer_stop(&record);
          }));
}

BENCHMARK(get_number)->UseManualTime();
BENCHMARK(set_number)->UseManualTime();
BENCHMARK(get_text)->UseManualTime();
BENCHMARK(start_and_stop_timer)->UseManualTime();

}  // namespace
