// SPDX-License-Identifier: MIT
// The connections to the parameter databases. One of them stays open between operations.
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
using Connection = store::Connection;

constexpr const char* kCaller = "open_sqlite_db";
constexpr char kUserPath[] = "/data/kelo-resource/sqlite3/user_info.db";
constexpr char kFactoryPath[] = "/data/kelo-resource/sqlite3/factory_info.db";
constexpr std::array<const char*, 2> kPaths = {kUserPath, kFactoryPath};

constexpr std::size_t index_of(Database database) { return static_cast<std::size_t>(database); }

// Identifies the file that a path leads to.
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

// A connection and the file that it was opened for. Another process may have replaced that file.
struct CachedConnection {
  sqlite3* db;
  FileIdentity file;
};

std::array<CachedConnection, 2> cached;                   // at most one; guarded by cache_mutex
std::array<unsigned int, 2> lease_counts;                 // leases of all threads; guarded by cache_mutex
thread_local std::array<sqlite3*, 2> thread_connections;  // leased by the calling thread

bool thread_has_connection() { return thread_connections[0] != nullptr || thread_connections[1] != nullptr; }

Connection take_cached(Database database, FileIdentity* file = nullptr) {
  const LockGuard lock(cache_mutex);
  CachedConnection& entry = cached[index_of(database)];
  if (file != nullptr) *file = entry.file;
  return Connection(std::exchange(entry.db, nullptr));
}

Connection take_cached_if_current(Database database) {
  FileIdentity file{};
  Connection db = take_cached(database, &file);
  if (db && !(file == identity_of(path_of(database)))) db.reset();
  return db;
}

// Caches a connection and returns the ones that were cached. The caller closes these without the lock.
void cache_connection(Database database, Connection db, std::array<Connection, 2>& displaced) {
  for (std::size_t i = 0; i < cached.size(); ++i) displaced[i].reset(std::exchange(cached[i].db, nullptr));
  cached[index_of(database)] = {db.release(), identity_of(path_of(database))};
}

int copy_status;  // of the last command; guarded by the exclusive lock

// The status is unknown in a program that ignores SIGCHLD. The copy is then checked by its content alone.
bool run_copy_command(const char* command, store::ByteRangeLock& copy_lock) {
  const store::SqlitePause pause;
  copy_status = os::run_logged(command, copy_lock.descriptor());
  return copy_status == 0 || copy_status == -1;
}

// The caller holds the lock exclusively. Returns whether the command succeeded and the copy is complete.
bool copy_over_user_file() {
  // The cached pages of the user connection are wrong after the copy. The factory connection would lose its locks
  // when the copy closes the file.
  take_cached(Database::user).reset();
  take_cached(Database::factory).reset();
  store::roll_back_cut_transaction(kFactoryPath);
  copy_status = 0;
  const bool whole = store::copy_database({kUserPath, kFactoryPath, kUserPath, run_copy_command}) &&
                     base::sync_directory_of(kUserPath);
  if (!whole && copy_status == 0) KELO_LOG_AS(kCaller, LOG_LVL_ERR, "%s could not be copied\n", kFactoryPath);
  return whole && copy_status == 0;
}

// Holds the databases exclusively and undoes a copy over the user database that a crash interrupted.
class [[nodiscard]] ExclusiveAccess {
 public:
  explicit ExclusiveAccess(const char* caller) : lock_(caller, kUserPath, Access::exclusive) {
    if (!lock_ || !store::copy_was_interrupted(kUserPath)) return;
    store::ByteRangeLock copies;
    copy_still_runs_ = !copies.wait_for_copies(kUserPath);
    if (!copy_still_runs_) store::undo_interrupted_copy(kUserPath);
  }
  explicit operator bool() const { return lock_ && !copy_still_runs_; }

 private:
  StoreLock lock_;
  bool copy_still_runs_ = false;
};

// A power cut or a read without a factory file can leave an empty user file, which has no settings.
bool user_file_exists() {
  return store::size_of(kUserPath) > 0 || (access(kUserPath, F_OK) == 0 && store::size_of(kFactoryPath) == 0);
}

