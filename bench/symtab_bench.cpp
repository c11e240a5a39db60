// SPDX-License-Identifier: MIT
// Looking up 300 item ids: the symbol table against the plainest chained hash table with the same hash.
#include "kelo_utils/symtab.h"

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kIds = 300;
constexpr int kBuckets = 61;  // what symOpen(64) makes

struct PlainEntry {
  PlainEntry* next;
  const char* name;
  void* content;
};

struct PlainTable {
  std::array<PlainEntry*, kBuckets> buckets{};
};

std::uint32_t plain_hash(const char* name) {
  std::uint32_t sum = 0;
  unsigned shift = 0;
  for (; *name != '\0'; ++name) {
    sum += static_cast<std::uint32_t>(static_cast<unsigned char>(*name)) << shift;
    shift = (shift + 7) % 24;
  }
  return sum;
}

// Not inlined: the library's lookup is a call too.
[[gnu::noinline]] const PlainEntry* plain_lookup(const PlainTable& table, const char* name) {
  const PlainEntry* entry = table.buckets[plain_hash(name) % kBuckets];
  while (entry != nullptr && std::strcmp(entry->name, name) != 0) entry = entry->next;
  return entry;
}

// Both tables with the same ids, entered in the same order.
class Lookups {
 public:
  Lookups() : sd_(symOpen(64)) {
    for (int i = 0; i < kIds; ++i) {
      names_.push_back(std::to_string(1000 + 7 * i));
      symEnter(sd_, names_.back().c_str(), valueSymbol(this), 0);
    }
    for (const std::string& name : names_) {
      PlainEntry** link = &plain_.buckets[plain_hash(name.c_str()) % kBuckets];
      while (*link != nullptr) link = &(*link)->next;
      entries_.push_back(std::make_unique<PlainEntry>(PlainEntry{nullptr, name.c_str(), this}));
      *link = entries_.back().get();
    }
  }
  ~Lookups() { symClose(sd_); }
  Lookups(const Lookups&) = delete;
  Lookups& operator=(const Lookups&) = delete;

  void run_library() const {
    for (const std::string& name : names_) benchmark::DoNotOptimize(symLookup(sd_, name.c_str()));
  }
  void run_plain() const {
    for (const std::string& name : names_) benchmark::DoNotOptimize(plain_lookup(plain_, name.c_str()));
  }

 private:
  sym_fd sd_;
  std::vector<std::string> names_;
  std::vector<std::unique_ptr<PlainEntry>> entries_;
  PlainTable plain_;
};

void lookup_library(benchmark::State& state) {
  const Lookups lookups;
  while (state.KeepRunning()) lookups.run_library();
  state.SetItemsProcessed(state.iterations() * kIds);
}
BENCHMARK(lookup_library);

void lookup_plain(benchmark::State& state) {
  const Lookups lookups;
  while (state.KeepRunning()) lookups.run_plain();
  state.SetItemsProcessed(state.iterations() * kIds);
}
BENCHMARK(lookup_plain);

// Runs both in turn, so that other work of the machine affects both.
void lookup_ratio(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  const Lookups lookups;
  Clock::duration library{};
  Clock::duration plain{};
  while (state.KeepRunning()) {
    const Clock::time_point start = Clock::now();
    lookups.run_library();
    const Clock::time_point middle = Clock::now();
    lookups.run_plain();
    plain += Clock::now() - middle;
    library += middle - start;
  }
  state.counters["library_to_plain"] = std::chrono::duration<double>(library) / plain;
}
BENCHMARK(lookup_ratio);

}  // namespace
