// SPDX-License-Identifier: MIT
// Makes chosen calls of SQLite and of the system fail.
#include "tests/support/sqlite_faults.hpp"

#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <mutex>
#include <sstream>
#include <string_view>
#include <utility>

namespace kelo::tests {
namespace {

struct State {
  std::mutex mutex;  // guards all of it
  bool tracing = false;
  std::vector<TracedCall> trace;
  int busy_milliseconds = -1;  // in place of the library's own patience; -1: that one
  int waits_asked_for = 0;
  std::array<pid_t, 64> piped{};  // commands at the other end of a pipe; no allocation, which may be failed
};

State& state() {
  static State instance;
  return instance;
}

// How deep the thread is inside SQLite: what SQLite calls within itself is none of the library's calls.
thread_local int inside_sqlite = 0;

class InsideSqlite {
 public:
  InsideSqlite() { ++inside_sqlite; }
  ~InsideSqlite() { --inside_sqlite; }
  InsideSqlite(const InsideSqlite&) = delete;
  InsideSqlite& operator=(const InsideSqlite&) = delete;
};

std::string path_of(int descriptor) {
  std::array<char, PATH_MAX> target{};
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = readlink(link.c_str(), target.data(), target.size() - 1);
  return length > 0 ? std::string(target.data(), static_cast<std::size_t>(length)) : std::string();
}

std::string text_of(const char* text) { return text == nullptr ? std::string() : std::string(text); }

bool is_sync(std::string_view call) { return call == "fsync" || call == "fdatasync"; }

template <typename Database>
void set_error_text(const FaultPlan& plan, Database** error) {
  if (error == nullptr) return;
  const char* const text = plan.error.empty() ? sqlite3_errstr(plan.code) : plan.error.c_str();
  *error = plan.null_error ? nullptr : sqlite3_mprintf("%s", text);
}

// Records the call and returns the plan of the fault that it is to meet, or null.
const FaultPlan* meet(const char* call, const std::string& text) {
  if (inside_sqlite > 0 && !is_sync(call)) return nullptr;
  {
    State& all = state();
    const std::scoped_lock lock(all.mutex);
    if (all.tracing) all.trace.push_back({call, text});
  }
  return Fault::meet(call, text);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const TracedCall& call) {
  return out << call.function << " \"" << call.text << '"';
}

CallTrace::CallTrace() {
  const std::scoped_lock lock(state().mutex);
  state().trace.clear();
  state().tracing = true;
}

CallTrace::~CallTrace() {
  const std::scoped_lock lock(state().mutex);
  state().tracing = false;
}

std::vector<TracedCall> CallTrace::calls() const {
  const std::scoped_lock lock(state().mutex);
  return state().trace;
}

int CallTrace::count(const std::string& function, const std::string& part) const {
  int found = 0;
  while (position(function, part, found + 1) >= 0) ++found;
  return found;
}

int CallTrace::position(const std::string& function, const std::string& part, int n) const {
  const std::vector<TracedCall> all = calls();
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (all[i].function != function || all[i].text.find(part) == std::string::npos) continue;
    if (--n == 0) return static_cast<int>(i);
  }
  return -1;
}

std::string CallTrace::dump() const {
  std::ostringstream out;
  for (const TracedCall& call : calls()) out << call << '\n';
  return out.str();
}

ShortBusyTimeout::ShortBusyTimeout(int milliseconds) {
  const std::scoped_lock lock(state().mutex);
  state().busy_milliseconds = milliseconds;
  state().waits_asked_for = 0;
}

ShortBusyTimeout::~ShortBusyTimeout() {
  const std::scoped_lock lock(state().mutex);
  state().busy_milliseconds = -1;
}

bool ShortBusyTimeout::was_asked_for() const {
  const std::scoped_lock lock(state().mutex);
  return state().waits_asked_for > 0;
}

namespace {

// Of the command that the thread starts next.
thread_local bool gets_a_stream = false;

void remember_piped(pid_t child) {
  State& all = state();
  const std::scoped_lock lock(all.mutex);
  const auto free = std::find(all.piped.begin(), all.piped.end(), 0);
  if (free != all.piped.end()) *free = child;
}

bool forget_piped(pid_t child) {
  State& all = state();
  const std::scoped_lock lock(all.mutex);
  const auto found = std::find(all.piped.begin(), all.piped.end(), child);
  if (child <= 0 || found == all.piped.end()) return false;
  *found = 0;
  return true;
}

int shorter_wait() {
  State& all = state();
  const std::scoped_lock lock(all.mutex);
  ++all.waits_asked_for;
  return all.busy_milliseconds;
}

}  // namespace
}  // namespace kelo::tests

using kelo::tests::FaultPlan;
using kelo::tests::InsideSqlite;
using kelo::tests::meet;
using kelo::tests::next_call;
using kelo::tests::set_error_text;
using kelo::tests::text_of;

// The names that the system headers give these parameters are theirs.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int sqlite3_open(const char* path, sqlite3** db) {
  static const auto real = next_call(__func__, sqlite3_open);
  const FaultPlan* const fault = meet(__func__, text_of(path));
  const InsideSqlite inside;
  if (fault != nullptr && fault->null_handle) {
    *db = nullptr;
    return fault->code;
  }
  const int code = real(path, db);
  return fault != nullptr ? fault->code : code;
}

