// SPDX-License-Identifier: MIT
// keloctl store watch: what it prints of changes in its three forms, and how it ends.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/keloctl.hpp"

namespace {

using namespace kelo::tests;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::StartsWith;

constexpr char kOutput[] = "/tmp/watch.out";
constexpr char kErrors[] = "/tmp/watch.err";
constexpr char kWatching[] = "watching\n";

bool wait_until(const std::function<bool()>& done) {
  const auto end = std::chrono::steady_clock::now() + 60s;
  for (; !done(); std::this_thread::sleep_for(5ms))
    if (std::chrono::steady_clock::now() > end) return false;
  return true;
}

// The program, which runs until it ends by itself or gets a signal.
class Watcher {
 public:
  explicit Watcher(const std::string& words, const std::string& output = kOutput) {
    write_file(kErrors, "");
    process_ = fork();
    if (process_ == 0) {
      const std::string command = "exec " + shell_command(KELO_BINARY_DIR "/tools/keloctl/keloctl") +
                                  " store watch " + words + " > " + output + " 2> " + kErrors +
                                  " < /dev/null";
      execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
      _exit(127);
    }
    EXPECT_TRUE(wait_until([] { return read_file(kErrors) == kWatching; }));
  }
  ~Watcher() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    wait();
  }
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  static bool has_printed(const std::string& text) {
    return wait_until([&] { return read_file(kOutput).find(text) != std::string::npos; });
  }

  int wait() {
    int status = -1;
    EXPECT_EQ(waitpid(process_, &status, 0), process_);
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  // Sends a signal, unless it is 0, and waits.
  Ran end(int signal) {
    if (signal != 0) kill(process_, signal);
    const int status = wait();
    return {status, read_file(kOutput), read_file(kErrors)};
  }

 private:
  pid_t process_ = -1;
};

class KeloctlWatch : public KeloctlTest {};

TEST_F(KeloctlWatch, PrintsWhatIsStoredUntilItIsInterrupted) {
  Watcher watcher("");
  start_and([] { put("apn", "corporate"); });
  EXPECT_TRUE(watcher.has_printed("corporate\n"));
  start_and([] {
    const int mtu = 1280;
    dm_pal_write("net", 12, "size", KELO_DM_TYPE_SCALAR3, &mtu, sizeof mtu);
  });
  EXPECT_TRUE(watcher.has_printed("1280\n"));
  start_and([] { put("mtu", ""); });
  EXPECT_TRUE(watcher.has_printed("empty"));
  damage_value(DB_CONFIGBAK);
  EXPECT_TRUE(watcher.has_printed("bad checksum"));
  execute_sql(DB_CONFIGBAK, "delete from net where key = 'key'");
  EXPECT_TRUE(watcher.has_printed("gone"));
  execute_sql(DB_CONFIGBAK, "delete from lan where key = 'name'");
  EXPECT_TRUE(watcher.has_printed("lan"));
  EXPECT_EQ(watcher.end(SIGINT), (Ran{0,
                                      "net           apn                   7       set           corporate\n"
                                      "net           size                  12      set           1280\n"
                                      "net           mtu                   7       empty         -\n"
                                      "net           apn                   7       bad checksum  Xnternet\n"
                                      "net           key                   13      gone          -\n"
                                      "lan           name                  7       default       -\n",
                                      kWatching}));
}

TEST_F(KeloctlWatch, JsonHasAnObjectOnEachLine) {
  Watcher watcher("--json --count 2");
  start_and([] { put("apn", "a\"b"); });
  EXPECT_TRUE(watcher.has_printed("}\n"));
  const std::string first =
      R"({"table":"net","key":"apn","id":7,"state":"set","value":"a\"b","hex":"612262"})"
      "\n";
  EXPECT_EQ(read_file(kOutput), first);
  execute_sql(DB_CONFIGBAK, "delete from net where key = 'mtu'");
  EXPECT_EQ(watcher.end(0),
            (Ran{0,
                 first + R"({"table":"net","key":"mtu","id":7,"state":"gone","value":null,"hex":null})" +
                     "\n"
                     R"({"ok":true,"error":null})" +
                     "\n",
                 kWatching}));
}

