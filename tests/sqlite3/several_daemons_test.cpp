// SPDX-License-Identifier: MIT
// Several daemons use one store at once, and one of them is killed and started again all the time: every read
// gives a whole value that is not older than the last write acknowledged before it, and nothing is lost. Each
// test takes ten seconds, or as many as KELO_STRESS_SECONDS says.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <new>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/database.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/numbered_value.hpp"
#include "tests/support/sanitized.hpp"
#include "tests/support/stress_page.hpp"

#if KELO_THREAD_SANITIZER
// A daemon with a data race ends at once, which the test notices.
extern "C" const char* __tsan_default_options() {
  return "halt_on_error=1";
}  // NOLINT(bugprone-reserved-identifier)
#endif

namespace {

using namespace kelo::tests;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr char kRecovery[] = "/kelonvbak/data/config.db";
constexpr std::uint32_t kItems = 4;    // written all the time
constexpr std::uint32_t kAnchors = 4;  // written once: they must never be lost
constexpr std::uint32_t kAnchorNumber = 7;

// More than this must come of the test for it to show anything. The emulator does little in the same time.
struct Fewest {
  unsigned writes;
  unsigned reads;
  unsigned cleans;
};
constexpr Fewest kFewest = kEmulated ? Fewest{2, 10, 1} : Fewest{20, 100, 5};

const char no_default[] = "-";
kelo_dm_item items[] = {
    KELO_DM_BYTES_ITEM(0, "NET_TAB", "APN", no_default),
    KELO_DM_BYTES_ITEM(1, "WIFI_TAB", "SSID", no_default),
    KELO_DM_BYTES_ITEM(2, "NET_TAB", "ROUTES", no_default),
    KELO_DM_BYTES_ITEM(3, "LAN_TAB", "HOSTS", no_default),
    KELO_DM_BYTES_ITEM(4, "NET_TAB", "IMEI", no_default),
    KELO_DM_BYTES_ITEM(5, "WIFI_TAB", "KEYS", no_default),
    KELO_DM_BYTES_ITEM(6, "VOICE_TAB", "NUMBER", no_default),
    KELO_DM_BYTES_ITEM(7, "LAN_TAB", "NAME", no_default),
    KELO_DM_END,
};

StressPage<kItems>& page = StressPage<kItems>::make();
bool values_may_be_cleaned = false;

std::chrono::seconds duration() {
  const char* const asked = std::getenv("KELO_STRESS_SECONDS");
  constexpr int kSeconds = kelo::tests::kSanitized ? 5 : 10;
  return std::chrono::seconds(asked != nullptr ? std::stoi(asked) : kSeconds);
}

// --- What daemons do ---------------------------------------------------------------------------------------

kelo_dm_handle* start_daemon() {
  kelo_set_log_tool_enable(0);
  kelo_set_log_level(LOG_LVL_CRT);
  set_print_interface([](const char*) {});
  kelo_dm_reg_def_items(items);
  return kelo_dm_reg(0);
}

void write_once(kelo_dm_handle* handle, std::uint32_t item) {
  auto& numbers = page.item[item];
  const std::uint32_t number = ++numbers.begun;
  const std::string value = numbered_value(item, number);
  const int result = page.writes.timed([&] {
    return kelo_dm_write(handle, static_cast<int>(item), value.data(), static_cast<int>(value.size()));
  });
  if (result == 0) {
    numbers.acknowledged = number;
  } else {
    ++page.writes.failed;
    page.note("write %u of item %u: %d", number, item, result);
  }
}

// How a daemon reads: as length or code of the storage where values may be gone, as applications do
// elsewhere.
int read_value(kelo_dm_handle* handle, std::uint32_t item, std::string& buffer) {
  const auto size = static_cast<int>(buffer.size());
  if (values_may_be_cleaned) return dm_sqlite_read(item, &items[item].desc, buffer.data(), size);
  return kelo_dm_read_db(handle, static_cast<int>(item), buffer.data(), size);
}

bool is_gone(int result) { return result == DM_SQLITE_FAILED || result == DM_SQLITE_NOT_PREPARED; }

void read_once(kelo_dm_handle* handle, std::uint32_t item) {
  const bool anchor = item >= kItems;
  std::string buffer(kLongestValue + 1000, '\xA5');
  const std::uint32_t oldest = anchor ? kAnchorNumber : page.item[item].acknowledged.load();
  const int result = page.reads.timed([&] { return read_value(handle, item, buffer); });
  const std::uint32_t newest = anchor ? kAnchorNumber : page.item[item].begun.load();
  if (values_may_be_cleaned && is_gone(result)) return;
  if (result < 0) {
    ++page.reads.failed;
    page.note("read of item %u after write %u: %d", item, oldest, result);
    return;
  }
  const auto number = number_of(item, buffer);
  if (!number || buffer.back() != '\xA5' || *number > newest) {
    ++page.garbage;
    page.note("item %u after write %u reads as garbage", item, oldest);
  } else if (*number < oldest) {
    ++(anchor ? page.lost : page.old_values);
    page.note("item %u reads as of write %u, acknowledged was %u", item, *number, oldest);
  }
}

void read_everything(kelo_dm_handle* handle) {
  for (std::uint32_t item = 0; item < kItems + kAnchors; ++item) read_once(handle, item);
}

void keep_writing(kelo_dm_handle* handle, const std::vector<std::uint32_t>& own) {
  while (!page.stop)
    for (const std::uint32_t item : own) write_once(handle, item);
}

void keep_reading(kelo_dm_handle* handle) {
  while (!page.stop) read_everything(handle);
}

void keep_cleaning(kelo_dm_handle* handle) {
  while (!page.stop) {
    std::this_thread::sleep_for(150ms);
    const int result = page.cleans.timed([&] { return kelo_dm_clean(handle, nullptr); });
    if (result != 0) ++page.cleans.failed;  // another daemon's write was just about to make the files
  }
}

void run_threads(kelo_dm_handle* handle, std::uint32_t first_item) {
  std::vector<std::thread> threads;
  for (const std::uint32_t item : {first_item, first_item + 1}) {
    threads.emplace_back([=] { keep_writing(handle, {item}); });
    threads.emplace_back([=] { keep_reading(handle); });
  }
  for (std::thread& thread : threads) thread.join();
}

// --- Their processes ---------------------------------------------------------------------------------------

class Process {
 public:
  using Life = std::function<void(kelo_dm_handle*)>;
  explicit Process(Life life) : life_(std::move(life)) { start(); }

