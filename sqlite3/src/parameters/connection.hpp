// The two parameter databases and the connection to one of them that is kept between operations.
#ifndef KELO_SQLITE3_PARAMETERS_CONNECTION_HPP
#define KELO_SQLITE3_PARAMETERS_CONNECTION_HPP

#include <optional>

#include "sqlite3/src/handles.hpp"
#include "sqlite3/src/store_lock.hpp"

namespace kelo::params {

enum class Database { user, factory };

const char* path_of(Database which);

// A connection taken out of what is kept for as long as the lease lives: nobody else can close it meanwhile, and no
// process replaces the file. A row callback that runs on a connection and asks for the same database gets that
// one again: another would wait for the locks of the first for ever.
class [[nodiscard]] Lease {
 public:
  // A missing user database is first made from the factory's. Failures are logged.
  explicit Lease(Database which);
  ~Lease();
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  explicit operator bool() const { return db_ != nullptr; }
  [[nodiscard]] sqlite3* get() const { return db_; }
  // Closes the connection instead of keeping it, unless it is lent.
  void close();

 private:
  void own(store::Database db);

  Database which_;
  std::optional<store::StoreLock> lock_;
  store::Database owned_;
  sqlite3* db_ = nullptr;
};

// Closes the user connection that is kept. SQLITE_BUSY when a statement runs on one; 0 when there is none.
int close_user_connection();

// Has the end of the last change survive a power cut.
void sync_database(Database which);

// Copies the factory database over the user's. False when that did not come out whole: the user database holds what
// it held before.
[[nodiscard]] bool copy_factory_to_user();

}  // namespace kelo::params

#endif  // KELO_SQLITE3_PARAMETERS_CONNECTION_HPP
