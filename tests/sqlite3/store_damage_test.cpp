// SPDX-License-Identifier: MIT
// Databases that the flash has damaged: bits flipped, the end cut off, pages and sectors zeroed, in the primary, in
// the backup and in both. A daemon starts on each, reads, writes and reads again.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/damaged_store.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/sanitized.hpp"

namespace {

using namespace kelo::tests;

constexpr bool kSlow = kSanitized || kEmulated;

// How the run is chosen: KELO_DAMAGE=all tries every case and prints the sums, KELO_DAMAGE=list prints every case in
// which something is lost, too.
bool chosen(const char* choice) {
  const char* const text = std::getenv("KELO_DAMAGE");
  return text != nullptr && std::string(text) == choice;
}
bool tries_all() { return chosen("all") || chosen("list"); }

StoredItems small_items() {
  return {{{"net", "apn", "internet.example", "older.example"},
           {"net", "mtu", "1500", "1280"},
           {"lan", "name", "home", "old home"},
           {"lan", "probe", "before", "long before"}}};
}

// One of the values fills whole sectors.
StoredItems wide_items() {
  StoredItems items = small_items();
  std::string text;
  while (text.size() < 1400) text += "line " + std::to_string(text.size()) + ";";
  items[2].value = text;
  return items;
}

using Damage = std::function<void(std::string&)>;
struct Case {
  std::string name;
  Damage damage;
  Damage other;  // in the backup, when both are damaged in different places
};

struct Sums {
  int cases = 0;
  int crashed = 0;
  int hung = 0;
  int refused_at_start = 0;
  int garbage_at_start = 0;
  int lost = 0;
  int recovered = 0;
  int unwritten = 0;
  int garbage = 0;
  int failed_writes = 0;
};

int count(const Findings& findings, Found kind) {
  return static_cast<int>(std::count(findings.begin(), findings.end(), kind));
}

void add(Sums& sums, const DamageOutcome& outcome, const std::string& name) {
  ++sums.cases;
  if (outcome.signal != 0) {
    ++(outcome.signal == SIGALRM ? sums.hung : sums.crashed);
    ADD_FAILURE() << name << ": signal " << outcome.signal;
    return;
  }
  sums.refused_at_start += count(outcome.at_start, Found::refused);
  sums.garbage_at_start += count(outcome.at_start, Found::garbage);
  sums.lost += count(outcome.at_end, Found::refused);
  sums.recovered += count(outcome.at_end, Found::recovered);
  sums.unwritten += count(outcome.at_end, Found::unwritten);
  sums.garbage += count(outcome.at_end, Found::garbage);
  sums.failed_writes += outcome.write_failed ? 1 : 0;
  if (!chosen("list")) return;
  std::string text;
  for (const Findings& findings : {outcome.at_start, outcome.at_end}) {
    for (const Found found : findings) text += "rnRug"[static_cast<std::size_t>(found)];
    text += ' ';
  }
  if (text != "rrrr rrrr ")
    std::printf("%s: %s%s\n", name.c_str(), text.c_str(), outcome.write_failed ? "write failed" : "");
}

struct Files {
  const char* name;
  bool primary;
  bool backup;
  bool recovery;
};

void PrintTo(const Files& files, std::ostream* out) {
  *out << files.name << (files.recovery ? " and recovery" : "");
}

class StoreDamage : public testing::TestWithParam<Files> {
 protected:
  static bool damages_one() { return GetParam().primary != GetParam().backup; }

  static Sums try_cases(const char* kind, const HealthyStore& healthy, const std::vector<Case>& cases) {
    const Files& files = GetParam();
    DamagedStore store(files.recovery, healthy);
    Sums sums;
    for (const Case& each : cases) {
      std::string damaged = healthy.database;
      each.damage(damaged);
      std::string other = healthy.database;
      (each.other ? each.other : each.damage)(other);
      add(sums,
          store.start(files.primary ? damaged : healthy.database, files.backup ? other : healthy.database),
          each.name);
    }
    if (tries_all()) print(kind, sums);
    return sums;
  }