TEST_F(KeloctlWatch, LinesOfFieldsEndWithTheResult) {
  Watcher watcher("--tsv");
  start_and([] { put("apn", "a\tb"); });
  EXPECT_TRUE(watcher.has_printed("\n"));
  EXPECT_EQ(watcher.end(SIGTERM),
            (Ran{0, "change\tnet\tapn\t7\tset\ta\\x09b\t610962\nok\ttrue\nerror\t\n", kWatching}));
}

// A change that comes with others is not printed when the number is reached.
TEST_F(KeloctlWatch, EndsAfterItsNumberOfChanges) {
  Watcher watcher("--count 1");
  execute_sql(DB_CONFIGBAK, "update net set id = 9 where key <> 'key'");
  EXPECT_EQ(watcher.end(0),
            (Ran{0, "net           apn                   9       set           internet\n", kWatching}));
}

TEST_F(KeloctlWatch, TooFewChangesAreATimeOut) {
  EXPECT_EQ(keloctl("store watch --count 2 --timeout 1"),
            (Ran{5, "", kWatching + complaint("2 more changes did not come in time")}));
  EXPECT_EQ(keloctl("store watch --count 2 --timeout 1 --json"),
            (Ran{5, "{\"ok\":false,\"error\":\"2 more changes did not come in time\"}\n", kWatching}));
  EXPECT_EQ(keloctl("store watch --timeout 1"), (Ran{0, "", kWatching}));
}

TEST_F(KeloctlWatch, NumbersAreFrom1To65535) {
  for (const std::string number : {"0", "65536", "-1", "x"}) {
    const std::string is_no_number = number + " is not a number from 1 to 65535, as --";
    EXPECT_EQ(keloctl("store watch --count " + number),
              (Ran{2, "", complaint(is_no_number + "count takes")}));
    EXPECT_EQ(keloctl("store watch --timeout " + number),
              (Ran{2, "", complaint(is_no_number + "timeout takes")}));
  }
  EXPECT_EQ(keloctl("store watch net").status, 2);
  EXPECT_EQ(keloctl("store watch --count 65535 --timeout 1").status, 5);
}

TEST_F(KeloctlWatch, StoreThatCannotBeReadIsAFailure) {
  const Ran ran = keloctl("--store /nowhere/ store watch");
  EXPECT_EQ(ran.status, 3) << ran;
  EXPECT_THAT(ran.errors, StartsWith("keloctl: the store cannot be watched: ")) << ran;
}

TEST_F(KeloctlWatch, LockedStoreIsATimeOut) {
  const StoreHolder holder;
  const Ran ran = keloctl("store watch");
  EXPECT_EQ(ran.status, 5) << ran;
  EXPECT_THAT(ran.errors, HasSubstr("config.db-lock was held by others")) << ran;
}

TEST_F(KeloctlWatch, OutputThatTakesNoMoreIsAFailure) {
  for (const std::string form : {"", "--json", "--tsv"}) {
    Watcher watcher(form, "/dev/full");
    start_and([&] { put("apn", "corporate" + form); });
    EXPECT_EQ(watcher.wait(), 3) << form;
  }
}

TEST_F(KeloctlWatch, DaemonsThatWriteAreSeen) {
  Watcher watcher("--tsv --count 8 --timeout 100");
  const DaemonsThatWrite daemons;
  const Ran ran = watcher.end(0);
  EXPECT_EQ(ran.status, 0) << ran;
  EXPECT_THAT(ran.output, StartsWith("change\twork\tdaemon")) << ran;
  EXPECT_THAT(ran.output, Not(HasSubstr("unreadable"))) << ran;
}

}  // namespace
