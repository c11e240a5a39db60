// SPDX-License-Identifier: MIT
// One lock for the store between processes: who waits, for how long, and that nothing is half done when the
// wait is over.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "kelo_utils/data_manager.h"
#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/file_holder.hpp"
#include "tests/support/own_copy.hpp"
#include "tests/support/store_settings.hpp"

namespace {

using namespace kelo::tests;

kelo_dm_item items[] = {
    KELO_DM_TEXT_ITEM(1, "net", "apn", "-"),
    KELO_DM_END,
};

int events = 0;
int count_event(std::int32_t /*id*/, const void* /*data*/, std::int32_t /*len*/) { return ++events; }

// The bytes of the store's files; "none" for one that is not there.
std::vector<std::string> store_bytes() {
  std::vector<std::string> bytes;
  for (const char* const path : {DB_CONFIG, DB_STATE})
    bytes.push_back(file_exists(path) ? read_file(path) : "none");
  return bytes;
}

void expect_patience(double seconds) {
  EXPECT_GT(seconds, 4.5);
  EXPECT_LT(seconds, 6.0);
}

// A signal every millisecond, whose handler cuts every system call short that can be.
class SignalsAllTheTime {
 public:
  SignalsAllTheTime() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, &before_);
    const itimerval interval{{0, 1000}, {0, 1000}};
    setitimer(ITIMER_REAL, &interval, nullptr);
  }
  ~SignalsAllTheTime() {
    const itimerval none{};
    setitimer(ITIMER_REAL, &none, nullptr);
    sigaction(SIGALRM, &before_, nullptr);
  }
  SignalsAllTheTime(const SignalsAllTheTime&) = delete;
  SignalsAllTheTime& operator=(const SignalsAllTheTime&) = delete;

 private:
  struct sigaction before_ {};
};

class StoreLock : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    kelo_dm_reg_def_items(items);
    kelo_dm_reg_event_callback(count_event);
    handle = kelo_dm_reg(0);
    events = 0;
  }
  void TearDown() override {
    kelo_dm_unreg(handle);
    StoreTest::TearDown();
  }

  // What holds the store in these tests.
  static bool write_new_value() { return put("apn", "new value") == 0; }

  static void expect_store_goes_on() {
    EXPECT_EQ(get("apn"), "new value");
    expect_others_kept();
    EXPECT_EQ(put("mtu", "1492"), 0);
    EXPECT_EQ(get("mtu"), "1492");
    EXPECT_EQ(get("apn"), "new value");
  }

  kelo_dm_handle* handle = nullptr;
};

// --- While another daemon's copy hangs ---------------------------------------------------------------------

struct Operation {
  const char* name;
  std::function<int(kelo_dm_handle*)> run;
  int result;
};
void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

int read_item(kelo_dm_handle* handle) {
  char value[64] = {};
  return kelo_dm_read_db(handle, 1, value, sizeof value);
}

const Operation kOperations[] = {
    {"kelo_dm_read_db", read_item, -3},
    {"dm_sqlite_read",
     [](kelo_dm_handle* /*handle*/) {
       char value[64] = {};
       return dm_sqlite_read(1, &items[0].desc, value, sizeof value);
     },
     DM_SQLITE_NOT_OPENED},
    {"kelo_dm_write", [](kelo_dm_handle* handle) { return kelo_dm_write(handle, 1, "mine", 4); }, -1},
    {"dm_pal_write", [](kelo_dm_handle* /*handle*/) { return put("mtu", "mine"); }, -1},
    {"kelo_dm_clean", [](kelo_dm_handle* handle) { return kelo_dm_clean(handle, nullptr); }, -1},
    {"dm_read_all_tabs_from_db",
     [](kelo_dm_handle* /*handle*/) { return dm_read_all_tabs_from_db(DB_CONFIG); }, DM_SQLITE_NOT_OPENED},
    {"dm_sqlite_read_CfgDB_version",
     [](kelo_dm_handle* /*handle*/) {
       std::uint32_t version = 0;
       return dm_sqlite_read_CfgDB_version(&version);
     },
     DM_SQLITE_NOT_OPENED},
};

class OtherDaemons : public StoreLock, public testing::WithParamInterface<Operation> {};

TEST_P(OtherDaemons, GiveUpAfterFiveSecondsAndDoNothing) {
  HangingDaemon other(write_new_value);
  const std::vector<std::string> before = store_bytes();
  log.clear();
  int result = 0;
  expect_patience(seconds_of([&] { result = GetParam().run(handle); }));
  EXPECT_EQ(result, GetParam().result);
  EXPECT_TRUE(store_bytes() == before) << "the files were changed";
  EXPECT_EQ(events, 0);
  EXPECT_FALSE(log.lines().empty());
  EXPECT_TRUE(other.ends_well());
  expect_store_goes_on();
}

INSTANTIATE_TEST_SUITE_P(While, OtherDaemons, testing::ValuesIn(kOperations),
                         [](const auto& operation) { return std::string(operation.param.name); });

// The first registration of a process, which this one has not made itself.
class StoreStart : public StoreLock {
 protected:
  // NOLINTBEGIN(bugprone-parent-virtual-call): what StoreLock adds is the registration that is to be left out.
  void SetUp() override { StoreTest::SetUp(); }
  void TearDown() override { StoreTest::TearDown(); }
  // NOLINTEND(bugprone-parent-virtual-call)
};

