// SPDX-License-Identifier: MIT
// Finds sections and keys in a settings file.
#include "ini/key_search.hpp"

#include <array>

#include "base/file.hpp"
#include "ini/assertion.hpp"
#include "ini/bounded_copy.hpp"

namespace kelo::ini {

bool find_section(Lines& lines, Target section) {
  if (section.is_nameless()) return true;
  for (std::size_t position = 0; lines.next();) {
    const auto name = section_name(lines.text());
    if (name && section.matches(*name, position++)) return true;
  }
  return false;
}

std::optional<KeyLine> find_key(Lines& lines, Target key) {
  for (std::size_t position = 0; lines.next();) {
    if (section_name(lines.text())) return std::nullopt;
    const auto line = key_line(lines.text());
    if (line && key.matches(line->key, position++)) return line;
  }
  return std::nullopt;
}

std::optional<std::size_t> getkeystring(const char* filename, Target section, std::optional<Target> key,
                                        std::span<char> buffer) {
  assert(!buffer.empty());
  assert(key || section.by_position());
  if (filename == nullptr) return std::nullopt;
  const auto file = base::open_file(filename, kReading);
  if (!file) return std::nullopt;
  Lines lines(file.get());
  if (!find_section(lines, section)) return std::nullopt;
  if (!key) return ini_strncpy(buffer, *section_name(lines.text()));
  const auto found = find_key(lines, *key);
  if (!found) return std::nullopt;
  if (key->by_position()) return ini_strncpy(buffer, found->key);
  std::array<char, INI_BUFFERSIZE> room;
  return ini_strncpy(buffer, value_of(*found, room));
}

}  // namespace kelo::ini
