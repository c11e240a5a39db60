// SPDX-License-Identifier: MIT
// The start of a daemon: its defaults stored for the first time, and again when nothing has changed, against one SQLite
// transaction that inserts the same rows into a new file. Every start is a process of its own.
//
// The databases are in /data, or in the folder that the variable KELO_BENCH_DATA names with a slash at its end.
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/ratio.hpp"
#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"

void dm_pal_reg(std::int32_t /*id*/, kelo_dm_operations* operations) { sqlite_reg(operations); }

namespace {

constexpr std::int32_t kValue = 0x34333231;

std::string data = "/data/";

void move_path(char (&path)[64], const char* name) {
  std::snprintf(path, sizeof path, "%s%s", data.c_str(), name);
}

void remove_databases() {
  for (const char* const path : {DB_CONFIG, DB_CONFIGBAK, DB_STATE, DB_DEF_ITEMS}) unlink(path);
  unlink((data + "config.db-lock").c_str());
}

// What `start` takes in a process that did nothing but `prepare` before.
template <typename Prepare, typename Start>
double seconds_in_new_process(Prepare prepare, Start start) {
  std::array<int, 2> line{-1, -1};
  double seconds = 0;
  if (pipe(line.data()) != 0) return seconds;
  const pid_t process = fork();
  if (process == 0) {
    prepare();
    const double spent = kelo::bench::seconds_of(start);
    benchmark::DoNotOptimize(::write(line[1], &spent, sizeof spent));
    _exit(0);
  }
  close(line[1]);
  benchmark::DoNotOptimize(::read(line[0], &seconds, sizeof seconds));
  close(line[0]);
  waitpid(process, nullptr, 0);
  return seconds;
}

std::vector<kelo_dm_item> items_of(int count) {
  std::vector<kelo_dm_item> items(static_cast<std::size_t>(count) + 1,
                                  KELO_DM_ITEM(-1, "settings", "", KELO_DM_TYPE_SCALAR3, kValue, 4));
  for (int id = 0; id < count; ++id) {
    kelo_dm_item& item = items[static_cast<std::size_t>(id)];
    item.id = id;
    std::snprintf(item.desc.item_key, sizeof item.desc.item_key, "key%d", id);
  }
  return items;
}

void one_transaction(int count) {
  const std::string path = data + "bare_def.db";
  unlink(path.c_str());
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_exec(db,
               "begin;create table settings (key text not null,type integer not null,len integer not null,"
               "value blob)",
               nullptr, nullptr, nullptr);
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(db, "insert into settings values(?,3,4,?)", -1, &insert, nullptr);
  for (int id = 0; id < count; ++id) {
    std::array<char, 32> key;
    std::snprintf(key.data(), key.size(), "key%d", id);
    sqlite3_bind_text(insert, 1, key.data(), -1, SQLITE_STATIC);
    sqlite3_bind_blob(insert, 2, &kValue, sizeof kValue, SQLITE_STATIC);
    sqlite3_step(insert);
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  sqlite3_exec(db, "commit", nullptr, nullptr, nullptr);
  sqlite3_close(db);
}

double seconds_of_peer(int count) {
  return seconds_in_new_process([] {}, [count] { one_transaction(count); });
}

// Without the registration of the back-end, which comes before the time starts.
double seconds_of_defaults(int count) {
  std::vector<kelo_dm_item> items = items_of(count);
  return seconds_in_new_process([&] { kelo_dm_unreg(kelo_dm_reg(0)); },
                                [&] {
                                  kelo_dm_reg_def_items(items.data());
                                  kelo_dm_construct_def_database(0);
                                });
}

double seconds_of_daemon(int count) {
  std::vector<kelo_dm_item> items = items_of(count);
  return seconds_in_new_process([] {},
                                [&] {
                                  kelo_dm_reg_def_items(items.data());
                                  kelo_dm_handle* const handle = kelo_dm_reg(0);
                                  kelo_dm_construct_def_database(0);
                                  kelo_dm_unreg(handle);
                                });
}

double seconds_of_registration(int /*count*/) {
  return seconds_in_new_process([] {}, [] { kelo_dm_unreg(kelo_dm_reg(0)); });
}

using Start = double (*)(int count);

void first_start(benchmark::State& state, Start start) {
  const int count = static_cast<int>(state.range(0));
  kelo::bench::compare_seconds(
      state,
      [&] {
        remove_databases();
        return start(count);
      },
      [&] { return seconds_of_peer(count); });
}

void later_start(benchmark::State& state, Start start) {
  const int count = static_cast<int>(state.range(0));
  remove_databases();
  start(count);
  kelo::bench::compare_seconds(
      state, [&] { return start(count); }, [&] { return seconds_of_peer(count); });
}

void FirstDefaults(benchmark::State& state) { first_start(state, seconds_of_defaults); }
void LaterDefaults(benchmark::State& state) { later_start(state, seconds_of_defaults); }
void FirstDaemon(benchmark::State& state) { first_start(state, seconds_of_daemon); }
void LaterDaemon(benchmark::State& state) { later_start(state, seconds_of_daemon); }
// The part of the two above that is not the defaults: the version record, and the search for what a power cut left.
// The first registration makes 26 syncs and starts `cp` through a shell, while the one transaction makes 4 syncs. Four of
// the record's six transactions cannot be joined: what a state of the journal says must be on the storage before the
// state is. The other two make the tables: with the rows in one transaction, a refused row would take its table away.
void FirstRegistration(benchmark::State& state) { first_start(state, seconds_of_registration); }
void LaterRegistration(benchmark::State& state) { later_start(state, seconds_of_registration); }

BENCHMARK(FirstDefaults)->Arg(1000)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(LaterDefaults)->Arg(1000)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(FirstDaemon)->Arg(300)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(LaterDaemon)->Arg(300)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(FirstRegistration)->Arg(300)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(LaterRegistration)->Arg(300)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_CRT);
  if (const char* const folder = std::getenv("KELO_BENCH_DATA")) data = folder;
  move_path(DB_CONFIG, "config.db");
  move_path(DB_CONFIGBAK, "configbak.db");
  move_path(DB_STATE, "state.db");
  move_path(DB_DEF_ITEMS, "DefItems.db");
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
