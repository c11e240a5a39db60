// SPDX-License-Identifier: MIT
// The two parameter databases and the leases of their connections.
#ifndef KELO_SQLITE3_PARAMETERS_CONNECTION_HPP
#define KELO_SQLITE3_PARAMETERS_CONNECTION_HPP

#include <optional>

#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/store_lock.hpp"

namespace kelo::params {

enum class Database { user, factory };

const char* path_of(Database database);

// Gives a connection to one thread. While the lease exists, no other thread can close the connection, and no process
// replaces the file. A row callback that asks for the database of its own connection gets the same connection: a
// second one would wait for the locks of the first and never get them.
class [[nodiscard]] ConnectionLease {
 public:
  // Makes a missing user database from the factory database. Failures are logged.
  explicit ConnectionLease(Database database);
  ~ConnectionLease();
  ConnectionLease(const ConnectionLease&) = delete;
  ConnectionLease& operator=(const ConnectionLease&) = delete;

  explicit operator bool() const { return db_ != nullptr; }
  [[nodiscard]] sqlite3* get() const { return db_; }
  // Closes the connection instead of caching it. A connection of an outer lease stays open.
  void close();

 private:
  void adopt(store::Connection db);

  Database database_;
  std::optional<store::StoreLock> lock_;
  store::Connection owned_;
  sqlite3* db_ = nullptr;
};

// Closes the cached user connection. Returns SQLITE_BUSY when a user connection is leased, and 0 when none is cached.
int close_user_connection();

// Makes the last change survive a power cut.
void sync_database(Database database);

// Copies the factory database over the user database. Returns false when the copy failed: the user database is
// unchanged then.
[[nodiscard]] bool copy_factory_to_user();

}  // namespace kelo::params

#endif  // KELO_SQLITE3_PARAMETERS_CONNECTION_HPP
