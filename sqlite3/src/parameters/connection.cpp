#include "sqlite3/src/parameter_connection.hpp"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "base/lock.hpp"
#include "kelo_utils/app_os_al.h"
#include "log/library_log.hpp"
#include "sqlite3/src/sql.hpp"

namespace kelo::params {
namespace {

using base::LockGuard;
using store::Database;

constexpr char kUserPath[] = "/data/kelo-resource/sqlite3/user_info.db";
constexpr char kUserJournal[] = "/data/kelo-resource/sqlite3/user_info.db-journal";
constexpr char kFactoryPath[] = "/data/kelo-resource/sqlite3/factory_info.db";
constexpr std::array<const char*, 2> kPaths = {kUserPath, kFactoryPath};

constexpr std::size_t index_of(Which which) { return static_cast<std::size_t>(which); }

// Guards what is kept between operations, at most one connection. Never held while a statement runs.
pthread_mutex_t cache_mutex = PTHREAD_MUTEX_INITIALIZER;
std::array<sqlite3*, 2> kept;              // guarded by cache_mutex
std::array<unsigned int, 2> in_use;        // leases of all threads, guarded by cache_mutex
thread_local std::array<sqlite3*, 2> own;  // what the calling thread works on

// Held while the user file is made or replaced: nobody opens half a copy.
pthread_mutex_t copy_mutex = PTHREAD_MUTEX_INITIALIZER;

Database take_kept(Which which) {
  const LockGuard lock(cache_mutex);
  return Database(std::exchange(kept[index_of(which)], nullptr));
}

// Keeps a connection in place of whatever is kept, which is closed once the lock is given up.
void keep(Which which, Database db, std::array<Database, 2>& displaced) {
  for (std::size_t i = 0; i < kept.size(); ++i) displaced[i].reset(std::exchange(kept[i], nullptr));
  kept[index_of(which)] = db.release();
}

// What the kept connection knows of the user's file is wrong for the one that takes its place.
void forget_user_file() { take_kept(Which::kUser).reset(); }

int copy_file() {
  const store::CommandText command("cp %s %s", kFactoryPath, kUserPath);
  const int status =
      kelo_system_call(command.c_str(), static_cast<std::uint32_t>(std::strlen(command.c_str())));
  // A write that was cut off has left what the old file held; SQLite would put it back into the new one.
  if (status == 0) unlink(kUserJournal);
  return status;
}

void make_missing_user_database(const char* caller) {
  const LockGuard lock(copy_mutex);
  if (access(kUserPath, F_OK) == 0) return;
  KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, db:%s couldn't access.\n", kUserPath);
  forget_user_file();
  if (access(kFactoryPath, F_OK) == 0) {
    copy_file();
  } else {
    KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, db:%s couldn't access.\n", kFactoryPath);
  }
}

Database open_file(const char* caller, const char* path) {
  // A lease gives a connection to one thread. With a lock of its own, held throughout a statement and its
  // callbacks, an operation in a callback could take that one and the parameter lock in the other order.
  store::Opening opening = store::open_unlocked(path);
  if (opening.ok()) return std::move(opening.db);
  KELO_LOG_AS(caller, LOG_LVL_ERR, "Error, db:%s open failed:%s.\n", path, opening.text());
  return {};
}

}  // namespace

const char* path_of(Which which) { return kPaths[index_of(which)]; }

Lease::Lease(Which which, Database db) : which_(which), owned_(std::move(db)), db_(owned_.get()) {
  if (db_ == nullptr) return;
  own[index_of(which_)] = db_;
  const LockGuard lock(cache_mutex);
  ++in_use[index_of(which_)];
}

Lease::~Lease() {
  if (!owned_) return;
  own[index_of(which_)] = nullptr;
  std::array<Database, 2> displaced;
  const LockGuard lock(cache_mutex);
  --in_use[index_of(which_)];
  keep(which_, std::move(owned_), displaced);
}

void Lease::close() {
  if (!owned_) return;
  own[index_of(which_)] = nullptr;
  owned_.reset();
  const LockGuard lock(cache_mutex);
  --in_use[index_of(which_)];
}

Lease open_sqlite_db(Which which) {
  make_missing_user_database(__func__);
  if (sqlite3* const lent = own[index_of(which)]) return Lease(lent);
  take_kept(which == Which::kUser ? Which::kFactory : Which::kUser).reset();
  Database db = take_kept(which);
  if (!db) db = open_file(__func__, path_of(which));
  return {which, std::move(db)};
}

int close_user_connection() {
  const LockGuard lock(cache_mutex);
  if (in_use[index_of(Which::kUser)] > 0) return SQLITE_BUSY;
  sqlite3*& user = kept[index_of(Which::kUser)];
  Database db(user);
  const int code = store::close_file(db);
  user = db.release();
  return code;
}

int copy_factory_to_user() {
  const LockGuard lock(copy_mutex);
  forget_user_file();
  return copy_file();
}

}  // namespace kelo::params
