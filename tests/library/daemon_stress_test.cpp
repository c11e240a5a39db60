// SPDX-License-Identifier: MIT
// A daemon that does everything at once: timers of all periods whose callbacks write settings, run commands and ask
// for addresses, threads that log and run commands, and an alarm every millisecond. It takes six seconds, or as many
// as KELO_STRESS_SECONDS says.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <thread>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "kelo_utils/timer.h"
#include "tests/support/descriptors.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/store_settings.hpp"
#include "tests/support/timer_probe.hpp"

namespace {

using kelo::tests::wait_until;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

std::chrono::seconds stress_time() {
  const char* const wanted = std::getenv("KELO_STRESS_SECONDS");
  return std::chrono::seconds(wanted == nullptr ? 6 : std::strtol(wanted, nullptr, 10));
}

kelo_timer_span as_span(microseconds time) {
  return {static_cast<std::int32_t>(time.count() / 1'000'000),
          static_cast<std::int32_t>(time.count() % 1'000'000 * 1000)};
}

std::atomic<bool> going_on{true};

// --- What is counted ------------------------------------------------------------------------------------

std::atomic<int> commands{0};
std::atomic<int> wrong_commands{0};
// Commands that were silent for two seconds, as any may be on a machine with too much to do. Each leaves a child that
// this process has to wait for.
std::atomic<int> killed{0};
std::atomic<long> lines{0};
std::atomic<int> alarms{0};

void count_line(const char* line) {
  ++lines;
  if (std::strstr(line, "kill()ed pid") != nullptr) ++killed;
}

// --- What threads and callbacks do ----------------------------------------------------------------------

void claim(bool right) {
  ++commands;
  wrong_commands += !right;
}

// A text that no other command prints.
std::string own_text() {
  static std::atomic<int> count{0};
  return "text-" + std::to_string(++count);
}

void run_shell() {
  const std::string text = own_text();
  std::array<char, 64> output{};
  claim(kelo_popen_call(("echo " + text).c_str(), output.data(), output.size()) == 0 &&
        output.data() == text + "\n");
}

void run_for_status() {
  constexpr char kCommand[] = "exit 7";
  claim(kelo_system_call(kCommand, sizeof kCommand - 1) == 7 << 8);
}

void run_supervised() {
  const std::string text = own_text();
  std::array<char, 64> output{};
  const int result = kelo_ds_system_call3(("echo " + text).c_str(), 0, output.data(), output.size(), 0);
  claim(output.data() == text + "\n" || (result == -1 && killed > 0));
}

void work() {
  for (int i = 0; going_on; ++i) {
    KELO_LOG(LOG_LVL_INFO, "step %d\n", i);
    switch (i % 3) {
      case 0:
        run_shell();
        break;
      case 1:
        run_for_status();
        break;
      default:
        run_supervised();
    }
  }
}

void write_setting() {
  const std::string text = own_text();
  claim(kelo::tests::put("apn", text) == 0 && kelo::tests::get("apn") == text);
}

void ask_for_gateway() {
  std::array<char, 46> text{};
  claim(kelo_get_ipv6_default_gw("lo", text.data()) == 0 && text[0] == '\0');
}

// It waits for two seconds, in which no other callback runs.
void ask_for_address() {
  std::array<char, 40> text{};
  claim(kelo_check_global_ipv6_addr("lo", text.data()) == 0);
}

// --- Timers ---------------------------------------------------------------------------------------------

class Periodic {
 public:
  Periodic(microseconds period, void (*action)()) : action_(action) {
    info_.value = info_.interval = as_span(period);
    info_.cb = {[](void* self) { static_cast<Periodic*>(self)->run(); }, this};
    EXPECT_EQ(kelo_timer_create(&info_), 0);
    EXPECT_EQ(kelo_timer_start(&info_), 0);
  }
  void check() {
    EXPECT_GE(calls_, 1) << as_microseconds();
    EXPECT_EQ(kelo_timer_delete(&info_), 0);
  }

 private:
  void run() {
    ++calls_;
    if (action_ != nullptr) action_();
  }
  [[nodiscard]] long as_microseconds() const { return info_.interval.tv_nsec / 1000; }

  kelo_timer_info info_{};
  void (*const action_)();
  std::atomic<int> calls_{0};
};

// Starts itself again in its callback, by turns with its old timer and with a new one on another record.
class OneShot {
 public:
  explicit OneShot(int name) : name_(name) { renew(); }

