// SPDX-License-Identifier: MIT
// Runs the operator's tool on the store of a test.
#ifndef KELO_TESTS_SUPPORT_KELOCTL_HPP
#define KELO_TESTS_SUPPORT_KELOCTL_HPP

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <ostream>
#include <set>
#include <string>
#include <string_view>

#include "base/file.hpp"
#include "tests/support/emulation.hpp"
#include "tests/support/store_settings.hpp"

namespace kelo::tests {

struct Ran {
  int status;
  std::string output;
  std::string errors;

  bool operator==(const Ran&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Ran& ran) {
  return out << "status " << ran.status << "\n" << ran.output << "--- errors\n" << ran.errors;
}

// `words` are for the shell. Runs at the same time need files of different names.
inline Ran keloctl(const std::string& words, const std::string& name = "keloctl") {
  const std::string output = "/tmp/" + name + ".out";
  const std::string errors = "/tmp/" + name + ".err";
  const std::string command = shell_command(KELO_BINARY_DIR "/tools/keloctl/keloctl") + " " + words + " > " +
                              output + " 2> " + errors + " < /dev/null";
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(output), read_file(errors)};
}

inline std::string complaint(const std::string& text) { return "keloctl: " + text + "\n"; }

// A store of five settings in two tables, with defaults of three of them and of one that is not set.
class KeloctlTest : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    start_and([] {
      const int mtu = 1400;
      dm_pal_write("net", 12, "size", KELO_DM_TYPE_SCALAR3, &mtu, sizeof mtu);
      dm_pal_write("net", 13, "key", KELO_DM_TYPE_BUFFER, "\x01\xff\x00\x7f", 4);
      const int usual = 1500;
      dm_write_def_db("net", "size", KELO_DM_TYPE_SCALAR3, &usual, sizeof usual);
      dm_write_def_db("net", "apn", KELO_DM_TYPE_STRING, "internet", 8);
      dm_write_def_db("net", "off", KELO_DM_TYPE_STRING, "no", 2);
      dm_write_def_db("lan", "name", KELO_DM_TYPE_STRING, "router", 6);
    });
  }

  void TearDown() override {
    chmod("/data", 0755);
    StoreTest::TearDown();
  }

  // What is in /data, with the contents: a command that only looks changes none of it.
  static std::set<std::string> files() {
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator("/data"))
      if (entry.is_regular_file())
        found.insert(entry.path().string() + ":" +
                     (access(entry.path().c_str(), R_OK) == 0 ? read_file(entry.path()) : ""));
    return found;
  }

  static void remove_store() {
    for (const std::string path : {"config.db", "configbak.db", "state.db", "DefItems.db", "config.db-lock"})
      std::filesystem::remove("/data/" + path);
  }

  static void damage_value(const char* path) {
    execute_sql(path, "update net set value = cast('Xnternet' as blob) where key = 'apn'");
  }

  // Takes all free space of /data, which is bounded.
  static void fill_flash() {
    std::ofstream filler("/data/filler");
    while (filler << std::string(4096, 'x') << std::flush) {
    }
  }
};

// Holds the lock of a store alone, as a daemon that writes does.
class StoreHolder {
 public:
  explicit StoreHolder(const std::string& path = "/data/config.db-lock")
      : file_(base::open_file(path.c_str(), O_RDWR)) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 1;
    lock.l_len = 1;
    EXPECT_EQ(fcntl(file_.get(), F_OFD_SETLK, &lock), 0);
  }

 private:
  base::Descriptor file_;
};

// Four daemons that write settings of their own until this ends.
class DaemonsThatWrite {
 public:
  DaemonsThatWrite() {
    for (int i = 0; i < 4; ++i) {
      processes_[i] = fork();
      if (processes_[i] == 0) write_for_ever("daemon" + std::to_string(i));
    }
  }
  ~DaemonsThatWrite() {
    for (const pid_t process : processes_) {
      kill(process, SIGTERM);
      waitpid(process, nullptr, 0);
    }
  }
  DaemonsThatWrite(const DaemonsThatWrite&) = delete;
  DaemonsThatWrite& operator=(const DaemonsThatWrite&) = delete;

 private:
  // A write that has begun is completed.
  [[noreturn]] static void write_for_ever(const std::string& key) {
    static volatile std::sig_atomic_t ended;
    struct sigaction action {};
    action.sa_handler = [](int) { ended = 1; };
    sigaction(SIGTERM, &action, nullptr);
    for (int i = 0; ended == 0; ++i) {
      put(key, std::to_string(i), "work");
      usleep(5000);
    }
    _exit(0);
  }

  pid_t processes_[4] = {};
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_KELOCTL_HPP
