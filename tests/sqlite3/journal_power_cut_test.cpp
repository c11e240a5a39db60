// SPDX-License-Identifier: MIT
// Cuts the power at every change that a journalled write makes to its files, one after the other, and looks
// at what the next start finds.
#include "tools/power_cut/power_cut.hpp"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"

namespace {

namespace fs = std::filesystem;
namespace cut = kelo::power_cut;

struct Item {
  const char* table;
  const char* key;
  const char* old_value;
  const char* new_value;
};

// The item whose write is interrupted, one in the same table and one in a table of its own.
constexpr Item kWritten = {"wan", "apn", "internet.old", "internet.longer.new"};
constexpr Item kNeighbour = {"wan", "mtu", "1500", "1500"};
constexpr Item kLater = {"lan", "name", "before", "after"};

void quiet_log() {
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_CRT);
  set_print_interface([](const char*) {});
}

int write_item(const Item& item, const char* value) {
  return dm_pal_write(item.table, 7, item.key, KELO_DM_TYPE_STRING, value,
                      static_cast<int>(std::strlen(value)));
}

// Runs `body` in a process of its own, as a fresh start of the daemon, and returns what it wrote to `answer`.
std::string fresh_process(const std::function<std::string()>& body) {
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    quiet_log();
    const std::string answer = body();
    _exit(write(ends[1], answer.data(), answer.size()) == static_cast<ssize_t>(answer.size()) ? 0 : 1);
  }
  close(ends[1]);
  std::string answer;
  char buffer[256];
  for (ssize_t count; (count = read(ends[0], buffer, sizeof buffer)) > 0;) {
    answer.append(buffer, static_cast<std::size_t>(count));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? answer : "died, status " + std::to_string(status);
}

void start_daemon() {
  kelo_dm_operations operations{};
  sqlite_reg(&operations);
}

// How an item reads: "old", "new" or the failure's code.
std::string reading(const Item& item) {
  char value[256] = {};
  const int result = dm_pal_read(item.table, item.key, value, sizeof value - 1);
  if (result < 0) return std::to_string(result);
  if (std::string(value) == item.new_value) return "new";
  return std::string(value) == item.old_value ? "old" : "neither: " + std::string(value);
}

// The journal's state as the power cut left it, read from a copy so that the look itself mends nothing.
std::string journal_state() {
  const fs::path look = "/tmp/look";
  fs::remove_all(look);
  fs::copy("/data", look, fs::copy_options::recursive);
  std::string state = "-";
  const auto keep = [](void* kept, int, char** values, char**) {
    *static_cast<std::string*>(kept) = values[0] == nullptr ? "null" : values[0];
    return 0;
  };
  sqlite3* db = nullptr;
  sqlite3_open((look / "state.db").c_str(), &db);
  sqlite3_exec(db, "select state from state", keep, &state, nullptr);
  sqlite3_close(db);
  return state;
}

// One history whose every moment may be the last before a power cut.
struct History {
  const char* name;
  std::function<void()> before;           // makes the files as they are while the power is still on
  std::function<void()> act;              // runs with the power failing at some point
  std::vector<std::string> also_allowed;  // how the written item may read besides old and new
};

void write_old_values() {
  fresh_process([] {
    start_daemon();
    for (const Item& item : {kWritten, kNeighbour, kLater}) write_item(item, item.old_value);
    return std::string();
  });
}

void replace_by_garbage(const char* path, std::uintmax_t from) {
  std::FILE* const file = std::fopen(path, "r+");
  std::fseek(file, static_cast<long>(from), SEEK_SET);
  for (std::uintmax_t i = from; i < fs::file_size(path); ++i) std::fputc(0xA5, file);
  std::fclose(file);
}

void start_and_write() {
  start_daemon();
  write_item(kWritten, kWritten.new_value);
}

