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

// The places of the items in every history.
enum : std::size_t { kWritten, kNeighbour, kProbe };
constexpr std::size_t kVersions = 6;

std::vector<std::string> values_of(const std::string& stem, std::size_t width) {
  std::vector<std::string> values;
  for (std::size_t version = 0; version < kVersions; ++version) {
    std::string value = stem + std::to_string(version);
    // Every later version is longer, and none begins like another.
    value.append(version * (1 + width / 50), static_cast<char>('a' + version));
    if (value.size() < width) value.resize(width + version, static_cast<char>('A' + version));
    values.push_back(value);
  }
  return values;
}

std::vector<Item> usual_items(std::size_t width = 0) {
  return {{.table = "wan", .key = "apn", .values = values_of("internet.", width)},
          {.table = "wan", .key = "mtu", .values = values_of("15", width)},
          {.table = "lan", .key = "name", .values = values_of("bridge", width)}};
}

// Everything in it lives as long as the histories do.
using Items = std::shared_ptr<std::vector<Item>>;

void write_first_versions(const std::vector<Item>& items) {
  in_other_process([&] {
    StoreSubject daemon(items);
    daemon.start();
    for (std::size_t item = 0; item < items.size(); ++item) {
      if (items[item].initial != kAbsent) daemon.write(item, items[item].values[0]);
    }
  });
}

History history_of(const char* name, Items items, std::size_t version) {
  History history;
  history.name = name;
  history.items = *items;
  history.probe = items->size() - 1;
  history.prepare = [items] { write_first_versions(*items); };
  history.act = [items, version] {
    StoreSubject daemon(*items);
    daemon.start();
    daemon.write_marked(kWritten, version);
  };
  history.subject = [items] { return std::make_unique<StoreSubject>(*items); };
  return history;
}

Items shared(std::vector<Item> items) { return std::make_shared<std::vector<Item>>(std::move(items)); }

History insert() {
  std::vector<Item> items = usual_items();
  items[kWritten].initial = kAbsent;
  return history_of("insert", shared(std::move(items)), 0);
}

History first_start() {
  std::vector<Item> items;
  for (int number = 0; number < 50; ++number) {
    const std::string key = "key" + std::to_string(number);
    const char* const table = number % 2 == 0 ? "wan" : "lan";
    items.push_back({.table = table, .key = key, .initial = kAbsent, .values = {"the default of " + key}});
  }
  items.push_back({.table = "wifi", .key = "ssid", .initial = kAbsent, .values = values_of("cpe-", 0)});
  const Items kept = shared(std::move(items));
  History history = history_of("first start", kept, 0);
  history.prepare = [] {};
  history.settles_all = true;
  history.act = [kept] {
    DefaultsSubject daemon(*kept);
    daemon.start();
    const std::size_t defaults = kept->size() - 1;
    for (std::size_t item = 0; item < defaults; ++item) mark(Progress::begins, item, 0);
    if (kelo_dm_construct_def_database(0) != 0) return;
    for (std::size_t item = 0; item < defaults; ++item) mark(Progress::acknowledged, item, 0);
    daemon.write_marked(defaults, 0);
  };
  history.subject = [kept] { return std::make_unique<DefaultsSubject>(*kept); };
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
  History history = history_of("crash completion", kept, 1);
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

void overwrite(const char* path, std::size_t from, std::size_t count) {
  const std::string garbage(count, '\xA5');
  const int descriptor = open(path, O_WRONLY | O_CLOEXEC);
  if (pwrite(descriptor, garbage.data(), count, static_cast<off_t>(from)) < 0) std::perror(path);
  close(descriptor);
}

History repair(const char* name, const std::function<void()>& damage) {
  const Items kept = shared(usual_items());
  History history = history_of(name, kept, 1);
  history.prepare = [kept, damage] {
    write_first_versions(*kept);
    damage();
  };
  return history;
}

}  // namespace

std::vector<History> store_histories() {
  return {
      history_of("update", shared(usual_items()), 1),
      history_of("wide update", shared(usual_items(3000)), 1),
      insert(),
      first_start(),
      crash_completion(),
      repair("repair, page 1", [] { overwrite(DB_CONFIG, 100, 3996); }),
      repair("repair, data page", [] { overwrite(DB_CONFIG, 2 * kBlockSize, kBlockSize); }),
      repair("repair, no primary", [] { unlink(DB_CONFIG); }),
      repair("repair, empty primary", [] { fs::resize_file(DB_CONFIG, 0); }),
      repair("no state database", [] { overwrite(DB_STATE, 0, kBlockSize); }),
  };
}

}  // namespace kelo::crash
