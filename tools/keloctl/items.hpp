// SPDX-License-Identifier: MIT
// The settings of the store as a daemon would find them: the stored rows and the defaults.
#ifndef KELO_TOOLS_KELOCTL_ITEMS_HPP
#define KELO_TOOLS_KELOCTL_ITEMS_HPP

#include <string_view>

#include "tools/keloctl/look.hpp"

namespace kelo::ctl {

enum class State { set, unset, empty, bad_checksum };

// All texts are valid until the next item.
struct Item {
  const char* table;
  const char* key;
  State state;
  bool has_id;
  int id;
  int type;  // 0 when no row tells it
  bool stored;
  std::string_view value;  // what is stored
  bool has_default;
  std::string_view default_value;

  // Whether a daemon that reads the item gets another value than the default.
  [[nodiscard]] bool differs() const {
    return state == State::bad_checksum || (state == State::set && (!has_default || value != default_value));
  }
};

const char* words_of(State state);

// A look at the store with its databases open.
class [[nodiscard]] Settings {
 public:
  // Takes the lock of the store, and opens the backup, which reads return. When that cannot be used, it opens the
  // primary, from which the next operation of a daemon makes the backup. The defaults may be missing. The result is an
  // Exit.
  int open(Output& out);

  // Calls `visit` for each setting of a table, or of all tables for null, in the order of their names. The version
  // record is left out, unless its table is named. It ends when `visit` returns false. The result is an Exit.
  using Visitor = bool (*)(const Item& item, void* context);
  int visit(const char* table, Visitor visitor, void* context, Output& out) const;

  template <typename Visit>
  int each(const char* table, Output& out, Visit visit) const {
    return this->visit(
        table, [](const Item& item, void* context) { return (*static_cast<Visit*>(context))(item); }, &visit,
        out);
  }

 private:
  int open_databases(Output& out);

  Look look_;  // the first member, so that the connections are closed before the lock is released
  Database stored_;
  Database defaults_;
};

// Whether a name of a table or a key can be used in the library's SQL texts.
bool is_plain_identifier(std::string_view name);

// Whether a value matches its checksum, as the library computes it.
bool matches_checksum(std::string_view value, int crc);

// The bytes of a column.
std::string_view column_bytes(sqlite3_stmt* row, int column);
const char* column_text(sqlite3_stmt* row, int column);

// The rows of an item table: key, id, type, len, crc and value. Tables of older releases lack the id or the type.
Statement select_items(sqlite3* db, const char* table);

inline constexpr char kSelectTables[] =
    "select name from sqlite_master where type='table' and name not like 'sqlite\\_%%' escape '\\' order by "
    "name";

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_ITEMS_HPP
