// SPDX-License-Identifier: MIT
// The histories on the parameter databases.
#include <sqlite3.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>

#include "kelo_utils/sqlite.h"
#include "tools/crash/file_subjects.hpp"
#include "tools/crash/items.hpp"
#include "tools/crash/marks.hpp"
#include "tools/crash/store_subject.hpp"

namespace kelo::crash {
namespace {

namespace fs = std::filesystem;

constexpr char kFolder[] = "/data/kelo-resource/sqlite3";
constexpr char kUserFile[] = "/data/kelo-resource/sqlite3/user_info.db";
constexpr char kFactoryFile[] = "/data/kelo-resource/sqlite3/factory_info.db";

class ParameterSubject : public Subject {
 public:
  explicit ParameterSubject(const std::vector<Item>& items) : items_(items) {}
  ~ParameterSubject() override { kelo_db_close_sqlite(); }
  ParameterSubject(const ParameterSubject&) = delete;
  ParameterSubject& operator=(const ParameterSubject&) = delete;

  const std::vector<Item>& items() const override { return items_; }
  void start() override { quiet_log(); }
  int read(std::size_t item, std::string& value) override {
    char text[4096] = {};
    const int result = kelo_db_get_value(items_[item].table.c_str(), items_[item].key.c_str(), text,
                                         KELO_DB_TYPE_TEXT, sizeof text);
    value = text;
    return result == 0 ? static_cast<int>(value.size()) : result;
  }
  int write(std::size_t item, const std::string& value) override {
    return kelo_db_update_value(items_[item].table.c_str(), items_[item].key.c_str(), value.c_str(),
                                KELO_DB_TYPE_TEXT);
  }
  std::string fault() override {
    kelo_db_close_sqlite();
    const std::string fault = database_fault(kUserFile);
    return fault.empty() ? database_fault(kFactoryFile) : fault;
  }

 private:
  const std::vector<Item>& items_;
};

// A table of one row with the given version of each item, and with a text that makes the file some pages long.
void make_database(const char* path, const std::vector<Item>& items, std::size_t version,
                   std::size_t filler = 9000) {
  fs::create_directories(kFolder);
  std::string columns = "filler text";
  std::string values = "'" + std::string(filler, 'f') + "'";
  for (const Item& item : items) {
    columns += "," + item.key + " text";
    values += ",'" + item.values[version] + "'";
  }
  const std::string table = items[0].table;
  const std::string sql =
      "create table " + table + " (" + columns + "); insert into " + table + " values (" + values + ")";
  sqlite3* db = nullptr;
  if (sqlite3_open(path, &db) != SQLITE_OK ||
      sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    std::fprintf(stderr, "%s: %s\n", path, sqlite3_errmsg(db));
    std::_Exit(2);
  }
  sqlite3_close(db);
}

Items parameters() {
  return shared({{.table = "wifi", .key = "ssid", .values = values_of("cabin", 0)},
                 {.table = "wifi", .key = "country", .values = values_of("K", 0)},
                 {.table = "wifi", .key = "note", .values = values_of("n", 150)}});
}

History history_of(const char* name, const Items& items) {
  History history;
  history.name = name;
  history.items = *items;
  history.probe = items->size() - 1;
  history.subject = [items] { return std::make_unique<ParameterSubject>(*items); };
  return history;
}

History update() {
  const Items items = parameters();
  History history = history_of("parameters, update", items);
  history.prepare = [items] {
    make_database(kFactoryFile, *items, 0);
    make_database(kUserFile, *items, 0);
  };
  history.act = [items] {
    ParameterSubject daemon(*items);
    daemon.start();
    write_marked(daemon, 0, 1);
    write_marked(daemon, 1, 1);
  };
  return history;
}

History first_provisioning() {
  const Items items = parameters();
  History history = history_of("parameters, first start", items);
  history.prepare = [items] { make_database(kFactoryFile, *items, 0); };
  history.act = [items] {
    ParameterSubject daemon(*items);
    daemon.start();
    std::string value;
    if (daemon.read(0, value) > 0 && value == (*items)[0].values[0]) mark(Progress::seen, 0, 0);
    write_marked(daemon, 0, 1);
  };
  return history;
}

// The factory's values are the newer version, since the user's values must not come back.
History factory_restore() {
  const Items items = parameters();
  History history = history_of("parameters, factory restore", items);
  history.prepare = [items] {
    make_database(kFactoryFile, *items, 1);
    make_database(kUserFile, *items, 0);
  };
  history.act = [items] {
    ParameterSubject daemon(*items);
    daemon.start();
    for (std::size_t item = 0; item < items->size(); ++item) mark(Progress::begins, item, 1);
    if (kelo_db_restore_factory() != 1) return;
    for (std::size_t item = 0; item < items->size(); ++item) mark(Progress::acknowledged, item, 1);
    write_marked(daemon, 0, 2);
  };
  return history;
}

}  // namespace

History random_parameters(unsigned seed) {
  // The factory's values are newer than all that is written before a restore, and older than all after it.
  static constexpr std::size_t kFactory = 4;
  constexpr std::size_t kWidths[] = {0, 20, 80, 180};  // a statement has at most 255 bytes
  std::mt19937 random(seed);
  std::vector<Item> made;
  for (std::size_t number = 2 + random() % 4; number > 0; --number) {
    const std::string name = "p" + std::to_string(number);
    made.push_back({.table = "wifi", .key = name, .values = values_of(name + ".", kWidths[random() % 4])});
  }
  const Items items = shared(std::move(made));
  const std::size_t filler = 500 + random() % 20000;
  const bool restored_once = random() % 2 == 0;
  History history = history_of(("random parameters " + std::to_string(seed)).c_str(), items);
  history.prepare = [items, filler] {
    make_database(kFactoryFile, *items, kFactory, filler);
    make_database(kUserFile, *items, 0, filler);
  };
  history.act = [items, random, restored_once]() mutable {
    std::vector<std::size_t> versions(items->size());
    const auto restore = [&] {
      for (std::size_t item = 0; item < items->size(); ++item) mark(Progress::begins, item, kFactory);
      if (kelo_db_restore_factory() != 1) return;
      for (std::size_t item = 0; item < items->size(); ++item) mark(Progress::acknowledged, item, kFactory);
      versions.assign(items->size(), kFactory);
    };
    for (std::size_t start = 1 + random() % 2; start > 0; --start) {
      ParameterSubject daemon(*items);
      daemon.start();
      for (std::size_t turn = 2 + random() % 3; turn > 0; --turn) {
        const std::size_t item = random() % items->size();
        if (random() % 4 == 0) {
          std::string value;
          daemon.read(item, value);
        } else if (versions[item] % kFactory < kFactory - 1) {
          write_marked(daemon, item, ++versions[item]);
        }
      }
      if (start == 1 && restored_once) restore();
      if (start == 1 && restored_once) write_marked(daemon, 0, ++versions[0]);
    }
  };
  return history;
}

std::vector<History> parameter_histories() { return {update(), first_provisioning(), factory_restore()}; }

}  // namespace kelo::crash
