// SPDX-License-Identifier: MIT
// The syntax of the lines of a settings file.
#include "ini/syntax.hpp"

#include <algorithm>
#include <cstddef>

#include "ini/assertion.hpp"

namespace kelo::ini {
namespace {

constexpr char kQuote = '"';

constexpr bool is_white(char c) { return c >= 1 && c <= ' '; }

constexpr bool starts_comment(char c) { return c == '#' || c == ';'; }

constexpr char lowered(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; }

std::string_view skipleading(std::string_view text) {
  const char* start = text.begin();
  while (start != text.end() && is_white(*start)) ++start;
  assert(start <= text.end());
  return {start, static_cast<std::size_t>(text.end() - start)};
}

std::string_view striptrailing(std::string_view text) {
  while (!text.empty() && is_white(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view before(std::string_view text, std::size_t position) {
  assert(position <= text.size());
  return {text.data(), position};
}

std::string_view after(std::string_view text, std::size_t position) {
  assert(position < text.size());
  text.remove_prefix(position + 1);
  return text;
}

// Whether the character at `at` is a backslash, or a quote if `by_quote`, that makes the quote after it an ordinary
// character.
bool escapes_quote(std::string_view text, std::size_t at, bool by_quote) {
  if (at + 1 == text.size() || text[at + 1] != kQuote) return false;
  return text[at] == '\\' || (by_quote && text[at] == kQuote);
}

// Removes the comment and the white space before it.
std::string_view cleanstring(std::string_view text) {
  assert(text.data() != nullptr);
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == kQuote) {
      quoted = !quoted;  // two quotes in a row cancel each other
    } else if (!quoted && starts_comment(text[i])) {
      text = before(text, i);
    } else if (quoted && escapes_quote(text, i, false)) {
      ++i;
    }
  }
  return striptrailing(text);
}

bool is_enclosed(std::string_view value) {
  return value.size() >= 2 && value.front() == kQuote && value.back() == kQuote;
}

std::string_view unquote(std::string_view value, std::span<char, INI_BUFFERSIZE> room) {
  assert(is_enclosed(value) && value.size() <= room.size());
  value = before(after(value, 0), value.size() - 2);
  std::size_t length = 0;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (escapes_quote(value, i, true)) ++i;
    room[length++] = value[i];
  }
  return {room.data(), length};
}

}  // namespace

std::optional<std::string_view> section_name(std::string_view line) {
  line = skipleading(line);
  if (line.empty() || line.front() != '[') return std::nullopt;
  const std::size_t end = line.rfind(']');
  if (end == std::string_view::npos) return std::nullopt;
  return after(before(line, end), 0);
}

std::optional<KeyLine> key_line(std::string_view line) {
  line = skipleading(line);
  if (line.empty() || starts_comment(line.front())) return std::nullopt;
  std::size_t separator = line.find('=');
  if (separator == std::string_view::npos) separator = line.find(':');
  if (separator == std::string_view::npos) return std::nullopt;
  return KeyLine{striptrailing(before(line, separator)), after(line, separator)};
}

bool same_name(std::string_view one, std::string_view other) {
  return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                    [](char a, char b) { return lowered(a) == lowered(b); });
}

std::string_view value_of(const KeyLine& line, std::span<char, INI_BUFFERSIZE> room) {
  const std::string_view value = cleanstring(skipleading(line.value));
  return is_enclosed(value) ? unquote(value, room) : value;
}

}  // namespace kelo::ini
