// SPDX-License-Identifier: MIT
// The list of all histories, and what they have in common.
#include "tools/crash/file_subjects.hpp"
#include "tools/crash/history.hpp"
#include "tools/crash/marks.hpp"
#include "tools/crash/quick_commands.hpp"
#include "tools/crash/store_subject.hpp"

namespace kelo::crash {

void write_marked(Subject& subject, std::size_t item, std::size_t version) {
  mark(Progress::begins, item, version);
  if (subject.write(item, subject.items()[item].values.at(version)) == 0) {
    mark(Progress::acknowledged, item, version);
  }
}

std::vector<History> histories() {
  std::vector<History> all = store_histories();
  for (const auto& more : {more_store_histories(), parameter_histories(), ini_histories()}) {
    all.insert(all.end(), more.begin(), more.end());
  }
#ifdef KELO_CRASH_WRAPS_CALLS
  for (History& history : all) history.hasten = [] { use_quick_commands(true); };
#endif
  return all;
}

}  // namespace kelo::crash
