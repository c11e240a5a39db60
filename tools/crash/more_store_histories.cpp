// SPDX-License-Identifier: MIT
// Histories of several writes, several daemons, a clean, a full disk, and those that a seed makes up.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <random>

#include "kelo_utils/sqlite.h"
#include "tools/crash/marks.hpp"
#include "tools/crash/refused_looks.hpp"
#include "tools/crash/store_subject.hpp"

namespace kelo::crash {
namespace {

// Version 0 is the value before the clean, version 1 means no value after it, and version 2 is written after that.
History clean_with_a_copy() {
  std::vector<Item> items = usual_items();
  for (Item& item : items) item.absent = 1;
  const Items kept = shared(std::move(items));
  History history = store_history("clean with a copy", kept);
  history.act = [kept] {
    {
      StoreSubject daemon(*kept);
      daemon.start();
      for (std::size_t item = 0; item < kept->size(); ++item) mark(Progress::begins, item, 1);
      if (kelo_dm_clean(daemon.handle(), "backup") != 0) _exit(1);
      for (std::size_t item = 0; item < kept->size(); ++item) mark(Progress::acknowledged, item, 1);
    }
    in_other_process([&] {
      StoreSubject daemon(*kept);
      daemon.start();
      write_marked(daemon, kWritten, 2);
    });
  };
  return history;
}

// Without space for a copy the backup gets only the rows whose writes ended. A row whose write was cut stays in the
// primary.
class FullDiskSubject : public VerifiedSubject {
 public:
  using VerifiedSubject::VerifiedSubject;
  std::string fault() override {
    const std::string fault = database_fault(DB_CONFIG);
    return fault.empty() ? database_fault(DB_CONFIGBAK) : fault;
  }
};

// There is no space for a copy of the database, but there is for a row and its journal. The files that a cut copy left
// take this space until a write has removed them.
History nearly_full_disk() {
  const Items kept = shared(usual_items());
  History history = store_history("nearly full disk", kept, make_subject<FullDiskSubject>);
  history.write_may_fail_once = true;
  history.disk_size = 13 * kBlockSize;
  return history;
}

// One of two daemons that write by turns.
class Turns {
 public:
  Turns() {
    if (pipe(ours_) != 0 || pipe(theirs_) != 0) _exit(1);
  }
  void give(bool to_other) { pass(to_other ? theirs_[1] : ours_[1]); }
  void await(bool other) { take(other ? theirs_[0] : ours_[0]); }

 private:
  static void pass(int end) {
    if (write(end, "", 1) != 1) _exit(1);
  }
  static void take(int end) {
    char token = 0;
    if (read(end, &token, 1) != 1) _exit(1);
  }
  int ours_[2];
  int theirs_[2];
};

History two_daemons() {
  const Items kept = shared(usual_items());
  History history = store_history("two daemons", kept);
  history.act = [kept] {
    Turns turns;
    const pid_t other = fork();
    const bool first = other != 0;
    {
      StoreSubject daemon(*kept);
      daemon.start();
      for (std::size_t version = 1; version <= 2; ++version) {
        if (!first) turns.await(true);
        write_marked(daemon, first ? kWritten : kNeighbour, version);
        turns.give(first);
        if (first) turns.await(false);
      }
    }
    if (!first) _exit(0);
    waitpid(other, nullptr, 0);
  };
  return history;
}

History pairs() { return store_history("key-value pairs", shared(usual_items()), make_subject<PairSubject>); }

History verified_write() {
  const Items kept = shared(usual_items());
  History history = store_history("verified write", kept, make_subject<VerifiedSubject>);
  history.act = [kept] {
    VerifiedSubject daemon(*kept);
    daemon.start();
    write_marked(daemon, kWritten, 1);
    write_marked(daemon, kNeighbour, 1);
  };
  return history;
}

#ifdef KELO_CRASH_WRAPS_CALLS
// When the search for a row fails, the value must not get a second row: reads would give the older one.
History refused_look() {
  const Items kept = shared(usual_items());
  History history = store_history("refused look", kept);
  history.act = [kept] {
    VerifiedSubject daemon(*kept);
    daemon.start();
    refuse_looks(true);
    write_marked(daemon, kWritten, 1);
    refuse_looks(false);
    std::string value;
    if (daemon.read(kWritten, value) <= 0 || value != (*kept)[kWritten].values[1]) _exit(1);
  };
  return history;
}
#endif

}  // namespace

History random_history(unsigned seed) {
  std::mt19937 random(seed);
  constexpr std::size_t kWidths[] = {0, 40, 400, 2500};
  std::vector<Item> items;
  const std::size_t count = 2 + random() % 4;
  for (std::size_t item = 0; item < count; ++item) {
    const std::string number = std::to_string(item);
    items.push_back({.table = random() % 2 == 0 ? "wan" : "lan",
                     .key = "key" + number,
                     .initial = random() % 4 == 0 ? kAbsent : 0,
                     .values = values_of("value" + number + ".", kWidths[random() % 4])});
  }
  const Items kept = shared(std::move(items));
  History history = store_history(("random " + std::to_string(seed)).c_str(), kept);
  history.act = [kept, random]() mutable {
    std::vector<int> versions;
    for (const Item& item : *kept) versions.push_back(item.initial);
    const auto operate = [&](StoreSubject& daemon) {
      const std::size_t item = random() % kept->size();
      if (random() % 4 == 0) {
        std::string value;
        daemon.read(item, value);
      } else if (versions[item] < 3) {
        write_marked(daemon, item, static_cast<std::size_t>(++versions[item]));
      }
    };
    for (std::size_t start = 1 + random() % 2; start > 0; --start) {
      StoreSubject daemon(*kept);
      daemon.start();
      for (std::size_t turn = 2 + random() % 2; turn > 0; --turn) operate(daemon);
    }
  };
  return history;
}

std::vector<History> more_store_histories() {
  std::vector<History> more = {clean_with_a_copy(), nearly_full_disk(), two_daemons(), pairs(),
                               verified_write()};
#ifdef KELO_CRASH_WRAPS_CALLS
  more.push_back(refused_look());
#endif
  for (unsigned seed = 1; seed <= 4; ++seed) more.push_back(random_history(seed));
  return more;
}

}  // namespace kelo::crash
