// SPDX-License-Identifier: MIT
// The histories of the crash explorer that are one process each, and those that only faults are of interest for.
#include "tests/faults/fault_histories.hpp"

#include <algorithm>
#include <iterator>
#include <memory>
#include <string_view>

#include "kelo_utils/sqlite.h"
#include "tools/crash/marks.hpp"
#include "tools/crash/quick_commands.hpp"
#include "tools/crash/store_subject.hpp"

namespace kelo::faults {
namespace {

using crash::History;
using crash::Item;
using crash::Items;
using crash::mark;
using crash::Progress;
using crash::StoreSubject;
using crash::VerifiedSubject;

constexpr std::string_view kTaken[] = {"update",
                                       "insert",
                                       "first start",
                                       "crash completion",
                                       "repair, page 1",
                                       "repair, data page",
                                       "repair, no primary",
                                       "repair, backup",
                                       "no state database",
                                       "key-value pairs",
                                       "verified write",
                                       "parameters, update",
                                       "parameters, first start",
                                       "parameters, factory restore",
                                       "ini, rewrite",
                                       "ini, in place",
                                       "ini, new file"};

// The older of two versions before a clean is the value, the newer one is none.
History clean(const char* name, const char* backup) {
  std::vector<Item> items = crash::usual_items();
  for (Item& item : items) item.absent = 1;
  const Items kept = crash::shared(std::move(items));
  History history = crash::store_history(name, kept);
  history.act = [kept, backup] {
    StoreSubject daemon(*kept);
    daemon.start();
    for (std::size_t item = 0; item < kept->size(); ++item) mark(Progress::begins, item, 1);
    if (kelo_dm_clean(daemon.handle(), backup) != 0 || daemon.handle() == nullptr) return;
    for (std::size_t item = 0; item < kept->size(); ++item) mark(Progress::acknowledged, item, 1);
  };
  return history;
}

History csv_export() {
  const Items kept = crash::shared(crash::usual_items());
  History history = crash::store_history("csv export", kept);
  history.act = [] {
    crash::quiet_log();
    mark(Progress::begins, 0, 0);
    if (dm_read_all_tabs_from_db(DB_CONFIG) == 0) mark(Progress::acknowledged, 0, 0);
  };
  return history;
}

// The same history with writes whose result says whether the value can be read.
History verified(const std::vector<History>& all, std::string_view name) {
  History history =
      *std::find_if(all.begin(), all.end(), [&](const History& one) { return one.name == name; });
  const Items kept = crash::shared(history.items);
  history.name = "verified, " + history.name;
  history.subject = [kept] { return std::make_unique<VerifiedSubject>(*kept); };
  history.act = [kept] {
    VerifiedSubject daemon(*kept);
    daemon.start();
    write_marked(daemon, crash::kWritten, (*kept)[crash::kWritten].initial == crash::kAbsent ? 0 : 1);
  };
  return history;
}

}  // namespace

std::vector<History> fault_histories() {
  std::vector<History> all = crash::histories();
  std::vector<History> more = {clean("clean", nullptr), clean("clean with a copy", "backup"), csv_export()};
  for (const char* const name : {"insert", "repair, page 1", "repair, no primary", "no state database"}) {
    more.push_back(verified(all, name));
  }
  std::erase_if(all, [](const History& history) {
    return std::find(std::begin(kTaken), std::end(kTaken), history.name) == std::end(kTaken);
  });
  all.insert(all.end(), more.begin(), more.end());
  for (History& history : all) history.hasten = [] { crash::use_quick_commands(true); };
  return all;
}

}  // namespace kelo::faults
