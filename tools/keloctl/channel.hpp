// SPDX-License-Identifier: MIT
// The log lines of the library, which this program receives in place of the diagnostic channel.
#ifndef KELO_TOOLS_KELOCTL_CHANNEL_HPP
#define KELO_TOOLS_KELOCTL_CHANNEL_HPP

namespace kelo::ctl {

// Prints every line on standard error, too.
void show_log_lines();

// Whether an operation has given up because others held a lock for too long.
bool waited_in_vain();

// The last line that says why an operation has failed; an empty text when none did.
const char* reason_of_failure();

}  // namespace kelo::ctl

#endif  // KELO_TOOLS_KELOCTL_CHANNEL_HPP