// Only the first call in a process searches for the file, so that later calls are not slower.
bool check_once_for_unused_copy() {
  static std::atomic<bool> checked{false};
  if (checked.load(std::memory_order_relaxed)) return false;
  checked.store(true, std::memory_order_relaxed);
  return store::unused_copy_exists(kUserPath);
}

void make_missing_user_file() {
  const bool unused_copy = check_once_for_unused_copy();
  if (user_file_exists() && !store::copy_was_interrupted(kUserPath) && !unused_copy) return;
  const ExclusiveAccess lock(kCaller);
  if (lock && unused_copy) store::remove_unused_copy(kUserPath);
  if (!lock || user_file_exists()) return;
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "Error, db:%s couldn't access.\n", kUserPath);
  if (access(kFactoryPath, F_OK) == 0) {
    static_cast<void>(copy_over_user_file());
  } else {
    take_cached(Database::user).reset();
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "Error, db:%s couldn't access.\n", kFactoryPath);
  }
}

// A lease gives a connection to one thread, so the connection needs no mutex. SQLite would hold that mutex during a
// statement and its callbacks, and an operation in a callback could lock it and the parameter mutex in the opposite
// order.
Connection open_file(const char* path) {
  store::OpenResult opening = store::open_for_one_thread(path);
  if (opening.ok()) return std::move(opening.db);
  KELO_LOG_AS(kCaller, LOG_LVL_ERR, "Error, db:%s open failed:%s.\n", path, opening.text());
  return {};
}

}  // namespace

const char* path_of(Database database) { return kPaths[index_of(database)]; }

ConnectionLease::ConnectionLease(Database database) : database_(database) {
  db_ = thread_connections[index_of(database)];
  if (db_ != nullptr) return;
  if (!thread_has_connection()) {
    make_missing_user_file();
    lock_.emplace(kCaller, kUserPath, Access::shared);
    if (!*lock_) return;
  }
  take_cached(database == Database::user ? Database::factory : Database::user).reset();
  Connection db = take_cached_if_current(database);
  adopt(db ? std::move(db) : open_file(path_of(database)));
}

void ConnectionLease::adopt(Connection db) {
  owned_ = std::move(db);
  db_ = owned_.get();
  if (db_ == nullptr) return;
  thread_connections[index_of(database_)] = db_;
  const LockGuard lock(cache_mutex);
  ++lease_counts[index_of(database_)];
}

ConnectionLease::~ConnectionLease() {
  if (!owned_) return;
  thread_connections[index_of(database_)] = nullptr;
  std::array<Connection, 2> displaced;
  const LockGuard lock(cache_mutex);
  --lease_counts[index_of(database_)];
  cache_connection(database_, std::move(owned_), displaced);
}

void ConnectionLease::close() {
  if (!owned_) return;
  thread_connections[index_of(database_)] = nullptr;
  owned_.reset();
  const LockGuard lock(cache_mutex);
  --lease_counts[index_of(database_)];
}

int close_user_connection() {
  const store::SqliteUse use;
  const LockGuard lock(cache_mutex);
  if (lease_counts[index_of(Database::user)] > 0) return SQLITE_BUSY;
  sqlite3*& user = cached[index_of(Database::user)].db;
  Connection db(user);
  const int code = store::close_file(db);
  user = db.release();
  return code;
}

void sync_database(Database database) { static_cast<void>(base::sync_directory_of(path_of(database))); }

bool copy_factory_to_user() {
  if (thread_has_connection()) {
    KELO_LOG_AS(kCaller, LOG_LVL_ERR, "%s is being read by this thread, and is not replaced\n", kUserPath);
    return false;
  }
  const ExclusiveAccess lock("kelo_db_restore_factory");
  return lock && copy_over_user_file();
}

void forget_connections_of_parent() {
  cached = {};
  lease_counts = {};
}

}  // namespace kelo::params
