// SPDX-License-Identifier: MIT
// Tries what becomes of the library's files when something fails: faults [OPTION...], see usage().
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

#include "tests/faults/expectations.hpp"
#include "tests/faults/experiment.hpp"
#include "tests/faults/fault_histories.hpp"
#include "tools/crash/campaign.hpp"

namespace {

using kelo::crash::History;
using kelo::faults::Experiment;
using kelo::faults::Fault;
using kelo::faults::FaultKind;
using kelo::faults::Outcome;

int usage() {
  std::fputs(
      "Usage: kelo_faults [OPTION...]\n"
      "  --history NAME   only this one; may be given several times\n"
      "  --kind NAME      only faults of this kind; may be given several times\n"
      "  --every N        one of N faults\n"
      "  --fault TEXT     only faults with this text in their names\n"
      "  --stories N      tells of so many troubles of each history and kind\n"
      "  --list           names the histories and the kinds of faults\n",
      stderr);
  return 2;
}

struct Options {
  std::vector<std::string> histories;
  std::vector<std::string> kinds;
  std::string fault;
  std::size_t every = 1;
  std::size_t stories = 0;

  static bool chosen(const std::vector<std::string>& names, const std::string& name) {
    return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
  }
};

struct Row {
  std::size_t cases = 0;
  std::size_t refused = 0;
  std::size_t ended = 0;
  std::map<std::string, std::size_t> troubles;

  void add(const Outcome& outcome) {
    ++cases;
    refused += outcome.refused ? 1 : 0;
    ended += outcome.ended ? 1 : 0;
    for (const std::string& trouble : outcome.troubles) ++troubles[trouble];
  }
};

// Whether every trouble of the row is one that callers are told of.
bool judge_row(const std::string& history, const char* kind, const Row& row) {
  bool well = true;
  for (const auto& [trouble, count] : row.troubles) {
    const std::size_t most = kelo::faults::allowed(history, kind, trouble, row.cases);
    if (count <= most) continue;
    std::printf("%s, %s: %zu faults lead to '%s', and %zu may\n", history.c_str(), kind, count,
                trouble.c_str(), most);
    well = false;
  }
  return well;
}

void print_row(const std::string& history, const char* kind, const Row& row) {
  std::printf("| %-27s | %-15s | %5zu | %7zu | %5zu |", history.c_str(), kind, row.cases, row.refused,
              row.ended);
  const char* separator = " ";
  for (const auto& [trouble, count] : row.troubles) {
    std::printf("%s%s %zu", separator, trouble.c_str(), count);
    separator = ", ";
  }
  std::printf(" |\n");
}

bool try_kind(Experiment& experiment, const History& history, const FaultKind& kind,
              const kelo::faults::Calls& calls, const Options& options) {
  Row row;
  std::size_t number = 0;
  std::size_t told = 0;
  for (const Fault& fault : kind.faults(history, calls)) {
    if (fault.name.find(options.fault) == std::string::npos || number++ % options.every != 0) continue;
    const auto begin = std::chrono::steady_clock::now();
    const Outcome outcome = experiment.run(fault);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    if (options.stories > 0 && taken.count() > 2)
      std::printf("%s, %s: %.1f seconds\n", history.name.c_str(), fault.name.c_str(), taken.count());
    row.add(outcome);
    if (outcome.troubles.empty() || told++ >= options.stories) continue;
    std::printf("%s, %s:", history.name.c_str(), fault.name.c_str());
    for (const std::string& trouble : outcome.troubles) std::printf(" %s", trouble.c_str());
    std::printf("%s\n%s", outcome.refused ? " (refused)" : "", outcome.story.c_str());
  }
  if (row.cases > 0) print_row(history.name, kind.name, row);
  return judge_row(history.name, kind.name, row);
}

// In a process that has the folders to itself.
bool try_history(const History& history, const Options& options) {
  kelo::crash::take_own_folders(history);
  Experiment experiment(history);
  const kelo::faults::Calls calls = experiment.count_calls();
  bool well = true;
  for (const FaultKind& kind : kelo::faults::fault_kinds()) {
    if (!Options::chosen(options.kinds, kind.name)) continue;
    well = try_kind(experiment, history, kind, calls, options) && well;
  }
  return well;
}

bool try_in_process(const History& history, const Options& options) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    const bool well = try_history(history, options);
    std::fflush(nullptr);
    _exit(well ? 0 : 1);
  }
  int status = -1;
  if (child < 0 || waitpid(child, &status, 0) != child) std::abort();
  return status == 0;
}

}  // namespace

int main(int count, char** arguments) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  Options options;
  const std::vector<History> histories = kelo::faults::fault_histories();
  for (int at = 1; at < count; at += 2) {
    const std::string option = arguments[at];
    const char* const value = at + 1 < count ? arguments[at + 1] : nullptr;
    if (option == "--list") {
      for (const History& history : histories) std::printf("history %s\n", history.name.c_str());
      for (const FaultKind& kind : kelo::faults::fault_kinds()) std::printf("kind %s\n", kind.name);
      return 0;
    }
    if (value == nullptr) return usage();
    if (option == "--history") {
      options.histories.emplace_back(value);
    } else if (option == "--kind") {
      options.kinds.emplace_back(value);
    } else if (option == "--every") {
      options.every = std::max(1UL, std::strtoul(value, nullptr, 10));
    } else if (option == "--stories") {
      options.stories = std::strtoul(value, nullptr, 10);
    } else if (option == "--fault") {
      options.fault = value;
    } else {
      return usage();
    }
  }
  bool well = true;
  for (const History& history : histories) {
    if (Options::chosen(options.histories, history.name)) well = try_in_process(history, options) && well;
  }
  const auto used = kelo::crash::processor_seconds(RUSAGE_CHILDREN);
  std::printf("%.1f seconds of processor time\n", used);
  return well ? 0 : 1;
}
