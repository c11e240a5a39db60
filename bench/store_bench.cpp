// SPDX-License-Identifier: MIT
// Journalled writes, verified reads and the building of defaults against the same sequence of bare SQLite
// calls, with one spawned cp and one sync of the copy, on databases of 10, 300 and 3000 rows; the reads also by
// three daemons at once.
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench/ratio.hpp"
#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"

namespace {

constexpr char kTable[] = "settings";
constexpr char kKey[] = "key5";

// The same work without the library: no checks, no log, no recovery.
class BareStore {
 public:
  void write(const std::string& value) const {
    write_state(100);
    write_row(value);
    if (healthy()) copy();
    write_state(101);
    write_state(102);
  }

  int read(char* buf, int size) const {
    read_row(config_, buf, size);
    return read_row(backup_, buf, size);
  }

  void write_row(const std::string& value) const {
    sqlite3* const db = open(config_);
    run(db,
        "create table if not exists settings (id integer not null,key text not null,type integer not "
        "null,len integer "
        "not null,crc integer not null,value blob)");
    const bool there = exists(db, "select 1 from settings where key='key5'");
    const int crc = kelo_dm_Crc32Calc(value.data(), static_cast<std::uint16_t>(value.size()), 0);
    char sql[512];
    if (there) {
      std::snprintf(sql, sizeof sql,
                    "update settings set id=5, type=5, len=%zu, crc=%d,value=:1 where key='key5'",
                    value.size(), crc);
    } else {
      std::snprintf(sql, sizeof sql,
                    "insert into settings (id, key, type, len, crc, value) values(5, 'key5',5, %zu, %d, ?)",
                    value.size(), crc);
    }
    store_blob(db, sql, value);
    sqlite3_close(db);
  }

  static sqlite3* open(const std::string& path) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    return db;
  }

  static void run(sqlite3* db, const char* sql) { sqlite3_exec(db, sql, nullptr, nullptr, nullptr); }

  static bool exists(sqlite3* db, const char* sql) {
    char** cells = nullptr;
    int rows = 0;
    sqlite3_get_table(db, sql, &cells, &rows, nullptr, nullptr);
    sqlite3_free_table(cells);
    return rows > 0;
  }

  static void store_blob(sqlite3* db, const char* sql, const std::string& value) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare(db, sql, -1, &statement, nullptr);
    sqlite3_bind_blob(statement, 1, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
    sqlite3_step(statement);
    sqlite3_finalize(statement);
  }

 private:
  void write_state(int state) const {
    sqlite3* const db = open(state_);
    run(db,
        "create table if not exists state (key text not null,item_table text not null,id integer not "
        "null,item_key text "
        "not null,type integer,len integer,state integer)");
    char sql[512];
    if (exists(db, "select 1 from state where key='write_state'")) {
      std::snprintf(
          sql, sizeof sql,
          "update state set item_table='settings',id=5,item_key='key5',type=5,len=12,state=%d where "
          "key='write_state'",
          state);
    } else {
      std::snprintf(sql, sizeof sql,
                    "insert into state (key,item_table,id,item_key,type,len,state) "
                    "values('write_state','settings',5,'key5',5,12,%d)",
                    state);
    }
    run(db, sql);
    sqlite3_close(db);
  }

