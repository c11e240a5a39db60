// SPDX-License-Identifier: MIT
// A `cp` of the test's own, and a daemon whose `cp` hangs, which is how a test holds the store for as long as
// it likes.
#ifndef KELO_TESTS_SUPPORT_OWN_COPY_HPP
#define KELO_TESTS_SUPPORT_OWN_COPY_HPP

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/own_tools.hpp"

namespace kelo::tests {

// While it lives, this process and those that it starts find a `cp` of these shell lines. $1 is the source,
// $2 the target.
class OwnCopy {
 public:
  explicit OwnCopy(const std::string& lines) {
    make_script("cp", lines, kFolder);
    setenv("PATH", (kFolder + (":" + path_)).c_str(), 1);
  }
  ~OwnCopy() { setenv("PATH", path_.c_str(), 1); }
  OwnCopy(const OwnCopy&) = delete;
  OwnCopy& operator=(const OwnCopy&) = delete;

 private:
  static constexpr char kFolder[] = "/tmp/own_copy";
  const std::string path_ = std::getenv("PATH");
};

inline constexpr char kFailsAtOnce[] = "exit 1";
inline constexpr char kCopiesHalf[] = "head -c $(($(wc -c < \"$1\") / 2)) \"$1\" > \"$2\"";

// As `cp` does, it opens both files and copies block by block; here it hangs in between.
inline constexpr char kHangs[] =
    "exec 3< \"$1\" 4> \"$2\"; dd bs=$(($(wc -c < \"$1\") / 2)) count=1 <&3 >&4 2> /dev/null;"
    "echo $$ > /tmp/starting; mv /tmp/starting /tmp/copy_started;"
    "while [ ! -e /tmp/copy_may_go ]; do sleep 0.02; done; cat <&3 >&4";

// A daemon, forked from the test, that does `work` and is stopped by its first `cp`, which has copied half by
// then.
class HangingDaemon {
 public:
  explicit HangingDaemon(const std::function<bool()>& work) {
    for (const char* const path : {kStarted, kMayGo}) std::filesystem::remove(path);
    process_ = fork();
    if (process_ == 0) {
      const OwnCopy copy(kHangs);
      _exit(work() ? 0 : 1);
    }
    constexpr int kPatience = 2000;
    for (int wait = 0; wait < kPatience && !std::filesystem::exists(kStarted); ++wait) pause();
    EXPECT_TRUE(std::filesystem::exists(kStarted)) << "no cp was started";
  }
  ~HangingDaemon() {
    let_copy_go();
    if (process_ > 0) wait();
  }
  HangingDaemon(const HangingDaemon&) = delete;
  HangingDaemon& operator=(const HangingDaemon&) = delete;

  // The copy is made after all. Whether the daemon's work succeeds.
  bool ends_well() {
    let_copy_go();
    return wait();
  }
  // The same with a copy that is killed where it hangs.
  bool ends_well_without_copy() {
    kill_copy();
    return wait();
  }
  // Its `cp` lives on.
  void die() {
    kill(process_, SIGKILL);
    wait();
  }
  static void let_copy_go() { std::ofstream(kMayGo).flush(); }
  static void kill_copy() {
    pid_t copy = 0;
    std::ifstream(kStarted) >> copy;
    EXPECT_GT(copy, 1);
    kill(copy, SIGKILL);
  }

 private:
  static constexpr char kStarted[] = "/tmp/copy_started";
  static constexpr char kMayGo[] = "/tmp/copy_may_go";

  static void pause() { std::this_thread::sleep_for(std::chrono::milliseconds(5)); }
  bool wait() {
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

  pid_t process_ = -1;
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_OWN_COPY_HPP