const History kHistories[] = {
    {"update", write_old_values, start_and_write, {}},
    {"first_start", [] {}, start_and_write, {"-1", "-100"}},
    {"large_database",
     [] {
       write_old_values();
       fresh_process([] {
         start_daemon();
         const std::string large(300000, 'x');
         dm_pal_write("bulk", 9, "image", KELO_DM_TYPE_BUFFER, large.data(), static_cast<int>(large.size()));
         return std::string();
       });
     },
     start_and_write,
     {}},
    {"completion_at_start",
     [] {
       write_old_values();
       fresh_process([] {
         // The primary was written and the journal says so, but the backup was not made.
         dm_write_db(DB_CONFIG, kWritten.table, 7, kWritten.key, KELO_DM_TYPE_STRING, kWritten.new_value,
                     static_cast<int>(std::strlen(kWritten.new_value)));
         dm_write_state_db(kWritten.table, 7, kWritten.key, KELO_DM_TYPE_STRING,
                           static_cast<int>(std::strlen(kWritten.new_value)), WS_WRITE_DONE);
         return std::string();
       });
     },
     start_daemon,
     {}},
    {"large_database_with_recovery_copy",
     [] {
       write_old_values();
       fresh_process([] {
         start_daemon();
         const std::string large(300000, 'x');
         dm_pal_write("bulk", 9, "image", KELO_DM_TYPE_BUFFER, large.data(), static_cast<int>(large.size()));
         return std::string();
       });
       // What was provisioned knows none of the values.
       fs::copy_file(DB_CONFIG, "/kelonvbak/data/config.db");
       sqlite3* db = nullptr;
       sqlite3_open("/kelonvbak/data/config.db", &db);
       sqlite3_exec(db, "delete from wan", nullptr, nullptr, nullptr);
       sqlite3_close(db);
     },
     start_and_write,
     {}},
    {"repair_of_the_primary",
     [] {
       write_old_values();
       replace_by_garbage(DB_CONFIG, 100);
     },
     start_and_write,
     {}},
};

void PrintTo(const History& history, std::ostream* out) { *out << history.name; }

class PowerCut : public testing::TestWithParam<History> {};

bool allowed(const History& history, const std::string& reading) {
  if (reading == "old" || reading == "new") return true;
  return std::count(history.also_allowed.begin(), history.also_allowed.end(), reading) != 0;
}

void restore(const fs::path& snapshot) {
  for (const auto& entry : fs::directory_iterator("/data")) fs::remove_all(entry);
  fs::copy(snapshot, "/data", fs::copy_options::recursive);
}

TEST_P(PowerCut, EveryPointLeavesTheOldOrTheNewValue) {
  if (!cut::can_trace()) GTEST_SKIP() << "this machine does not let a program trace others";
  const History& history = GetParam();
  const fs::path snapshot = "/tmp/snapshot";
  history.before();
  fs::copy("/data", snapshot, fs::copy_options::recursive);

  const auto act = [&] {
    quiet_log();
    history.act();
  };
  const cut::Run whole = cut::run("/data", act, cut::no_cut);
  ASSERT_EQ(whole.exit_status, 0);
  ASSERT_GT(whole.calls.size(), 5u);

  std::printf("%-5s %-10s %-26s %-8s %-12s %s\n", "point", "call", "file", "journal", "first read",
              "after a write");
  for (std::size_t point = 0; point < whole.calls.size(); ++point) {
    restore(snapshot);
    const cut::Run run =
        cut::run("/data", act, [=](std::size_t index, const cut::StorageCall&) { return index == point; });
    ASSERT_TRUE(run.cut) << "point " << point << " was not reached";
    const std::string journal = journal_state();
    const std::string first = fresh_process([] {
      start_daemon();
      return reading(kWritten);
    });
    const std::string later = fresh_process([] {
      start_daemon();
      const int result = write_item(kLater, kLater.new_value);
      return result == 0 ? reading(kLater) : "write failed: " + std::to_string(result);
    });
    // "written neighbour", as one more start finds them.
    const std::string both = fresh_process([] {
      start_daemon();
      return reading(kWritten) + " " + reading(kNeighbour);
    });
    const std::string written = both.substr(0, both.find(' '));
    const std::string neighbour = both.substr(both.find(' ') + 1);
    const cut::StorageCall& call = run.calls.back();
    std::printf("%-5zu %-10s %-26s %-8s %-12s %s\n", point, call.name.c_str(), call.file.c_str(),
                journal.c_str(), first.c_str(), written.c_str());
    SCOPED_TRACE("cut before " + call.name + " of " + call.file + ", point " + std::to_string(point));
    EXPECT_FALSE(first.starts_with("neither")) << first;
    EXPECT_EQ(later, "new") << "the store stayed unusable";
    EXPECT_TRUE(allowed(history, written)) << written;
    EXPECT_TRUE(allowed(history, neighbour)) << neighbour;
  }
}

INSTANTIATE_TEST_SUITE_P(Histories, PowerCut, testing::ValuesIn(kHistories),
                         [](const auto& history) { return std::string(history.param.name); });

}  // namespace
