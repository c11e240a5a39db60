// SPDX-License-Identifier: MIT
// A watch tells of the items that any process has changed: with a thread and with a descriptor, results and bounds,
// fork(), and writers and watchers that are killed.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/sqlite.h"
#include "kelo_utils/watch.h"
#include "tests/support/bounded_fork.hpp"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/sanitized.hpp"
#include "tests/support/store_settings.hpp"

namespace {

using namespace kelo::tests;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = 60s;

bool wait_until(const std::function<bool()>& done) {
  for (const auto end = Clock::now() + kPatience; !done(); std::this_thread::sleep_for(1ms))
    if (Clock::now() > end) return false;
  return true;
}

// What was told, as "table.key=id" with a blank after each.
struct Told {
  std::string text;
  std::atomic<int> calls{0};
  std::function<void()> action = [] {};
};

void note(std::int32_t id, const char* table, const char* key, void* context) {
  auto& told = *static_cast<Told*>(context);
  told.text += std::string(table) + '.' + key + '=' + std::to_string(id) + ' ';
  told.action();
  ++told.calls;
}

class Watch : public StoreTest {
 protected:
  void TearDown() override {
    kelo_dm_watch(nullptr, nullptr);
    StoreTest::TearDown();
  }

  // What the descriptor's way tells now.
  static std::string dispatched() {
    Told told;
    const std::int32_t result = kelo_dm_watch_dispatch(note, &told);
    EXPECT_EQ(result, told.calls);
    return told.text;
  }

  static bool is_readable(int fd) {
    pollfd events = {fd, POLLIN, 0};
    return poll(&events, 1, 0) == 1;
  }
};

TEST_F(Watch, DescriptorTellsOfAnotherProcess) {
  const std::int32_t fd = kelo_dm_watch_fd();
  ASSERT_GE(fd, 0);
  EXPECT_FALSE(is_readable(fd));
  EXPECT_EQ(dispatched(), "") << "what is stored before is not told";
  start_and([] { put("apn", "corporate"); });
  EXPECT_TRUE(is_readable(fd));
  EXPECT_EQ(dispatched(), "net.apn=7 ");
  EXPECT_FALSE(is_readable(fd));
  EXPECT_EQ(dispatched(), "");
}

TEST_F(Watch, ThreadTellsOfAnotherProcess) {
  Told told;
  std::string value;
  const std::thread::id caller = std::this_thread::get_id();
  told.action = [&] {
    value = get("apn");
    EXPECT_NE(std::this_thread::get_id(), caller);
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 1);
  };
  ASSERT_EQ(kelo_dm_watch(note, &told), 0);
  start_and([] { put("apn", "corporate"); });
  EXPECT_TRUE(wait_until([&] { return told.calls == 1; }));
  EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), 0);
  EXPECT_EQ(told.text, "net.apn=7 ");
  EXPECT_EQ(value, "corporate");
  start_and([] { put("apn", "internet"); });
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(told.calls, 1) << "the watch has ended";
}

TEST_F(Watch, TellsOfItsOwnProcess) {
  ASSERT_GE(kelo_dm_watch_fd(), 0);
  put("apn", "corporate");
  EXPECT_EQ(dispatched(), "net.apn=7 ");
}

// A look finds several changes: they have the order of tables and keys, and what is gone comes last.
TEST_F(Watch, SeveralChangesAreToldInOrder) {
  ASSERT_GE(kelo_dm_watch_fd(), 0);
  put("zone", "1");
  put("mtu", "1400");
  put("mtu", "1300");
  put("name", "office", "lan");
  execute_sql(DB_CONFIGBAK, "delete from net where key='apn'");
  EXPECT_EQ(dispatched(), "lan.name=7 net.mtu=7 net.zone=7 net.apn=7 ");
}

TEST_F(Watch, SameValueIsNotTold) {
  ASSERT_GE(kelo_dm_watch_fd(), 0);
  put("apn", "internet");
  EXPECT_EQ(dispatched(), "");
  put("apn", "corporate");
  put("apn", "internet");
  EXPECT_EQ(dispatched(), "");
}

TEST_F(Watch, NewIdOfARowIsTold) {
  ASSERT_GE(kelo_dm_watch_fd(), 0);
  dm_pal_write("net", 8, "mtu", KELO_DM_TYPE_STRING, "1500", 4);
  EXPECT_EQ(dispatched(), "net.mtu=8 ");
}

TEST_F(Watch, EmptiedItemIsTold) {
  ASSERT_GE(kelo_dm_watch_fd(), 0);
  put("apn", "");
  EXPECT_EQ(dispatched(), "net.apn=7 ");
}

