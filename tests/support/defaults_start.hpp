// SPDX-License-Identifier: MIT
// Starts of daemons that build their defaults, together as the library does, or one by one as a storage does that is not
// the library's own. Include it in exactly one source file of a test program.
#ifndef KELO_TESTS_SUPPORT_DEFAULTS_START_HPP
#define KELO_TESTS_SUPPORT_DEFAULTS_START_HPP

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"
#include "tests/support/log_capture.hpp"

namespace kelo::tests {

inline bool one_by_one = false;

inline int single_write(std::uint32_t id, kelo_dm_item_desc* item, const void* value, int len) {
  return dm_sqlite_def_db_const(id, item, value, len);
}

}  // namespace kelo::tests

// NOLINTNEXTLINE(misc-definitions-in-headers): the hook of the one source that includes this
void dm_pal_reg(std::int32_t /*id*/, kelo_dm_operations* operations) {
  sqlite_reg(operations);
  if (kelo::tests::one_by_one) operations->def_db_const = kelo::tests::single_write;
}

namespace kelo::tests {

// A new daemon that builds the defaults of `items`, within `with`, and prints what it logs above level 0.
inline ChildResult build_defaults(
    std::vector<kelo_dm_item>& items,
    const std::function<void(const std::function<void()>&)>& with = [](const auto& build) { build(); }) {
  return run_in_child([&] {
    kelo_dm_unreg(kelo_dm_reg(0));
    kelo_dm_reg_def_items(items.data());
    const LogCapture log;
    with([] { EXPECT_EQ(kelo_dm_construct_def_database(0), 0); });
    for (const LogLine& line : log.lines()) {
      if (line.level != LOG_LVL_DBUG)
        std::printf("%d %s %s", line.level, line.function.c_str(), line.text.c_str());
    }
  });
}

// Every table with its rows, in their order; the bytes of a file that is no database.
inline std::vector<std::string> stored_defaults() {
  std::vector<std::string> all;
  if (!std::filesystem::is_regular_file(DB_DEF_ITEMS)) return all;
  const std::string file = read_file(DB_DEF_ITEMS);
  if (!file.starts_with("SQLite format 3")) return {file};
  for (const std::string& table :
       query_lines(DB_DEF_ITEMS, "select name from sqlite_master where type='table'")) {
    all.push_back(table);
    for (const std::string& row :
         query_lines(DB_DEF_ITEMS, "select key,type,len,hex(value),typeof(value) from " + table))
      all.push_back(row);
  }
  return all;
}

// The lines without the places in the source, which differ.
inline std::string without_places(const std::string& lines) {
  return std::regex_replace(lines, std::regex("\\[\\d+\\]|\\d+ step failed"), "#");
}

inline void empty_data() {
  for (const auto& entry : std::filesystem::directory_iterator("/data")) std::filesystem::remove_all(entry);
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_DEFAULTS_START_HPP
