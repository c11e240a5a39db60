// SPDX-License-Identifier: MIT
// Prints what a campaign found.
#include "tools/crash/report.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "tools/crash/file_subjects.hpp"
#include "tools/crash/store_subject.hpp"

namespace kelo::crash {

void print_head() {
  std::printf("%-24s %8s %8s %7s %9s  %s\n", "history", "tried", "unique", "per s", "per cpu s",
              "violations: kind in model: number of states");
}

void print_row(const std::string& name, const Tally& tally, double seconds, double processor) {
  std::printf("%-24s %8zu %8zu %7.0f %9.0f ", name.c_str(), tally.tried, tally.unique,
              static_cast<double>(tally.unique) / std::max(seconds, 0.001),
              static_cast<double>(tally.unique) / std::max(processor, 0.001));
  for (std::size_t violation = 0; violation < kViolations; ++violation) {
    for (std::size_t column = 0; column < kColumns; ++column) {
      const std::size_t count = tally.found[violation][column];
      if (count == 0) continue;
      std::printf(" %s in %s: %zu;", name_of(static_cast<Violation>(violation)), kColumnNames[column], count);
    }
  }
  std::printf(tally.violations() == 0 ? " none\n" : "\n");
}

void complain_of(const History& history, const Recording& recording) {
  if (recording.exit_status != 0) {
    std::printf("%s: the recorded program ended with status %d\n", history.name.c_str(),
                recording.exit_status);
  }
  for (const std::string& call : recording.unknown) {
    std::printf("%s: the disk model does not know %s\n", history.name.c_str(), call.c_str());
  }
}

void save_reproducer(int folder, const Reproducer& reproducer, const std::string& story) {
  std::string name = reproducer.history + "-" + reproducer.violation + "-" + reproducer.model + ".txt";
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c == ' ' || c == ',' || c == '/'; }, '_');
  if (folder < 0) return;
  const int file = openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const std::string text = text_of(reproducer) + "\n" + story;
  if (file < 0 || write(file, text.data(), text.size()) < 0) std::perror(name.c_str());
  close(file);
}

// Adds the history that the seed at the end of the name makes.
void add_random(std::vector<History>& histories, const std::string& name) {
  struct Kind {
    std::string_view prefix;
    History (*make)(unsigned seed);
  };
  constexpr Kind kKinds[] = {{"random parameters ", random_parameters}, {"random ", random_history}};
  for (const auto& [prefix, make] : kKinds) {
    if (!name.starts_with(prefix)) continue;
    const auto seed = std::strtoul(name.c_str() + prefix.size(), nullptr, 10);
    histories.push_back(make(static_cast<unsigned>(seed)));
    return;
  }
}

std::vector<History> chosen_histories(const Campaign& campaign) {
  std::vector<History> chosen = histories();
  for (const std::string& name : campaign.only) {
    const auto known = [&](const History& history) { return history.name == name; };
    if (std::none_of(chosen.begin(), chosen.end(), known)) add_random(chosen, name);
  }
  std::erase_if(chosen, [&](const History& history) {
    return !campaign.only.empty() &&
           std::find(campaign.only.begin(), campaign.only.end(), history.name) == campaign.only.end();
  });
  return chosen;
}

}  // namespace kelo::crash
