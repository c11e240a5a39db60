// SPDX-License-Identifier: MIT
// Damaged database files: whatever a bad flash block or a cut file leaves of the primary and the backup, the
// store neither crashes nor hangs nor makes values up, and it comes back as far as its rules allow.
//
// Every case takes the same configuration database of twenty pages, damages the primary, the backup or both,
// and has a fresh process register, read, write one item and read again. What must come of it is forecast
// from two facts about the damaged file that plain SQLite tells: whether a statement can be prepared on it,
// and whether it passes the quick check. Each test prints its part of the table of outcomes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/repair_forecast.hpp"
#include "tests/support/sanitized.hpp"

namespace {

using kelo::tests::execute_sql;
using kelo::tests::File;
using kelo::tests::Forecast;
using kelo::tests::Origin;
using kelo::tests::read_file;
using kelo::tests::scalar;
using kelo::tests::write_file;

constexpr char kRecoveryCopy[] = "/kelonvbak/data/config.db";
constexpr char kTable[] = "net";
constexpr std::size_t kPageSize = 4096;
constexpr std::size_t kHeaderSize = 100;
constexpr unsigned kItemId = 7;

// A fork costs much more under a sanitizer: one case of five is run there.
constexpr std::size_t kStride = kelo::tests::kSanitized ? 5 : 1;

// --- The database that is damaged ----------------------------------------------------------------------

std::mt19937 dice(20260301);  // NOLINT(cert-msc51-cpp,cert-msc32-c): the cases are the same in every run

std::size_t roll(std::size_t sides) { return dice() % sides; }

// The first bit is set: the checksum of leading zero bits is 0 whatever their number.
std::string random_value(std::size_t length) {
  std::string value(length, '\0');
  for (char& byte : value) byte = static_cast<char>(roll(256));
  value[0] = static_cast<char>(0x80 | roll(128));
  return value;
}

// What the checksum of a value speaks of: its length, and as many of its first bits as it has bytes.
std::pair<std::size_t, std::string> covered_part(const std::string& value) {
  const std::size_t bits = value.size() & 0xFFFF;
  std::string part = value.substr(0, (bits + 7) / 8);
  if (bits % 8 != 0) part.back() = static_cast<char>(part.back() & (0xFF00 >> bits % 8));
  return {value.size(), part};
}

std::uint32_t big_endian(std::string_view file, std::size_t offset) {
  std::uint32_t number = 0;
  for (const char byte : file.substr(offset, 4)) number = number << 8 | static_cast<std::uint8_t>(byte);
  return number;
}

std::string key_of(int number) { return "item_" + std::to_string(number); }

using Values = std::map<std::string, std::string>;

class World {
 public:
  World() {
    kelo_set_log_tool_enable(0);
    set_print_interface([](const char*) {});  // every line is still formatted
    kelo_set_log_level(LOG_LVL_DBUG);
    fill();
    locate();
  }

  std::string config;    // what primary and backup hold before the damage
  std::string state;     // the journal beside them
  std::string recovery;  // an older, whole copy
  Values current;
  Values older;
  std::set<std::pair<std::size_t, std::string>> written;  // the covered parts of all values ever written
  std::size_t root = 0;                                   // offsets of the table's interior page,
  std::size_t leaf = 0;                                   // of the leaf that holds the target
  std::size_t trunk = 0;                                  // and of the free list's first page
  const std::string target = key_of(140);
  const std::string new_value = random_value(70);
  // Items of the damaged leaf, of others, and one that fills pages of its own.
  const std::vector<std::string> sample = {key_of(100), target,      key_of(141), key_of(142),
                                           key_of(270), key_of(350), key_of(398), "big_3"};

 private:
  void store(const std::string& key, const std::string& value) {
    const int len = static_cast<int>(value.size());
    ASSERT_EQ(dm_write_db(DB_CONFIG, kTable, kItemId, key.c_str(), 6, value.data(), len), 0);
    written.insert(covered_part(value));
    current[key] = value;
  }

