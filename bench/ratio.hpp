// SPDX-License-Identifier: MIT
// Compares two ways of doing the same in one run: each iteration does both, in turn, so that other work of the
// machine affects both.
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

// The value below which `share` of the samples lie.
inline double quantile(std::vector<double>& samples, double share) {
  if (samples.empty()) return 0;
  const auto place = static_cast<std::ptrdiff_t>(share * static_cast<double>(samples.size() - 1));
  const auto middle = samples.begin() + place;
  std::nth_element(samples.begin(), middle, samples.end());
  return *middle;
}

inline double median(std::vector<double>& samples) { return quantile(samples, 0.5); }

// The same as compare() for two calls that tell how many seconds they took, with the quartiles of the ratios of single
// iterations.
template <typename Ours, typename Peer>
void compare_seconds(benchmark::State& state, Ours ours, Peer peer) {
  std::vector<double> our_times;
  std::vector<double> peer_times;
  std::vector<double> ratios;
  for (auto _ : state) {
    our_times.push_back(ours());
    peer_times.push_back(peer());
    ratios.push_back(our_times.back() / peer_times.back());
    state.SetIterationTime(our_times.back());
  }
  const double our_median = median(our_times);
  const double peer_median = median(peer_times);
  state.counters["us"] = our_median * 1e6;
  state.counters["peer_us"] = peer_median * 1e6;
  state.counters["ratio"] = our_median / peer_median;
  state.counters["ratio_q1"] = quantile(ratios, 0.25);
  state.counters["ratio_q3"] = quantile(ratios, 0.75);
}

// Reports the median microseconds of both and their ratio: 1.00 is as fast as `peer`, less is faster. The
// state must use manual time.
template <typename Ours, typename Peer>
void compare(benchmark::State& state, Ours ours, Peer peer) {
  compare_seconds(
      state, [&] { return seconds_of(ours); }, [&] { return seconds_of(peer); });
}

}  // namespace kelo::bench

#endif  // KELO_BENCH_RATIO_HPP
