// SPDX-License-Identifier: MIT
// Values whose versions can be told apart.
#include "tools/crash/items.hpp"

namespace kelo::crash {

Items shared(std::vector<Item> items) { return std::make_shared<std::vector<Item>>(std::move(items)); }

std::vector<std::string> values_of(const std::string& stem, std::size_t width) {
  constexpr std::size_t kVersions = 10;
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

std::vector<Item> usual_items(std::size_t width) {
  return {{.table = "wan", .key = "apn", .values = values_of("internet.", width)},
          {.table = "wan", .key = "mtu", .values = values_of("15", width)},
          {.table = "lan", .key = "name", .values = values_of("bridge", width)}};
}

}  // namespace kelo::crash
