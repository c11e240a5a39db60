// SPDX-License-Identifier: MIT
// The write of many defaults in one transaction.
#ifndef KELO_SQLITE3_DEFAULTS_TOGETHER_HPP
#define KELO_SQLITE3_DEFAULTS_TOGETHER_HPP

#include <span>

#include "sqlite3/src/row.hpp"

namespace kelo::store {

// A row for the defaults database and what is known of it there.
struct DefaultRow {
  enum class State { unknown, absent, different, stored, left_out };

  Row row;
  State state;
};

// Writes those of `rows` that the database does not have yet, in their order, and logs nothing. Afterwards the state
// of a row that cannot be stored is `left_out`, and that of all others is `stored`. Returns false when the
// transaction failed: the database is unchanged then. The caller has exclusive access.
[[nodiscard]] bool write_defaults_together(std::span<DefaultRow> rows);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_DEFAULTS_TOGETHER_HPP
