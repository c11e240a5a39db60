// SPDX-License-Identifier: MIT
// Parameters in several threads: which operation waits for which, and connections that stay open while they are used.
#include <pthread.h>
#include <sqlite3.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/emulation.hpp"
#include "tests/support/parameter_files.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using namespace kelo::tests;

// Holds a thread within the opening of a connection, which is within its operation.
class HeldOpening {
 public:
  HeldOpening() { sqlite3_auto_extension(reinterpret_cast<void (*)()>(hold)); }
  ~HeldOpening() { sqlite3_reset_auto_extension(); }
  HeldOpening(const HeldOpening&) = delete;
  HeldOpening& operator=(const HeldOpening&) = delete;

  // Runs `operation` in a thread that is held, `meanwhile` in the calling one, and then lets the first go on.
  static void run(const std::function<void()>& operation, const std::function<void()>& meanwhile) {
    held = false;
    released = false;
    std::thread thread([&] {
      is_to_be_held = true;
      operation();
    });
    {
      std::unique_lock lock(mutex);
      changed.wait(lock, [] { return held; });
    }
    meanwhile();
    {
      const std::scoped_lock lock(mutex);
      released = true;
      changed.notify_all();
    }
    thread.join();
  }

 private:
  static int hold(sqlite3* /*db*/, const char** /*error*/, const struct sqlite3_api_routines* /*api*/) {
    if (!is_to_be_held) return SQLITE_OK;
    is_to_be_held = false;
    std::unique_lock lock(mutex);
    held = true;
    changed.notify_all();
    changed.wait(lock, [] { return released; });
    return SQLITE_OK;
  }

  static inline thread_local bool is_to_be_held = false;
  static inline std::mutex mutex;  // guards what follows
  static inline std::condition_variable changed;
  static inline bool held = false;
  static inline bool released = false;
};

// The kernel numbers an emulator's calls in its own way, so that a wait is not known for one there.
constexpr char kOtherNumbers[] = "the kernel shows the emulator's calls, not the program's";

// Whether a thread of this process sleeps in the kernel's wait for a lock.
bool waits_for_a_lock(pid_t thread) {
  std::ifstream call("/proc/self/task/" + std::to_string(thread) + "/syscall");
  std::string number;
  call >> number;
  return number == std::to_string(SYS_futex);
}

// A thread that runs an operation; tells whether it ended or came to wait for a lock.
class Operation {
 public:
  explicit Operation(const std::function<void()>& operation)
      : thread_([this, operation] {
          thread_id_ = gettid();
          operation();
          ended_ = true;
        }) {}
  ~Operation() { thread_.join(); }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  [[nodiscard]] bool ends_without_waiting() const {
    while (!ended_ && (thread_id_ == 0 || !waits_for_a_lock(thread_id_))) std::this_thread::yield();
    return ended_;
  }

 private:
  std::atomic<pid_t> thread_id_{0};
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

class ParameterThreads : public ParameterTest {
 protected:
  ParameterThreads() { kelo_set_log_level(LOG_LVL_CRT); }

  std::uint8_t channel = 0;
  const std::array<kelo_db_param, 2> params = {{{&channel, "channel", 0, 1, 1}, {}}};
  const kelo_db_query query = {"wifi", params.data()};

