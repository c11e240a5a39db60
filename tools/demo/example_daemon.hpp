// SPDX-License-Identifier: MIT
// An application daemon as users of the library write one: a table of items, a start and a few calls.
#ifndef KELO_DEMO_EXAMPLE_DAEMON_HPP
#define KELO_DEMO_EXAMPLE_DAEMON_HPP

#include <cstdint>
#include <span>
#include <string>

#include "kelo_utils/data_manager.h"

namespace kelo::demo {

enum ItemId : std::int32_t {
  kWifiEnabled = 1001,
  kWifiChannel = 1002,
  kWanMtu = 1003,
  kWanMetric = 1004,
  kWanApn = 1005,
  kWanKey = 1006,
};

// The daemon's default table, one item of each type 1 to 6, without the row that ends it.
std::span<const kelo_dm_item> items();

// A started daemon: items registered, change events printed, a handle on the store.
class ExampleDaemon {
 public:
  ExampleDaemon();
  ~ExampleDaemon();
  ExampleDaemon(const ExampleDaemon&) = delete;
  ExampleDaemon& operator=(const ExampleDaemon&) = delete;

  // 0 on success, as every write of the data manager.
  int write(ItemId id, const std::string& bytes);
  // The item's bytes; empty when it has none or cannot be read. Values here are shorter than 64 bytes.
  std::string read(ItemId id);
  std::string read_default(ItemId id);

 private:
  kelo_dm_handle* store_;
};

// Bytes of a number as the store keeps them, and how an item's bytes are shown.
std::string number_bytes(std::int32_t number);
std::string shown(ItemId id, const std::string& bytes);

// How many change events this process has seen.
int events_seen();

}  // namespace kelo::demo

#endif  // KELO_DEMO_EXAMPLE_DAEMON_HPP
