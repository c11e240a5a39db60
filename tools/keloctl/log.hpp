// SPDX-License-Identifier: MIT
// The commands on the log.
#ifndef KELO_TOOLS_KELOCTL_LOG_HPP
#define KELO_TOOLS_KELOCTL_LOG_HPP

#include "tools/keloctl/command.hpp"

namespace kelo::ctl {

int watch_log(const Words& words, Output& out);
int explain_line(const Words& words, Output& out);

inline constexpr char kWatchOption[] = "/kelonv/data/fwawatch_option";

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_LOG_HPP
