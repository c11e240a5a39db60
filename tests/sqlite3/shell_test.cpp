// SPDX-License-Identifier: MIT
// Commands of the store and their results.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>
#include <thread>

#include "kelo_utils/log.h"
#include "kelo_utils/sqlite.h"
#include "tests/support/c_library.hpp"
#include "tests/support/database.hpp"
#include "tests/support/descriptors.hpp"
#include "tests/support/log_capture.hpp"
#include "tests/support/sqlite_faults.hpp"

namespace {

using kelo::tests::error_text;
using kelo::tests::expect_nothing_inherited;
using kelo::tests::Fault;
using kelo::tests::LogCapture;
using kelo::tests::open_descriptors;

constexpr char kFunction[] = "dm_sqlite_system_cmd";

class Shell : public testing::Test {
 protected:
  Shell() { output_.fill('#'); }

  // What a call left in its buffer, whose untouched bytes are '#'.
  std::string_view output(std::size_t size) const { return {output_.data(), size}; }

  std::array<char, 256> output_{};
  LogCapture log_;
};

TEST_F(Shell, NullCommand) {
  EXPECT_EQ(dm_sqlite_system_cmd(nullptr, output_.data(), 16), -1);
  EXPECT_EQ(output(4), "####");
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, "dm_sqlite_system_cmd NULL\n"), 1) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 1U);
}

TEST_F(Shell, OutputIsReadWithoutTerminator) {
  EXPECT_EQ(dm_sqlite_system_cmd("echo hello", output_.data(), 255), 0);
  EXPECT_EQ(output(8), "hello\n##");
  EXPECT_EQ(log_.count(LOG_LVL_DBUG, kFunction, "read_len=6\n"), 1) << log_.dump();
  EXPECT_EQ(log_.lines().size(), 1U);
}

TEST_F(Shell, OutputStopsAtTheGivenSize) {
  constexpr std::size_t kLength = 10;
  for (const unsigned size : {0U, 1U, 9U, 10U, 11U}) {
    log_.clear();
    output_.fill('#');
    EXPECT_EQ(dm_sqlite_system_cmd("printf 0123456789", output_.data(), size), 0);
    const std::size_t read = std::min<std::size_t>(size, kLength);
    EXPECT_EQ(output(read + 2), std::string("0123456789").substr(0, read) + "##");
    EXPECT_EQ(log_.count(LOG_LVL_DBUG, kFunction, "read_len=" + std::to_string(read) + "\n"), 1)
        << log_.dump();
  }
}

TEST_F(Shell, OutputInPiecesIsReadWhole) {
  EXPECT_EQ(dm_sqlite_system_cmd("printf a; /bin/true; printf b; /bin/true; printf c", output_.data(), 255),
            0);
  EXPECT_EQ(output(4), "abc#");
}

TEST_F(Shell, WithoutABufferTheCommandRunsToItsEnd) {
  EXPECT_EQ(dm_sqlite_system_cmd("echo done > /tmp/ran", nullptr, 16), 0);
  EXPECT_EQ(kelo::tests::read_file("/tmp/ran"), "done\n");
  EXPECT_TRUE(log_.lines().empty()) << log_.dump();
}

// More than a pipe holds: the command is ended while it writes, and what follows is not done.
TEST_F(Shell, ACommandWithTooMuchOutputIsEnded) {
  EXPECT_EQ(dm_sqlite_system_cmd("head -c 1000000 /dev/zero && echo > /tmp/whole", output_.data(), 1), 0);
  EXPECT_EQ(output(2), std::string_view("\0#", 2));
  EXPECT_FALSE(kelo::tests::file_exists("/tmp/whole"));
}

TEST_F(Shell, ExitStatusIsNotExamined) {
  EXPECT_EQ(dm_sqlite_system_cmd("exit 3", output_.data(), 16), 0);
  EXPECT_EQ(dm_sqlite_system_cmd("kill -KILL $$", output_.data(), 16), 0);
  EXPECT_EQ(dm_sqlite_system_cmd("", output_.data(), 16), 0);
  EXPECT_EQ(dm_sqlite_system_cmd("no-such-command 2> /dev/null", output_.data(), 16), 0);
  EXPECT_EQ(output(2), "##");
  EXPECT_EQ(log_.count(LOG_LVL_DBUG, kFunction, "read_len=0\n"), 4) << log_.dump();
}

TEST_F(Shell, PipeThatCannotBeMade) {
  const Fault fault({.call = "popen", .code = EMFILE});
  EXPECT_EQ(dm_sqlite_system_cmd("echo hello", output_.data(), 16), -1);
  EXPECT_EQ(output(4), "####");
  EXPECT_EQ(log_.count(LOG_LVL_ERR, kFunction, "system command failed: (24) " + error_text(EMFILE) + "\n"), 1)
      << log_.dump();
  EXPECT_EQ(log_.lines().size(), 1U);
}

// Daemons get signals of their own, whose handlers need not restart the calls they interrupt.
TEST_F(Shell, ASignalDoesNotCutTheOutputShort) {
  struct sigaction action {};
  action.sa_handler = [](int) { close(creat("/tmp/caught", 0600)); };
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  // Once the reader sleeps it waits for the pipe: the signal is sent then, and the output only after it.
  constexpr char kCommand[] =
      "until grep -q '^State:.S' /proc/$PPID/task/$PPID/status; do :; done;"
      "kill -USR1 $PPID; until [ -e /tmp/caught ]; do :; done; printf whole";
  EXPECT_EQ(dm_sqlite_system_cmd(kCommand, output_.data(), 255), 0);
  EXPECT_EQ(output(6), "whole#");
}

TEST_F(Shell, NoDescriptorIsLeftOpen) {
  const auto before = open_descriptors();
  dm_sqlite_system_cmd("echo hello", output_.data(), 255);
  dm_sqlite_system_cmd("echo hello", output_.data(), 1);
  dm_sqlite_system_cmd("echo hello", nullptr, 0);
  dm_sqlite_system_cmd(nullptr, nullptr, 0);
  EXPECT_EQ(before, open_descriptors());
}

TEST_F(Shell, ACommandHoldsNoDescriptorOfTheLibrary) {
  const auto before = open_descriptors();
  EXPECT_EQ(dm_sqlite_system_cmd("ls -l /proc/self/fd > /tmp/descriptors", nullptr, 0), 0);
  expect_nothing_inherited("/tmp/descriptors", before);
}

TEST_F(Shell, AnotherProgramHoldsNoPipeOfARunningCommand) {
  ASSERT_EQ(mkfifo("/tmp/started", 0600), 0);
  ASSERT_EQ(mkfifo("/tmp/end", 0600), 0);
  const auto before = open_descriptors();
  std::thread caller(
      [this] { dm_sqlite_system_cmd("echo > /tmp/started; cat /tmp/end", output_.data(), 255); });
  kelo::tests::read_file("/tmp/started");
  EXPECT_EQ(std::system("ls -l /proc/self/fd > /tmp/descriptors"), 0);
  kelo::tests::write_file("/tmp/end", "");
  caller.join();
  expect_nothing_inherited("/tmp/descriptors", before);
}

}  // namespace
