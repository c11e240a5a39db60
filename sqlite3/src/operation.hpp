// One operation on the configuration databases, under the lock that it holds for all of its steps.
#ifndef KELO_SQLITE3_OPERATION_HPP
#define KELO_SQLITE3_OPERATION_HPP

#include "sqlite3/src/store_lock.hpp"

namespace kelo::store {

class [[nodiscard]] Operation {
 public:
  // Takes the store's lock and puts back what an interrupted copy left. Failures are logged under `caller`.
  Operation(const char* caller, Access access);

  // Whether the operation may begin; otherwise it must not touch a file.
  explicit operator bool() const { return ready_; }
  [[nodiscard]] bool exclusive() const { return lock_.exclusive(); }

  // Sees to it that nobody else uses the store, for a repair. Others may have changed anything before this
  // returns. False when that cannot be had in time: the operation must end then.
  [[nodiscard]] bool make_exclusive();

 private:
  bool undo_interrupted_copies();

  const char* caller_;
  StoreLock lock_;
  bool ready_;
};

}  // namespace kelo::store

#endif  // KELO_SQLITE3_OPERATION_HPP
