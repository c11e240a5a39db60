// SPDX-License-Identifier: MIT
// Sets and deletes keys, and deletes sections.
#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string_view>

#include "base/file.hpp"
#include "ini/assertion.hpp"
#include "ini/change.hpp"
#include "ini/key_search.hpp"
#include "ini/lines.hpp"
#include "ini/syntax.hpp"
#include "kelo_utils/ini.h"

namespace {

using namespace kelo::ini;

enum class Way { unchanged, in_place, by_copy };

// The storage writes a sector completely or not at all. After a power cut only one of two sectors may be written.
bool in_one_sector(const Change& change) {
  constexpr off_t kSector = 512;
  return (change.begin ^ (change.end - 1)) < kSector;
}

// The change removes the section with its header. If the file does not have it, the change is empty.
Way delete_section(Lines& lines, Target section, Change& change) {
  const bool found = find_section(lines, section);
  change.begin = lines.begin();
  // `found` is checked because after a failed read the next read may succeed, and wrong lines would be deleted.
  while (found && lines.next() && !section_name(lines.text())) {
  }
  change.end = lines.begin();
  return Way::by_copy;
}

// The change replaces the line of the key. Without a value it removes the line.
Way change_key(const Lines& lines, const KeyLine& line, const char* key, const char* value, Change& change) {
  change.begin = lines.begin();
  change.end = lines.end();
  if (value == nullptr) return Way::by_copy;
  std::array<char, INI_BUFFERSIZE> room;
  if (value_of(line, room) == value) return Way::unchanged;
  change.text.writekey(key, value);
  const bool same_length = static_cast<off_t>(change.text.text().size()) == change.end - change.begin;
  return lines.complete() && same_length ? Way::in_place : Way::by_copy;
}

// Whether the last line of the file needs a newline before a new line can be added.
bool lacks_newline(const Lines& lines) { return lines.end() != 0 && !lines.complete(); }

// Adds the key at the end of its section. If the file does not have the section, adds both at the end of the file.
void add_key(const Lines& lines, bool has_section, const char* section, const char* key, const char* value,
             Change& change) {
  change.begin = change.end = lines.begin();
  if (!has_section) {
    // A newline comes first unless the copied file ends with a newline and its last chunk has at least two bytes.
    if (!lines.complete() || lines.chunk() < 2) change.text.write_newline();
    change.text.writesection(section);
  } else if (lines.begin() == lines.end() && lacks_newline(lines)) {
    change.text.write_newline();
  }
  change.text.writekey(key, value);
}

Way set_or_delete_key(Lines& lines, const char* section, const char* key, const char* value, Change& change) {
  const bool has_section = find_section(lines, Target::named(section));
  if (has_section) {
    if (const auto line = find_key(lines, Target::named(key)))
      return change_key(lines, *line, key, value, change);
  }
  if (value == nullptr) return Way::unchanged;
  add_key(lines, has_section, section, key, value, change);
  return Way::by_copy;
}

bool change_file(const char* section, const char* key, const char* value, const char* filename,
                 int settings) {
  struct stat status {};
  if (fstat(settings, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  Lines lines(settings);
  Change change;
  const Way way = key == nullptr ? delete_section(lines, Target::named(section), change)
                                 : set_or_delete_key(lines, section, key, value, change);
  // If a read has failed, a copy would lose the lines that could not be read.
  if (lines.failed()) return false;
  switch (way) {
    case Way::unchanged:
      return true;
    case Way::in_place:
      // Callers rely on the line being written even where no copy can be made.
      return (!in_one_sector(change) && replace_file(filename, settings, change)) ||
             overwrite_stretch(filename, change);
    default:
      return replace_file(filename, settings, change);
  }
}

bool make_file(const char* section, const char* key, const char* value, const char* filename) {
  WrittenText text;
  if (section != nullptr && *section != '\0') text.writesection(section);
  text.writekey(key, value);
  return create_file(filename, text.text());
}

}  // namespace

int ini_puts(const char* section, const char* key, const char* value, const char* filename) {
  assert(filename != nullptr);
  const auto settings = kelo::base::open_file(filename, kelo::ini::kReading);
  if (settings) return change_file(section, key, value, filename, settings.get()) ? 1 : 0;
  if (errno != ENOENT && errno != ENOTDIR) return 0;
  if (key == nullptr || value == nullptr) return 1;
  return make_file(section, key, value, filename) ? 1 : 0;
}