TEST_F(Watch, CleanIsTold) {
  ASSERT_GE(kelo_dm_watch_fd(), 0);
  start_and([] { EXPECT_EQ(dm_sqlite_clean(nullptr), 0); });
  const std::string all = "SQL_VER_TAB.SQL_VER_KEY=65537 lan.name=7 net.apn=7 net.mtu=7 ";
  std::string told = dispatched();
  EXPECT_EQ(told.size(), all.size()) << told;
  EXPECT_EQ(dispatched(), "");
  put("apn", "internet");
  EXPECT_EQ(dispatched(), "net.apn=7 ");
}

TEST_F(Watch, BackupElsewhereIsWatched) {
  std::filesystem::create_directory("/data/backup");
  start_and([] {
    sqlite_reg_store_area(nullptr, "/data/backup/");
    ASSERT_GE(kelo_dm_watch_fd(), 0);
    put("apn", "corporate");
    EXPECT_EQ(dispatched(), "SQL_VER_TAB.SQL_VER_KEY=65537 lan.name=7 net.apn=7 net.mtu=7 ");
    execute_sql(DB_CONFIGBAK, "update net set value = 'x' where key = 'mtu'");
    EXPECT_EQ(dispatched(), "net.mtu=7 ");
  });
}

// While the rows cannot be read nothing is forgotten.
TEST_F(Watch, UnreadableRowsAreToldLater) {
  ASSERT_GE(kelo_dm_watch_fd(), 0);
  put("apn", "corporate");
  const std::string whole = read_file(DB_CONFIGBAK);
  Told told;
  make_no_database(DB_CONFIGBAK);
  EXPECT_EQ(kelo_dm_watch_dispatch(note, &told), KELO_DM_WATCH_FAILED);
  EXPECT_EQ(kelo_dm_watch_dispatch(note, &told), KELO_DM_WATCH_FAILED);
  write_file(DB_CONFIGBAK, whole);
  EXPECT_EQ(dispatched(), "net.apn=7 ");
  EXPECT_EQ(told.calls, 0);
}

TEST_F(Watch, TableWithoutTheColumnsIsLeftOut) {
  execute_sql(DB_CONFIG,
              "create table other (a); create index keys on net (key); insert into other values (1)");
  ASSERT_GE(kelo_dm_watch_fd(), 0);
  put("apn", "corporate");
  EXPECT_EQ(dispatched(), "net.apn=7 ");
}

TEST_F(Watch, ResultsOfAnUnfitCall) {
  Told told;
  EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), KELO_DM_WATCH_OTHER);
  EXPECT_EQ(kelo_dm_watch_dispatch(note, &told), KELO_DM_WATCH_OTHER);
  EXPECT_EQ(kelo_dm_watch_dispatch(nullptr, nullptr), KELO_DM_WATCH_BAD_ARGUMENT);
  const std::int32_t fd = kelo_dm_watch_fd();
  EXPECT_EQ(kelo_dm_watch_fd(), fd);
  EXPECT_EQ(kelo_dm_watch(note, &told), KELO_DM_WATCH_OTHER);
  EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), 0);
  EXPECT_EQ(kelo_dm_watch(note, &told), 0);
  EXPECT_EQ(kelo_dm_watch(note, &told), KELO_DM_WATCH_OTHER);
  EXPECT_EQ(kelo_dm_watch_fd(), KELO_DM_WATCH_OTHER);
  EXPECT_EQ(kelo_dm_watch_dispatch(note, &told), KELO_DM_WATCH_OTHER);
  EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), 0);
  EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), KELO_DM_WATCH_OTHER);
}

TEST_F(Watch, BeginsOnlyWhereTheStoreCanBeRead) {
  start_and([] {
    sqlite_reg_store_area("/nowhere/", "/nowhere/");
    EXPECT_EQ(kelo_dm_watch_fd(), KELO_DM_WATCH_FAILED);
    EXPECT_EQ(kelo_dm_watch(note, nullptr), KELO_DM_WATCH_FAILED);
  });
  make_no_database(DB_CONFIGBAK);
  const auto before = open_descriptors();
  EXPECT_EQ(kelo_dm_watch_fd(), KELO_DM_WATCH_FAILED);
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Watch, EndLeavesNoDescriptor) {
  const auto before = open_descriptors();
  Told told;
  for (int i = 0; i < 3; ++i) {
    ASSERT_GE(kelo_dm_watch_fd(), 0);
    EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), 0);
    ASSERT_EQ(kelo_dm_watch(note, &told), 0);
    EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), 0);
  }
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Watch, CallbackMayEndADispatch) {
  ASSERT_GE(kelo_dm_watch_fd(), 0);
  put("apn", "corporate");
  put("mtu", "1400");
  Told told;
  told.action = [&] {
    EXPECT_EQ(kelo_dm_watch_dispatch(note, &told), KELO_DM_WATCH_OTHER);
    EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), 0);
    EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), KELO_DM_WATCH_OTHER);
    EXPECT_EQ(kelo_dm_watch(note, &told), KELO_DM_WATCH_OTHER);
    EXPECT_EQ(kelo_dm_watch_fd(), KELO_DM_WATCH_OTHER);
  };
  EXPECT_EQ(kelo_dm_watch_dispatch(note, &told), 1);
  EXPECT_EQ(told.text, "net.apn=7 ");
  EXPECT_EQ(kelo_dm_watch_dispatch(note, &told), KELO_DM_WATCH_OTHER);
  EXPECT_GE(kelo_dm_watch_fd(), 0);
}

