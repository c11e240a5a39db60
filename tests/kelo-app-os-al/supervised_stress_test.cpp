// SPDX-License-Identifier: MIT
// Supervised commands in a daemon whose other threads never stop logging.
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kelo_utils/app_os_al.h"
#include "kelo_utils/log.h"
#include "tests/support/descriptors.hpp"
#include "tests/support/sanitized.hpp"

namespace {

// Every run is a fork of the sanitizer's shadow memory as well.
constexpr int kUsualRuns = kelo::tests::kSanitized ? 1000 : 10000;

// KELO_STRESS_RUNS in the environment asks for another number, the whole of it under a sanitizer for one.
int number_of_runs() {
  const char* const asked = std::getenv("KELO_STRESS_RUNS");
  return asked == nullptr ? kUsualRuns : static_cast<int>(std::strtol(asked, nullptr, 10));
}

const int runs = number_of_runs();
constexpr int kLoggers = 8;
constexpr int kRunners = 2;

std::atomic<long> lines{0};
std::atomic<bool> done{false};

// Four lines and a short pause, again and again: without the pause the log's lock, which is not fair, would
// leave the runners hardly any time.
void log_until_done() {
  while (!done) {
    for (int i = 0; i < 4; ++i) KELO_LOG(LOG_LVL_INFO, "line %d\n", i);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// How many descriptors a child of this process has, by its own count.
long descriptors_of_child() {
  std::array<char, 4096> listing{};
  EXPECT_EQ(kelo_ds_system_call3("ls /proc/self/fd", 0, listing.data(), listing.size(), 0), 0);
  return std::count(listing.begin(), listing.end(), '\n');
}

void run_commands(int runner, long descriptors) {
  for (int i = runner; i < runs; i += kRunners) {
    if (i % 20 < kRunners) {
      EXPECT_EQ(descriptors_of_child(), descriptors);
      continue;
    }
    std::array<char, 32> output{};
    const std::string text = std::to_string(i);
    EXPECT_EQ(kelo_ds_system_call3(("echo " + text).c_str(), 0, output.data(), output.size(), 0), 0);
    EXPECT_EQ(output.data(), text + "\n");
  }
}

TEST(SupervisedStress, RunsWhileOtherThreadsLog) {
  kelo_set_log_tool_enable(0);
  set_print_interface([](const char*) { lines.fetch_add(1, std::memory_order_relaxed); });
  const std::set<std::string> before = kelo::tests::open_descriptors();
  const long descriptors = descriptors_of_child();
  std::vector<std::thread> loggers;
  loggers.reserve(kLoggers);
  for (int i = 0; i < kLoggers; ++i) loggers.emplace_back(log_until_done);
  std::vector<std::thread> runners;
  runners.reserve(kRunners);
  for (int i = 0; i < kRunners; ++i) runners.emplace_back(run_commands, i, descriptors);
  for (std::thread& runner : runners) runner.join();
  done = true;
  for (std::thread& logger : loggers) logger.join();
  EXPECT_GT(lines.load(), runs);
  EXPECT_EQ(kelo::tests::open_descriptors(), before);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
  RecordProperty("runs", runs);
}

}  // namespace
