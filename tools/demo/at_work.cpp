// SPDX-License-Identifier: MIT
// A chapter of the demo: a heartbeat, a value in memory, supervised commands.
#include "tools/demo/at_work.hpp"

#include <array>
#include <chrono>
#include <cstdint>
#include <string_view>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/data_manager.h"
#include "kelo_utils/timer.h"
#include "tools/demo/claims.hpp"
#include "tools/demo/store_files.hpp"

namespace kelo::demo {
namespace {

// Runtime values live under ids of their own, beside the stored settings.
constexpr std::int32_t kBeats = 9001;
constexpr std::int32_t kBeatMilliseconds = 50;

std::int32_t beats() {
  std::int32_t count = 0;
  std::int32_t size = sizeof count;
  kelo_dm_rd_from_mem(kBeats, &count, &size);
  return count;
}

void set_beats(std::int32_t count) {
  const std::int32_t size = sizeof count;
  kelo_dm_wr_to_mem(kBeats, &count, &size);
}

void beat(void* /*unused*/) { set_beats(beats() + 1); }

using Clock = std::chrono::steady_clock;

long long milliseconds_since(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

void list_databases() {
  std::array<char, 512> output{};
  const int result = kelo_ds_system_call3("ls /data", 0, output.data(), output.size(), 0);
  const std::string_view listing(output.data());
  claim(result == 0 && listing.find("config.db\n") != std::string_view::npos,
        "a supervised \"ls /data\" lists %s among %zu bytes of output", "config.db", listing.size());
}

void refuse_unknown_command() {
  claim(kelo_ds_system_call3("reboot now", 0, nullptr, 0, 0) == -1,
        "\"reboot now\" is no known tool: refused");
}

void stop_silent_command() {
  const Clock::time_point start = Clock::now();
  const int result = kelo_ds_system_call3("sleep 30", 0, nullptr, 0, 0);
  const long long took = milliseconds_since(start);
  claim(result == -1 && took >= 2000 && took < 30000, "a silent \"sleep 30\" is killed after %lld ms", took);
}

}  // namespace

void at_work() {
  chapter("At work: a heartbeat, a value in memory, supervised commands");
  life([] {
    hide_log();
    set_beats(0);
    kelo_timer_info heartbeat{};
    heartbeat.value = heartbeat.interval = {0, kBeatMilliseconds * 1000000};
    heartbeat.cb.handler = beat;
    kelo_timer_init();
    const bool started = kelo_timer_create(&heartbeat) == 0 && kelo_timer_start(&heartbeat) == 0;
    claim(started, "the heartbeat runs every %d ms", kBeatMilliseconds);
    const Clock::time_point start = Clock::now();

    list_databases();
    refuse_unknown_command();
    stop_silent_command();

    kelo_timer_stop(&heartbeat);
    const long long most = milliseconds_since(start) / kBeatMilliseconds + 1;
    const std::int32_t counted = beats();
    claim(counted >= 2 && counted <= most, "meanwhile the value in memory went up to %d heartbeats", counted);
    claim(kelo_timer_is_already_start(&heartbeat) == 0 && kelo_timer_delete(&heartbeat) == 0,
          "the heartbeat is stopped and deleted");
  });
}

}  // namespace kelo::demo
