// SPDX-License-Identifier: MIT
// What the processes of a stress test tell each other: memory that all of them share, and that outlives any
// of them.
#ifndef KELO_TESTS_SUPPORT_STRESS_PAGE_HPP
#define KELO_TESTS_SUPPORT_STRESS_PAGE_HPP

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

namespace kelo::tests {

// How often something was done, and the longest time that it took.
struct Calls {
  std::atomic<std::uint32_t> made;
  std::atomic<std::uint32_t> failed;
  std::atomic<std::int64_t> longest_microseconds;

  template <typename Call>
  auto timed(Call call) {
    const auto begin = std::chrono::steady_clock::now();
    const auto result = call();
    const auto took = std::chrono::steady_clock::now() - begin;
    const std::int64_t now = std::chrono::duration_cast<std::chrono::microseconds>(took).count();
    std::int64_t longest = longest_microseconds;
    while (now > longest && !longest_microseconds.compare_exchange_weak(longest, now)) {
    }
    ++made;
    return result;
  }

  void print(const char* name, double seconds) const {
    std::printf("%s: %u, %.0f a second, longest %.1f ms, %u failed\n", name, made.load(),
                made.load() / seconds, static_cast<double>(longest_microseconds.load()) / 1000,
                failed.load());
  }
};

template <std::size_t items>
struct StressPage {
  // Of one item, written by one thread at a time: the number of the write that began last, and of the one
  // that was acknowledged last.
  struct Item {
    std::atomic<std::uint32_t> begun;
    std::atomic<std::uint32_t> acknowledged;
  };

  std::array<Item, items> item;
  std::atomic<bool> stop;
  Calls writes;
  Calls reads;
  Calls starts;
  Calls cleans;
  std::atomic<std::uint32_t> garbage;
  std::atomic<std::uint32_t> old_values;
  std::atomic<std::uint32_t> lost;

  // Keeps a line about a failure; the first ones are enough.
  [[gnu::format(printf, 2, 3)]] void note(const char* format, ...) {
    const std::uint32_t place = notes_++;
    if (place >= lines_.size()) return;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(lines_[place].data(), lines_[place].size(), format, arguments);
    va_end(arguments);
  }
  [[nodiscard]] std::string notes() const {
    std::string all;
    for (const auto& line : lines_) all += line[0] == '\0' ? std::string() : std::string(line.data()) + '\n';
    return all;
  }

  // A page that forked processes share with this one.
  static StressPage& make() {
    void* const memory =
        mmap(nullptr, sizeof(StressPage), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    return *new (memory) StressPage{};
  }

 private:
  std::atomic<std::uint32_t> notes_;
  std::array<std::array<char, 120>, 20> lines_;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_STRESS_PAGE_HPP
