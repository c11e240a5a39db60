// SPDX-License-Identifier: MIT
// Shares the time among the histories and each history among processes with folders of their own.
#include "tools/crash/campaign.hpp"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "tools/crash/report.hpp"

namespace kelo::crash {
namespace {

using Clock = std::chrono::steady_clock;

void write_text(const char* path, const std::string& text) {
  const int descriptor = open(path, O_WRONLY | O_CLOEXEC);
  if (descriptor < 0 || write(descriptor, text.data(), text.size()) < 0) std::perror(path);
  close(descriptor);
}

Settings settings_of(const Campaign& campaign, double seconds, std::size_t part) {
  Settings settings;
  settings.seconds = seconds;
  settings.states = campaign.states == 0 ? 0 : (campaign.states + campaign.jobs - 1) / campaign.jobs;
  settings.seed = campaign.seed;
  settings.effort = campaign.effort;
  settings.first_only = campaign.first_only;
  settings.part = part;
  settings.parts = campaign.jobs;
  settings.report = [output = campaign.output](const Reproducer& reproducer, const std::string& story) {
    save_reproducer(output, reproducer, story);
  };
  return settings;
}

}  // namespace

void take_own_folders(const History& history) {
  const std::string user = std::to_string(getuid());
  const std::string group = std::to_string(getgid());
  bool own = unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
  if (own) {
    write_text("/proc/self/setgroups", "deny");
    write_text("/proc/self/uid_map", user + " " + user + " 1");
    write_text("/proc/self/gid_map", group + " " + group + " 1");
  }
  const std::string size = history.disk_size > 0 ? "size=" + std::to_string(history.disk_size) : "";
  for (const std::string& folder : history.folders) {
    own = own && mount("tmpfs", folder.c_str(), "tmpfs", 0, size.c_str()) == 0;
  }
  if (own) return;
  std::perror("no folders of one's own");
  std::_Exit(2);
}

namespace {

// The results of explorers, in memory that they share with the process that started them.
struct Result {
  Tally tally;
  bool recorded_well;
  double processor;  // on a busy machine this says more than the time
};

void explore(const History& history, const Campaign& campaign, double seconds, std::size_t part,
             Result& result) {
  take_own_folders(history);
  Restart restart(history);
  const Recording recording = record_history(history);
  if (part == 0) complain_of(history, recording);
  result.recorded_well = recording.exit_status == 0;
  if (!result.recorded_well && campaign.first_only) return;
  const Timeline timeline(history, {}, recording);
  result.tally = Explorer(history, timeline, restart, settings_of(campaign, seconds, part)).explore();
  result.processor =
      processor_seconds(RUSAGE_SELF) + processor_seconds(RUSAGE_CHILDREN) + restart.processor_seconds();
}

// Tries one history with this many explorers and returns the sum of what they found.
Result explore_history(const History& history, const Campaign& campaign, double seconds) {
  const std::size_t size = campaign.jobs * sizeof(Result);
  void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  auto* const results = static_cast<Result*>(memory);
  std::vector<pid_t> explorers;
  std::fflush(nullptr);
  for (std::size_t part = 0; part < campaign.jobs; ++part) {
    const pid_t explorer = fork();
    if (explorer == 0) {
      explore(history, campaign, seconds, part, results[part]);
      std::fflush(nullptr);
      _exit(0);
    }
    explorers.push_back(explorer);
  }
  Result sum = {{}, true, 0};
  for (std::size_t part = 0; part < campaign.jobs; ++part) {
    int status = -1;
    waitpid(explorers[part], &status, 0);
    if (status != 0) {
      std::fprintf(stderr, "an explorer of %s ended with status %d\n", history.name.c_str(), status);
      std::_Exit(2);
    }
    sum.tally.add(results[part].tally);
    sum.processor += results[part].processor;
    sum.recorded_well = sum.recorded_well && results[part].recorded_well;
  }
  munmap(memory, size);
  return sum;
}

}  // namespace

int run_campaign(const Campaign& campaign) {
  std::vector<History> chosen = chosen_histories(campaign);
  if (chosen.size() < std::max(campaign.only.size(), std::size_t{1})) {
    std::fprintf(stderr, "there is no history of that name: see --list\n");
    return 2;
  }
  std::printf("seed %llu, %zu explorer%s\n", static_cast<unsigned long long>(campaign.seed), campaign.jobs,
              campaign.jobs == 1 ? "" : "s");
  print_head();
  const auto start = Clock::now();
  Tally sum;
  bool well = true;
  double processor = 0;
  for (std::size_t at = 0; at < chosen.size(); ++at) {
    const History& history = chosen[at];
    const auto begin = Clock::now();
    // The time that a history does not use is shared by those after it.
    const double left = campaign.seconds - std::chrono::duration<double>(begin - start).count();
    const double share = std::max(left, 1.0) / static_cast<double>(chosen.size() - at);
    const Result result = explore_history(history, campaign, campaign.seconds > 0 ? share : 0);
    print_row(history.name, result.tally, std::chrono::duration<double>(Clock::now() - begin).count(),
              result.processor);
    sum.add(result.tally);
    processor += result.processor;
    well = well && result.recorded_well;
  }
  print_row("all", sum, std::chrono::duration<double>(Clock::now() - start).count(), processor);
  return well && sum.violations() == 0 ? 0 : 1;
}

}  // namespace kelo::crash