  // This process has not called the library: each child starts as a fresh program does.
  void start() {
    const pid_t parent = getpid();
    id_ = fork();
    if (id_ != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
    kelo_dm_handle* const handle = page.starts.timed(start_daemon);
    life_(handle);
    _exit(0);
  }

  void kill_and_restart() {
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
    start();
  }

  // Whether it ended by itself; it must not have failed.
  bool has_ended(int options = WNOHANG) {
    int status = 0;
    if (waitpid(id_, &status, options) != id_) return false;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a daemon died, status " << status;
    return true;
  }

 private:
  Life life_;
  pid_t id_ = -1;
};

void live(const Process::Life& life) { Process(life).has_ended(0); }

void write_numbers(kelo_dm_handle* handle, std::uint32_t of_items, std::uint32_t of_anchors) {
  for (std::uint32_t item = 0; item < kItems + kAnchors; ++item) {
    const std::string value = numbered_value(item, item < kItems ? of_items : of_anchors);
    kelo_dm_write(handle, static_cast<int>(item), value.data(), static_cast<int>(value.size()));
  }
}

// --- The tests ---------------------------------------------------------------------------------------------

struct Setting {
  const char* name;
  bool with_recovery;
};
void PrintTo(const Setting& setting, std::ostream* out) { *out << setting.name; }

class SeveralDaemons : public testing::TestWithParam<Setting> {
 protected:
  void SetUp() override {
    alarm(static_cast<unsigned>(duration().count()) + 120);
    new (&page) StressPage<kItems>{};
    for (const std::string& path : std::vector<std::string>{DB_CONFIG, DB_CONFIGBAK, DB_STATE, kRecovery})
      std::filesystem::remove(path);
    values_may_be_cleaned = false;
    live([](kelo_dm_handle* handle) { write_numbers(handle, 0, 0); });
    // The recovery copy is as old as a provisioned one.
    if (GetParam().with_recovery) std::filesystem::copy_file(DB_CONFIG, kRecovery);
    live([](kelo_dm_handle* handle) { write_numbers(handle, 1, kAnchorNumber); });
    for (auto& item : page.item) item.begun = item.acknowledged = 1;
  }

