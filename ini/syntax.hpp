// What the lines of a settings file mean. Every text handed in is one line, or a part of one, without a zero
// byte; every text handed out stands in it.
#ifndef KELO_INI_SYNTAX_HPP
#define KELO_INI_SYNTAX_HPP

#include <optional>
#include <span>
#include <string_view>

#include "kelo_utils/ini.h"

namespace kelo::ini {

struct KeyLine {
  std::string_view key;
  std::string_view value;  // as it stands: with quotes, comment and white space
};

// The name in a section header, untrimmed; none when the line is something else.
std::optional<std::string_view> section_name(std::string_view line);

// The two sides of a key line's separator; none when the line is something else. Not for section headers.
std::optional<KeyLine> key_line(std::string_view line);

// Names are the same whatever the case of their ASCII letters.
bool same_name(std::string_view one, std::string_view other);

// The value of a key line, cut at its comment and out of its quotes. A quoted one is put into `room`.
std::string_view value_of(const KeyLine& line, std::span<char, INI_BUFFERSIZE> room);

}  // namespace kelo::ini

#endif  // KELO_INI_SYNTAX_HPP
