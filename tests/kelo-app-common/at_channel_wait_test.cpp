// SPDX-License-Identifier: MIT
// The real time that an AT command waits for a modem that is not there.
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "kelo_utils/app_common.h"
#include "kelo_utils/log.h"
#include "tests/support/log_capture.hpp"

namespace {

using Clock = std::chrono::steady_clock;

// Seconds until the failure.
double seconds_of_silence() {
  const Clock::time_point start = Clock::now();
  char* const reply = kelo_util_send_at("AT");
  const std::chrono::duration<double> taken = Clock::now() - start;
  EXPECT_STREQ(reply, "\r\nERROR\r\n");
  std::free(reply);
  return taken.count();
}

std::atomic<int> signals_handled{0};

// The refusals that the system gets for the datagrams end no wait either.
TEST(AtChannelWait, TakesAMinuteWhateverSignalsArrive) {
  struct sigaction action {};
  action.sa_handler = [](int) { ++signals_handled; };
  sigaction(SIGUSR2, &action, nullptr);
  const kelo::tests::LogCapture log;

  double undisturbed = 0;
  double disturbed = 0;
  std::atomic<bool> ended{false};
  std::thread quiet([&] { undisturbed = seconds_of_silence(); });
  std::thread noisy([&] {
    disturbed = seconds_of_silence();
    ended = true;
  });
  while (!ended) {
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    pthread_kill(noisy.native_handle(), SIGUSR2);
  }
  quiet.join();
  noisy.join();

  for (const double seconds : {undisturbed, disturbed}) {
    EXPECT_GE(seconds, 60.0);
    EXPECT_LT(seconds, 90.0);
  }
  EXPECT_GT(signals_handled, 10);
  EXPECT_EQ(log.count(LOG_LVL_INFO, "oem_util_send_at", "send at cmd:[3,AT\r]\n"), 2);
  EXPECT_EQ(log.count(LOG_LVL_ERR, "oem_util_send_at", "select fail:ret=0\n"), 6);
  EXPECT_EQ(log.lines().size(), 8U) << log.dump();
}

}  // namespace