TEST_F(Watch, CallbackMayEndTheThread) {
  Told told;
  told.action = [&] { EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), 0); };
  ASSERT_EQ(kelo_dm_watch(note, &told), 0);
  start_and([] { put("apn", "corporate"); });
  EXPECT_TRUE(wait_until([&] { return told.calls == 1; }));
  EXPECT_TRUE(wait_until([&] { return kelo_dm_watch_fd() >= 0; }));
}

TEST_F(Watch, EndWaitsForARunningCallback) {
  Told told;
  std::atomic<bool> inside{false};
  std::atomic<bool> returned{false};
  told.action = [&] {
    inside = true;
    std::this_thread::sleep_for(100ms);
    returned = true;
  };
  ASSERT_EQ(kelo_dm_watch(note, &told), 0);
  start_and([] { put("apn", "corporate"); });
  EXPECT_TRUE(wait_until([&] { return inside.load(); }));
  EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), 0);
  EXPECT_TRUE(returned);
}

TEST_F(Watch, ChildHasNoWatchAndMayBeginOne) {
  Told told;
  for (const bool thread : {false, true}) {
    ASSERT_GE(thread ? kelo_dm_watch(note, &told) : kelo_dm_watch_fd(), 0);
    EXPECT_EQ(fork_bounded([&] {
                const bool none = kelo_dm_watch(nullptr, nullptr) == KELO_DM_WATCH_OTHER &&
                                  kelo_dm_watch_dispatch(note, &told) == KELO_DM_WATCH_OTHER;
                const bool begun = kelo_dm_watch_fd() >= 0;
                put("mtu", thread ? "1300" : "1400");
                return none && begun && dispatched() == "net.mtu=7 ";
              }),
              ChildEnd::good);
    EXPECT_TRUE(wait_until([&] { return thread ? told.calls == 1 : dispatched() == "net.mtu=7 "; }));
    EXPECT_EQ(kelo_dm_watch(nullptr, nullptr), 0);
  }
}

// In the child, the C library gives a new thread the stack of the thread that ran the callback, and its number.
TEST_F(Watch, NewThreadOfAChildMayBeginOneDuringACallback) {
  if (kSanitized) GTEST_SKIP() << kHeapOfSanitizer;
  Told told;
  std::atomic<bool> inside{false};
  std::atomic<bool> go_on{false};
  told.action = [&] {
    inside = true;
    EXPECT_TRUE(wait_until([&] { return go_on.load(); }));
  };
  ASSERT_EQ(kelo_dm_watch(note, &told), 0);
  put("apn", "corporate");
  EXPECT_TRUE(wait_until([&] { return inside.load(); }));
  EXPECT_EQ(fork_bounded([] {
              std::int32_t fd = -1;
              std::thread([&] { fd = kelo_dm_watch_fd(); }).join();
              return fd >= 0;
            }),
            ChildEnd::good);
  go_on = true;
}