  void fill() {
    for (int i = 0; i < 300; ++i) store(key_of(100 + i), random_value(20 + roll(120)));
    for (const char* const key : {"big_1", "big_2", "big_3"}) store(key, random_value(9000));
    const std::uint32_t version = SQL_VER;
    ASSERT_EQ(dm_pal_write(SQL_VER_TAB, SQL_VER_ID, SQL_VER_KEY, 3, &version, 4), 0);
    older = current;
    recovery = read_file(DB_CONFIG);
    execute_sql(DB_CONFIG,
                "delete from net where key in ('big_1', 'big_2') or "
                "(key like 'item_%' and rowid % 5 = 0)");
    for (const int i : {140, 141, 142, 270}) store(key_of(i), random_value(60));
    const std::string last = random_value(66);
    ASSERT_EQ(dm_pal_write(kTable, kItemId, key_of(350).c_str(), 6, last.data(), 66), 0);
    written.insert(covered_part(last));
    written.insert(covered_part(new_value));
    current[key_of(350)] = last;
    config = read_file(DB_CONFIG);
    state = read_file(DB_STATE);
    ASSERT_EQ(config, read_file(DB_CONFIGBAK));
  }

  void locate() {
    constexpr char kInterior = 5;
    constexpr char kLeaf = 13;
    constexpr std::size_t kFirstTrunk = 32;
    root = (std::stoul(scalar(DB_CONFIG, "select rootpage from sqlite_master where name='net'")) - 1) *
           kPageSize;
    ASSERT_EQ(config[root], kInterior);
    leaf = config.find(target) / kPageSize * kPageSize;
    ASSERT_EQ(config[leaf], kLeaf);
    ASSERT_NE(big_endian(config, kFirstTrunk), 0U);
    trunk = (big_endian(config, kFirstTrunk) - 1) * kPageSize;
    ASSERT_LE(15U, config.size() / kPageSize);
  }
};

const World& world() {
  static const World instance;
  return instance;
}

// --- What plain SQLite says about a damaged file -------------------------------------------------------

int query_code(sqlite3* db, const char* query) {
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare_v2(db, query, -1, &statement, nullptr);
  sqlite3_finalize(statement);
  return code;
}

bool passes_quick_check(sqlite3* db) {
  std::string verdict;
  const auto keep = [](void* out, int, char** cells, char**) {
    *static_cast<std::string*>(out) = cells[0];
    return 0;
  };
  return sqlite3_exec(db, "pragma quick_check", keep, &verdict, nullptr) == SQLITE_OK && verdict == "ok";
}

File examine_damaged(const std::string& bytes) {
  constexpr char kScratch[] = "/tmp/scratch.db";
  write_file(kScratch, bytes);
  sqlite3* db = nullptr;
  EXPECT_EQ(sqlite3_open(kScratch, &db), SQLITE_OK);
  File file{bytes.empty() ? Origin::fresh : Origin::damaged};
  file.item_query = query_code(db, "select value,crc from net");
  file.version_query = query_code(db, "select value,crc from " SQL_VER_TAB);
  file.healthy = passes_quick_check(db);
  file.empty = bytes.empty();
  const char* const create = "create table if not exists net (id integer)";
  file.table_made = sqlite3_exec(db, create, nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_close(db);
  return file;
}

// --- One case in a process of its own ------------------------------------------------------------------

enum class Verdict { current, older, newer, altered, invented, failed, bad_code };

struct Report {
  std::array<Verdict, 8> before;
  std::array<Verdict, 8> after;
  int write_result;
};

kelo_dm_item_desc item_of(const std::string& key) {
  kelo_dm_item_desc item{};
  std::snprintf(item.item_table, sizeof item.item_table, "%s", kTable);
  std::snprintf(item.item_key, sizeof item.item_key, "%s", key.c_str());
  item.type = KELO_DM_TYPE_BUFFER;
  return item;
}

Verdict judge_value(const std::string& key, const std::string& value) {
  if (key == world().target && value == world().new_value) return Verdict::newer;
  if (value == world().current.at(key)) return Verdict::current;
  if (value == world().older.at(key)) return Verdict::older;
  return world().written.count(covered_part(value)) != 0 ? Verdict::altered : Verdict::invented;
}

Verdict read_item(const kelo_dm_operations& operations, const std::string& key) {
  constexpr int kRoom = 9001;
  const auto buffer = std::make_unique<char[]>(kRoom);  // of its own, so that the sanitizer guards its end
  kelo_dm_item_desc item = item_of(key);
  const int result = operations.read(kItemId, &item, buffer.get(), kRoom);
  if (result > kRoom) return Verdict::bad_code;
  if (result > 0) return judge_value(key, {buffer.get(), static_cast<std::size_t>(result)});
  const std::set<int> documented = {DM_SQLITE_FAILED, DM_SQLITE_NOT_PREPARED, DM_SQLITE_NOT_OPENED,
                                    DM_SQLITE_BAD_CRC};
  return documented.count(result) != 0 ? Verdict::failed : Verdict::bad_code;
}

Report exercise_store() {
  Report report{};
  kelo_dm_operations operations{};
  sqlite_reg(&operations);
  const auto read_sample = [&](std::array<Verdict, 8>& verdicts) {
    for (std::size_t i = 0; i < verdicts.size(); ++i) verdicts[i] = read_item(operations, world().sample[i]);
  };
  read_sample(report.before);
  kelo_dm_item_desc item = item_of(world().target);
  const std::string& value = world().new_value;
  report.write_result = operations.write(kItemId, &item, value.data(), static_cast<int>(value.size()));
  read_sample(report.after);
  return report;
}

// Empty when the process crashed or took too long.
std::optional<Report> exercise_in_fresh_process() {
  constexpr int kPatienceMilliseconds = 60000;
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return {};
  const pid_t child = fork();
  if (child == 0) {
    const Report report = exercise_store();
    _exit(write(ends[1], &report, sizeof report) == sizeof report ? 0 : 1);
  }
  close(ends[1]);
  pollfd done{ends[0], POLLIN, 0};
  if (poll(&done, 1, kPatienceMilliseconds) == 0) kill(child, SIGKILL);
  Report report{};
  const bool whole = read(ends[0], &report, sizeof report) == sizeof report;
  close(ends[0]);
  int status = -1;
  waitpid(child, &status, 0);
  if (!whole || status != 0) return {};
  return report;
}

// --- The table of outcomes -----------------------------------------------------------------------------

enum Files { kPrimary = 1, kBackup = 2, kBoth = kPrimary | kBackup };

struct Damage {
  std::string what;  // for a failure message
  std::function<void(std::string&)> apply;
};

struct Line {
  int cases = 0;
  std::map<Verdict, int> before;
  std::map<Verdict, int> after;  // without the target
  std::map<Verdict, int> target;
  int written = 0;

  void count(const Report& report) {
    ++cases;
    written += report.write_result == 0 ? 1 : 0;
    for (std::size_t i = 0; i < report.before.size(); ++i) {
      ++before[report.before[i]];
      ++(world().sample[i] == world().target ? target : after)[report.after[i]];
    }
  }
  void print(const char* kind, Files files, bool with_recovery) {
    constexpr std::array<const char*, 4> kNames = {"", "primary", "backup", "both"};
    std::printf("%-14s %-8s %-8s %5d | %6d %5d %5d %5d | %5d %5d | %5d %5d %5d | %6d %5d %5d %5d\n", kind,
                kNames[files], with_recovery ? "whole" : "none", cases, before[Verdict::current],
                before[Verdict::older], before[Verdict::altered], before[Verdict::failed], written,
                cases - written, target[Verdict::newer],
                target[Verdict::current] + target[Verdict::older] + target[Verdict::altered],
                target[Verdict::failed], after[Verdict::current], after[Verdict::older],
                after[Verdict::altered], after[Verdict::failed]);
  }
};

void print_heading() {
  std::printf(
      "                                      |  read before the write  |    write    |   written item    "
      "|   other items afterwards\n"
      "damage         files    recovery cases |   last older  alt. fails | done  refus |   new   old fails "
      "|   last older  alt. fails\n");
}

std::set<std::string> names_in(const char* folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.insert(entry.path().filename());
  return names;
}

class Corruption : public testing::Test {
 protected:
  static void SetUpTestSuite() { print_heading(); }

  // Runs every damage on every choice of files, with and without a recovery copy.
  static void run(const char* kind, const std::vector<Damage>& damages) {
    for (const Files files : {kPrimary, kBackup, kBoth}) {
      for (const bool with_recovery : {false, true}) {
        Line line;
        for (const Damage& damage : damages) {
          SCOPED_TRACE(std::string(kind) + ", " + damage.what + ", files " + std::to_string(files) +
                       (with_recovery ? ", recovery copy" : ""));
          run_case(damage, files, with_recovery, line);
        }
        line.print(kind, files, with_recovery);
      }
    }
  }

 private:
  static void run_case(const Damage& damage, Files files, bool with_recovery, Line& line) {
    std::string damaged = world().config;
    damage.apply(damaged);
    const File broken = examine_damaged(damaged);
    constexpr File kSound = {Origin::current};
    Forecast forecast((files & kPrimary) != 0 ? broken : kSound, (files & kBackup) != 0 ? broken : kSound,
                      with_recovery ? std::optional<File>(File{Origin::older}) : std::nullopt);

    write_file(DB_CONFIG, (files & kPrimary) != 0 ? damaged : world().config);
    write_file(DB_CONFIGBAK, (files & kBackup) != 0 ? damaged : world().config);
    write_file(DB_STATE, world().state);
    std::filesystem::remove(kRecoveryCopy);
    if (with_recovery) write_file(kRecoveryCopy, world().recovery);

    const std::optional<Report> report = exercise_in_fresh_process();
    ASSERT_TRUE(report) << "the process crashed or hung";
    line.count(*report);
    check_against(forecast, *report);
    EXPECT_EQ(with_recovery, std::filesystem::exists(kRecoveryCopy));
    EXPECT_TRUE(!with_recovery || world().recovery == read_file(kRecoveryCopy)) << "recovery copy changed";
    EXPECT_EQ(names_in("/data"), (std::set<std::string>{"config.db", "config.db-lock", "configbak.db",
                                                        "log_enable", "state.db"}));
  }

  static void check_against(Forecast& forecast, const Report& report) {
    forecast.start_up();
    forecast.read();
    check_reads(forecast.served(), report.before, false);
    const bool written = forecast.write();
    EXPECT_EQ(written ? 0 : -1, report.write_result);
    forecast.read();
    check_reads(forecast.served(), report.after, written);
  }

  static void check_reads(std::optional<Origin> served, const std::array<Verdict, 8>& verdicts,
                          bool written) {
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
      EXPECT_NE(verdicts[i], Verdict::invented) << world().sample[i] << " has a value nobody wrote";
      EXPECT_NE(verdicts[i], Verdict::bad_code) << world().sample[i];
      if (!served) continue;
      const bool is_new = written && world().sample[i] == world().target;
      EXPECT_EQ(is_new ? Verdict::newer : expected(*served, world().sample[i]), verdicts[i])
          << world().sample[i];
    }
  }
  static Verdict expected(Origin served, const std::string& key) {
    if (served == Origin::fresh) return Verdict::failed;
    if (served == Origin::older && world().older.at(key) != world().current.at(key)) return Verdict::older;
    return Verdict::current;
  }
};

// --- Kinds of damage -----------------------------------------------------------------------------------

void flip(std::string& file, std::size_t offset, std::size_t mask) {
  file[offset] = static_cast<char>(file[offset] ^ static_cast<char>(mask));
}

// `count` damages between two offsets: single bytes, and every third time a run of 64.
std::vector<Damage> flips_between(std::size_t from, std::size_t to, std::size_t count) {
  std::vector<Damage> damages;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t offset = from + roll(to - from);
    const std::size_t mask = 1 + roll(255);
    const std::size_t end =
        std::min(i % 3 == 2 ? offset + 64 : offset + 1, (to + kPageSize - 1) / kPageSize * kPageSize);
    damages.push_back(
        {"bytes " + std::to_string(offset) + " to " + std::to_string(end), [=](std::string& file) {
           for (std::size_t at = offset; at < end; ++at) flip(file, at, mask);
         }});
  }
  return damages;
}