  bool healthy() const {
    sqlite3* db = nullptr;
    sqlite3_open_v2(config_.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    bool ok = false;
    const auto row = [](void* ok_out, int, char** values, char**) {
      *static_cast<bool*>(ok_out) = std::strcmp(values[0], "ok") == 0;
      return 0;
    };
    sqlite3_exec(db, "PRAGMA quick_check;", row, &ok, nullptr);
    sqlite3_close(db);
    return ok;
  }

  void copy() const {
    std::FILE* const cp = popen(("cp " + config_ + " " + backup_).c_str(), "re");
    char output[512];
    benchmark::DoNotOptimize(std::fread(output, 1, sizeof output, cp));
    pclose(cp);
    const int fd = ::open(backup_.c_str(), O_RDONLY | O_CLOEXEC);
    fsync(fd);
    close(fd);
  }

  static int read_row(const std::string& path, char* buf, int size) {
    sqlite3* const db = open(path);
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare(db, "select value,crc from settings where key='key5' limit 1", -1, &statement, nullptr);
    int copied = -1;
    if (sqlite3_step(statement) == SQLITE_ROW) {
      copied = std::min(size, sqlite3_column_bytes(statement, 0));
      std::memcpy(buf, sqlite3_column_blob(statement, 0), static_cast<std::size_t>(copied));
      const int crc = sqlite3_column_int(statement, 1);
      if (kelo_dm_Crc32Calc(buf, static_cast<std::uint16_t>(copied), 0) != crc) copied = -102;
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return copied;
  }

  std::string config_ = "/data/bare_config.db";
  std::string backup_ = "/data/bare_configbak.db";
  std::string state_ = "/data/bare_state.db";
};

void empty_data() {
  for (const char* const name : {"config.db", "configbak.db", "state.db", "DefItems.db", "bare_config.db",
                                 "bare_configbak.db", "bare_state.db", "bare_def.db"}) {
    unlink((std::string("/data/") + name).c_str());
  }
}

// Both databases with the same rows, whose keys are key0 and up.
void fill(const std::string& path, long rows) {
  sqlite3* const db = BareStore::open(path);
  BareStore::run(
      db,
      "begin;create table if not exists settings (id integer not null,key text not null,type integer not "
      "null,len integer not null,crc integer not null,value blob)");
  for (long row = 0; row < rows; ++row) {
    char sql[256];
    std::snprintf(sql, sizeof sql, "insert into settings values(%ld,'key%ld',5,40,0,zeroblob(40))", row, row);
    BareStore::run(db, sql);
  }
  BareStore::run(db, "commit");
  sqlite3_close(db);
}

void prepare_stores(long rows) {
  empty_data();
  for (const char* const path : {"/data/config.db", "/data/bare_config.db"}) fill(path, rows);
}

std::string value_of(int round) {
  char value[16];
  std::snprintf(value, sizeof value, "value %6d", round % 1000000);
  return value;
}

void JournalledWrite(benchmark::State& state) {
  prepare_stores(state.range(0));
  const BareStore bare;
  int round = 0;
  kelo::bench::compare(
      state,
      [&] {
        const std::string value = value_of(++round);
        dm_pal_write(kTable, 5, kKey, KELO_DM_TYPE_STRING, value.data(), static_cast<int>(value.size()));
      },
      [&] { bare.write(value_of(round)); });
}
BENCHMARK(JournalledWrite)->Arg(10)->Arg(300)->Arg(3000)->UseManualTime()->Unit(benchmark::kMicrosecond);

void write_both(long rows) {
  prepare_stores(rows);
  const std::string value = value_of(1);
  dm_pal_write(kTable, 5, kKey, KELO_DM_TYPE_STRING, value.data(), static_cast<int>(value.size()));
  BareStore().write(value);
}

// Whether the value was read.
bool read_ours() {
  std::array<char, 64> buf{};
  return dm_pal_read(kTable, kKey, buf.data(), static_cast<int>(buf.size())) == 12;
}

bool read_bare() {
  static const BareStore bare;
  std::array<char, 64> buf{};
  return bare.read(buf.data(), static_cast<int>(buf.size())) == 12;
}

void VerifiedRead(benchmark::State& state) {
  write_both(state.range(0));
  bool good = true;
  kelo::bench::compare(
      state, [&] { good = read_ours() && good; }, [&] { good = read_bare() && good; });
  if (!good) state.SkipWithError("the value does not read back");
}
BENCHMARK(VerifiedRead)->Arg(10)->Arg(300)->Arg(3000)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Processes that read when they are told to, all at once.
class Daemons {
 public:
  static constexpr int kReads = 20;  // of each one in a round

  explicit Daemons(bool (*read)()) {
    for (Daemon& daemon : daemons_) start(daemon, read);
  }
  ~Daemons() {
    for (const Daemon& daemon : daemons_) {
      tell(daemon, kEnd);
      waitpid(daemon.process, nullptr, 0);
      close(daemon.line);
    }
  }
  Daemons(const Daemons&) = delete;
  Daemons& operator=(const Daemons&) = delete;

  // False when a read failed.
  [[nodiscard]] bool round() const {
    bool good = true;
    for (const Daemon& daemon : daemons_) tell(daemon, kRead);
    for (const Daemon& daemon : daemons_) good = heard_from(daemon.line) == kRead && good;
    return good;
  }
  [[nodiscard]] double reads_in_round() const { return kReads * static_cast<double>(daemons_.size()); }

 private:
  static constexpr char kRead = 'r';
  static constexpr char kFailed = 'f';
  static constexpr char kEnd = 'e';

  struct Daemon {
    pid_t process = -1;
    int line = -1;
  };

  static void start(Daemon& daemon, bool (*read)()) {
    std::array<int, 2> lines{-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, lines.data()) != 0) return;
    daemon.process = fork();
    if (daemon.process == 0) serve(lines[1], read);
    close(lines[1]);
    daemon.line = lines[0];
  }

  [[noreturn]] static void serve(int line, bool (*read)()) {
    while (heard_from(line) == kRead) {
      bool good = true;
      for (int count = 0; count < kReads; ++count) good = read() && good;
      say(line, good ? kRead : kFailed);
    }
    _exit(0);
  }

  static char heard_from(int line) {
    char word = kEnd;
    return ::read(line, &word, 1) == 1 ? word : kEnd;
  }
  static void say(int line, char word) { benchmark::DoNotOptimize(::send(line, &word, 1, MSG_NOSIGNAL)); }
  static void tell(const Daemon& daemon, char word) { say(daemon.line, word); }

  std::array<Daemon, 3> daemons_;
};

void ThreeDaemonsRead(benchmark::State& state) {
  write_both(state.range(0));
  const Daemons ours(read_ours);
  const Daemons bare(read_bare);
  bool good = true;
  kelo::bench::compare(
      state, [&] { good = ours.round() && good; }, [&] { good = bare.round() && good; });
  if (!good) state.SkipWithError("the value does not read back");
  // The times above are those of a round; less than 1.00 is more reads per second than the bare statements make.
  const double reads = ours.reads_in_round() * 1e6;
  state.counters["reads_per_s"] = reads / state.counters["us"].value;
  state.counters["peer_reads_per_s"] = reads / state.counters["peer_us"].value;
}
BENCHMARK(ThreeDaemonsRead)->Arg(10)->Arg(300)->Arg(3000)->UseManualTime()->Unit(benchmark::kMicrosecond);

void bare_default(int id) {
  sqlite3* const db = BareStore::open("/data/bare_def.db");
  BareStore::run(
      db,
      "create table if not exists settings (key text not null,type integer not null,len integer not null,"
      "value blob)");
  char sql[256];
  std::snprintf(sql, sizeof sql, "select 1 from settings where key='key%d'", id);
  if (BareStore::exists(db, sql)) {
    std::snprintf(sql, sizeof sql, "update settings set type=3, len=4, value=:1 where key='key%d'", id);
  } else {
    std::snprintf(sql, sizeof sql, "insert into settings (key, type, len, value) values('key%d', '3', 4, ?)",
                  id);
  }
  BareStore::store_blob(db, sql, "1234");
  sqlite3_close(db);
}

void DefaultsDatabase(benchmark::State& state) {
  const int items = static_cast<int>(state.range(0));
  kelo::bench::compare(
      state,
      [&] {
        unlink(DB_DEF_ITEMS);
        kelo_dm_item_desc item = {"settings", "", KELO_DM_TYPE_SCALAR3, 0x34333231, KELO_DM_TYPE_SCALAR3, 4};
        for (int id = 0; id < items; ++id) {
          std::snprintf(item.item_key, sizeof item.item_key, "key%d", id);
          dm_sqlite_def_db_const(static_cast<std::uint32_t>(id), &item, &item.def_value, item.len);
        }
      },
      [&] {
        unlink("/data/bare_def.db");
        for (int id = 0; id < items; ++id) bare_default(id);
      });
}
BENCHMARK(DefaultsDatabase)->Arg(1000)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_CRT);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
