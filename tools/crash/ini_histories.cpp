// SPDX-License-Identifier: MIT
// The histories on INI files.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "kelo_utils/ini.h"
#include "tools/crash/file_subjects.hpp"
#include "tools/crash/items.hpp"
#include "tools/crash/marks.hpp"

namespace kelo::crash {
namespace {

constexpr char kPath[] = "/data/settings.ini";

class IniSubject : public Subject {
 public:
  explicit IniSubject(const std::vector<Item>& items) : items_(items) {}
  const std::vector<Item>& items() const override { return items_; }
  void start() override {}
  int read(std::size_t item, std::string& value) override {
    char text[1024] = {};
    ini_gets(items_[item].table.c_str(), items_[item].key.c_str(), "", text, sizeof text, kPath);
    value = text;
    return value.empty() ? -1 : static_cast<int>(value.size());
  }
  int write(std::size_t item, const std::string& value) override {
    return ini_puts(items_[item].table.c_str(), items_[item].key.c_str(), value.c_str(), kPath) == 1 ? 0 : -2;
  }

 private:
  const std::vector<Item>& items_;
};

// All versions have one length.
std::vector<std::string> equal_values(std::size_t length) {
  std::vector<std::string> values;
  for (char version = '0'; version < '6'; ++version) values.emplace_back(length, version);
  return values;
}

// The items follow a comment of `before` bytes.
History history_of(const char* name, std::size_t before, std::vector<Item> some) {
  const Items items = shared(std::move(some));
  History history;
  history.name = name;
  history.folders = {"/data"};
  history.items = *items;
  history.probe = items->size() - 1;
  history.prepare = [items, before] {
    if ((*items)[0].initial == kAbsent) return;
    std::ofstream file(kPath);
    file << ";" << std::string(before, 'c') << "\n[net]\n";
    for (const Item& item : *items) file << item.key << "=" << item.values[0] << "\n";
  };
  history.act = [items] {
    IniSubject daemon(*items);
    write_marked(daemon, 0, (*items)[0].initial == kAbsent ? 0 : 1);
  };
  history.subject = [items] { return std::make_unique<IniSubject>(*items); };
  return history;
}

std::vector<Item> keys(std::vector<std::string> written) {
  return {{.table = "net", .key = "apn", .values = std::move(written)},
          {.table = "net", .key = "mtu", .values = values_of("15", 0)},
          {.table = "net", .key = "name", .values = values_of("bridge", 0)}};
}

History new_file() {
  std::vector<Item> items = keys(values_of("internet.", 300));
  for (Item& item : items) item.initial = kAbsent;
  return history_of("ini, new file", 0, std::move(items));
}

}  // namespace

std::vector<History> ini_histories() {
  return {history_of("ini, rewrite", 5000, keys(values_of("internet.", 0))),
          history_of("ini, in place", 100, keys(equal_values(40))),
          history_of("ini, in place, two sectors", 400, keys(equal_values(300))), new_file()};
}

}  // namespace kelo::crash
