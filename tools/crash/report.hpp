// SPDX-License-Identifier: MIT
// The table, the reproducers and the complaints of a campaign, for people.
#ifndef KELO_TOOLS_CRASH_REPORT_HPP
#define KELO_TOOLS_CRASH_REPORT_HPP

#include <string>
#include <vector>

#include "tools/crash/campaign.hpp"

namespace kelo::crash {

void print_head();
void print_row(const std::string& name, const Tally& tally, double seconds, double processor);
// Prints what makes a recording doubtful.
void complain_of(const History& history, const Recording& recording);
void save_reproducer(int folder, const Reproducer& reproducer, const std::string& story);
std::vector<History> chosen_histories(const Campaign& campaign);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_REPORT_HPP