Damage cut_at(std::size_t size) {
  return {"cut to " + std::to_string(size), [=](std::string& file) { file.resize(size); }};
}

TEST_F(Corruption, Header) {
  std::vector<Damage> damages;
  for (std::size_t offset = 0; offset < kHeaderSize; offset += kStride)
    damages.push_back(
        {"byte " + std::to_string(offset), [=](std::string& file) { flip(file, offset, 0xFF); }});
  run("header", damages);
}

TEST_F(Corruption, FirstPage) {
  run("page 1 head", flips_between(kHeaderSize, kHeaderSize + 12, 20 / kStride));
  run("page 1 schema", flips_between(kPageSize - 400, kPageSize, 30 / kStride));
}

TEST_F(Corruption, InteriorPage) {
  run("interior head", flips_between(world().root, world().root + 12, 15 / kStride));
  run("interior slots", flips_between(world().root + 12, world().root + 44, 15 / kStride));
  run("interior cells",
      flips_between(world().root + kPageSize - 100, world().root + kPageSize, 15 / kStride));
}

TEST_F(Corruption, LeafPage) {
  run("leaf head", flips_between(world().leaf, world().leaf + 100, 20 / kStride));
  run("leaf rows", flips_between(world().leaf + 100, world().leaf + kPageSize, 30 / kStride));
}

