// SPDX-License-Identifier: MIT
// Starts another process that keeps a database file locked.
#include "tests/support/file_holder.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace kelo::tests {
namespace {

[[noreturn]] void hold(const std::string& path, const std::string& begin, int held, int release,
                       int milliseconds) {
  sqlite3* db = nullptr;
  const bool locked = sqlite3_open(path.c_str(), &db) == SQLITE_OK &&
                      sqlite3_exec(db, begin.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  const char answer = locked ? '+' : '-';
  if (write(held, &answer, 1) != 1) _exit(1);
  pollfd waited = {release, POLLIN, 0};
  poll(&waited, 1, milliseconds);
  sqlite3_close(db);
  _exit(0);
}

}  // namespace

FileHolder::FileHolder(const std::string& path, const std::string& begin, int milliseconds) {
  std::array<int, 2> held{};
  std::array<int, 2> release{};
  if (pipe2(held.data(), O_CLOEXEC) != 0 || pipe2(release.data(), O_CLOEXEC) != 0) {
    ADD_FAILURE() << "no pipe";
    return;
  }
  process_ = fork();
  if (process_ == 0) {
    close(release[1]);
    hold(path, begin, held[1], release[0], milliseconds);
  }
  close(held[1]);
  close(release[0]);
  release_ = release[1];
  char answer = 0;
  EXPECT_EQ(read(held[0], &answer, 1), 1);
  EXPECT_EQ(answer, '+') << path << " could not be locked";
  close(held[0]);
}

FileHolder::~FileHolder() {
  close(release_);
  waitpid(process_, nullptr, 0);
}

}  // namespace kelo::tests
