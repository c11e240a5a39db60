// SPDX-License-Identifier: MIT
// What is expected of a state, what was found in it, and whether that is right.
#ifndef KELO_TOOLS_CRASH_VERDICT_HPP
#define KELO_TOOLS_CRASH_VERDICT_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "tools/crash/history.hpp"

namespace kelo::crash {

constexpr std::size_t kMostItems = 64;

// The versions that an item may have.
struct Range {
  int lowest;
  int highest;
  bool operator==(const Range&) const = default;
};
using Expected = std::vector<Range>;

Expected expected_before(const History& history);
// What a mark changes in the expectation.
void take_mark(const Mark& mark, Expected& expected);

struct Reading {
  enum Kind : std::int32_t { version, absent, failed, garbage } kind;
  std::int32_t number;  // the version, or the code of the failure
};
using Readings = std::array<Reading, kMostItems>;

// What the processes that started on a state found, in memory that they share with their judge.
struct Findings {
  std::int32_t
      phase;  // how far they came: 1 first start, 2 first write, 3 read again, 4 second start, 5 the end
  Readings at_start;
  Readings after_write;
  Readings at_second_start;
  std::int32_t first_write;
  std::int32_t second_write;  // only when the first failed
  std::int32_t written_version;
  std::int32_t descriptors_before;
  std::int32_t descriptors_after;
  std::int32_t status[2];  // of each process, as waitpid() tells it
  char fault[256];
};

enum class Violation {
  unreadable,     // fails to read at the restart, but no longer after the next write
  stale,          // an acknowledged value is an older one at the restart, but no longer after the next write
  lost,           // an acknowledged value is not there after the next write
  garbage,        // a value that nobody wrote
  went_back,      // the new value was seen, and then the old one
  refused,        // a write fails after the restart, the next one does not
  refused_twice,  // and the next one does
  bad_files,      // a database is damaged at the end, or the two differ
  left_over,      // a file that a clean run does not leave
  descriptors,    // a descriptor is left open
  hung,
  died,
  mixed,  // of changes that belong together some are there and some are not
};
constexpr std::size_t kViolations = 13;
const char* name_of(Violation violation);

using Violations = std::set<Violation>;

Violations judge(const History& history, const Expected& expected, const Findings& findings,
                 const std::vector<std::string>& left_over);

// Several lines for people.
std::string story(const History& history, const Expected& expected, const Findings& findings,
                  const std::vector<std::string>& left_over);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_VERDICT_HPP