TEST_F(StoreStart, EndsAfterFiveSecondsWhileAnotherCopyHangs) {
  HangingDaemon other(write_new_value);
  const std::vector<std::string> before = store_bytes();
  expect_patience(seconds_of([] { start_and([] {}); }));
  EXPECT_TRUE(store_bytes() == before) << "the files were changed";
  EXPECT_TRUE(other.ends_well());
  expect_store_goes_on();
}

TEST_F(StoreStart, ThatGaveUpIsMadeUpForByTheNext) {
  kelo_dm_operations operations{};
  HangingDaemon other(write_new_value);
  sqlite_reg(&operations);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, "sqlite_ver & database_ver is same\n"), 0) << log.dump();
  EXPECT_TRUE(other.ends_well());
  sqlite_reg(&operations);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, "sqlite_ver & database_ver is same\n"), 1) << log.dump();
  EXPECT_EQ(log.count(LOG_LVL_DBUG, "sqlite_already reg\n"), 0);
  sqlite_reg(&operations);
  EXPECT_EQ(log.count(LOG_LVL_DBUG, "sqlite_already reg\n"), 1);
}

TEST_F(StoreLock, WaitsForACopyThatEndsInTime) {
  HangingDaemon other(write_new_value);
  std::thread end([&] {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_TRUE(other.ends_well());
  });
  EXPECT_EQ(get("apn"), "new value");
  EXPECT_EQ(get("mtu"), "1500");
  end.join();
  expect_store_goes_on();
}

// The first byte of the lock file belongs to a writer that waits until those who read have left.
TEST_F(StoreLock, LetsAWaitingWriterGoFirst) {
  const int fd = open((std::string(DB_CONFIG) + "-lock").c_str(), O_RDWR | O_CLOEXEC);
  struct flock gate {};
  gate.l_type = F_WRLCK;
  gate.l_whence = SEEK_SET;
  gate.l_len = 1;
  ASSERT_EQ(fcntl(fd, F_OFD_SETLK, &gate), 0);
  std::thread leave([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    close(fd);
  });
  EXPECT_GT(seconds_of([] { EXPECT_EQ(get("mtu"), "1500"); }), 0.4);
  leave.join();
}

// A reader that meets half a backup beside a recovery copy must not think that the store is damaged.
TEST_F(StoreLock, TakesNoRecoveryCopyForAStoreThatIsBeingWritten) {
  provision_recovery();
  {
    HangingDaemon other(write_new_value);
    EXPECT_EQ(get("apn"), "<-101>");
    EXPECT_EQ(scalar(DB_CONFIG, "select value from net where key='apn'"), "new value");
  }
  expect_store_goes_on();
}

TEST_F(StoreLock, IsFreeWhenTheHangingCopyIsKilled) {
  HangingDaemon other(write_new_value);
  EXPECT_TRUE(other.ends_well_without_copy());
  EXPECT_LT(seconds_of(expect_store_goes_on), 4.0);
}

TEST_F(StoreLock, IsFreeWhenItsHolderAndTheCopyAreKilled) {
  HangingDaemon other(write_new_value);
  other.die();
  HangingDaemon::kill_copy();
  EXPECT_LT(seconds_of([] {
              const std::string value = get("apn");
              EXPECT_TRUE(value == "internet" || value == "new value") << value;
              expect_others_kept();
              EXPECT_EQ(put("apn", "new value"), 0);
              expect_store_goes_on();
            }),
            4.0);
}

// The copy that a killed daemon started goes on later. Until then others may wait for it without success,
// but what they read and what is acknowledged to them is right.
TEST_F(StoreLock, IsNotSpoiltByTheCopyOfAKilledDaemon) {
  HangingDaemon other(write_new_value);
  other.die();
  const std::string found = get("apn");
  EXPECT_TRUE(found == "internet" || found == "new value" || found == "<-101>") << found;
  const bool written = put("apn", "newer value") == 0;
  HangingDaemon::let_copy_go();
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(put("mtu", std::to_string(i)), 0);
    EXPECT_EQ(get("mtu"), std::to_string(i));
    const std::string now = get("apn");
    EXPECT_TRUE(written ? now == "newer value" : now == "internet" || now == "new value") << now;
  }
  expect_backup_equals_primary();
}

// --- Signals and foreign locks -----------------------------------------------------------------------------

TEST_F(StoreLock, SignalsDoNotChangeThePatience) {
  HangingDaemon other(write_new_value);
  int result = 0;
  expect_patience(seconds_of([&] {
    const SignalsAllTheTime signals;
    result = read_item(handle);
  }));
  EXPECT_EQ(result, -3);
}

TEST_F(StoreLock, SignalsDoNotCutTheWaitForAForeignLock) {
  const FileHolder holder(DB_CONFIG, "begin exclusive");
  int result = 0;
  expect_patience(seconds_of([&] {
    const SignalsAllTheTime signals;
    result = put("mtu", "mine");
  }));
  EXPECT_EQ(result, -1);
}

TEST_F(StoreLock, SignalsDoNotHinderAWriteThatHadToWait) {
  const FileHolder holder(DB_CONFIG, "begin exclusive", 2000);
  {
    const SignalsAllTheTime signals;
    EXPECT_EQ(put("mtu", "mine"), 0);
  }
  EXPECT_EQ(get("mtu"), "mine");
}

}  // namespace
