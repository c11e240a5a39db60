// SPDX-License-Identifier: MIT
// Tests of programs for another processor run under an emulator, which shows in a few places.
#ifndef KELO_TESTS_SUPPORT_EMULATION_HPP
#define KELO_TESTS_SUPPORT_EMULATION_HPP

#include <string>

namespace kelo::tests {

// The command that runs such programs, for the shell; empty when this machine runs them itself.
inline constexpr char kEmulator[] = KELO_EMULATOR;
inline constexpr bool kEmulated = sizeof kEmulator > 1;

// Why tests of process names are skipped then.
inline constexpr char kNamedAsTheEmulator[] = "the kernel knows an emulated program by the emulator's name";

// Why tests of programs that cannot be started are skipped then.
inline constexpr char kEmulatorLosesTheError[] = "the emulator starts a process that ends with 127 instead";

// The words for the shell that run a program of this build.
inline std::string shell_command(const std::string& program) {
  return std::string(kEmulator) + "'" + program + "'";
}

}  // namespace kelo::tests

#endif  // KELO_TESTS_SUPPORT_EMULATION_HPP
