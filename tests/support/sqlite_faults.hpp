// SPDX-License-Identifier: MIT
// Takes the place of calls of SQLite, of the shell and of fsync: those that meet a Fault fail, and all are recorded. For
// tests with SQLITE_FAULTS in tests/CMakeLists.txt.
//
// The calls are: sqlite3_open, sqlite3_open_v2, sqlite3_prepare, sqlite3_prepare_v2, sqlite3_bind_blob,
// sqlite3_step, sqlite3_exec, sqlite3_get_table, sqlite3_busy_handler, popen, pclose, system, fsync and
// fdatasync. What SQLite calls within itself is not matched, its fdatasync and fsync excepted. "popen", "pclose"
// and "system" are what the library does in the way of these: a command of the shell that is started with a
// pipe, waited for, or started without one. The code of "system" is the wait status of a command that exits, or -1.
#ifndef KELO_TESTS_SQLITE_FAULTS_HPP
#define KELO_TESTS_SQLITE_FAULTS_HPP

#include <ostream>
#include <string>
#include <vector>

#include "tests/support/fault.hpp"

namespace kelo::tests {

struct TracedCall {
  std::string function;
  std::string text;  // SQL, command, path of the database or of the synced file

  bool operator==(const TracedCall&) const = default;
};
std::ostream& operator<<(std::ostream& out, const TracedCall& call);

// Records the calls of this process, failed ones included, while it is alive. One at a time.
class CallTrace {
 public:
  CallTrace();
  ~CallTrace();
  CallTrace(const CallTrace&) = delete;
  CallTrace& operator=(const CallTrace&) = delete;

  [[nodiscard]] std::vector<TracedCall> calls() const;
  // How many calls of this function there were whose text holds `part`.
  [[nodiscard]] int count(const std::string& function, const std::string& part = {}) const;
  // Place of the n-th such call, counted from 1, among all calls; -1 when there is none.
  [[nodiscard]] int position(const std::string& function, const std::string& part, int n = 1) const;
  // Everything recorded, for a failure message.
  [[nodiscard]] std::string dump() const;
};

// Shortens every wait of SQLite for another process's lock while it is alive.
class ShortBusyTimeout {
 public:
  explicit ShortBusyTimeout(int milliseconds);
  ~ShortBusyTimeout();
  ShortBusyTimeout(const ShortBusyTimeout&) = delete;
  ShortBusyTimeout& operator=(const ShortBusyTimeout&) = delete;

  [[nodiscard]] bool was_asked_for() const;  // whether a connection was told to wait
};

}  // namespace kelo::tests

#endif  // KELO_TESTS_SQLITE_FAULTS_HPP
