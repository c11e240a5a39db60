// SPDX-License-Identifier: MIT
// The histories on the configuration databases.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>

#include "kelo_utils/sqlite.h"
#include "tools/crash/marks.hpp"
#include "tools/crash/store_subject.hpp"

namespace kelo::crash {
namespace {

namespace fs = std::filesystem;

History insert() {
  std::vector<Item> items = usual_items();
  items[kWritten].initial = kAbsent;
  return store_history("insert", shared(std::move(items)));
}

constexpr std::size_t kDefaults = 50;

// The defaults, of two versions, and one item that is written.
Items items_with_defaults(int initial) {
  std::vector<Item> items;
  for (std::size_t number = 0; number < kDefaults; ++number) {
    const std::string key = "key" + std::to_string(number);
    const char* const table = number % 2 == 0 ? "wan" : "lan";
    items.push_back({.table = table,
                     .key = key,
                     .initial = initial,
                     .values = {"the default of " + key, "the default of " + key + " after an update"}});
  }
  items.push_back({.table = "wifi", .key = "ssid", .initial = kAbsent, .values = values_of("cpe-", 0)});
  return shared(std::move(items));
}

// A daemon builds the defaults, in the version that `Program` brings, and writes the item.
template <class Program>
History defaults_history(const char* name, const Items& items, int version) {
  History history = store_history(name, items, make_subject<Program>);
  history.prepare = [] {};
  history.settled = version;
  history.together = true;
  history.act = [items, version] {
    Program daemon(*items);
    daemon.start();
    const auto built = static_cast<std::size_t>(version);
    for (std::size_t item = 0; item < kDefaults; ++item) mark(Progress::begins, item, built);
    if (kelo_dm_construct_def_database(0) != 0) return;
    for (std::size_t item = 0; item < kDefaults; ++item) mark(Progress::acknowledged, item, built);
    write_marked(daemon, kDefaults, 0);
  };
  return history;
}

History first_start() {
  return defaults_history<DefaultsSubject>("first start", items_with_defaults(kAbsent), 0);
}

History new_defaults() {
  const Items items = items_with_defaults(0);
  History history = defaults_history<NewDefaultsSubject>("new defaults", items, 1);
  history.prepare = [items] {
    in_other_process([&] {
      DefaultsSubject before_the_update(*items);
      before_the_update.start();
      before_the_update.settle();
    });
  };
  return history;
}

// The primary was written and the journal says so, but the backup was not made.
void leave_journal_at_101(const Item& item) {
  in_other_process([&] {
    quiet_log();
    const std::string& value = item.values[1];
    const auto length = static_cast<int>(value.size());
    dm_write_db(DB_CONFIG, item.table.c_str(), 1000, item.key.c_str(), KELO_DM_TYPE_STRING, value.data(),
                length);
    dm_write_state_db(item.table.c_str(), 1000, item.key.c_str(), KELO_DM_TYPE_STRING, length, WS_WRITE_DONE);
  });
}

History crash_completion() {
  std::vector<Item> items = usual_items();
  items[kWritten].in_flight = 1;
  const Items kept = shared(std::move(items));
  History history = store_history("crash completion", kept);
  history.prepare = [kept] {
    write_first_versions(*kept);
    leave_journal_at_101((*kept)[kWritten]);
  };
  history.act = [kept] {
    StoreSubject daemon(*kept);
    daemon.start();
    std::string value;
    daemon.read(kWritten, value);
    for (std::size_t version = 0; version < 2; ++version) {
      if (value == (*kept)[kWritten].values[version]) mark(Progress::seen, kWritten, version);
    }
  };
  return history;
}

History repair(const char* name, const std::function<void()>& damage,
               MakeSubject make = make_subject<StoreSubject>) {
  const Items kept = shared(usual_items());
  History history = store_history(name, kept, make);
  history.prepare = [kept, damage] {
    write_first_versions(*kept);
    damage();
  };
  return history;
}

// The row is not written and the backup does not change. The result of a plain write does not show this, so every write
// here is a verified one.
History repair_data_page() {
  History history = repair(
      "repair, data page", [] { overwrite(DB_CONFIG, 2 * kBlockSize, kBlockSize); },
      make_subject<VerifiedSubject>);
  history.write_may_fail_once = true;
  return history;
}

// The backup is damaged while a daemon runs. The daemon's next read makes the backup anew, and reads succeed from then
// on. A daemon that starts would make it anew with a write.
History repair_backup() {
  const Items kept = shared(usual_items());
  History history = store_history("repair, backup", kept);
  history.act = [kept] {
    StoreSubject daemon(*kept);
    daemon.start();
    overwrite(DB_CONFIGBAK, 0, kBlockSize);
    std::string value;
    daemon.read(kWritten, value);
    if (daemon.read(kWritten, value) <= 0 || value != (*kept)[kWritten].values[0]) _exit(1);
    mark(Progress::seen, kWritten, 0);
  };
  history.read_may_fail_once = true;
  return history;
}

}  // namespace

void overwrite(const char* path, std::size_t from, std::size_t count) {
  const std::string garbage(count, '\xA5');
  const int descriptor = open(path, O_WRONLY | O_CLOEXEC | O_NONBLOCK);
  if (pwrite(descriptor, garbage.data(), count, static_cast<off_t>(from)) < 0) std::perror(path);
  close(descriptor);
}

void write_first_versions(const std::vector<Item>& items, MakeSubject make) {
  in_other_process([&] {
    const auto daemon = make(items);
    daemon->start();
    for (std::size_t item = 0; item < items.size(); ++item) {
      if (items[item].initial != kAbsent) daemon->write(item, items[item].values[0]);
    }
  });
}

History store_history(const char* name, const Items& items, MakeSubject make) {
  History history;
  history.name = name;
  history.items = *items;
  history.probe = items->size() - 1;
  history.prepare = [items, make] { write_first_versions(*items, make); };
  history.act = [items, make] {
    const auto daemon = make(*items);
    daemon->start();
    write_marked(*daemon, kWritten, (*items)[kWritten].initial == kAbsent ? 0 : 1);
  };
  history.subject = [items, make] { return make(*items); };
  return history;
}

std::vector<History> store_histories() {
  return {
      store_history("update", shared(usual_items())),
      store_history("wide update", shared(usual_items(3000))),
      insert(),
      first_start(),
      new_defaults(),
      crash_completion(),
      repair("repair, page 1", [] { overwrite(DB_CONFIG, 100, 3996); }),
      repair_data_page(),
      repair("repair, no primary", [] { unlink(DB_CONFIG); }),
      repair("repair, empty primary", [] { fs::resize_file(DB_CONFIG, 0); }),
      repair_backup(),
      repair("no state database", [] { overwrite(DB_STATE, 0, kBlockSize); }),
  };
}

}  // namespace kelo::crash
