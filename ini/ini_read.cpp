// SPDX-License-Identifier: MIT
// Reads values by the name of a key, and names by position.
#include <cstddef>
#include <optional>
#include <span>

#include "ini/bounded_copy.hpp"
#include "ini/key_search.hpp"
#include "kelo_utils/ini.h"

namespace {

using kelo::ini::Target;

// Returns the caller's buffer, or an empty span when the caller has none.
std::span<char> buffer_of(char* buffer, int size) {
  if (buffer == nullptr || size <= 0) return {};
  return {buffer, static_cast<std::size_t>(size)};
}

// Copies the text found in the file or, if there is none, the text `absent`.
int copy_text(const char* filename, Target section, std::optional<Target> key, const char* absent,
              std::span<char> buffer) {
  const auto length = kelo::ini::getkeystring(filename, section, key, buffer);
  return static_cast<int>(length ? *length : kelo::ini::ini_strncpy(buffer, absent));
}

}  // namespace

int ini_gets(const char* section, const char* key, const char* def_value, char* buffer, int buffer_size,
             const char* filename) {
  const auto room = buffer_of(buffer, buffer_size);
  if (room.empty() || key == nullptr) return 0;
  return copy_text(filename, Target::named(section), Target::named(key),
                   def_value == nullptr ? "" : def_value, room);
}

int ini_getsection(int index, char* buffer, int buffer_size, const char* filename) {
  const auto room = buffer_of(buffer, buffer_size);
  if (room.empty()) return 0;
  return copy_text(filename, Target::at(index), std::nullopt, "", room);
}

int ini_getkey(const char* section, int index, char* buffer, int buffer_size, const char* filename) {
  const auto room = buffer_of(buffer, buffer_size);
  if (room.empty()) return 0;
  return copy_text(filename, Target::named(section), Target::at(index), "", room);
}
