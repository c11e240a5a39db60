// SPDX-License-Identifier: MIT
// All histories, one after the other, and the table of what was found.
#ifndef KELO_TOOLS_CRASH_CAMPAIGN_HPP
#define KELO_TOOLS_CRASH_CAMPAIGN_HPP

#include <string>
#include <vector>

#include "tools/crash/explorer.hpp"

namespace kelo::crash {

struct Campaign {
  double seconds = 0;
  std::size_t states = 0;
  std::size_t jobs = 1;
  std::uint64_t seed = 1;
  Effort effort;
  bool first_only = false;  // a history ends with its first violation
  int output = -1;          // a folder's descriptor
  std::vector<std::string> only;
};

// The result is the exit status: 0 when nothing was found, 1 when a state violates a promise, 2 when the machine
// does not allow the run.
int run_campaign(const Campaign& campaign);
int replay(const Campaign& campaign);
int show_events(const Campaign& campaign);
int list_histories(const Campaign& campaign);

// Gives the process empty folders that no other one sees, with the history's disk size.
void take_own_folders(const History& history);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_CAMPAIGN_HPP
