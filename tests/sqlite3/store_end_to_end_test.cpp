// SPDX-License-Identifier: MIT
// A daemon's view of the store: the data manager with the SQLite back-end, on real files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"
#include "tests/support/log_capture.hpp"

// The hooks as a daemon with this back-end defines them.
void dm_pal_reg(std::int32_t /*id*/, kelo_dm_operations* operations) { sqlite_reg(operations); }

int dm_pal_reg_store_area(const char* primary_dir, const char* backup_dir) {
  sqlite_reg_store_area(primary_dir, backup_dir);
  return 0;
}

int dm_pal_check_db_version_match(int* matched) {
  sqlite_chk_db_ver_match(matched);
  return 0;
}

int dm_pal_check_db_health() { return check_database_health(DB_CONFIG); }

namespace {

using namespace kelo::tests;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

enum ItemId { kEnabled = 1201, kMtu, kChannel, kQuota, kSsid, kKeys };

const std::uint8_t default_keys[] = {0x00, 0x01, 0xFF, 0x00};

kelo_dm_item items[] = {
    KELO_DM_ITEM(kEnabled, "NET_TAB", "ENABLED", KELO_DM_TYPE_SCALAR1, 1, 1),
    KELO_DM_ITEM(kMtu, "NET_TAB", "MTU", KELO_DM_TYPE_SCALAR2, 1500, 2),
    KELO_DM_ITEM(kChannel, "WIFI_TAB", "CHANNEL", KELO_DM_TYPE_SCALAR3, -6, 4),
    KELO_DM_ITEM(kQuota, "NET_TAB", "QUOTA", KELO_DM_TYPE_SCALAR4, 123456789, sizeof(std::intptr_t)),
    KELO_DM_TEXT_ITEM(kSsid, "WIFI_TAB", "SSID", "home"),
    KELO_DM_BYTES_ITEM(kKeys, "WIFI_TAB", "KEYS", default_keys),
    KELO_DM_END,
};

template <typename T>
std::string bytes_of(T number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

struct Value {
  std::int32_t id;
  std::string factory;
  std::string stored;  // what the tests write; as long as the default where the type has one length
};

const std::vector<Value>& values() {
  static const std::vector<Value> all = {
      {kEnabled, bytes_of<std::int8_t>(1), bytes_of<std::int8_t>(-1)},
      {kMtu, bytes_of<std::int16_t>(1500), bytes_of<std::int16_t>(1492)},
      {kChannel, bytes_of<std::int32_t>(-6), bytes_of<std::int32_t>(11)},
      {kQuota, bytes_of<std::intptr_t>(123456789), bytes_of<std::intptr_t>(-1)},
      {kSsid, "home", "a cabin in the woods"},
      {kKeys, "\x00\x01\xFF\x00"s, "\xFF\x00\xFE"s},
  };
  return all;
}

struct Event {
  std::int32_t id;
  std::string data;

  bool operator==(const Event&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Event& event) {
  return out << event.id << ' ' << testing::PrintToString(event.data);
}

std::vector<Event> events;

int on_change(std::int32_t id, const void* data, std::int32_t len) {
  events.push_back({id, std::string(static_cast<const char*>(data), static_cast<std::size_t>(len))});
  return -1;  // of no consequence
}

// One daemon: registered, with a handle. A lock left held ends it.
class Daemon {
 public:
  Daemon() {
    alarm(60);
    events.clear();
    EXPECT_EQ(kelo_dm_reg_event_callback(on_change), 0);
    EXPECT_EQ(kelo_dm_reg_def_items(items), 0);
    handle_ = kelo_dm_reg(0);
  }
  ~Daemon() {
    kelo_dm_unreg(handle_);
    alarm(0);
  }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  [[nodiscard]] kelo_dm_handle* handle() const { return handle_; }

  int write(std::int32_t id, const std::string& value) {
    return kelo_dm_write(handle_, id, value.data(), static_cast<std::int32_t>(value.size()));
  }

  // The first `size` bytes of an item as the daemon sees them; nothing when they cannot be read.
  std::optional<std::string> read(std::int32_t id, std::size_t size) {
    std::string buf(size, '\0');
    const auto room = static_cast<std::int32_t>(size);
    const int result = kelo_dm_read_db(handle_, id, buf.data(), room);
    EXPECT_EQ(kelo_dm_read_from_dbconfigfile(handle_, id, buf.data(), room), result == 0 ? 0 : 3);
    if (result == 0) return buf;
    EXPECT_EQ(result, -3);
    return {};
  }

  void write_all() {
    for (const Value& value : values()) EXPECT_EQ(write(value.id, value.stored), 0) << value.id;
  }

  void expect_all() {
    for (const Value& value : values())
      EXPECT_EQ(read(value.id, value.stored.size()), value.stored) << value.id;
  }

  void expect_none() {
    for (const Value& value : values())
      EXPECT_EQ(read(value.id, value.stored.size()), std::nullopt) << value.id;
  }

 private:
  kelo_dm_handle* handle_;
};

class StoreEndToEndTest : public testing::Test {
 protected:
  // A daemon's life in a process of its own. Its failed expectations are reported here.
  static void live(const std::function<void(Daemon&)>& life) {
    const ChildResult child = run_in_child([&] {
      Daemon daemon;
      life(daemon);
    });
    EXPECT_EQ(child.signal, 0) << child.standard_output << child.standard_error;
    EXPECT_EQ(child.exit_status, 0) << child.standard_output << child.standard_error;
  }

  LogCapture log;
};

std::vector<std::string> default_rows(const std::string& table) {
  return query_lines(DB_DEF_ITEMS, "select key,type,len,hex(value) from " + table);
}

// --- Defaults ----------------------------------------------------------------------------------------------

TEST_F(StoreEndToEndTest, DefaultsOfAllTypesAreBuilt) {
  Daemon daemon;
  EXPECT_EQ(kelo_dm_construct_def_database(0), 0);
  EXPECT_THAT(query_lines(DB_DEF_ITEMS, "select key,type,len from NET_TAB"),
              ElementsAre("ENABLED|1|1", "MTU|2|2", "QUOTA|4|" + std::to_string(sizeof(std::intptr_t))));
  EXPECT_THAT(default_rows("WIFI_TAB"),
              ElementsAre("CHANNEL|3|4|FAFFFFFF", "SSID|5|4|686F6D65", "KEYS|6|4|0001FF00"));
  EXPECT_THAT(default_rows(SQL_VER_TAB), ElementsAre("SQL_VER_KEY|3|4|01000100"));
  EXPECT_THAT(query_lines(DB_CONFIG, "select name from sqlite_master"), ElementsAre(SQL_VER_TAB));
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(StoreEndToEndTest, DefaultsReadBackWithTheirTypes) {
  Daemon daemon;
  ASSERT_EQ(kelo_dm_construct_def_database(0), 0);
  for (const Value& value : values()) {
    kelo_dm_item_desc descriptor = items[value.id - kEnabled].desc;
    const std::int32_t type = std::exchange(descriptor.type, -1);
    std::string buf(64, '\0');
    const int length = kelo_dm_def_items_read(daemon.handle(), value.id, &descriptor, buf.data(), 64);
    ASSERT_GE(length, 0) << value.id;
    EXPECT_EQ(buf.substr(0, static_cast<std::size_t>(length)), value.factory) << value.id;
    EXPECT_EQ(descriptor.type, type) << value.id;
  }
}

TEST_F(StoreEndToEndTest, BuildingTheDefaultsAgainChangesNothing) {
  Daemon daemon;
  ASSERT_EQ(kelo_dm_construct_def_database(0), 0);
  const std::vector<std::string> rows = default_rows("WIFI_TAB");
  EXPECT_EQ(kelo_dm_construct_def_database(0), 0);
  EXPECT_EQ(default_rows("WIFI_TAB"), rows);
}

// Defaults are a database of their own: a value that was never written is not read from there.
TEST_F(StoreEndToEndTest, AnUnwrittenItemHasNoCurrentValue) {
  Daemon daemon;
  ASSERT_EQ(kelo_dm_construct_def_database(0), 0);
  daemon.expect_none();
}

TEST_F(StoreEndToEndTest, TheVersionsMatchOnceBothDatabasesExist) {
  Daemon daemon;
  int matched = 77;
  EXPECT_EQ(kelo_dm_check_db_version_match(&matched), 0);
  EXPECT_EQ(matched, 77);
  ASSERT_EQ(kelo_dm_construct_def_database(0), 0);
  EXPECT_EQ(kelo_dm_check_db_version_match(&matched), 0);
  EXPECT_EQ(matched, 1);
}

// --- Values and events -------------------------------------------------------------------------------------

TEST_F(StoreEndToEndTest, ValuesOfAllTypesAreStoredReadAndAnnounced) {
  Daemon daemon;
  daemon.write_all();
  std::vector<Event> expected;
  for (const Value& value : values()) expected.push_back({value.id, value.stored});
  EXPECT_EQ(events, expected);
  daemon.expect_all();
  EXPECT_THAT(query_lines(DB_CONFIG, "select id,key,type,len from WIFI_TAB"),
              ElementsAre("1203|CHANNEL|3|4", "1205|SSID|5|20", "1206|KEYS|6|3"));
  EXPECT_EQ(read_file(DB_CONFIGBAK), read_file(DB_CONFIG));
  EXPECT_EQ(journal_row(DB_STATE), (JournalRow{"write_state", "WIFI_TAB", kKeys, "KEYS", 6, 3, 102}));
  EXPECT_EQ(dm_pal_check_db_health(), 0);
}

TEST_F(StoreEndToEndTest, AChangedValueReplacesTheOneBefore) {
  Daemon daemon;
  daemon.write_all();
  EXPECT_EQ(daemon.write(kSsid, "tent"), 0);
  EXPECT_EQ(daemon.read(kSsid, 4), "tent");
  EXPECT_EQ(item_rows(DB_CONFIG, "WIFI_TAB").size(), 3U);
}

TEST_F(StoreEndToEndTest, TheSameValueIsWrittenAndAnnouncedOnlyWhenAskedTo) {
  Daemon daemon;
  ASSERT_EQ(daemon.write(kSsid, "tent"), 0);
  events.clear();
  const auto before = std::filesystem::last_write_time(DB_STATE);
  EXPECT_EQ(kelo_dm_write_db(daemon.handle(), kSsid, "tent", 4), 0);
  EXPECT_THAT(events, IsEmpty());
  EXPECT_EQ(std::filesystem::last_write_time(DB_STATE), before);
  EXPECT_EQ(daemon.write(kSsid, "tent"), 0);
  EXPECT_EQ(kelo_dm_write_db(daemon.handle(), kSsid, "yurt", 4), 0);
  EXPECT_THAT(events, ElementsAre(Event{kSsid, "tent"}, Event{kSsid, "yurt"}));
  EXPECT_EQ(daemon.read(kSsid, 4), "yurt");
}

TEST_F(StoreEndToEndTest, AnEmptiedItemHasNoValueUntilTheNextWrite) {
  Daemon daemon;
  daemon.write_all();
  events.clear();
  EXPECT_EQ(kelo_dm_empty(daemon.handle(), kSsid), 0);
  EXPECT_THAT(events, ElementsAre(Event{kSsid, ""}));
  EXPECT_EQ(daemon.read(kSsid, 20), std::nullopt);
  EXPECT_THAT(query_lines(DB_CONFIG, "select len,crc,hex(value) from WIFI_TAB where key='SSID'"),
              ElementsAre("0|0|"));
  EXPECT_EQ(daemon.write(kSsid, "tent"), 0);
  EXPECT_EQ(daemon.read(kSsid, 4), "tent");
}

TEST_F(StoreEndToEndTest, AWriteThatFailsIsReturnedAndNotAnnounced) {
  Daemon daemon;
  std::filesystem::remove(DB_CONFIG);
  ASSERT_TRUE(std::filesystem::create_directory(DB_CONFIG));
  EXPECT_EQ(daemon.write(kSsid, "tent"), -1);
  EXPECT_THAT(events, IsEmpty());
}

// --- Clean -------------------------------------------------------------------------------------------------

TEST_F(StoreEndToEndTest, ACleanedStoreIsEmptyAndWritableAgain) {
  Daemon daemon;
  ASSERT_EQ(kelo_dm_construct_def_database(0), 0);
  daemon.write_all();
  EXPECT_EQ(kelo_dm_clean(daemon.handle(), nullptr), 0);
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK, DB_STATE}) EXPECT_FALSE(file_exists(path)) << path;
  EXPECT_EQ(default_rows("WIFI_TAB").size(), 3U);
  daemon.expect_none();
  daemon.write_all();
  daemon.expect_all();
}

TEST_F(StoreEndToEndTest, AFailedCleanLeavesTheStoreWritable) {
  Daemon daemon;
  ASSERT_TRUE(std::filesystem::remove(DB_STATE));
  EXPECT_EQ(kelo_dm_clean(daemon.handle(), nullptr), -1);
  daemon.write_all();
  daemon.expect_all();
}

TEST_F(StoreEndToEndTest, ACleanWithACopyKeepsTheValues) {
  Daemon daemon;
  daemon.write_all();
  EXPECT_EQ(kelo_dm_clean(daemon.handle(), "before the upgrade"), 0);
  std::vector<std::string> copies;
  for (const auto& entry : std::filesystem::directory_iterator("/mnt/vendor/nvdata"))
    copies.push_back(entry.path());
  ASSERT_EQ(copies.size(), 1U);
  EXPECT_EQ(scalar(copies[0], "select value from WIFI_TAB where key='SSID'"), "a cabin in the woods");
}

// --- Several lives -----------------------------------------------------------------------------------------

TEST_F(StoreEndToEndTest, AnotherProcessReadsWhatOneWrote) {
  live([](Daemon& daemon) {
    EXPECT_EQ(kelo_dm_construct_def_database(0), 0);
    daemon.write_all();
  });
  live([](Daemon& daemon) {
    EXPECT_THAT(events, IsEmpty());
    daemon.expect_all();
    EXPECT_EQ(daemon.write(kSsid, "tent"), 0);
  });
  live([](Daemon& daemon) { EXPECT_EQ(daemon.read(kSsid, 4), "tent"); });
}

TEST_F(StoreEndToEndTest, ANewStartCompletesTheBackupOfAnInterruptedWrite) {
  live([](Daemon& daemon) { daemon.write_all(); });
  ASSERT_EQ(dm_write_db(DB_CONFIG, "WIFI_TAB", kSsid, "SSID", KELO_DM_TYPE_STRING, "tent", 4), 0);
  ASSERT_EQ(dm_write_state_db("WIFI_TAB", kSsid, "SSID", KELO_DM_TYPE_STRING, 4, WS_WRITE_DONE), 0);
  live([](Daemon& daemon) { EXPECT_EQ(daemon.read(kSsid, 4), "tent"); });
}

TEST_F(StoreEndToEndTest, AMovedStoreIsFoundAgain) {
  for (const char* const directory : {"/tmp/primary", "/tmp/backup"}) {
    ASSERT_TRUE(std::filesystem::create_directory(directory));
  }
  EXPECT_EQ(kelo_dm_reg_store_area("/tmp/primary/", "/tmp/backup/"), 0);
  live([](Daemon& daemon) { daemon.write_all(); });
  for (const char* const path :
       {"/tmp/primary/config.db", "/tmp/primary/state.db", "/tmp/backup/configbak.db"}) {
    EXPECT_TRUE(file_exists(path)) << path;
  }
  for (const char* const path : {"/data/config.db", "/data/state.db", "/data/configbak.db"}) {
    EXPECT_FALSE(file_exists(path)) << path;
  }
  live([](Daemon& daemon) { daemon.expect_all(); });
}

}  // namespace
