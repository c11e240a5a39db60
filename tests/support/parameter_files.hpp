// SPDX-License-Identifier: MIT
// The parameter databases of a test, made by the provisioning script, and what was logged about them.
#ifndef KELO_TESTS_PARAMETER_FILES_HPP
#define KELO_TESTS_PARAMETER_FILES_HPP

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/child_process.hpp"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/log_capture.hpp"

namespace kelo::tests {

inline const std::string kParameterFolder = "/data/kelo-resource/sqlite3";
inline const std::string kUserFile = kParameterFolder + "/user_info.db";
inline const std::string kFactoryFile = kParameterFolder + "/factory_info.db";

struct ScriptRun {
  int status;
  std::string output;
};

inline ScriptRun run_provision(const std::string& arguments) {
  std::FILE* const pipe =
      popen(("'" KELO_SOURCE_DIR "/tools/provision/provision.sh' " + arguments + " 2>&1").c_str(), "r");
  std::string output;
  std::array<char, 256> part{};
  while (std::fgets(part.data(), part.size(), pipe) != nullptr) output += part.data();
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

// Makes both files with these tables.
inline void provision(const std::string& sql) {
  write_file("/tmp/tables.sql", sql);
  const ScriptRun run = run_provision("--user --sql /tmp/tables.sql " + kParameterFolder);
  ASSERT_EQ(run.status, 0) << run.output;
}

// Ends a process in the middle of a write into the user database: its file holds a part of what it wrote, and the
// journal what SQLite puts back when the file is opened next.
inline void cut_off_a_write() {
  execute_sql(kUserFile, "create table filler (x); insert into filler values (zeroblob(100000))");
  run_in_child([] {
    sqlite3* db = nullptr;
    sqlite3_open(kUserFile.c_str(), &db);
    sqlite3_exec(db,
                 "pragma cache_size = 1; begin; update filler set x = randomblob(100000);"
                 "update wifi set channel = 99",
                 nullptr, nullptr, nullptr);
    _exit(0);
  });
  ASSERT_GT(std::filesystem::file_size(kUserFile + "-journal"), 4096U);
}

// The lines of a capture as "level function: text", addresses replaced by "*".
inline std::vector<std::string> all_lines(const LogCapture& log, int lowest_level = LOG_LVL_DBUG) {
  static const std::regex address("azResult:(0x[0-9a-f]+|0|\\(nil\\))");
  std::vector<std::string> lines;
  for (const LogLine& line : log.lines()) {
    if (line.level < lowest_level) continue;
    lines.push_back(level_name(line.level) + " " + line.function + ": " +
                    std::regex_replace(line.text, address, "azResult:*"));
  }
  return lines;
}

// Each test begins with both files and ends with the descriptors that it began with. A lock that was left held
// ends it.
class ParameterTest : public testing::Test {
 protected:
  static constexpr char kTables[] =
      "create table wifi (enabled integer, channel integer, users integer, bands integer, ssid text, note);"
      "insert into wifi values (1, 36, 32, 5000000000, 'factory', 'blank');";

  void SetUp() override {
    alarm(120);
    provision(kTables);
  }
  void TearDown() override {
    kelo_db_close_sqlite();
    kelo_db_exec_cmd("select 1", nullptr, nullptr, 0);
    kelo_db_close_sqlite();
    EXPECT_EQ(open_descriptors(), descriptors_) << "a connection was left open";
    alarm(0);
  }

  // What the user's or the factory's file holds in a column.
  static std::string cell(const std::string& name, const std::string& path = kUserFile) {
    return scalar(path, "select " + name + " from wifi");
  }
  static void set_cell(const std::string& name, const std::string& literal,
                       const std::string& path = kUserFile) {
    execute_sql(path, "update wifi set " + name + " = " + literal);
  }
  static std::vector<std::string> user_row() { return query_lines(kUserFile, "select * from wifi"); }

  [[nodiscard]] std::vector<std::string> lines() const { return all_lines(log); }
  [[nodiscard]] std::vector<std::string> errors() const { return all_lines(log, LOG_LVL_ERR); }

  const std::set<std::string> descriptors_ = open_descriptors();
  LogCapture log;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_PARAMETER_FILES_HPP
