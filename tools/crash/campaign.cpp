// Shares the time among the histories and each history among processes with folders of their own.
#include "tools/crash/campaign.hpp"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
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

// Empty folders that no other process sees.
bool own_folders(const Folders& folders) {
  const std::string user = std::to_string(getuid());
  const std::string group = std::to_string(getgid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  write_text("/proc/self/setgroups", "deny");
  write_text("/proc/self/uid_map", user + " " + user + " 1");
  write_text("/proc/self/gid_map", group + " " + group + " 1");
  return std::all_of(folders.begin(), folders.end(), [](const std::string& folder) {
    return mount("tmpfs", folder.c_str(), "tmpfs", 0, nullptr) == 0;
  });
}

Settings settings_of(const Campaign& campaign, double seconds, std::size_t part) {
  Settings settings;
  settings.seconds = seconds;
  settings.states = campaign.states == 0 ? 0 : (campaign.states + campaign.jobs - 1) / campaign.jobs;
  settings.seed = campaign.seed;
  settings.effort = campaign.effort;
  settings.part = part;
  settings.parts = campaign.jobs;
  settings.report = [output = campaign.output](const Reproducer& reproducer, const std::string& story) {
    save_reproducer(output, reproducer, story);
  };
  return settings;
}

// Of all processes that have ended. On a machine that does other things as well this says more than the time.
double processor_seconds() {
  rusage used{};
  getrusage(RUSAGE_CHILDREN, &used);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(used.ru_utime) + seconds(used.ru_stime);
}

}  // namespace

Tally explore_history(const History& history, const Recording& recording, const Campaign& campaign,
                      double seconds) {
  void* const memory =
      mmap(nullptr, campaign.jobs * sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  auto* const tallies = static_cast<Tally*>(memory);
  std::vector<pid_t> explorers;
  for (std::size_t part = 0; part < campaign.jobs; ++part) {
    const pid_t explorer = fork();
    if (explorer == 0) {
      if (!own_folders(history.folders)) {
        std::perror("no folders of one's own");
        _exit(2);
      }
      const Timeline timeline(history, {}, recording);
      tallies[part] = Explorer(history, timeline, settings_of(campaign, seconds, part)).explore();
      _exit(0);
    }
    explorers.push_back(explorer);
  }
  Tally sum;
  for (std::size_t part = 0; part < campaign.jobs; ++part) {
    int status = -1;
    waitpid(explorers[part], &status, 0);
    if (status != 0) {
      std::fprintf(stderr, "an explorer of %s ended with status %d\n", history.name.c_str(), status);
      std::_Exit(2);
    }
    sum.add(tallies[part]);
  }
  munmap(memory, campaign.jobs * sizeof(Tally));
  return sum;
}

int run_campaign(const Campaign& campaign) {
  std::vector<History> chosen = chosen_histories(campaign);
  std::printf("seed %llu, %zu explorer%s\n", static_cast<unsigned long long>(campaign.seed), campaign.jobs,
              campaign.jobs == 1 ? "" : "s");
  print_head();
  const auto start = Clock::now();
  Tally sum;
  for (std::size_t at = 0; at < chosen.size(); ++at) {
    const History& history = chosen[at];
    const Recording recording = record_history(history);
    complain_of(history, recording);
    const auto begin = Clock::now();
    const double used = processor_seconds();
    // What a history leaves of its share goes to those after it.
    const double left = campaign.seconds - std::chrono::duration<double>(begin - start).count();
    const double share = std::max(left, 1.0) / static_cast<double>(chosen.size() - at);
    const Tally tally = explore_history(history, recording, campaign, campaign.seconds > 0 ? share : 0);
    print_row(history.name, tally, std::chrono::duration<double>(Clock::now() - begin).count(),
              processor_seconds() - used);
    sum.add(tally);
  }
  print_row("all", sum, std::chrono::duration<double>(Clock::now() - start).count(), processor_seconds());
  return sum.violations() == 0 ? 0 : 1;
}

}  // namespace kelo::crash
