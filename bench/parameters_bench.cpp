// SPDX-License-Identifier: MIT
// Loading, reading and writing parameters against bare SQLite calls that do the same, on a table of 20.
#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "bench/ratio.hpp"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"

namespace {

constexpr std::size_t kParameters = 20;
constexpr char kFolder[] = "/data/kelo-resource/sqlite3";
constexpr char kUserFile[] = "/data/kelo-resource/sqlite3/user_info.db";

std::string name_of(std::size_t parameter) { return std::string("p").append(std::to_string(parameter)); }

// Runs one statement on a connection of its own, as it is without the library.
template <typename Run>
void with_connection(Run run) {
  sqlite3* db = nullptr;
  sqlite3_open(kUserFile, &db);
  run(db);
  sqlite3_close(db);
}

void run_sql(sqlite3* db, const std::string& sql) {
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) std::abort();
}

void make_database() {
  std::filesystem::create_directories(kFolder);
  std::filesystem::remove(kUserFile);
  std::string columns = "p0 integer";
  std::string values = "0";
  for (std::size_t i = 1; i < kParameters; ++i) {
    columns.append(", ").append(name_of(i)).append(" integer");
    values.append(", ").append(std::to_string(i));
  }
  with_connection([&](sqlite3* db) {
    run_sql(db, "create table settings (" + columns + "); insert into settings values (" + values + ")");
  });
}

int bare_read(sqlite3* db, const std::string& name) {
  char sql[256];
  std::snprintf(sql, sizeof sql, "select %s from settings", name.c_str());
  char** cells = nullptr;
  int rows = 0;
  int columns = 0;
  if (sqlite3_get_table(db, sql, &cells, &rows, &columns, nullptr) != SQLITE_OK) std::abort();
  const int value = std::atoi(cells[columns]);  // NOLINT(cert-err34-c): the cell holds a number
  sqlite3_free_table(cells);
  return value;
}

void bare_update(sqlite3* db, const std::string& name, int value) {
  char sql[256];
  std::snprintf(sql, sizeof sql, "update settings set %s = %d;", name.c_str(), value);
  run_sql(db, sql);
}

// The variables and their descriptors.
struct Settings {
  Settings() {
    for (std::size_t i = 0; i < kParameters; ++i) {
      names[i] = name_of(i);
      params[i] = {&values[i], names[i].c_str(), KELO_DB_TYPE_32BIT_2, sizeof values[i],
                   static_cast<std::int32_t>(i)};
    }
  }

  std::array<std::int32_t, kParameters> values{};
  std::array<std::string, kParameters> names;
  std::array<kelo_db_param, kParameters + 1> params{};
  kelo_db_query query = {"settings", params.data()};
};

void LoadTable(benchmark::State& state) {
  make_database();
  Settings ours;
  std::array<int, kParameters> theirs{};
  kelo::bench::compare(
      state, [&] { kelo_db_query_db_init_struct(&ours.query); },
      [&] {
        for (std::size_t i = 0; i < kParameters; ++i)
          with_connection([&](sqlite3* db) { theirs[i] = bare_read(db, ours.names[i]); });
      });
  if (ours.values[kParameters - 1] != theirs[kParameters - 1]) state.SkipWithError("the values differ");
}
BENCHMARK(LoadTable)->UseManualTime()->Unit(benchmark::kMicrosecond);

void WriteBackTable(benchmark::State& state) {
  make_database();
  Settings ours;
  int round = 0;
  kelo::bench::compare(
      state,
      [&] {
        ours.values.fill(++round);
        kelo_db_update_db_from_struct(&ours.query, -1);
      },
      [&] {
        ++round;
        for (const std::string& name : ours.names)
          with_connection([&](sqlite3* db) { bare_update(db, name, round); });
      });
}
BENCHMARK(WriteBackTable)->UseManualTime()->Unit(benchmark::kMicrosecond);

void ReadCell(benchmark::State& state) {
  make_database();
  std::int32_t ours = 0;
  int theirs = 0;
  kelo::bench::compare(
      state, [&] { kelo_db_get_value("settings", "p7", &ours, KELO_DB_TYPE_32BIT_2, 0); },
      [&] { with_connection([&](sqlite3* db) { theirs = bare_read(db, "p7"); }); });
  if (ours != theirs) state.SkipWithError("the values differ");
}
BENCHMARK(ReadCell)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_CRT);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
