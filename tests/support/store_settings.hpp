// SPDX-License-Identifier: MIT
// Settings of a store on real files, written and read as a daemon without descriptors does.
#ifndef KELO_TESTS_SUPPORT_STORE_SETTINGS_HPP
#define KELO_TESTS_SUPPORT_STORE_SETTINGS_HPP

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"
#include "tests/support/log_capture.hpp"

namespace kelo::tests {

inline constexpr char kRecovery[] = "/kelonvbak/data/config.db";

inline int put(const std::string& key, const std::string& value, const char* table = "net") {
  return dm_pal_write(table, 7, key.c_str(), KELO_DM_TYPE_STRING, value.data(),
                      static_cast<int>(value.size()));
}

// The value of a key, or the code in brackets with which reading it fails.
inline std::string get(const std::string& key, const char* table = "net") {
  std::string buffer(8000, '\0');
  const int result = dm_pal_read(table, key.c_str(), buffer.data(), static_cast<int>(buffer.size()));
  return result < 0 ? "<" + std::to_string(result) + ">" : buffer.substr(0, static_cast<std::size_t>(result));
}

// A new daemon in a process of its own.
inline void start_and(const std::function<void()>& act) {
  const ChildResult child = run_in_child([&] {
    kelo_dm_operations operations{};
    sqlite_reg(&operations);
    act();
  });
  EXPECT_EQ(child.signal, 0) << child.standard_output << child.standard_error;
  EXPECT_EQ(child.exit_status, 0) << child.standard_output << child.standard_error;
}

class StoreTest : public testing::Test {
 protected:
  // Each test begins with a store of three settings, made by a daemon that has ended.
  void SetUp() override {
    alarm(200);
    for (const char* const folder : {"/data", "/kelonvbak/data"})
      for (const auto& entry : std::filesystem::directory_iterator(folder))
        std::filesystem::remove_all(entry);
    start_and([] {
      put("apn", "internet");
      put("mtu", "1500");
      put("name", "home", "lan");
    });
  }
  void TearDown() override { alarm(0); }

  static void expect_others_kept() {
    EXPECT_EQ(get("mtu"), "1500");
    EXPECT_EQ(get("name", "lan"), "home");
  }

  static void expect_backup_equals_primary() {
    EXPECT_TRUE(read_file(DB_CONFIG) == read_file(DB_CONFIGBAK)) << "the backup is no copy";
  }

  // A recovery copy that is older than the store.
  static void provision_recovery() {
    std::filesystem::copy_file(DB_CONFIG, kRecovery);
    execute_sql(kRecovery, "update net set value = cast('older' as blob), len = 5, crc = " +
                               std::to_string(kelo_dm_Crc32Calc("older", 5, 0)));
  }

  template <typename Call>
  static double seconds_of(Call call) {
    const auto begin = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  }

  LogCapture log;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_STORE_SETTINGS_HPP