int sqlite3_open_v2(const char* path, sqlite3** db, int flags, const char* vfs) {
  static const auto real = next_call(__func__, sqlite3_open_v2);
  const FaultPlan* const fault = meet(__func__, text_of(path));
  const InsideSqlite inside;
  if (fault != nullptr && fault->null_handle) {
    *db = nullptr;
    return fault->code;
  }
  const int code = real(path, db, flags, vfs);
  return fault != nullptr ? fault->code : code;
}

int sqlite3_prepare(sqlite3* db, const char* sql, int size, sqlite3_stmt** statement, const char** tail) {
  static const auto real = next_call(__func__, sqlite3_prepare);
  if (const FaultPlan* const fault = meet(__func__, text_of(sql))) {
    *statement = nullptr;
    return fault->code;
  }
  const InsideSqlite inside;
  return real(db, sql, size, statement, tail);
}

int sqlite3_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** statement, const char** tail) {
  static const auto real = next_call(__func__, sqlite3_prepare_v2);
  if (const FaultPlan* const fault = meet(__func__, text_of(sql))) {
    *statement = nullptr;
    return fault->code;
  }
  const InsideSqlite inside;
  return real(db, sql, size, statement, tail);
}

int sqlite3_bind_blob(sqlite3_stmt* statement, int index, const void* value, int size,
                      void (*release)(void*)) {
  static const auto real = next_call(__func__, sqlite3_bind_blob);
  if (const FaultPlan* const fault = meet(__func__, text_of(sqlite3_sql(statement)))) return fault->code;
  const InsideSqlite inside;
  return real(statement, index, value, size, release);
}

int sqlite3_step(sqlite3_stmt* statement) {
  static const auto real = next_call(__func__, sqlite3_step);
  if (const FaultPlan* const fault = meet(__func__, text_of(sqlite3_sql(statement)))) return fault->code;
  const InsideSqlite inside;
  return real(statement);
}

int sqlite3_exec(sqlite3* db, const char* sql, int (*row)(void*, int, char**, char**), void* context,
                 char** error) {
  static const auto real = next_call(__func__, sqlite3_exec);
  if (const FaultPlan* const fault = meet(__func__, text_of(sql))) {
    set_error_text(*fault, error);
    return fault->code;
  }
  const InsideSqlite inside;
  return real(db, sql, row, context, error);
}

int sqlite3_get_table(sqlite3* db, const char* sql, char*** cells, int* rows, int* columns, char** error) {
  static const auto real = next_call(__func__, sqlite3_get_table);
  if (const FaultPlan* const fault = meet(__func__, text_of(sql))) {
    *cells = nullptr;
    set_error_text(*fault, error);
    return fault->code;
  }
  const InsideSqlite inside;
  return real(db, sql, cells, rows, columns, error);
}

int sqlite3_busy_handler(sqlite3* db, int (*handler)(void*, int), void* context) {
  static const auto real = next_call(__func__, sqlite3_busy_handler);
  // SQLite sets its own handler in this way, too.
  if (kelo::tests::inside_sqlite > 0) return real(db, handler, context);
  if (const FaultPlan* const fault = meet(__func__, {})) return fault->code;
  const int milliseconds = kelo::tests::shorter_wait();
  const InsideSqlite inside;
  return milliseconds < 0 ? real(db, handler, context) : sqlite3_busy_timeout(db, milliseconds);
}

// Whether the shell's command is to have a standard stream of the library's: that is what popen() gives it.
int posix_spawn_file_actions_adddup2(posix_spawn_file_actions_t* actions, int descriptor,
                                     int number) noexcept {
  static const auto real = next_call(__func__, posix_spawn_file_actions_adddup2);
  if (number <= STDERR_FILENO) kelo::tests::gets_a_stream = true;
  return real(actions, descriptor, number);
}

int posix_spawnp(pid_t* child, const char* program, const posix_spawn_file_actions_t* actions,
                 const posix_spawnattr_t* attributes, char* const* arguments, char* const* environment) {
  static const auto real = next_call(__func__, posix_spawnp);
  const bool piped = std::exchange(kelo::tests::gets_a_stream, false);
  if (text_of(arguments[0]) != "sh") return real(child, program, actions, attributes, arguments, environment);
  const FaultPlan* const fault = meet(piped ? "popen" : "system", text_of(arguments[2]));
  if (fault != nullptr && piped) return fault->code;
  if (fault != nullptr && fault->code == -1) return EAGAIN;
  std::string failure = fault != nullptr ? "exit " + std::to_string(fault->code >> 8) : std::string();
  const std::array<char*, 4> words = {arguments[0], arguments[1],
                                      fault != nullptr ? failure.data() : arguments[2], nullptr};
  const int error = real(child, program, actions, attributes, words.data(), environment);
  if (error == 0 && piped) kelo::tests::remember_piped(*child);
  return error;
}

pid_t waitpid(pid_t process, int* status, int options) {
  static const auto real = next_call(__func__, waitpid);
  const bool piped = kelo::tests::forget_piped(process);
  const pid_t waited = real(process, status, options);
  const FaultPlan* const fault = piped ? meet("pclose", {}) : nullptr;
  if (fault == nullptr) return waited;
  errno = fault->code;
  return -1;
}

int fsync(int descriptor) {
  static const auto real = next_call(__func__, fsync);
  if (const FaultPlan* const fault = meet(__func__, kelo::tests::path_of(descriptor))) {
    errno = fault->code;
    return -1;
  }
  return real(descriptor);
}

int fdatasync(int descriptor) {
  static const auto real = next_call(__func__, fdatasync);
  if (const FaultPlan* const fault = meet(__func__, kelo::tests::path_of(descriptor))) {
    errno = fault->code;
    return -1;
  }
  return real(descriptor);
}

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
