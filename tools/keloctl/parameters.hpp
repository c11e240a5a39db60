// SPDX-License-Identifier: MIT
// The parameters as a daemon would find them: the cells of the user database, and those of the factory database.
#ifndef KELO_TOOLS_KELOCTL_PARAMETERS_HPP
#define KELO_TOOLS_KELOCTL_PARAMETERS_HPP

#include <string_view>

#include "tools/keloctl/command.hpp"
#include "tools/keloctl/look.hpp"
#include "tools/keloctl/values.hpp"

namespace kelo::ctl {

inline constexpr char kParameterFolder[] = "/data/kelo-resource/sqlite3";
inline constexpr char kUserParameters[] = "/data/kelo-resource/sqlite3/user_info.db";
inline constexpr char kFactoryParameters[] = "/data/kelo-resource/sqlite3/factory_info.db";

// The text of a cell, as daemons read it. A blob is shown in hexadecimal digits.
struct Cell {
  bool there = false;  // there is such a column, and a row
  bool null = false;
  const char* type = "";
  Bytes text;
};

// All texts are valid until the next parameter.
struct Parameter {
  const char* table;
  const char* name;
  bool is_number;
  Cell value;
  Cell factory;

  [[nodiscard]] const char* state() const {
    if (!factory.there) return "no factory value";
    return value.null == factory.null && value.text.view() == factory.text.view() ? "factory" : "changed";
  }
};

// A look at the parameter databases.
class [[nodiscard]] Parameters {
 public:
  // Takes their lock, and opens both. A user database that is missing or empty has the values of the factory, from which
  // the next operation of a daemon makes it. A program that will write lets the library undo a write that was cut off.
  // The result is an Exit.
  int open(bool will_write, Output& out);

  // Calls `visit` for each parameter of a table, or of all tables for null. It ends when `visit` returns false. The
  // result is an Exit.
  using Visitor = bool (*)(Parameter& parameter, void* context);
  int visit(const char* table, Visitor visitor, void* context, Output& out) const;

  template <typename Visit>
  int each(const char* table, Output& out, Visit visit) const {
    return this->visit(
        table, [](Parameter& parameter, void* context) { return (*static_cast<Visit*>(context))(parameter); },
        &visit, out);
  }

 private:
  int open_databases(Output& out);

  Look look_;  // the first member, so that the connections are closed before the lock is released
  Database user_;
  Database factory_;
};

// "TABLE.NAME" in two parts, which become words of SQL.
struct ParameterName {
  base::FixedText<64> table;
  base::FixedText<64> name;
};

struct FoundParameter {
  bool is_number = false;
  const char* state = "";
  Cell value;
  Cell factory;
};

// Looks for the parameter "TABLE.NAME". The result is an Exit; there is no look any more when this returns.
int find_parameter(const char* given, bool will_write, ParameterName& name, FoundParameter& found,
                   Output& out);

// Whether the library can write a text into a parameter. Otherwise it says why not.
bool is_storable(const ParameterName& name, const char* text, Output& out);

// Stores the value of "TABLE.NAME" in the user database. The result is an Exit.
int set_parameter(const char* given, const char* value, Output& out);

// Prints what was stored. The result is an Exit.
int print_stored(const ParameterName& name, std::string_view value, Output& out);
// Says what has failed, and why. The result is an Exit.
int failed_change(const char* what, Output& out);

int restore_parameters(const Words& words, Output& out);
int provision_parameters(const Words& words, Output& out);

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_PARAMETERS_HPP
