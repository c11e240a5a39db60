// SPDX-License-Identifier: MIT
// An operation on the configuration databases, which holds the store's lock for all of its steps.
#ifndef KELO_SQLITE3_OPERATION_HPP
#define KELO_SQLITE3_OPERATION_HPP

#include "sqlite3/src/store_lock.hpp"

namespace kelo::store {

class [[nodiscard]] Operation {
 public:
  // Takes the store's lock and undoes interrupted copies. Failures are logged under `caller`.
  Operation(const char* caller, Access access);

  // Returns whether the operation may begin. Otherwise it must not touch a file.
  explicit operator bool() const { return ready_; }
  [[nodiscard]] bool exclusive() const { return lock_.exclusive(); }

  // Gets exclusive access to the store for a repair. Other processes may change the files before this returns.
  // Returns false when the access was not available in time: the operation must end then.
  [[nodiscard]] bool make_exclusive();

 private:
  bool undo_interrupted_copies();

  const char* caller_;
  StoreLock lock_;
  bool ready_;
};

}  // namespace kelo::store

#endif  // KELO_SQLITE3_OPERATION_HPP