  // Whatever is damaged, and in any way.
  static void expect_nothing_lost_beside_a_healthy_file(const Sums& sums) {
    EXPECT_EQ(sums.crashed + sums.hung, 0);
    if (!GetParam().recovery) {
      EXPECT_EQ(sums.recovered, 0);
    }
    if (!damages_one()) return;
    EXPECT_EQ(sums.lost, 0);
    EXPECT_EQ(sums.recovered, 0) << "an older value took the place of a healthy one";
    EXPECT_EQ(sums.unwritten, 0);
    EXPECT_EQ(sums.failed_writes, 0);
    if (GetParam().primary) {
      EXPECT_EQ(sums.refused_at_start + sums.garbage_at_start, 0) << "the backup is healthy";
    } else {
      EXPECT_EQ(sums.garbage, 0) << "the primary is healthy";
    }
  }

 private:
  static void print(const char* kind, const Sums& s) {
    std::printf("| %s | %s | %s | %d | %d | %d | %d | %d | %d | %d | %d | %d | %d |\n", kind, GetParam().name,
                GetParam().recovery ? "yes" : "no", s.cases, s.crashed, s.hung, s.refused_at_start,
                s.garbage_at_start, s.lost, s.recovered, s.unwritten, s.garbage, s.failed_writes);
    std::fflush(stdout);
  }
};

// --- Bits ---------------------------------------------------------------------------------------------------

void flip(std::string& bytes, std::size_t bit) {
  bytes[bit / 8] = static_cast<char>(static_cast<unsigned char>(bytes[bit / 8]) ^ (1U << bit % 8));
}

// Bytes that SQLite has not put anything into are all zero.
bool is_used(const std::string& bytes, std::size_t at) {
  constexpr std::size_t kNear = 4;
  const std::size_t begin = at < kNear ? 0 : at - kNear;
  return bytes.substr(begin, 2 * kNear).find_first_not_of('\0') != std::string::npos;
}

// The bits to flip. Strides that are odd change every bit of a byte sometime.
std::vector<std::size_t> bits_of(const std::string& bytes, std::size_t stride) {
  std::vector<std::size_t> used;
  std::vector<std::size_t> bits;
  for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
    if (tries_all() || is_used(bytes, bit / 8)) used.push_back(bit);
  }
  for (std::size_t i = 0; i < used.size(); i += tries_all() ? 1 : stride * (kSlow ? 31 : 1))
    bits.push_back(used[i]);
  return bits;
}

// Whether a bit belongs to a value, but not to its checksum, which covers the first eighth. The item that is
// written during the trial has no such bits at the end.
bool is_uncovered(const HealthyStore& store, std::size_t bit, bool at_end) {
  for (std::size_t i = 0; i < kStoredItems - (at_end ? 1 : 0); ++i) {
    const std::string& value = store.items[i].value;
    const std::size_t begin = store.database.find(value) * 8;
    // Bits count from the most significant one.
    const std::size_t place = bit / 8 * 8 + 7 - bit % 8;
    if (place >= begin + value.size() && place < begin + value.size() * 8) return true;
  }
  return false;
}

int count_uncovered(const HealthyStore& store, const std::vector<std::size_t>& bits, bool at_end) {
  return static_cast<int>(std::count_if(bits.begin(), bits.end(),
                                        [&](std::size_t bit) { return is_uncovered(store, bit, at_end); }));
}

std::string bit_name(std::size_t bit) {
  return "byte " + std::to_string(bit / 8) + " bit " + std::to_string(bit % 8);
}

// How many bits are left out after each that is flipped, in the share of the suite.
std::size_t share_of(const Files& files) {
  if (files.recovery) return 151;
  return files.primary != files.backup ? 17 : 53;
}

TEST_P(StoreDamage, AFlippedBit) {
  const HealthyStore healthy = make_store(small_items(), 512);
  const std::vector<std::size_t> bits = bits_of(healthy.database, share_of(GetParam()));
  std::vector<Case> cases;
  cases.reserve(bits.size());
  for (const std::size_t bit : bits)
    cases.push_back({bit_name(bit), [=](std::string& bytes) { flip(bytes, bit); }, {}});
  const Sums sums = try_cases("flipped bit", healthy, cases);
  expect_nothing_lost_beside_a_healthy_file(sums);
  // No checksum tells these, and of two values that match theirs a read gives the backup's and a write keeps the
  // primary's.
  const bool reads_garbage = GetParam().backup;
  const bool keeps_garbage = GetParam().primary;
  if (damages_one()) {
    EXPECT_EQ(sums.garbage_at_start, reads_garbage ? count_uncovered(healthy, bits, false) : 0);
    EXPECT_EQ(sums.garbage, keeps_garbage ? count_uncovered(healthy, bits, true) : 0);
  } else {
    EXPECT_LE(sums.garbage_at_start, count_uncovered(healthy, bits, false));
    EXPECT_LE(sums.garbage, count_uncovered(healthy, bits, false));
  }
}

