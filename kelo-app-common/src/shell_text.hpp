// SPDX-License-Identifier: MIT
// Checks text that becomes a part of a shell command.
#ifndef KELO_APP_COMMON_SHELL_TEXT_HPP
#define KELO_APP_COMMON_SHELL_TEXT_HPP

#include <cstring>

namespace kelo::common {

// Whether the text contains a character with which the shell runs, redirects or replaces something.
inline bool shell_acts_on(const char* text) { return text[std::strcspn(text, ";&|<>$\\`()\n")] != '\0'; }

}  // namespace kelo::common

#endif  // KELO_APP_COMMON_SHELL_TEXT_HPP
