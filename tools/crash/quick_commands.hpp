// SPDX-License-Identifier: MIT
// Lets this process execute the commands itself that the library gives to the shell.
#ifndef KELO_TOOLS_CRASH_QUICK_COMMANDS_HPP
#define KELO_TOOLS_CRASH_QUICK_COMMANDS_HPP

namespace kelo::crash {

// Histories and recoveries are recorded with the real shell and its real commands. A restart whose calls are not
// recorded makes the same changes to its files without them, since starting them takes most of its time.
void use_quick_commands(bool quick);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_QUICK_COMMANDS_HPP
