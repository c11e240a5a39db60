// The two parameter databases and the connection to one of them that is kept between operations.
#ifndef KELO_SQLITE3_PARAMETER_CONNECTION_HPP
#define KELO_SQLITE3_PARAMETER_CONNECTION_HPP

#include "sqlite3/src/handles.hpp"

namespace kelo::params {

enum class Which { kUser, kFactory };

const char* path_of(Which which);

// A connection taken out of the cache for as long as the lease lives: nobody else can close it meanwhile.
// A row callback that runs on a connection and asks for the same database gets that one again: another would
// wait for the locks of the first for ever.
class [[nodiscard]] Lease {
 public:
  // The one that the calling thread works on already.
  explicit Lease(sqlite3* lent) : db_(lent) {}
  Lease(Which which, store::Database db);
  ~Lease();
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  explicit operator bool() const { return db_ != nullptr; }
  [[nodiscard]] sqlite3* get() const { return db_; }
  // Closes the connection instead of keeping it, unless it is lent.
  void close();

 private:
  Which which_ = Which::kUser;
  store::Database owned_;
  sqlite3* db_;
};

// A missing user database is first made from the factory's. Empty on failure, which is logged.
Lease open_sqlite_db(Which which);

// Closes the user connection that is kept. SQLITE_BUSY when a statement runs on one; 0 when there is none.
int close_user_connection();

// Copies the factory database over the user's. Returns what the copying command did.
int copy_factory_to_user();

}  // namespace kelo::params

#endif  // KELO_SQLITE3_PARAMETER_CONNECTION_HPP
