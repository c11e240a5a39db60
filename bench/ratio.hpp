// Compares two ways of doing the same in one run: each iteration does both, in turn, so that what else the
// machine does weighs on both alike.
#ifndef KELO_BENCH_RATIO_HPP
#define KELO_BENCH_RATIO_HPP

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <vector>

namespace kelo::bench {

template <typename Call>
double seconds_of(Call& call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

inline double median(std::vector<double>& samples) {
  if (samples.empty()) return 0;
  const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
  std::nth_element(samples.begin(), middle, samples.end());
  return *middle;
}

// Reports the median microseconds of both and their ratio: 1.00 is as fast as `peer`, less is faster. The
// state must use manual time.
template <typename Ours, typename Peer>
void compare(benchmark::State& state, Ours ours, Peer peer) {
  std::vector<double> our_times;
  std::vector<double> peer_times;
  for (auto _ : state) {
    our_times.push_back(seconds_of(ours));
    peer_times.push_back(seconds_of(peer));
    state.SetIterationTime(our_times.back());
  }
  const double our_median = median(our_times);
  const double peer_median = median(peer_times);
  state.counters["us"] = our_median * 1e6;
  state.counters["peer_us"] = peer_median * 1e6;
  state.counters["ratio"] = our_median / peer_median;
}

}  // namespace kelo::bench

#endif  // KELO_BENCH_RATIO_HPP
