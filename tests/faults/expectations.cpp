// SPDX-License-Identifier: MIT
// The allowances, as a table. What is not in it may not happen at all: no crash, no hang, no leak anywhere, no loss
// after a verified write or in a parameter or INI file, unless the fault itself destroyed the only copy.
#include "tests/faults/expectations.hpp"

#include <algorithm>
#include <string_view>

namespace kelo::faults {
namespace {

struct Allowance {
  std::string_view histories;  // the beginning of their names
  std::string_view kinds;      // the same
  std::string_view trouble;
  std::size_t percent;
};

// A plain write returns 0 although the row's transaction failed (lost), or although nothing could be carried to the
// backup, which reads look at (stale, or unreadable where the item was not there before).
#define KELO_PLAIN_WRITE(history)                                                            \
  {history, "call once", "lost", 5}, {history, "call once", "stale", 5},                     \
      {history, "call once", "unreadable", 5}, {history, "call for good", "lost", 15},       \
      {history, "call for good", "stale", 10}, {history, "call for good", "unreadable", 10}, \
      {history, "memory", "lost", 3}, {history, "memory", "stale", 12},                      \
      {history, "memory", "unreadable", 12}, {history, "folder", "lost", 40},                \
      {history, "obstacle", "lost", 5}, {                                                    \
    history, "obstacle", "unreadable", 10                                                    \
  }

constexpr Allowance kAllowances[] = {
    KELO_PLAIN_WRITE("update"),
    KELO_PLAIN_WRITE("insert"),
    KELO_PLAIN_WRITE("no state database"),
    KELO_PLAIN_WRITE("key-value pairs"),
    KELO_PLAIN_WRITE("first start"),
    KELO_PLAIN_WRITE("repair, page 1"),
    KELO_PLAIN_WRITE("repair, no primary"),
    // No process could make the first backup, or a default: reads say so, and the next one or the next start ends it.
    {"first start", "process", "unreadable", 25},
    {"first start", "folder", "unreadable", 75},
    {"first start", "obstacle", "unreadable", 30},
    {"first start", "call", "unreadable", 60},
    {"first start", "call once", "mixed", 0},  // the first read alone gives no value
    {"first start", "memory", "unreadable", 90},
    // The backup is away, and the first read makes it anew.
    {"verified", "obstacle", "unreadable", 10},
    {"crash completion", "obstacle", "unreadable", 10},
    // What was in the way took the place of the only good copy.
    {"repair, no primary", "obstacle", "stale", 5},
    {"repair, backup", "obstacle", "lost", 10},
    {"repair, backup", "obstacle", "unreadable", 10},
    // Another database in the place of the primary, or nothing usable in that of a file without a second copy.
    {"", "content", "lost", 100},
    {"", "content", "stale", 100},
    {"", "content", "unreadable", 100},
    {"", "content", "refused", 100},
    {"", "content", "refused-2", 100},
    {"", "content", "bad-files", 100},
};

}  // namespace

std::size_t allowed(const std::string& history, const std::string& kind, const std::string& trouble,
                    std::size_t faults) {
  std::size_t most = 0;
  for (const Allowance& allowance : kAllowances) {
    if (!history.starts_with(allowance.histories) || !kind.starts_with(allowance.kinds) ||
        trouble != allowance.trouble) {
      continue;
    }
    // Some faults of many are no measure of all.
    constexpr std::size_t kByChance = 4;
    most = std::max(most, faults * allowance.percent / 100 + kByChance);
  }
  return most;
}

}  // namespace kelo::faults