  // Variables of their own: the operations are to wait for each other, not to race for one.
  struct Call {
    const char* name;
    std::function<void()> call;
  };
  std::vector<Call> serialised() {
    static std::array<std::uint8_t, 5> values;
    static std::array<std::array<kelo_db_param, 2>, 3> tables;
    static std::array<kelo_db_query, 3> queries;
    for (std::size_t i = 0; i < tables.size(); ++i) {
      tables[i] = {{{&values[i], "channel", 0, 1, 1}, {}}};
      queries[i] = {"wifi", tables[i].data()};
    }
    return {{"init_struct", [] { kelo_db_query_db_init_struct(&queries[0]); }},
            {"update_from_struct", [] { kelo_db_update_db_from_struct(&queries[1], -1); }},
            {"reload_value", [] { kelo_db_reload_value(&queries[2], 1); }},
            {"get_value", [] { kelo_db_get_value("wifi", "channel", &values[3], 0, 0); }},
            {"update_value", [] { kelo_db_update_value("wifi", "channel", &values[4], 0); }}};
  }
};

TEST_F(ParameterThreads, OperationsWaitForEachOther) {
  if (kEmulated) GTEST_SKIP() << kOtherNumbers;
  const HeldOpening opening;
  for (const Call& first : serialised()) {
    std::vector<Call> others = serialised();
    others.push_back({"close_sqlite", [] { kelo_db_close_sqlite(); }});
    for (const Call& second : others) {
      if (std::string(first.name) == second.name) continue;
      std::unique_ptr<Operation> waiting;
      HeldOpening::run(first.call, [&] {
        waiting = std::make_unique<Operation>(second.call);
        EXPECT_FALSE(waiting->ends_without_waiting()) << second.name << " in " << first.name;
      });
    }
  }
}

TEST_F(ParameterThreads, CommandWaitsForNoOperation) {
  const HeldOpening opening;
  for (const Call& first : serialised()) {
    HeldOpening::run(first.call, [&] {
      EXPECT_EQ(kelo_db_exec_cmd("select channel from wifi", nullptr, nullptr, 0), 0) << first.name;
      EXPECT_EQ(kelo_db_exec_cmd("select channel from wifi", nullptr, nullptr, 1), 0) << first.name;
    });
  }
}

// It replaces the file that the operation works on.
TEST_F(ParameterThreads, RestoreWaitsForAnOperation) {
  const HeldOpening opening;
  for (const Call& first : serialised()) {
    std::atomic<bool> ended{false};
    std::thread restore;
    HeldOpening::run(first.call, [&] {
      restore = std::thread([&] {
        EXPECT_EQ(kelo_db_restore_factory(), 1) << first.name;
        ended = true;
      });
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      EXPECT_FALSE(ended) << first.name;
    });
    restore.join();
  }
}

TEST_F(ParameterThreads, OperationsWaitForNoCommand) {
  const HeldOpening opening;
  for (const int which : {0, 1}) {
    HeldOpening::run([=] { kelo_db_exec_cmd("select channel from wifi", nullptr, nullptr, which); },
                     [&] {
                       for (const Call& call : serialised()) call.call();
                       EXPECT_EQ(kelo_db_get_value("wifi", "channel", &channel, 0, 0), 0);
                     });
  }
}

// A callback calls an operation while another thread's operation works on the same database.
TEST_F(ParameterThreads, CallbackWaitsForAnOperationOfAnotherThreadAndEnds) {
  if (kEmulated) GTEST_SKIP() << kOtherNumbers;
  const HeldOpening opening;
  std::atomic<bool> called{false};
  std::unique_ptr<Operation> command;
  HeldOpening::run(
      [] {
        std::uint8_t value = 0;
        EXPECT_EQ(kelo_db_get_value("wifi", "users", &value, 0, 0), 0);
      },
      [&] {
        command = std::make_unique<Operation>([&] {
          const auto callback = [](void* done, int /*ncols*/, char** /*values*/, char** /*names*/) {
            std::uint8_t value = 0;
            EXPECT_EQ(kelo_db_get_value("wifi", "channel", &value, 0, 0), 0);
            EXPECT_EQ(value, 36);
            *static_cast<std::atomic<bool>*>(done) = true;
            return 0;
          };
          EXPECT_EQ(kelo_db_exec_cmd("select channel from wifi", callback, &called, 0), 0);
        });
        EXPECT_FALSE(command->ends_without_waiting());
      });
  command.reset();
  EXPECT_TRUE(called);
}

// The update waits for the file that the callback's rows come from, the callback for the update.
TEST_F(ParameterThreads, UpdateGivesUpWhereACallbackWaitsForIt) {
  if (kEmulated) GTEST_SKIP() << kOtherNumbers;
  const HeldOpening opening;
  const ShortBusyTimeout short_wait(50);
  int updated = 0;
  int command = -1;
  std::unique_ptr<Operation> waiting;
  HeldOpening::run([&] { updated = kelo_db_update_value("wifi", "ssid", "new", 6); },
                   [&] {
                     waiting = std::make_unique<Operation>([&] {
                       const auto callback = [](void* /*arg*/, int /*ncols*/, char** /*values*/,
                                                char** /*names*/) {
                         std::uint8_t value = 0;
                         return kelo_db_get_value("wifi", "channel", &value, 0, 0);
                       };
                       command = kelo_db_exec_cmd("select channel from wifi", callback, nullptr, 0);
                     });
                     EXPECT_FALSE(waiting->ends_without_waiting());
                   });
  waiting.reset();
  EXPECT_EQ(updated, -1);
  EXPECT_EQ(command, 0);
  EXPECT_EQ(cell("ssid"), "factory");
}

TEST_F(ParameterThreads, CloseIsBusyWhileACommandOfAnotherThreadRuns) {
  struct State {
    std::atomic<bool> inside{false};
    std::atomic<bool> go_on{false};
  } state;
  std::thread command([&] {
    const auto callback = [](void* argument, int /*ncols*/, char** /*values*/, char** /*names*/) {
      auto& shared = *static_cast<State*>(argument);
      shared.inside = true;
      shared.inside.notify_all();
      shared.go_on.wait(false);
      return 0;
    };
    EXPECT_EQ(kelo_db_exec_cmd("select channel from wifi", callback, &state, 0), 0);
  });
  state.inside.wait(false);
  EXPECT_EQ(kelo_db_close_sqlite(), SQLITE_BUSY);
  EXPECT_EQ(kelo_db_get_value("wifi", "channel", &channel, 0, 0), 0);
  EXPECT_EQ(channel, 36);
  EXPECT_EQ(kelo_db_close_sqlite(), SQLITE_BUSY);
  state.go_on = true;
  state.go_on.notify_all();
  command.join();
  EXPECT_EQ(kelo_db_close_sqlite(), 0);
}

TEST_F(ParameterThreads, EverythingAtOnceKeepsValuesWhole) {
  constexpr int kRounds = 60;
  std::vector<std::thread> threads;
  std::atomic<int> failures{0};
  const auto count = [&](bool good) { failures += good ? 0 : 1; };
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i)
      count(kelo_db_update_value("wifi", "ssid", i % 2 == 0 ? "even" : "odd", 6) == 0);
  });
  for (int reader = 0; reader < 2; ++reader) {
    threads.emplace_back([&] {
      std::array<char, 16> text{};
      for (int i = 0; i < kRounds; ++i) {
        count(kelo_db_get_value("wifi", "ssid", text.data(), 6, text.size()) == 0);
        const std::string value = text.data();
        count(value == "even" || value == "odd" || value == "factory");
      }
    });
  }
  threads.emplace_back([&] {
    std::uint8_t value = 0;
    const kelo_db_param own[] = {{&value, "channel", 0, 1, 1}, {}};
    const kelo_db_query table = {"wifi", own};
    for (int i = 0; i < kRounds; ++i) count(kelo_db_reload_value(&table, 1) == 0 && value == 36);
  });
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) {
      int rows = 0;
      const auto callback = [](void* seen, int /*ncols*/, char** /*values*/, char** /*names*/) {
        std::uint8_t value = 0;
        ++*static_cast<int*>(seen);
        return kelo_db_get_value("wifi", "channel", &value, 0, 0);
      };
      count(kelo_db_exec_cmd("select ssid from wifi", callback, &rows, 1) == 0 && rows == 1);
    }
  });
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) {
      count(kelo_db_exec_cmd("select ssid from wifi; update wifi set users = users + 1", nullptr, nullptr,
                             0) == 0);
    }
  });
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) {
      const int code = kelo_db_close_sqlite();
      count(code == SQLITE_OK || code == SQLITE_BUSY);
    }
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(cell("users"), std::to_string(32 + kRounds));
  EXPECT_EQ(scalar(kUserFile, "pragma integrity_check"), "ok");
}

}  // namespace
