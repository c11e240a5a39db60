// Many defaults in one transaction.
#ifndef KELO_SQLITE3_DEFAULTS_TOGETHER_HPP
#define KELO_SQLITE3_DEFAULTS_TOGETHER_HPP

#include <span>

#include "sqlite3/src/row.hpp"

namespace kelo::store {

// A row of the defaults database, and what is to become of it.
struct DefaultRow {
  enum class State { unknown, absent, different, stored, left_out };

  Row row;
  State state;
};

// Writes those of `rows` that the database does not hold yet, in their order, and logs nothing. A row that cannot be
// stored is left_out afterwards, all others are stored. False when the transaction could not be had: then the database
// is as it was. Wants the store exclusively.
[[nodiscard]] bool write_defaults_together(std::span<DefaultRow> rows);

}  // namespace kelo::store

#endif  // KELO_SQLITE3_DEFAULTS_TOGETHER_HPP
