// SPDX-License-Identifier: MIT
// Runs shell commands of the library itself in the same way as kelo_system_call().
#ifndef KELO_APP_OS_AL_SYSTEM_CALL_HPP
#define KELO_APP_OS_AL_SYSTEM_CALL_HPP

namespace kelo::os {

// Does what kelo_system_call() does, and logs the same messages. The command inherits the descriptor `inherited`,
// unless that is -1.
int run_logged(const char* command, int inherited = -1);

}  // namespace kelo::os

#endif  // KELO_APP_OS_AL_SYSTEM_CALL_HPP