TEST_F(Watch, ChildOfACallbackIsToldNothingMore) {
  ASSERT_GE(kelo_dm_watch_fd(), 0);
  put("apn", "corporate");
  put("mtu", "1400");
  Told told;
  pid_t child = -1;
  told.action = [&] {
    if (child == -1) child = fork();
  };
  const std::int32_t result = kelo_dm_watch_dispatch(note, &told);
  if (child == 0) _exit(result == KELO_DM_WATCH_OTHER && told.calls == 1 && kelo_dm_watch_fd() >= 0 ? 0 : 1);
  EXPECT_EQ(result, 2);
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

// --- Several processes -------------------------------------------------------------------------------------

constexpr std::size_t kWriters = 4;
constexpr std::size_t kWatchers = 4;
constexpr int kRounds = kEmulated ? 3 : 10;

// Shared by all processes of the test. Writer `w` counts its item of table "net" first and then that of "lan".
struct Page {
  std::atomic<int> written[kWriters];
  std::atomic<int> known[kWatchers][kWriters][2];
  std::atomic<int> starts[kWatchers];
  std::atomic<int> wrong;
  std::atomic<bool> stop;
};

Page& page =
    *new (mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Page;

int number(std::size_t writer, const char* table) {
  const std::string value = get("w" + std::to_string(writer), table);
  return value.starts_with('<') ? 0 : std::stoi(value);
}

struct Seen {
  std::size_t watcher;
  std::array<std::array<int, 2>, kWriters> last{};
};

void see(std::int32_t id, const char* table, const char* /*key*/, void* context) {
  auto& seen = *static_cast<Seen*>(context);
  const auto writer = static_cast<std::size_t>(id);
  if (writer >= kWriters) return;
  const std::size_t which = *table == 'l' ? 1 : 0;
  const int now = number(writer, table);
  // An item never goes back. What was written before a told item can be read.
  if (now < seen.last[writer][which]) ++page.wrong;
  if (which == 1 && number(writer, "net") < now) ++page.wrong;
  seen.last[writer][which] = now;
  page.known[seen.watcher][writer][which] = now;
}

void watch_until_stopped(std::size_t watcher) {
  Seen seen{watcher};
  const bool thread = watcher % 2 == 0;
  const std::int32_t begun = thread ? kelo_dm_watch(see, &seen) : kelo_dm_watch_fd();
  if (begun < 0) ++page.wrong;
  // The thread may have told a newer value already.
  for (std::size_t writer = 0; writer < kWriters; ++writer) {
    for (const int which : {0, 1}) {
      const int now = number(writer, which == 1 ? "lan" : "net");
      std::atomic<int>& known = page.known[watcher][writer][which];
      for (int before = known; before < now && !known.compare_exchange_weak(before, now);) {
      }
    }
  }
  ++page.starts[watcher];
  while (!page.stop) {
    pollfd events = {thread ? -1 : begun, POLLIN, 0};
    if (poll(&events, 1, 20) == 1) kelo_dm_watch_dispatch(see, &seen);
  }
}

void write_rounds(std::size_t writer) {
  const auto id = static_cast<std::uint32_t>(writer);
  const std::string key = "w" + std::to_string(writer);
  for (int i = 1; i <= kRounds; ++i) {
    const std::string value = std::to_string(i);
    for (const char* const table : {"net", "lan"})
      if (dm_pal_write(table, id, key.c_str(), KELO_DM_TYPE_STRING, value.data(),
                       static_cast<int>(value.size())) != 0)
        ++page.wrong;
    page.written[writer] = i;
  }
}

pid_t start(const std::function<void()>& act) {
  const pid_t process = fork();
  if (process != 0) return process;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  act();
  _exit(0);
}

bool every_watcher_knows_all() {
  for (const auto& known : page.known)
    for (std::size_t writer = 0; writer < kWriters; ++writer)
      for (const int which : {0, 1})
        if (known[writer][which] != page.written[writer]) return false;
  return true;
}

// Two of the watchers, one of each kind, are killed and started again all the time.
TEST_F(Watch, FourWatchersHearOfFourWriters) {
  std::array<pid_t, kWatchers> watchers{};
  const auto start_watcher = [&](std::size_t i) { watchers[i] = start([i] { watch_until_stopped(i); }); };
  for (std::size_t i = 0; i < kWatchers; ++i) start_watcher(i);
  EXPECT_TRUE(
      wait_until([] { return page.starts[0] * page.starts[1] * page.starts[2] * page.starts[3] > 0; }));
  std::vector<pid_t> writers;
  for (std::size_t i = 0; i < kWriters; ++i) writers.push_back(start([i] { write_rounds(i); }));
  const auto all_written = [] {
    for (const auto& written : page.written)
      if (written < kRounds) return false;
    return true;
  };
  for (std::size_t turn = 0; !all_written(); ++turn) {
    const std::size_t i = turn % 2;
    const int before = page.starts[i];
    kill(watchers[i], SIGKILL);
    waitpid(watchers[i], nullptr, 0);
    start_watcher(i);
    ASSERT_TRUE(wait_until([&] { return page.starts[i] > before; }));
  }
  for (const pid_t writer : writers) waitpid(writer, nullptr, 0);
  EXPECT_TRUE(wait_until(every_watcher_knows_all)) << "a change was lost";
  page.stop = true;
  for (const pid_t watcher : watchers) waitpid(watcher, nullptr, 0);
  EXPECT_EQ(page.wrong, 0);
}

// A writer is killed at any moment: whatever it leaves, the watcher knows what reads give.
TEST_F(Watch, WritersMayBeKilled) {
  ASSERT_GE(kelo_dm_watch_fd(), 0);
  std::string known = get("w0", "net");
  for (int i = 0; i < 20; ++i) {
    const pid_t writer = start([] { write_rounds(0); });
    std::this_thread::sleep_for(std::chrono::microseconds(5000 + 1700 * i));
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    Told told;
    told.action = [&] { known = get("w0", "net"); };
    // The read repairs what the writer has left, which may be a change.
    const std::string now = get("w0", "net");
    EXPECT_GE(kelo_dm_watch_dispatch(note, &told), 0);
    EXPECT_EQ(known, now) << i;
  }
}

}  // namespace
