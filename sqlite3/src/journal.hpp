// The write journal: the one row that says which write was last and how far it came.
#ifndef KELO_SQLITE3_JOURNAL_HPP
#define KELO_SQLITE3_JOURNAL_HPP

#include <array>
#include <cstdint>
#include <optional>

#include "kelo_utils/sqlite.h"

namespace kelo::store {

// The item that a write is about, as the journal tells it.
struct JournalItem {
  const char* table;
  std::uint32_t id;
  const char* key;
  std::uint32_t type;
  int len;
};

// Stores the row. Failures are logged. A journal that cannot be updated for another reason than a missing column or
// another program's lock is deleted and made anew, empty.
[[nodiscard]] bool record_in_journal(const JournalItem& item, int state);

// A table name or a key as the journal holds it; a longer one than an item can have reads as empty.
using JournalledName = std::array<char, 33>;

struct JournalRow {
  JournalledName table;
  JournalledName key;
  std::uint32_t id;
  std::uint32_t type;
  int len;
  int state;

  [[nodiscard]] JournalItem item() const { return {table.data(), id, key.data(), type, len}; }
};

// Reads the row, adding columns that an older release left out. Nothing, when there is none or a value is missing.
std::optional<JournalRow> read_journal();

}  // namespace kelo::store

#endif  // KELO_SQLITE3_JOURNAL_HPP