TEST_F(Corruption, FreeList) {
  run("free list", flips_between(world().trunk, world().trunk + 24, 20 / kStride));
}

TEST_F(Corruption, CutShort) {
  const std::size_t size = world().config.size();
  std::vector<Damage> boundaries;
  std::vector<Damage> between;
  for (std::size_t page = 1; page * kPageSize < size; page += kStride)
    boundaries.push_back(cut_at(page * kPageSize));
  for (std::size_t page = 0; page * kPageSize < size; page += kStride)
    between.push_back(cut_at(page * kPageSize + kPageSize / 2));
  run("cut to nothing", {cut_at(0)});
  run("cut in header", {cut_at(1), cut_at(99), cut_at(100), cut_at(512)});
  run("cut at a page", boundaries);
  run("cut in a page", between);
}

// Bits after the covered ones are the caller's risk: the store returns them as they are.
TEST_F(Corruption, FlippedBitOfAValueIsSeenExactlyWhereTheChecksumCovers) {
  const std::string& value = world().current.at(world().target);
  const std::size_t start = world().config.find(value);
  ASSERT_NE(std::string::npos, start);
  kelo_dm_operations operations{};
  sqlite_reg(&operations);
  for (std::size_t bit = 0; bit < value.size() * 8; bit += bit < 72 ? 1 : 13) {
    std::string damaged = world().config;
    flip(damaged, start + bit / 8, 0x80U >> bit % 8);
    write_file(DB_CONFIGBAK, damaged);
    const Verdict expected = bit < value.size() ? Verdict::failed : Verdict::altered;
    ASSERT_EQ(read_item(operations, world().target), expected) << "bit " << bit;
  }
}

}  // namespace
