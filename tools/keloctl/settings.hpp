// SPDX-License-Identifier: MIT
// What the commands that show settings and those that change them share.
#ifndef KELO_TOOLS_KELOCTL_SETTINGS_HPP
#define KELO_TOOLS_KELOCTL_SETTINGS_HPP

#include "tools/keloctl/command.hpp"
#include "tools/keloctl/items.hpp"
#include "tools/keloctl/values.hpp"

namespace kelo::ctl {

struct Found {
  base::FixedText<32> table;
  base::FixedText<32> key;
  State state = State::unset;
  int type = 0;
  bool has_id = false;
  int id = 0;
  bool stored = false;
  Bytes value;
  bool has_default = false;
  Bytes default_value;
};

// Looks for the setting "TABLE.KEY". The result is an Exit; there is no look any more when this returns.
int find_setting(const char* name, Found& found, Output& out);

inline constexpr int kEndOfItems = -1;  // an id that no item can have

// Writes a value through the journal and reads it back, as a daemon does. An empty value empties the setting.
bool write_setting(const Found& found, std::string_view value);
// Says why a write has failed. The result is an Exit.
int failed_write(const char* name, Output& out);

int set_setting(const Words& words, Output& out);
int reset_setting(const Words& words, Output& out);
int export_settings(const Words& words, Output& out);
int import_settings(const Words& words, Output& out);
int clean_settings(const Words& words, Output& out);

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_SETTINGS_HPP
