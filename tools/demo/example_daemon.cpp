// SPDX-License-Identifier: MIT
// A daemon with a few items, as the demo starts it again and again.
#include "tools/demo/example_daemon.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "tools/demo/claims.hpp"

namespace kelo::demo {
namespace {

constexpr unsigned char kDefaultKey[] = {0xDE, 0xAD, 0xBE, 0xEF};

kelo_dm_item default_items[] = {
    KELO_DM_ITEM(kWifiEnabled, "wifi", "enabled", KELO_DM_TYPE_SCALAR1, 1, 1),
    KELO_DM_ITEM(kWifiChannel, "wifi", "channel", KELO_DM_TYPE_SCALAR2, 6, 2),
    KELO_DM_ITEM(kWanMtu, "wan", "mtu", KELO_DM_TYPE_SCALAR3, 1500, 4),
    KELO_DM_ITEM(kWanMetric, "wan", "metric", KELO_DM_TYPE_SCALAR4, -1, 4),
    KELO_DM_TEXT_ITEM(kWanApn, "wan", "apn", "internet"),
    KELO_DM_BYTES_ITEM(kWanKey, "wan", "key", kDefaultKey),
    KELO_DM_END,
};

int seen = 0;

int on_change(std::int32_t id, const void* data, std::int32_t len) {
  ++seen;
  const std::string bytes(static_cast<const char*>(data), static_cast<std::size_t>(len));
  tell("event: item %d is now %s (%d bytes)", id, shown(static_cast<ItemId>(id), bytes).c_str(), len);
  return 0;
}

const kelo_dm_item& item_of(ItemId id) {
  for (const kelo_dm_item& item : items()) {
    if (item.id == id) return item;
  }
  std::abort();
}

using Buffer = std::array<char, 64>;

// Reads report success, not a length: a text ends at its NUL in a zeroed buffer, any other item has a fixed
// length.
std::string value_in(ItemId id, const Buffer& buffer) {
  const kelo_dm_item_desc& item = item_of(id).desc;
  if (item.def_type == KELO_DM_TYPE_STRING) return std::string(buffer.data());
  return {buffer.data(), static_cast<std::size_t>(item.len)};
}

}  // namespace

std::span<const kelo_dm_item> items() { return std::span(default_items).first(std::size(default_items) - 1); }

ExampleDaemon::ExampleDaemon() {
  kelo_dm_reg_def_items(default_items);
  kelo_dm_reg_event_callback(on_change);
  store_ = kelo_dm_reg(0);
}

ExampleDaemon::~ExampleDaemon() { kelo_dm_unreg(store_); }

int ExampleDaemon::write(ItemId id, const std::string& bytes) {
  return kelo_dm_write(store_, id, bytes.data(), static_cast<std::int32_t>(bytes.size()));
}

std::string ExampleDaemon::read(ItemId id) {
  Buffer buffer{};
  const int failed = kelo_dm_read_db(store_, id, buffer.data(), static_cast<std::int32_t>(buffer.size() - 1));
  return failed == 0 ? value_in(id, buffer) : std::string();
}

std::string ExampleDaemon::read_default(ItemId id) {
  Buffer buffer{};
  kelo_dm_item_desc item = item_of(id).desc;
  const int length =
      kelo_dm_def_items_read(store_, id, &item, buffer.data(), static_cast<std::int32_t>(buffer.size()));
  return length > 0 ? std::string(buffer.data(), static_cast<std::size_t>(length)) : std::string();
}

std::string number_bytes(std::int32_t number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

std::string shown(ItemId id, const std::string& bytes) {
  if (bytes.empty()) return "(nothing)";
  const int type = item_of(id).desc.def_type;
  if (type == KELO_DM_TYPE_STRING) return '"' + bytes + '"';
  if (type == KELO_DM_TYPE_BUFFER) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string digits;
    for (const char byte : bytes) {
      digits += kDigits[static_cast<unsigned char>(byte) >> 4];
      digits += kDigits[static_cast<unsigned char>(byte) & 15];
    }
    return digits;
  }
  std::int32_t number = 0;
  std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
  return std::to_string(number);
}

int events_seen() { return seen; }

}  // namespace kelo::demo
