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

int set_setting(const Words& words, Output& out);
int reset_setting(const Words& words, Output& out);

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_SETTINGS_HPP
