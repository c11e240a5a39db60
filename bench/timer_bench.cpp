// SPDX-License-Identifier: MIT
// How long after its expiry a timer's callback runs: the service against the two plainest ways to have
// callbacks on a thread, POSIX timers whose signal handler posts a semaphore, and one timerfd per timer in an
// epoll set. And what an expiry costs while other timers wait for their callbacks.
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/file.hpp"
#include "bench/ratio.hpp"
#include "kelo_utils/timer.h"

namespace {

using kelo::base::retry_interrupted;
using Nanoseconds = std::int64_t;

constexpr Nanoseconds kMillisecond = 1'000'000;
constexpr int kBurst = 1000;
constexpr int kWaiting = 10000;

Nanoseconds as_nanoseconds(const timespec& time) {
  return static_cast<Nanoseconds>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

timespec as_timespec(Nanoseconds time) {
  timespec result{};
  result.tv_sec = static_cast<time_t>(time / 1'000'000'000);
  result.tv_nsec = static_cast<decltype(result.tv_nsec)>(time % 1'000'000'000);
  return result;
}

Nanoseconds now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return as_nanoseconds(time);
}

void check(bool done) {
  if (!done) std::abort();
}

class Semaphore {
 public:
  Semaphore() { sem_init(&semaphore_, 0, 0); }
  ~Semaphore() { sem_destroy(&semaphore_); }
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;
  void post() { sem_post(&semaphore_); }
  void wait() {
    retry_interrupted([this] { return sem_wait(&semaphore_); });
  }

 private:
  sem_t semaphore_{};
};

// While it lives, threads that are started do not take the signal.
class SignalBlocked {
 public:
  explicit SignalBlocked(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals) sigaddset(&set, signal);
    pthread_sigmask(SIG_BLOCK, &set, &before_);
  }
  ~SignalBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalBlocked(const SignalBlocked&) = delete;
  SignalBlocked& operator=(const SignalBlocked&) = delete;

 private:
  sigset_t before_{};
};

// --- What the callbacks do ----------------------------------------------------------------------------

std::vector<Nanoseconds> calls;  // when each of a round was made
std::size_t calls_made = 0;
Semaphore round_over;

void note_call(void* /*unused*/) {
  if (calls_made == calls.size()) return;
  calls[calls_made++] = now();
  if (calls_made == calls.size()) round_over.post();
}

// --- Three ways to have them called -------------------------------------------------------------------

class Timers {
 public:
  Timers() = default;
  virtual ~Timers() = default;
  Timers(const Timers&) = delete;
  Timers& operator=(const Timers&) = delete;

  // Arms a timer; null times disarm it.
  virtual void arm(std::size_t timer, Nanoseconds first, Nanoseconds period) = 0;
  // The time to the timer's next expiry.
  virtual Nanoseconds remaining(std::size_t timer) = 0;
};

class ServiceTimers : public Timers {
 public:
  ServiceTimers() {
    const SignalBlocked others{SIGUSR2};
    kelo_timer_init();
    for (kelo_timer_info& info : infos_) {
      info.cb.handler = note_call;
      check(kelo_timer_create(&info) == 0);
    }
  }
  void arm(std::size_t timer, Nanoseconds first, Nanoseconds period) override {
    infos_[timer].value = as_span(first);
    infos_[timer].interval = as_span(period);
    check(kelo_timer_start(&infos_[timer]) == 0);
  }
  Nanoseconds remaining(std::size_t timer) override {
    kelo_timer_info& info = infos_[timer];
    check(kelo_timer_gettime(&info) == 0);
    return info.value.tv_sec * Nanoseconds{1'000'000'000} + info.value.tv_nsec;
  }

 private:
  static kelo_timer_span as_span(Nanoseconds time) {
    return {static_cast<std::int32_t>(time / 1'000'000'000), static_cast<std::int32_t>(time % 1'000'000'000)};
  }

  std::vector<kelo_timer_info> infos_ = std::vector<kelo_timer_info>(kBurst);
};

// The handler puts each timer into a ring and posts a semaphore for it.
class SignalTimers : public Timers {
 public:
  SignalTimers() {
    const SignalBlocked others{SIGUSR1};
    std::thread(call_back).detach();
    struct sigaction action {};
    action.sa_sigaction = handle;
    action.sa_flags = SA_SIGINFO;
    check(sigaction(SIGUSR2, &action, nullptr) == 0);
    for (timer_t& timer : timers_) {
      sigevent notification{};
      notification.sigev_notify = SIGEV_SIGNAL;
      notification.sigev_signo = SIGUSR2;
      notification.sigev_value.sival_ptr = &timer;
      check(timer_create(CLOCK_MONOTONIC, &notification, &timer) == 0);
    }
  }
  void arm(std::size_t timer, Nanoseconds first, Nanoseconds period) override {
    const itimerspec times = {as_timespec(period), as_timespec(first)};
    check(timer_settime(timers_[timer], 0, &times, nullptr) == 0);
  }
  Nanoseconds remaining(std::size_t timer) override {
    itimerspec times{};
    check(timer_gettime(timers_[timer], &times) == 0);
    return as_nanoseconds(times.it_value);
  }

 private:
  static void handle(int /*number*/, siginfo_t* signal, void* /*context*/) {
    const kelo::base::ErrnoKeeper keep;
    ring[put.fetch_add(1) % ring.size()].store(signal->si_value.sival_ptr);
    expiries.post();
  }
  [[noreturn]] static void call_back() {
    for (std::size_t taken = 0;; ++taken) {
      expiries.wait();
      while (ring[taken % ring.size()].exchange(nullptr) == nullptr) continue;
      note_call(nullptr);
    }
  }

  static inline std::array<std::atomic<void*>, std::size_t{2} * kBurst> ring{};
  static inline std::atomic<std::size_t> put{0};
  static inline Semaphore expiries;
  std::vector<timer_t> timers_ = std::vector<timer_t>(kBurst);
};

class DescriptorTimers : public Timers {
 public:
  DescriptorTimers() {
    const SignalBlocked others{SIGUSR1, SIGUSR2};
    for (int i = 0; i < kBurst; ++i) {
      timers_.emplace_back(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.fd = timers_.back().get();
      check(epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, event.data.fd, &event) == 0);
    }
    std::thread([epoll = epoll_.get()] { call_back(epoll); }).detach();
  }
  void arm(std::size_t timer, Nanoseconds first, Nanoseconds period) override {
    const itimerspec times = {as_timespec(period), as_timespec(first)};
    check(timerfd_settime(timers_[timer].get(), 0, &times, nullptr) == 0);
  }
  Nanoseconds remaining(std::size_t timer) override {
    itimerspec times{};
    check(timerfd_gettime(timers_[timer].get(), &times) == 0);
    return as_nanoseconds(times.it_value);
  }

 private:
  [[noreturn]] static void call_back(int epoll) {
    std::array<epoll_event, 64> events{};
    while (true) {
      const int ready = epoll_wait(epoll, events.data(), events.size(), -1);
      for (int i = 0; i < ready; ++i) {
        std::uint64_t expiries = 0;
        if (read(events.at(static_cast<std::size_t>(i)).data.fd, &expiries, sizeof expiries) > 0) {
          note_call(nullptr);
        }
      }
    }
  }

  kelo::base::Descriptor epoll_{epoll_create1(EPOLL_CLOEXEC)};
  std::vector<kelo::base::Descriptor> timers_;
};

// --- Latency ------------------------------------------------------------------------------------------

struct Contender {
  std::string name;
  Timers* timers;
  std::vector<double> latencies;  // microseconds
};

std::vector<Contender> contenders() {
  static ServiceTimers service;
  static SignalTimers signal;
  static DescriptorTimers descriptor;
  return {{"service", &service, {}}, {"signal", &signal, {}}, {"timerfd", &descriptor, {}}};
}

void begin_round(std::size_t expected) {
  calls.assign(expected, 0);
  calls_made = 0;
}

// The time at which the running timer expires next, from the reading that took the shortest time.
Nanoseconds next_expiry(Timers& timers) {
  Nanoseconds best_frame = std::numeric_limits<Nanoseconds>::max();
  Nanoseconds expiry = 0;
  for (int attempt = 0; attempt < 20; ++attempt) {
    const Nanoseconds before = now();
    const Nanoseconds remaining = timers.remaining(0);
    const Nanoseconds frame = now() - before;
    if (frame >= best_frame) continue;
    best_frame = frame;
    expiry = before + frame / 2 + remaining;
  }
  return expiry;
}

// A timer of 1 ms runs for a while. The first expiry is late enough to read when it is due. The pause at the end is for
// an expiry that came before the timer was disarmed. Latencies are counted modulo the period.
void periodic_round(Contender& contender) {
  begin_round(100);
  contender.timers->arm(0, 3 * kMillisecond, kMillisecond);
  const Nanoseconds first = next_expiry(*contender.timers);
  round_over.wait();
  contender.timers->arm(0, 0, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  for (const Nanoseconds call : calls) {
    contender.latencies.push_back(static_cast<double>((call - first) % kMillisecond) / 1e3);
  }
}

void burst_round(Contender& contender) {
  begin_round(kBurst);
  const Nanoseconds due = now() + 4 * kMillisecond;
  for (std::size_t timer = 0; timer < kBurst; ++timer) {
    contender.timers->arm(timer, std::max<Nanoseconds>(due - now(), 1), 0);
  }
  round_over.wait();
  for (const Nanoseconds call : calls) contender.latencies.push_back(static_cast<double>(call - due) / 1e3);
}

double percentile(std::vector<double>& sorted, double share) {
  return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
}

// Each iteration gives every contender a round, so that other work of the machine affects all of them. The ratios
// are those of the service to the better one of the others.
void compare_latencies(benchmark::State& state, void (*round)(Contender&)) {
  std::vector<Contender> all = contenders();
  while (state.KeepRunning()) {
    for (Contender& contender : all) round(contender);
  }
  for (Contender& contender : all) std::sort(contender.latencies.begin(), contender.latencies.end());
  for (const auto& [name, share] : {std::pair{"p50", 0.5}, std::pair{"p99", 0.99}}) {
    double best_peer = std::numeric_limits<double>::max();
    for (Contender& contender : all) {
      const double latency = percentile(contender.latencies, share);
      state.counters[contender.name + "_" + name] = latency;
      if (&contender != &all.front()) best_peer = std::min(best_peer, latency);
    }
    state.counters[std::string("ratio_") + name] = percentile(all.front().latencies, share) / best_peer;
  }
}

void PeriodicLatency(benchmark::State& state) { compare_latencies(state, periodic_round); }
void BurstLatency(benchmark::State& state) { compare_latencies(state, burst_round); }

// --- Expiries while others wait -----------------------------------------------------------------------

// A callback that holds the worker until it is told to go on.
struct Gate {
  Semaphore reached;
  Semaphore opened;
  static void pass(void* gate) {
    static_cast<Gate*>(gate)->reached.post();
    static_cast<Gate*>(gate)->opened.wait();
  }
};

// A record of a timer that never runs: the benchmark sends its expiries to this thread.
class Record {
 public:
  Record() {
    set_callback([](void*) {}, nullptr);
  }
  void set_callback(void (*handler)(void*), void* arg) {
    info_.cb = {handler, arg};
    info_.magic = KELO_TIMER_MAGIC;
  }
  void expire() {
    sigval value{};
    value.sival_ptr = &info_;
    check(pthread_sigqueue(pthread_self(), SIGUSR1, value) == 0);
  }

 private:
  kelo_timer_info info_{};
};

// Seconds that the expiry of each of `fresh` takes while `waiting` wait for their callbacks.
double seconds_behind(std::vector<Record>& waiting, std::size_t count, std::vector<Record>& fresh) {
  static Gate gate;
  static std::array<Record, 2> holders;
  for (Record& holder : holders) holder.set_callback(Gate::pass, &gate);
  holders[0].expire();
  gate.reached.wait();
  for (std::size_t i = 0; i < count; ++i) waiting[i].expire();
  auto expire_all = [&fresh] {
    for (Record& record : fresh) record.expire();
  };
  const double seconds = kelo::bench::seconds_of(expire_all);
  holders[1].expire();
  gate.opened.post();
  gate.reached.wait();  // the second holder is called after all others
  gate.opened.post();
  return seconds / static_cast<double>(fresh.size());
}

void ExpiryWhileOthersWait(benchmark::State& state) {
  contenders();  // starts the service
  std::vector<Record> waiting(kWaiting);
  std::vector<Record> fresh(100);
  std::vector<double> behind_one;
  std::vector<double> behind_many;
  while (state.KeepRunning()) {
    behind_one.push_back(seconds_behind(waiting, 1, fresh));
    behind_many.push_back(seconds_behind(waiting, waiting.size(), fresh));
    state.SetIterationTime(behind_many.back());
  }
  const double one = kelo::bench::median(behind_one);
  const double many = kelo::bench::median(behind_many);
  state.counters["us_behind_1"] = one * 1e6;
  state.counters["us_behind_10000"] = many * 1e6;
  state.counters["ratio"] = many / one;
}

BENCHMARK(PeriodicLatency)->Iterations(30)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BurstLatency)->Iterations(100)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ExpiryWhileOthersWait)->Iterations(100)->Unit(benchmark::kMicrosecond)->UseManualTime();

}  // namespace
