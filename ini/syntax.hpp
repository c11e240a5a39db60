// SPDX-License-Identifier: MIT
// The syntax of the lines of a settings file. Each argument is one line, or a part of one, without a zero byte. The
// returned texts are parts of the argument unless a function says otherwise.
#ifndef KELO_INI_SYNTAX_HPP
#define KELO_INI_SYNTAX_HPP

#include <optional>
#include <span>
#include <string_view>

#include "kelo_utils/ini.h"

namespace kelo::ini {

struct KeyLine {
  std::string_view key;
  std::string_view value;  // unchanged, with quotes, comment and white space
};

// Returns the name in a section header, with its white space, or nothing when the line is not a section header.
std::optional<std::string_view> section_name(std::string_view line);

// Returns the texts before and after the separator of a key line, or nothing when the line is not a key line. The
// line must not be a section header.
std::optional<KeyLine> key_line(std::string_view line);

// Compares names. The case of ASCII letters does not matter.
bool same_name(std::string_view one, std::string_view other);

// Returns the value of a key line without its comment and its quotes. A quoted value is copied into `room`.
std::string_view value_of(const KeyLine& line, std::span<char, INI_BUFFERSIZE> room);

}  // namespace kelo::ini

#endif  // KELO_INI_SYNTAX_HPP
