// Opens the parameter databases and keeps one connection between operations.
#include "sqlite3/src/parameters/connection.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "base/file.hpp"
#include "base/lock.hpp"
#include "kelo-app-os-al/system_call.hpp"
#include "log/library_log.hpp"
#include "sqlite3/src/parameters/mutexes.hpp"
#include "sqlite3/src/safe_copy.hpp"

namespace kelo::params {

pthread_mutex_t cache_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

using base::LockGuard;
using store::Access;
using store::StoreLock;
using SqliteHandle = store::Database;

constexpr const char* kCaller = "open_sqlite_db";
constexpr char kUserPath[] = "/data/kelo-resource/sqlite3/user_info.db";
constexpr char kFactoryPath[] = "/data/kelo-resource/sqlite3/factory_info.db";
constexpr std::array<const char*, 2> kPaths = {kUserPath, kFactoryPath};

constexpr std::size_t index_of(Database which) { return static_cast<std::size_t>(which); }

// Which file a name leads to.
struct FileIdentity {
  std::uint64_t device;
  std::uint64_t inode;
  bool operator==(const FileIdentity&) const = default;
};

FileIdentity identity_of(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

// A connection that is kept. Another process may have replaced the file under it.
struct Kept {
  sqlite3* db;
  FileIdentity file;
};

std::array<Kept, 2> kept;                  // at most one; guarded by cache_mutex
std::array<unsigned int, 2> in_use;        // leases of all threads; guarded by cache_mutex
thread_local std::array<sqlite3*, 2> own;  // what the calling thread works on

bool works_on_any() { return own[0] != nullptr || own[1] != nullptr; }

SqliteHandle take_kept(Database which, FileIdentity* file = nullptr) {
  const LockGuard lock(cache_mutex);
  Kept& place = kept[index_of(which)];
  if (file != nullptr) *file = place.file;
  return SqliteHandle(std::exchange(place.db, nullptr));
}

SqliteHandle take_kept_if_current(Database which) {
  FileIdentity file{};
  SqliteHandle db = take_kept(which, &file);
  if (db && !(file == identity_of(path_of(which)))) db.reset();
  return db;
}

// Keeps a connection in place of whatever is kept, which is closed once the lock is given up.
void keep(Database which, SqliteHandle db, std::array<SqliteHandle, 2>& displaced) {
  for (std::size_t i = 0; i < kept.size(); ++i) displaced[i].reset(std::exchange(kept[i].db, nullptr));
  kept[index_of(which)] = {db.release(), identity_of(path_of(which))};
}

int copy_status;  // of the last command; guarded by the exclusive lock

// In a program that ignores SIGCHLD the status cannot be told: the copy is judged by what is there.
bool run_copy_command(const char* command, store::ByteLock& under_way) {
  const store::SqlitePause pause;
  copy_status = os::run_logged(command, under_way.descriptor());
  return copy_status == 0 || copy_status == -1;
}

// The caller holds the lock exclusively. Returns whether the command succeeded and the copy is whole.
bool copy_over_user_file() {
  // What the kept connections know of the user's file is wrong for the one that takes its place, and the factory's
  // would lose its locks when the copy is made.
  take_kept(Database::user).reset();
  take_kept(Database::factory).reset();
  store::roll_back_cut_transaction(kFactoryPath);
  copy_status = 0;
  const bool whole = store::copy_database({kUserPath, kFactoryPath, kUserPath, run_copy_command}) &&
                     base::sync_directory_of(kUserPath);
  if (!whole && copy_status == 0) KELO_LOG_AS(kCaller, LOG_LVL_ERR, "%s could not be copied\n", kFactoryPath);
  return whole && copy_status == 0;
}

// Holds the databases exclusively, with the user's as it was before a copy that a crash interrupted.
class [[nodiscard]] Exclusive {
 public:
  explicit Exclusive(const char* caller) : lock_(caller, kUserPath, Access::exclusive) {
    if (!lock_ || !store::copy_was_interrupted(kUserPath)) return;
    store::ByteLock copies;
    command_left_ = !copies.wait_for_copies(kUserPath);
    if (!command_left_) store::undo_interrupted_copy(kUserPath);
  }
  explicit operator bool() const { return lock_ && !command_left_; }

 private:
  StoreLock lock_;
  bool command_left_ = false;
};

// An empty file is what a power cut or a read without a factory file left; it holds no setting.
bool user_file_is_there() {
  return store::size_of(kUserPath) > 0 || (access(kUserPath, F_OK) == 0 && store::size_of(kFactoryPath) == 0);
}

// True once at most in a process, so that no later call pays for the look.
bool a_crash_left_an_unused_copy() {
  static std::atomic<bool> looked{false};
  if (looked.load(std::memory_order_relaxed)) return false;
  looked.store(true, std::memory_order_relaxed);
  return store::unused_copy_is_there(kUserPath);
}

void make_missing_user_file() {
  const bool unused_copy = a_crash_left_an_unused_copy();
  if (user_file_is_there() && !store::copy_was_interrupted(kUserPath) && !unused_copy) return;
  const Exclusive lock(kCaller);
  if (lock && unused_copy) store::remove_unused_copy(kUserPath);
  if (!lock || user_file_is_there()) return;
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "Error, db:%s couldn't access.\n", kUserPath);
  if (access(kFactoryPath, F_OK) == 0) {
    static_cast<void>(copy_over_user_file());
  } else {
    take_kept(Database::user).reset();
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "Error, db:%s couldn't access.\n", kFactoryPath);
  }
}

