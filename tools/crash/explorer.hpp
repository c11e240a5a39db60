// SPDX-License-Identifier: MIT
// Tries each state of one recorded history once, and counts what is wrong with them.
#ifndef KELO_TOOLS_CRASH_EXPLORER_HPP
#define KELO_TOOLS_CRASH_EXPLORER_HPP

#include <array>
#include <chrono>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

#include "tools/crash/reproducer.hpp"
#include "tools/crash/restart.hpp"
#include "tools/crash/states.hpp"

namespace kelo::crash {

// The models, and the cuts of the recovery itself.
constexpr std::size_t kColumns = kModels + 1;
constexpr std::size_t kRecoveryColumn = kModels;
constexpr const char* kColumnNames[kColumns] = {"cut", "unsynced-lost", "any-subset", "recovery"};

struct Tally {
  std::size_t tried = 0;
  std::size_t unique = 0;
  std::array<std::array<std::size_t, kColumns>, kViolations> found{};

  void add(const Tally& other);
  std::size_t violations() const;
};

struct Settings {
  double seconds = 0;      // for each history; 0: one round of everything
  std::size_t states = 0;  // unique states of each history at most; 0: no bound
  std::uint64_t seed = 1;
  Effort effort;
  std::size_t recovery_each = 40;  // in one of so many unique states the recovery is cut, too
  bool first_only = false;         // end with the first violation
  std::size_t part = 0;            // of `parts` explorers that share the states
  std::size_t parts = 1;
  std::function<void(const Reproducer&, const std::string& story)> report;
};

// A recording and its disk before each event, and at the end.
struct Timeline {
  Timeline(const History& history, Expected before, const Recording& recorded);
  const Recording& recording;
  std::vector<Disk> disks;
  std::vector<Expected> expected;
};

class Explorer {
 public:
  // All of them must outlive this.
  Explorer(const History& history, const Timeline& timeline, Restart& restart, const Settings& settings);
  Tally explore();

  struct Verdict {
    Violations violations;
    std::string story;
  };
  // Lays a state out and judges it.
  Verdict look_at(const Image& image, const Expected& expected);

 private:
  using Clock = std::chrono::steady_clock;
  struct Place;
  bool time_left() const;
  bool round(std::size_t number);
  bool visit(const Place& place, const Selection& selection);
  bool cut_recovery(const Image& image, const Expected& expected, const Selection& first);
  void note(const Place& place, const Selection& selection, const Violations& violations);
  Selection minimised(const Place& place, Selection selection, Violation violation);
  std::vector<std::string> left_over() const;

  const History& history_;
  const Timeline& timeline_;
  const Settings settings_;
  Restart& restart_;
  std::mt19937_64 random_;
  Clock::time_point end_;
  std::vector<std::string> usual_names_;
  std::unordered_set<std::uint64_t> seen_;
  std::set<std::pair<Violation, std::size_t>> reported_;
  Tally tally_;
};

// Makes the files of a history and records it.
Recording record_history(const History& history);

// Whether a disk of the history can hold this at all.
bool fits(const History& history, const Image& image);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_EXPLORER_HPP
