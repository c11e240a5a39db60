// SPDX-License-Identifier: MIT
// Tries what the library's files may look like after a power failure: crash [OPTION...], see usage().
#include <malloc.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/crash/campaign.hpp"

namespace {

int usage() {
  std::fputs(
      "Usage: kelo_crash [OPTION...]\n"
      "  --seconds N        for all histories together; without it each is tried for one round\n"
      "  --states N         so many unique states of each history at most\n"
      "  --jobs N           so many explorers side by side\n"
      "  --seed N           of the random states\n"
      "  --history NAME     only this one\n"
      "  --samples N        so many random states of each cut and model\n"
      "  --output N         a descriptor of the folder that gets the reproducers\n"
      "  --replay           shows the reproducer on standard input\n"
      "  --first            ends a history with its first violation\n"
      "  --events           shows the recorded calls\n"
      "  --list             names the histories\n",
      stderr);
  return 2;
}

bool number_option(const char* option, const char* value, kelo::crash::Campaign& campaign) {
  const unsigned long long number = std::strtoull(value, nullptr, 10);
  if (std::strcmp(option, "--seconds") == 0) {
    campaign.seconds = static_cast<double>(number);
  } else if (std::strcmp(option, "--states") == 0) {
    campaign.states = number;
  } else if (std::strcmp(option, "--jobs") == 0) {
    campaign.jobs = number > 0 ? number : 1;
  } else if (std::strcmp(option, "--seed") == 0) {
    campaign.seed = number;
  } else if (std::strcmp(option, "--samples") == 0) {
    campaign.effort.samples = number;
  } else if (std::strcmp(option, "--output") == 0) {
    campaign.output = static_cast<int>(number);
  } else {
    return false;
  }
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  kelo::crash::Campaign campaign;
  auto run = kelo::crash::run_campaign;
  for (int at = 1; at < count; ++at) {
    const char* const option = arguments[at];
    const char* const value = at + 1 < count ? arguments[at + 1] : nullptr;
    if (std::strcmp(option, "--replay") == 0) {
      run = kelo::crash::replay;
    } else if (std::strcmp(option, "--first") == 0) {
      campaign.first_only = true;
    } else if (std::strcmp(option, "--events") == 0) {
      run = kelo::crash::show_events;
    } else if (std::strcmp(option, "--list") == 0) {
      run = kelo::crash::list_histories;
    } else if (value != nullptr && std::strcmp(option, "--history") == 0) {
      campaign.only.emplace_back(value);
      ++at;
    } else if (value != nullptr && number_option(option, value, campaign)) {
      ++at;
    } else {
      return usage();
    }
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  // Each state takes two processes. Without this each of them would initialise SQLite, and give back memory just before
  // it ends.
  sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  sqlite3_initialize();
  mallopt(M_TRIM_THRESHOLD, 1 << 28);
  mallopt(M_TOP_PAD, 1 << 20);
  return run(campaign);
}
