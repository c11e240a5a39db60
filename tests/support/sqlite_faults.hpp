// Stands between the library and SQLite, the shell and fsync: makes chosen calls fail, and records all of
// them. For tests with SQLITE_FAULTS in tests/CMakeLists.txt.
//
// The calls are: sqlite3_open, sqlite3_open_v2, sqlite3_prepare, sqlite3_prepare_v2, sqlite3_bind_blob,
// sqlite3_step, sqlite3_exec, sqlite3_get_table, sqlite3_busy_handler, popen, pclose, system, fsync and
// fdatasync. What SQLite calls within itself is not matched, its fdatasync and fsync excepted. "popen", "pclose"
// and "system" are what the library does in the way of these: a command of the shell that is started with a
// pipe, waited for, or started without one.
#ifndef KELO_TESTS_SQLITE_FAULTS_HPP
#define KELO_TESTS_SQLITE_FAULTS_HPP

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace kelo::tests {

// What a fault does, in the order in which a test names it.
struct FaultPlan {
  std::string function;     // "sqlite3_step"
  int code = 0;             // what the call returns; errno for popen, pclose, fsync and fdatasync; for system
                            // the wait status of a command that exits, or -1
  std::string text = {};    // only calls whose text holds this: SQL, command, path of the database or file
  int at = 1;               // the first of the matching calls that fails
  int times = 1;            // how many fail from there on
  std::string error = {};   // sqlite3_exec, sqlite3_get_table: the error text; empty: SQLite's for the code
  bool null_error = false;  // the same: no error text at all
  bool null_handle = false;  // sqlite3_open, sqlite3_open_v2: no handle, as when memory has run out
};

inline constexpr int kEveryTime = 1 << 30;

// Makes calls fail while it is alive. Several may be.
class Fault {
 public:
  explicit Fault(FaultPlan plan);
  ~Fault();
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;

  // Calls that matched so far, and those of them that failed.
  [[nodiscard]] int matched() const;
  [[nodiscard]] int failed() const;

 private:
  friend class Interposer;
  const FaultPlan plan_;
  int matched_ = 0;
  int failed_ = 0;
};

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
