// SPDX-License-Identifier: MIT
// The write journal: one row with the item of the last write and the state of that write.
#ifndef KELO_SQLITE3_JOURNAL_HPP
#define KELO_SQLITE3_JOURNAL_HPP

#include <array>
#include <cstdint>
#include <optional>

#include "kelo_utils/sqlite.h"

namespace kelo::store {

// The item of a write.
struct JournalItem {
  const char* table;
  std::uint32_t id;
  const char* key;
  std::uint32_t type;
  int len;
};

// Stores the row and logs failures. When the update fails, and neither a missing column nor a lock of another program
// is the reason, the journal is deleted and an empty one is made.
[[nodiscard]] bool record_in_journal(const JournalItem& item, int state);

// The name of a table or a key in the journal. It is empty when the stored text is longer than any name of an item.
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

// Reads the row and adds the columns that are missing in a journal of an older release. Returns nothing when there is
// no row or a value is missing.
std::optional<JournalRow> read_journal();

}  // namespace kelo::store

#endif  // KELO_SQLITE3_JOURNAL_HPP