class StoreDamageOfBoth : public StoreDamage {};

// Neither file is healthy, but most rows are whole in one of them.
TEST_P(StoreDamageOfBoth, ADifferentBitInEachFile) {
  const HealthyStore healthy = make_store(small_items(), 512);
  const std::vector<std::size_t> bits = bits_of(healthy.database, share_of(GetParam()));
  std::vector<Case> cases;
  cases.reserve(bits.size());
  for (std::size_t i = 0; i < bits.size(); ++i) {
    const std::size_t bit = bits[i];
    const std::size_t other = bits[(i + bits.size() / 2) % bits.size()];
    cases.push_back({bit_name(bit) + ", backup " + bit_name(other),
                     [=](std::string& bytes) { flip(bytes, bit); },
                     [=](std::string& bytes) { flip(bytes, other); }});
  }
  const Sums sums = try_cases("two flipped bits", healthy, cases);
  expect_nothing_lost_beside_a_healthy_file(sums);
}

// --- Pages, sectors and lengths -----------------------------------------------------------------------------

std::vector<Case> truncations(const std::string& bytes, std::size_t stride) {
  std::vector<Case> cases;
  for (std::size_t size = 0; size < bytes.size(); size += tries_all() ? 1 : stride * (kSlow ? 31 : 1))
    cases.push_back({"size " + std::to_string(size), [=](std::string& all) { all.resize(size); }, {}});
  return cases;
}

std::vector<Case> zeroed(const std::string& bytes, std::size_t stretch) {
  std::vector<Case> cases;
  for (std::size_t at = 0; at < bytes.size(); at += stretch * (kSlow ? 5 : 1)) {
    cases.push_back({"zeroed from " + std::to_string(at),
                     [=](std::string& all) { all.replace(at, stretch, stretch, '\0'); },
                     {}});
  }
  return cases;
}

TEST_P(StoreDamage, ALostEnd) {
  const HealthyStore healthy = make_store(small_items(), 512);
  const Sums sums = try_cases("lost end", healthy, truncations(healthy.database, 97));
  expect_nothing_lost_beside_a_healthy_file(sums);
  EXPECT_EQ(sums.garbage_at_start + sums.garbage, 0);
}

TEST_P(StoreDamage, AZeroedPage) {
  for (const std::size_t size : {512U, 4096U}) {
    const HealthyStore healthy = make_store(small_items(), size);
    const Sums sums = try_cases(size == 512 ? "zeroed page of 512" : "zeroed page of 4096", healthy,
                                zeroed(healthy.database, size));
    expect_nothing_lost_beside_a_healthy_file(sums);
    EXPECT_EQ(sums.garbage_at_start + sums.garbage, 0);
  }
}

TEST_P(StoreDamage, AZeroedSector) {
  const HealthyStore healthy = make_store(wide_items(), 4096);
  const Sums sums = try_cases("zeroed sector", healthy, zeroed(healthy.database, 512));
  expect_nothing_lost_beside_a_healthy_file(sums);
  // The long value has two sectors after the part that its checksum covers.
  constexpr int kUncoveredSectors = 2;
  EXPECT_LE(sums.garbage_at_start, GetParam().backup ? kUncoveredSectors : 0);
  EXPECT_LE(sums.garbage, GetParam().primary ? kUncoveredSectors : 0);
}

std::string name_of(const testing::TestParamInfo<Files>& files) {
  return std::string(files.param.name) + (files.param.recovery ? "_and_recovery" : "");
}

INSTANTIATE_TEST_SUITE_P(Files, StoreDamage,
                         testing::Values(Files{"primary", true, false, false},
                                         Files{"backup", false, true, false},
                                         Files{"both", true, true, false},
                                         Files{"primary", true, false, true},
                                         Files{"backup", false, true, true}, Files{"both", true, true, true}),
                         name_of);
INSTANTIATE_TEST_SUITE_P(Files, StoreDamageOfBoth,
                         testing::Values(Files{"both", true, true, false}, Files{"both", true, true, true}),
                         name_of);

}  // namespace
