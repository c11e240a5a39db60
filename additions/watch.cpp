// SPDX-License-Identifier: MIT
// Tells a process which stored items have changed, whoever has changed them. See docs/watch.md.
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/file.hpp"
#include "base/text_builder.hpp"
#include "kelo_utils/sqlite.h"
#include "kelo_utils/watch.h"
#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/operation.hpp"
#include "sqlite3/src/safe_copy.hpp"
#include "sqlite3/src/sql.hpp"

namespace {

using namespace kelo::store;

constexpr int kRetryMilliseconds = 1000;
constexpr useconds_t kPauseMicroseconds = 200;

// A table in memory has the rows that were told last, whose age is 0, and those that were read just now, whose age is 1.
// Rows of any other age are of no use. The columns are the age, the table, the key, the id and the value of an item.
constexpr const char* kCreateRows = "create table r(a,t,k,i,v)";
constexpr const char* kKeepTold = "delete from r where a";
// Names that are no tables of items, such as those of indexes, are met as well.
constexpr const char* kSelectTables = "select name from f.sqlite_master";
constexpr const char* kReadTable = "insert into r select 1,'%1$s',key,id,value from f.%1$s";
constexpr const char* kSelectChanges =
    "select i,t,k from r group by t,k,i,v having min(a)union all "
    "select i,t,k from r group by t,k having max(a)=0";
// This is one statement, so that rows are not forgotten when it fails.
constexpr const char* kKeepRead = "update r set a=a-1";

using OnRow = int (*)(void*, int, char**, char**);

struct Watch {
  std::atomic<pid_t> process{0};  // that has the watch, or 0
  std::atomic<bool> ending{false};
  kelo_dm_watch_fn callback = nullptr;
  void* context = nullptr;
  bool has_thread = false;
  bool stale = false;     // the rows have to be read
  std::int32_t told = 0;  // calls of the callback at this look
  int folder = 0;         // number of a watched folder
  int events = 0;         // descriptor
  sqlite3* rows = nullptr;
  alignas(inotify_event) std::array<char, 512> buffer{};
};

constinit Watch watch;
// Whether this thread runs a callback. A number of the thread would not do: in a child made by fork() a new thread may
// have that of a thread of the parent.
thread_local bool in_callback = false;

// A child made by fork() has no watch.
bool is_own() { return watch.process.load(std::memory_order_acquire) == getpid(); }

bool is_ending() { return watch.ending.load(std::memory_order_relaxed); }

bool run(const char* sql, OnRow row = nullptr) {
  return sqlite3_exec(watch.rows, sql, row, nullptr, nullptr) == SQLITE_OK;
}

void release() {
  const SqliteUse use;
  Connection(watch.rows).reset();
  kelo::base::Descriptor(watch.events).reset();
  watch.process.store(0, std::memory_order_release);
}

// The system calls of inotify. The functions of the C library for them would take three times as much in the tables of
// the library as these calls.
template <typename... Argument>
int inotify(long call, Argument... arguments) {
  return static_cast<int>(syscall(call, arguments...));
}

// Every change that the library makes of a database makes and deletes names in its folder.
bool watch_folder_of(const char* database) {
  const char* const slash = std::strrchr(database, '/');
  kelo::base::TextBuilder folder(watch.buffer);
  folder.print("%.*s.", slash != nullptr ? static_cast<int>(slash + 1 - database) : 0, database);
  watch.folder =
      inotify(SYS_inotify_add_watch, watch.events, folder.c_str(), IN_CREATE | IN_DELETE | IN_MOVED_TO);
  return watch.folder >= 0;
}

void take_events() {
  while (kelo::base::read_some(watch.events, watch.buffer) > 0) watch.stale = true;
}

// A table of another program, or of an older release, may not have these columns. It is left out.
int read_table(void* /*context*/, int /*columns*/, char** values, char** /*names*/) {
  const int code = execute_formatted(watch.rows, kReadTable, values[0]).code;
  return code == SQLITE_ERROR ? SQLITE_OK : code;
}

// Reads what reads of items would give. The events are taken when the lock is held: those of the write for which this
// has waited do not lead to a second look.
bool read_rows() {
  const Operation operation("kelo_dm_watch", Access::shared);
  if (!operation) return false;
  take_events();
  if (!run(kKeepTold)) return false;
  const long long size = size_of(DB_CONFIGBAK);
  if (size <= 0) return size == 0;
  const bool read =
      execute_formatted(watch.rows, "attach'%s'as f", DB_CONFIGBAK).ok() && run(kSelectTables, read_table);
  run("detach f");
  return read;
}

// SQLite holds no lock while it calls this, since the rows are in memory and the connection is that of one thread.
int tell_row(void* /*context*/, int /*columns*/, char** values, char** /*names*/) {
  const SqlitePause pause;
  const auto id = values[0] != nullptr ? std::strtol(values[0], nullptr, 10) : 0;
  ++watch.told;
  in_callback = true;
  watch.callback(static_cast<std::int32_t>(id), values[1], values[2], watch.context);
  in_callback = false;
  return is_ending() || !is_own() ? 1 : 0;
}

// Calls the callback for each difference, and returns their number.
std::int32_t look() {
  take_events();
  if (!watch.stale) return 0;
  const SqliteUse use;
  watch.told = 0;
  if (read_rows() && run(kSelectChanges, tell_row) && run(kKeepRead)) watch.stale = false;
  return watch.stale && !is_ending() ? KELO_DM_WATCH_FAILED : watch.told;
}

void* watch_thread(void* /*unused*/) {
  pthread_detach(pthread_self());
  int milliseconds = -1;
  while (is_own()) {
    pollfd events = {watch.events, POLLIN, 0};
    poll(&events, 1, milliseconds);
    if (!is_ending()) milliseconds = look() == KELO_DM_WATCH_FAILED ? kRetryMilliseconds : -1;
    if (is_ending() && is_own()) {
      release();
      break;
    }
  }
  return nullptr;
}

// No signal of the daemon is handled in the thread.
bool start_thread() {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread{};
  const int error = pthread_create(&thread, nullptr, watch_thread, nullptr);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return error == 0;
}

std::int32_t begin(kelo_dm_watch_fn callback, void* context) {
  if (is_own() || in_callback) return KELO_DM_WATCH_OTHER;
  const SqliteUse use;
  if (!process_may_use_sqlite()) return KELO_DM_WATCH_FAILED;
  watch.events = inotify(SYS_inotify_init1, IN_CLOEXEC | IN_NONBLOCK);
  watch.rows = open_for_one_thread(":memory:").db.release();
  watch.callback = callback;
  watch.context = context;
  watch.has_thread = callback != nullptr;
  watch.ending.store(false, std::memory_order_relaxed);
  watch.process.store(getpid(), std::memory_order_relaxed);
  if (watch_folder_of(DB_CONFIG) && watch_folder_of(DB_CONFIGBAK) && run(kCreateRows) && read_rows() &&
      run(kKeepRead)) {
    watch.stale = false;
    if (!watch.has_thread || start_thread()) return 0;
  }
  release();
  return KELO_DM_WATCH_FAILED;
}

std::int32_t end() {
  if (!is_own() || is_ending()) return KELO_DM_WATCH_OTHER;
  watch.ending.store(true, std::memory_order_relaxed);
  if (in_callback) return 0;
  if (!watch.has_thread) {
    release();
  } else {
    inotify(SYS_inotify_rm_watch, watch.events, watch.folder);  // which wakes the thread
    while (is_own()) usleep(kPauseMicroseconds);
  }
  return 0;
}

}  // namespace

std::int32_t kelo_dm_watch(kelo_dm_watch_fn callback, void* context) {
  return callback != nullptr ? begin(callback, context) : end();
}

std::int32_t kelo_dm_watch_fd() {
  if (!is_own()) {
    const std::int32_t result = begin(nullptr, nullptr);
    if (result != 0) return result;
  }
  return watch.has_thread || is_ending() ? KELO_DM_WATCH_OTHER : watch.events;
}

std::int32_t kelo_dm_watch_dispatch(kelo_dm_watch_fn callback, void* context) {
  if (callback == nullptr) return KELO_DM_WATCH_BAD_ARGUMENT;
  if (!is_own() || watch.has_thread || in_callback) return KELO_DM_WATCH_OTHER;
  watch.callback = callback;
  watch.context = context;
  const std::int32_t told = look();
  if (!is_own()) return KELO_DM_WATCH_OTHER;  // a child of the callback
  if (is_ending()) release();
  return told;
}