  // Kills one of the first `victims` daemons again and again, and starts a new one as soon as the one before
  // ended.
  static void run(std::vector<Process>& daemons, std::size_t victims, std::chrono::milliseconds interval,
                  bool with_starters) {
    std::minstd_rand random(std::random_device{}());
    std::vector<Process> starter;
    const auto end = Clock::now() + duration();
    auto next_kill = Clock::now() + interval;
    while (Clock::now() < end && !HasFailure()) {
      std::this_thread::sleep_for(2ms);
      for (Process& daemon : daemons) EXPECT_FALSE(daemon.has_ended());
      if (starter.empty() && with_starters) starter.emplace_back(read_everything);
      if (!starter.empty() && starter[0].has_ended()) starter.clear();
      if (Clock::now() < next_kill) continue;
      daemons[random() % victims].kill_and_restart();
      next_kill += interval;
    }
    page.stop = true;
    for (Process& daemon : daemons) daemon.has_ended(0);
    for (Process& last : starter) last.has_ended(0);
  }

  // What a fresh daemon finds, and that its writes reach both files.
  static void expect_whole_store() {
    live(read_everything);
    live([](kelo_dm_handle* handle) {
      for (std::uint32_t item = 0; item < kItems; ++item) write_once(handle, item);
      read_everything(handle);
    });
    for (const char* const path : {DB_CONFIG, DB_CONFIGBAK}) {
      EXPECT_EQ(scalar(path, "pragma integrity_check"), "ok") << path;
      for (std::uint32_t item = 0; item < kItems; ++item) {
        const kelo_dm_item_desc& row = items[item].desc;
        EXPECT_EQ(
            query(path, std::string("select 1 from ") + row.item_table + " where key='" + row.item_key + "'")
                .size(),
            1U)
            << path << ' ' << row.item_key;
      }
    }
    EXPECT_TRUE(read_file(DB_CONFIG) == read_file(DB_CONFIGBAK)) << "the backup is no copy";
    EXPECT_EQ(journal_state(DB_STATE), WS_BACKUP_DONE);
  }

  void TearDown() override {
    const auto seconds = static_cast<double>(duration().count());
    page.writes.print("writes", seconds);
    page.reads.print("reads", seconds);
    page.starts.print("starts", seconds);
    if (page.cleans.made > 0) page.cleans.print("cleans", seconds);
    EXPECT_EQ(page.writes.failed, 0U);
    EXPECT_EQ(page.reads.failed, 0U);
    EXPECT_EQ(page.garbage, 0U);
    EXPECT_EQ(page.old_values, 0U);
    EXPECT_EQ(page.lost, 0U);
    EXPECT_GT(page.writes.made, kFewest.writes);
    EXPECT_GT(page.reads.made, kFewest.reads);
    EXPECT_EQ(page.notes(), "");
  }
};

TEST_P(SeveralDaemons, NeverLoseAValueWhenOneIsKilled) {
  std::vector<Process> daemons;
  daemons.emplace_back([](kelo_dm_handle* handle) { keep_writing(handle, {0, 1}); });
  daemons.emplace_back([](kelo_dm_handle* handle) { keep_writing(handle, {2, 3}); });
  for (int i = 0; i < 3; ++i) daemons.emplace_back(keep_reading);
  run(daemons, daemons.size(), 200ms, true);
  expect_whole_store();
}

TEST_P(SeveralDaemons, WithThreadsNeverLoseAValueWhenOneIsKilled) {
  // With less time under the thread sanitizer the killed one never gets past its start.
  constexpr auto kInterval = kThreadSanitizer ? 800ms : 200ms;
  std::vector<Process> daemons;
  daemons.emplace_back([](kelo_dm_handle* handle) { run_threads(handle, 0); });
  daemons.emplace_back([](kelo_dm_handle* handle) { run_threads(handle, 2); });
  run(daemons, 1, kInterval, false);
  expect_whole_store();
}

TEST_P(SeveralDaemons, FindAWholeStoreOrNoneWhileOneCleans) {
  values_may_be_cleaned = true;
  std::vector<Process> daemons;
  daemons.emplace_back([](kelo_dm_handle* handle) { keep_writing(handle, {0, 1}); });
  daemons.emplace_back([](kelo_dm_handle* handle) { keep_writing(handle, {2, 3}); });
  for (int i = 0; i < 2; ++i) daemons.emplace_back(keep_reading);
  daemons.emplace_back(keep_cleaning);
  run(daemons, daemons.size(), 200ms, true);
  expect_whole_store();
  EXPECT_GT(page.cleans.made, kFewest.cleans);
}

INSTANTIATE_TEST_SUITE_P(Store, SeveralDaemons,
                         testing::Values(Setting{"without_recovery_copy", false},
                                         Setting{"with_recovery_copy", true}),
                         [](const auto& setting) { return std::string(setting.param.name); });

}  // namespace