  void check() {
    EXPECT_TRUE(wait_until([this] { return calls_ == starts_; })) << calls_ << " of " << starts_;
    EXPECT_GE(calls_, 2);
    EXPECT_EQ(failures_, 0);
    EXPECT_EQ(kelo_timer_delete(info_.get()), 0);
  }

 private:
  void run() {
    if (!going_on && calls_ > 0) {
      ++calls_;
      return;
    }
    if (calls_ % 2 == 0) {
      start();
    } else {
      failures_ += kelo_timer_delete(info_.get()) != 0;
      renew();
    }
    ++calls_;
  }
  void start() {
    ++starts_;
    failures_ += kelo_timer_start(info_.get()) != 0;
  }
  void renew() {
    info_ = std::make_unique<kelo_timer_info>();
    info_->value = as_span(microseconds(1 + name_ * name_ * 100));
    info_->cb = {[](void* self) { static_cast<OneShot*>(self)->run(); }, this};
    failures_ += kelo_timer_create(info_.get()) != 0;
    start();
  }

  const int name_;
  std::unique_ptr<kelo_timer_info> info_;
  std::atomic<int> starts_{0};
  std::atomic<int> calls_{0};
  std::atomic<int> failures_{0};
};

// Deletes a timer that never rests, from this thread, and frees its record.
void create_and_delete_one() {
  auto record = std::make_unique<kelo_timer_info>();
  record->value = record->interval = as_span(microseconds(100));
  record->cb.handler = [](void*) {};
  EXPECT_EQ(kelo_timer_create(record.get()), 0);
  EXPECT_EQ(kelo_timer_start(record.get()), 0);
  std::this_thread::sleep_for(milliseconds(5));
  EXPECT_EQ(kelo_timer_delete(record.get()), 0);
}

void ring_every_millisecond() {
  struct sigaction action {};
  action.sa_handler = [](int) { ++alarms; };
  sigaction(SIGALRM, &action, nullptr);
  constexpr itimerval kEvery = {{0, 1000}, {0, 1000}};
  setitimer(ITIMER_REAL, &kEvery, nullptr);
}

void stop_ringing() {
  constexpr itimerval kNever{};
  setitimer(ITIMER_REAL, &kNever, nullptr);
}

TEST(DaemonStress, EverythingAtOnce) {
  kelo_set_log_tool_enable(0);
  set_print_interface(count_line);
  kelo_dm_operations operations{};
  sqlite_reg(&operations);
  write_setting();
  const std::set<std::string> descriptors = kelo::tests::open_descriptors();
  kelo_timer_init();
  ring_every_millisecond();

  std::deque<Periodic> periodic;
  for (const int period : {1, 10, 100, 1000, 10'000}) periodic.emplace_back(microseconds(period), nullptr);
  periodic.emplace_back(milliseconds(100), write_setting);
  periodic.emplace_back(milliseconds(40), run_shell);
  periodic.emplace_back(milliseconds(50), run_supervised);
  periodic.emplace_back(milliseconds(60), run_for_status);
  periodic.emplace_back(milliseconds(20), ask_for_gateway);
  periodic.emplace_back(std::chrono::seconds(5), ask_for_address);
  std::deque<OneShot> one_shots;
  // An emulator has 32 timers, of which the service needs one itself.
  constexpr int kOneShots = kelo::tests::kEmulated ? 19 : 20;
  for (int name = 0; name < kOneShots; ++name) one_shots.emplace_back(name);
  std::deque<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(work);
  const auto end = steady_clock::now() + stress_time();
  while (steady_clock::now() < end) create_and_delete_one();

  going_on = false;
  for (std::thread& thread : threads) thread.join();
  for (OneShot& timer : one_shots) timer.check();
  for (Periodic& timer : periodic) timer.check();
  kelo::tests::pass_worker();
  stop_ringing();
  EXPECT_EQ(wrong_commands, 0) << "of " << commands;
  EXPECT_GE(commands, 100);
  EXPECT_GT(alarms, 0);
  EXPECT_GT(lines, 0);
  EXPECT_EQ(kelo::tests::open_descriptors(), descriptors);
  for (int i = killed; i > 0; --i) EXPECT_GT(waitpid(-1, nullptr, 0), 0);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
  RecordProperty("commands", commands);
  RecordProperty("killed", killed);
}

}  // namespace
