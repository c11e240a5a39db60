// SPDX-License-Identifier: MIT
// Threads that log one message after the other until the object ends.
#ifndef KELO_TESTS_BACKGROUND_LOGGERS_HPP
#define KELO_TESTS_BACKGROUND_LOGGERS_HPP

#include <atomic>
#include <thread>
#include <vector>

namespace kelo::tests {

class BackgroundLoggers {
 public:
  // `log_one` must not allocate: a child forked meanwhile could inherit a sanitizer's heap lock.
  BackgroundLoggers(int count, void (*log_one)()) {
    for (int i = 0; i < count; ++i) {
      threads_.emplace_back([this, log_one] {
        log_one();
        ++running_;
        running_.notify_all();
        while (!stop_.load(std::memory_order_relaxed)) log_one();
      });
    }
    for (int running = running_; running < count; running = running_) running_.wait(running);
  }
  ~BackgroundLoggers() {
    stop_ = true;
    for (std::thread& thread : threads_) thread.join();
  }
  BackgroundLoggers(const BackgroundLoggers&) = delete;
  BackgroundLoggers& operator=(const BackgroundLoggers&) = delete;

 private:
  std::atomic<bool> stop_{false};
  std::atomic<int> running_{0};
  std::vector<std::thread> threads_;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_BACKGROUND_LOGGERS_HPP