// A lease gives a connection to one thread. With a lock of its own, held throughout a statement and its callbacks,
// an operation in a callback could take that one and the parameter lock in the other order.
SqliteHandle open_file(const char* path) {
  store::Opening opening = store::open_for_one_thread(path);
  if (opening.ok()) return std::move(opening.db);
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "Error, db:%s open failed:%s.\n", path, opening.text());
  return {};
}

}  // namespace

const char* path_of(Database which) { return kPaths[index_of(which)]; }

Lease::Lease(Database which) : which_(which) {
  db_ = params::own[index_of(which)];
  if (db_ != nullptr) return;
  if (!works_on_any()) {
    make_missing_user_file();
    lock_.emplace(kCaller, kUserPath, Access::shared);
    if (!*lock_) return;
  }
  take_kept(which == Database::user ? Database::factory : Database::user).reset();
  SqliteHandle db = take_kept_if_current(which);
  own(db ? std::move(db) : open_file(path_of(which)));
}

void Lease::own(SqliteHandle db) {
  owned_ = std::move(db);
  db_ = owned_.get();
  if (db_ == nullptr) return;
  params::own[index_of(which_)] = db_;
  const LockGuard lock(cache_mutex);
  ++in_use[index_of(which_)];
}

Lease::~Lease() {
  if (!owned_) return;
  params::own[index_of(which_)] = nullptr;
  std::array<SqliteHandle, 2> displaced;
  const LockGuard lock(cache_mutex);
  --in_use[index_of(which_)];
  keep(which_, std::move(owned_), displaced);
}

void Lease::close() {
  if (!owned_) return;
  params::own[index_of(which_)] = nullptr;
  owned_.reset();
  const LockGuard lock(cache_mutex);
  --in_use[index_of(which_)];
}

int close_user_connection() {
  const store::SqliteUse use;
  const LockGuard lock(cache_mutex);
  if (in_use[index_of(Database::user)] > 0) return SQLITE_BUSY;
  sqlite3*& user = kept[index_of(Database::user)].db;
  SqliteHandle db(user);
  const int code = store::close_file(db);
  user = db.release();
  return code;
}

void sync_database(Database which) { static_cast<void>(base::sync_directory_of(path_of(which))); }

bool copy_factory_to_user() {
  if (works_on_any()) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "%s is being read by this thread, and is not replaced\n", kUserPath);
    return false;
  }
  const Exclusive lock("kelo_db_restore_factory");
  return lock && copy_over_user_file();
}

void forget_connections_of_parent() {
  kept = {};
  in_use = {};
}

}  // namespace kelo::params
